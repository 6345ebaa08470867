# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""Drives programs from a scenario."""
import re
import signal
import subprocess
import tempfile
import threading
import time

class Failure(Exception):
    """What a scenario saw instead of what it wanted."""


class Reader:
    """Awaits lines of a program in their order, from the first or, where `now`, from those to come."""

    def __init__(self, program, now=False):
        self.program, self.seen = program, len(program.lines) if now else 0

    def expect(self, pattern, seconds):
        """The next line that the pattern is found in."""
        program, end = self.program, time.monotonic() + seconds
        with program.changed:
            while True:
                while self.seen < len(program.lines):
                    self.seen += 1
                    found = re.search(pattern, program.lines[self.seen - 1])
                    if found:
                        return found
                left = end - time.monotonic()
                if program.ended or left <= 0:
                    raise Failure(f"no line /{pattern}/ within {seconds} s from: {program.report()}")
                program.changed.wait(left)

    def refuse(self, pattern, seconds):
        """No line with the pattern for so long."""
        try:
            line = self.expect(pattern, seconds).string
        except Failure:
            if self.program.ended:
                raise
        else:
            raise Failure(f'"{line}" from: {self.program.report()}')


class Program:
    """A running program, with one reader of its lines; others may be added."""

    running = []

    def __init__(self, *arguments):
        self.title = " ".join(arguments[1:])
        self.lines, self.times, self.ended = [], [], False
        self.reader = Reader(self)
        self.changed = threading.Condition()
        self.process = subprocess.Popen(
            arguments, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        Program.running.append(self)
        self.thread = threading.Thread(target=self.read, daemon=True)
        self.thread.start()

    def read(self):
        for line in self.process.stdout:
            with self.changed:
                self.lines.append(line.rstrip("\n"))
                self.times.append(time.monotonic())
                self.changed.notify_all()
        with self.changed:
            self.ended = True
            self.changed.notify_all()

    def expect(self, pattern, seconds):
        return self.reader.expect(pattern, seconds)

    def refuse(self, pattern, seconds):
        self.reader.refuse(pattern, seconds)

    def type(self, line):
        with self.changed:
            self.process.stdin.write(line + "\n")
            self.process.stdin.flush()

    def hang_up(self):
        """Ends the input of a program that ends with it."""
        self.process.stdin.close()
        return self.finish(0, 15)

    def end(self, how=signal.SIGTERM):
        """Sends a signal that the program ends on, and says so in its status."""
        self.process.send_signal(how)
        return self.finish(128 + how, 15)

    def finish(self, status, seconds):
        """Awaits the end, with this status."""
        try:
            found = self.process.wait(seconds)
        except subprocess.TimeoutExpired:
            raise Failure(f"still running after {seconds} s: {self.report()}") from None
        self.thread.join(5)
        if found != status:
            raise Failure(f"status {found} instead of {status}: {self.report()}")
        return "\n".join(self.lines)

    def report(self):
        last = [f"{when:7.1f} {line}" for when, line in zip(self.times, self.lines)][-30:]
        return "\n      ".join([self.title] + last)

    def stop(self):
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(5)
            except subprocess.TimeoutExpired:
                self.process.kill()
        if self in Program.running:
            Program.running.remove(self)


def stop_all():
    for program in list(Program.running):
        program.stop()


def secret_file(text):
    with tempfile.NamedTemporaryFile("w", delete=False, encoding="utf-8") as file:
        file.write(text + "\n")
        return file.name
