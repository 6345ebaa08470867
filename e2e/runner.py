#!/usr/bin/env python3
# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""runner.py KVFOB [--long] [NAME...]: runs the scenarios, or those named, and prints one line for each."""
import importlib
import signal
import sys
import time

from kit import SCENARIOS, forget_tags
from program import Failure, Program, stop_all
from stack import CONTROLLERS, air, daemon_runs, forget_devices, mend_adapters, power, start_daemon

TOPICS = ("commands", "links", "service", "crowd", "neighbours", "clock", "attributes")


class Overrun(BaseException):
    """Not a Failure: nothing in a scenario may swallow it."""


def overrun(*_):
    raise Overrun


def calm():
    for controller in CONTROLLERS:
        air(controller + " calm")
    power("hci0", True)


def run(scenario, limit):
    begun = time.monotonic()
    problem = None
    calm()
    forget_tags()
    signal.alarm(limit)
    try:
        scenario()
    except Failure as failure:
        problem = str(failure)
    except Overrun:
        problem = f"more than {limit} s"
    signal.alarm(0)
    if problem:
        for program in Program.running:
            problem += "\n    " + program.report()
    stop_all()
    if not daemon_runs():  # the next scenario shall not fail for this one's sake
        problem = (problem or "") + "\n    the daemon is gone"
        start_daemon()
    mend_adapters()
    forget_devices()
    verdict = "FAIL" if problem else "PASS"
    print(f"{verdict} {scenario.__name__} ({time.monotonic() - begun:.1f} s)", flush=True)
    if problem:
        print("    " + problem, flush=True)
    return not problem


def main():
    signal.signal(signal.SIGALRM, overrun)
    for topic in TOPICS:
        importlib.import_module("scenarios." + topic)
    by_name = {scenario.__name__: scenario for scenario in SCENARIOS}
    names = [name for name in sys.argv[2:] if name != "--long"] or list(by_name)
    unknown = [name for name in names if name not in by_name]
    if unknown:
        print(f"no scenario {unknown[0]}; there are: {' '.join(by_name)}")
        return 2
    begun = time.monotonic()
    passed = sum(run(by_name[name], SCENARIOS[by_name[name]]) for name in names)
    print(f"in {time.monotonic() - begun:.0f} s", flush=True)
    print(f"{passed} passed, {len(names) - passed} failed", flush=True)
    return 0 if passed == len(names) else 1


if __name__ == "__main__":
    sys.exit(main())
