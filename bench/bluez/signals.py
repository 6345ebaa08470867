# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""What one advertisement costs each of three scanning programs, on a bus and with a daemon of their own."""
import contextlib
import os
import re
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
TAGS = (10, 1_000)
WARM_UP = 1_000  # signals
SETTLE = 0.2  # seconds in which the last signals are handled
PROGRAMS = {
    "the library": lambda build, bus: [build + "/bench_scan_library", bus],
    "bare sd-bus": lambda build, bus: [build + "/bench_scan_bare", bus],
    "bleak": lambda build, bus: [sys.executable, HERE + "/scan_bleak.py"],
}
CALLGRIND = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null"]


def start(command, **how):
    return subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, **how)


def expect(process, word):
    line = process.stdout.readline().strip()
    if line != word:
        sys.exit(f'"{line}" instead of "{word}" from {process.args}')


def cpu_seconds(process):
    """Of all its threads, to the nanosecond: the clock of a process is named by its number (clock_getcpuclockid)."""
    return time.clock_gettime((~process.pid << 3) | 2)


class Scan:
    """A program that scans, from its start until the daemon has its request, and the daemon that sends it signals."""

    def __init__(self, build, name, bus, tags, under=(), **how):
        self.daemon = start([build + "/bench_advertiser", bus, str(tags)])
        expect(self.daemon, "ready")
        begun = time.monotonic()
        self.program = start([*under, *PROGRAMS[name](build, bus)], env={**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": bus},
                             **how)
        expect(self.daemon, "scanning")
        self.seconds_to_scanning = time.monotonic() - begun
        self.sent = 0
        time.sleep(SETTLE)

    def send(self, count):
        self.daemon.stdin.write(f"{count}\n")
        self.daemon.stdin.flush()
        expect(self.daemon, "sent")
        self.sent += count
        time.sleep(SETTLE)

    def end(self):
        """Ends both; returns what the program wrote to standard error, where that was asked for."""
        self.program.stdin.close()
        expect(self.program, str(self.sent))
        self.daemon.stdin.close()
        self.daemon.wait()
        said = self.program.stderr.read() if self.program.stderr else ""
        self.program.wait()
        return said


def seconds_each(scan, count):
    """The CPU time of one signal among so many, start-up and warm-up left out."""
    scan.send(WARM_UP)
    begun = cpu_seconds(scan.program)
    scan.send(count)
    return (cpu_seconds(scan.program) - begun) / count


@contextlib.contextmanager
def private_bus():
    with tempfile.TemporaryDirectory() as folder:
        bus = f"unix:path={folder}/bus"
        broker = start(["dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address", "--address=" + bus],
                       stderr=subprocess.DEVNULL)  # complains about file limits
        try:
            broker.stdout.readline()
            yield bus
        finally:
            broker.kill()
            broker.wait()


def measure(build, rounds, count):
    """What each program took in each round, in which they take turns, by its name and the number of tags: the seconds of a
    signal, and, with "start" before these two, those to scanning."""
    found = {}
    with private_bus() as bus:
        for _ in range(rounds):
            for tags in TAGS:
                for name in PROGRAMS:
                    scan = Scan(build, name, bus, tags)
                    found.setdefault(("start", name, tags), []).append(scan.seconds_to_scanning)
                    found.setdefault((name, tags), []).append(seconds_each(scan, count))
                    scan.end()
    return found


def instructions_each(build, name):
    """The instructions of one signal outside of the kernel: what a run with more of them has more."""
    few, many = 1_000, 3_000

    def collected(count):
        scan = Scan(build, name, bus, TAGS[-1], CALLGRIND, stderr=subprocess.PIPE)
        scan.send(count)
        return int(re.search(r"Collected : (\d+)", scan.end()).group(1))

    with private_bus() as bus:
        return (collected(many) - collected(few)) / (many - few)


def ratio(some, others):
    """The median of the rounds' ratios: what else the machine does changes less within a round than between them."""
    return statistics.median(one / other for one, other in zip(some, others))
