"""Drives programs and the Bluetooth stack from a scenario."""
import os
import re
import socket
import subprocess
import tempfile
import threading
import time

BLUETOOTHD = "/usr/libexec/bluetooth/bluetoothd"
DAEMON_PID = "/run/bluetoothd.pid"
SHARE = "/run/share"


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
            arguments, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
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


def air(command):
    """Tells the relay between the stack and the emulated controllers what to do."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as control:
        control.sendto(command.encode(), "/run/vproxy.sock")


def bus(path, method, *arguments):
    return subprocess.run(
        ["dbus-send", "--system", "--print-reply", "--dest=org.bluez", path, method, *arguments],
        capture_output=True, text=True, timeout=30, check=False).stdout


def power(adapter, on):
    bus(f"/org/bluez/{adapter}", "org.freedesktop.DBus.Properties.Set", "string:org.bluez.Adapter1",
        "string:Powered", "variant:boolean:" + ("true" if on else "false"))


def forget_devices():
    """So that no scenario meets what an earlier one left behind."""
    objects = bus("/", "org.freedesktop.DBus.ObjectManager.GetManagedObjects")
    for path in set(re.findall(r'object path "(/org/bluez/hci\d/dev_[0-9A-F_]+)"', objects)):
        bus(path.rsplit("/", 1)[0], "org.bluez.Adapter1.RemoveDevice", "objpath:" + path)


def restart_daemon():
    with open(DAEMON_PID, encoding="utf-8") as file:
        os.kill(int(file.read()), 9)
    with open(SHARE + "/bluetoothd.log", "a", encoding="utf-8") as log:
        daemon = subprocess.Popen([BLUETOOTHD, "-n", "-d"], stdin=subprocess.DEVNULL, stdout=log, stderr=log)
    with open(DAEMON_PID, "w", encoding="utf-8") as file:
        file.write(str(daemon.pid))
