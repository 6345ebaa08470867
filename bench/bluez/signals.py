"""The CPU time that one advertisement costs each of three scanning programs, on a bus and with a daemon of their own."""
import os
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


def start(command, **how):
    return subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, **how)


def expect(process, word):
    line = process.stdout.readline().strip()
    if line != word:
        sys.exit(f'"{line}" instead of "{word}" from {process.args}')


def cpu_seconds(process):
    """Of all its threads, to the nanosecond: the clock of a process is named by its number (clock_getcpuclockid)."""
    return time.clock_gettime((~process.pid << 3) | 2)


def seconds_each(build, name, bus, tags, count):
    """The CPU time of one signal among so many, start-up and warm-up left out."""
    with start([build + "/bench_advertiser", bus, str(tags)]) as daemon:
        expect(daemon, "ready")
        with start(PROGRAMS[name](build, bus), env={**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": bus}) as program:
            expect(daemon, "scanning")
            time.sleep(SETTLE)

            def send(signals):
                daemon.stdin.write(f"{signals}\n")
                daemon.stdin.flush()
                expect(daemon, "sent")
                time.sleep(SETTLE)
                return cpu_seconds(program)

            begun = send(WARM_UP)
            took = send(count) - begun
            program.stdin.close()
            expect(program, str(WARM_UP + count))
        daemon.stdin.close()
    return took / count


def measure(build, rounds, count):
    """For each program and number of tags the seconds of each round, in which they take turns."""
    found = {}
    with tempfile.TemporaryDirectory() as folder:
        bus = f"unix:path={folder}/bus"
        broker = start(["dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address", "--address=" + bus],
                       stderr=subprocess.DEVNULL)  # complains about file limits
        try:
            broker.stdout.readline()
            for _ in range(rounds):
                for tags in TAGS:
                    for name in PROGRAMS:
                        found.setdefault((name, tags), []).append(seconds_each(build, name, bus, tags, count))
        finally:
            broker.kill()
            broker.wait()
    return found


def ratio(some, others):
    """The median of the rounds' ratios: what else the machine does changes less within a round than between them."""
    return statistics.median(one / other for one, other in zip(some, others))
