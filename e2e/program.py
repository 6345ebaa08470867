"""Drives programs from a scenario."""
import re
import signal
import subprocess
import tempfile
import threading
import time

class Failure(Exception):
    """What a scenario saw instead of what it wanted."""


class Program:
    """A running program whose lines are awaited in order."""

    running = []

    def __init__(self, *arguments):
        self.title = " ".join(arguments[1:])
        self.lines, self.seen, self.ended = [], 0, False
        self.changed = threading.Condition()
        self.process = subprocess.Popen(
            arguments, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        Program.running.append(self)
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        for line in self.process.stdout:
            with self.changed:
                self.lines.append(line.rstrip("\n"))
                self.changed.notify_all()
        with self.changed:
            self.ended = True
            self.changed.notify_all()

    def expect(self, pattern, seconds):
        """The next line that the pattern is found in."""
        end = time.monotonic() + seconds
        with self.changed:
            while True:
                while self.seen < len(self.lines):
                    self.seen += 1
                    found = re.search(pattern, self.lines[self.seen - 1])
                    if found:
                        return found
                left = end - time.monotonic()
                if self.ended or left <= 0:
                    raise Failure(f"no line /{pattern}/ within {seconds} s from: {self.report()}")
                self.changed.wait(left)

    def refuse(self, pattern, seconds):
        """No line with the pattern for so long."""
        try:
            line = self.expect(pattern, seconds).string
        except Failure:
            if self.ended:
                raise
        else:
            raise Failure(f'"{line}" from: {self.report()}')

    def type(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

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
        self.reader.join(5)
        if found != status:
            raise Failure(f"status {found} instead of {status}: {self.report()}")
        return "\n".join(self.lines)

    def report(self):
        return "\n      ".join([self.title] + self.lines[-30:])

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
