# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""inside.py KVFOB ROAD RUNS BLEAK_RUNS: in the emulated machine, walks the road with either program in a fresh process each
time, by turns and after the daemon has forgotten the tag, and prints a line of JSON for each."""
import json
import os
import select
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "../../e2e"))

from kit import PASSWORD, TAG, tag
from program import stop_all
from stack import forget_devices

LIMIT = 60  # seconds for one road


def line_within(stream, seconds):
    ready, _, _ = select.select([stream], [], [], seconds)
    return stream.readline().strip() if ready else ""


def peak_memory(process):
    """In KiB. What wait4 tells would include that of this process, from before the other was executed."""
    with open(f"/proc/{process.pid}/status", encoding="utf-8") as file:
        return int(next(line.split()[1] for line in file if line.startswith("VmHWM")))


def walk(name, command):
    """One run, as the dictionary that is printed."""
    begun = time.monotonic()
    process = subprocess.Popen([*command, "hci0", TAG, PASSWORD], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, text=True)
    rung = line_within(process.stdout, LIMIT) == "rung"
    took = time.monotonic() - begun
    if not rung:
        process.kill()
    memory = peak_memory(process) if rung else None
    process.stdin.close()
    problem = process.stderr.read().strip()
    _, status, usage = os.wait4(process.pid, 0)
    return {"program": name, "rung": rung and status == 0, "wall": took, "cpu": usage.ru_utime + usage.ru_stime,
            "memory": memory, "problem": problem.splitlines()[-1:]}


def main():
    commands = {"library": [sys.argv[2]], "bleak": [sys.executable, os.path.join(HERE, "road.py")]}
    runs, bleak_runs = int(sys.argv[3]), int(sys.argv[4])
    tag()
    for number in range(runs):
        names = ["library"]
        if (number + 1) * bleak_runs // runs > number * bleak_runs // runs:
            names.append("bleak")
        for name in names:
            print(json.dumps(walk(name, commands[name])), flush=True)
            forget_devices()
    stop_all()


main()
