#!/usr/bin/env python3
"""scenarios.py KVFOB [NAME...]: the program as an application on hci0, and as a virtual tag on hci1."""
import json
import signal
import sys
import time

from program import Failure, Program, air, forget_devices, power, restart_daemon, secret_file, stop_all

KVFOB = sys.argv[1]
TAG = "a1b2c3d4e5f6"
PASSWORD = secret_file("open sesame")
WRONG = secret_file("wrong word")
LOST = "connection lost"  # as `watch` reports them
BACK = "connected$"


def tag(*arguments):
    program = Program(KVFOB, "tag", "--adapter", "hci1", "--address", TAG, *arguments)
    program.expect("^ready", 20)
    return program


def start(*command):
    return Program(KVFOB, "--radio", "bluez", "--adapter", "hci0", *command)


def do(*command, status=0, seconds=45):
    return start(*command).finish(status, seconds)


def on_tag(command, *arguments, password=PASSWORD, **how):
    return do(command, TAG, *arguments, "--password-file", password, **how)


def watch():
    program = start("watch", TAG, "--password-file", PASSWORD)
    program.expect("connected", 40)
    return program


def road():
    """Every command, from the first scan to the last."""
    virtual = tag("--battery", "77")
    heard = [json.loads(line) for line in do("scan", "--for", "4s", "--json").splitlines() if line.startswith("{")]
    if not any(one["address"] == TAG and one["battery"] == 77 for one in heard):
        raise Failure(f"the tag is not in {heard}")
    on_tag("bind")
    virtual.expect("^bound", 5)
    for command in (["ring"], ["silence"], ["alert", "on"], ["delay", "30"], ["distance", "near"]):
        on_tag(*command)
    watching = watch()
    air("hci0 conn_rssi -48")
    watching.expect(r"rssi -48 dBm", 15)
    watching.process.send_signal(signal.SIGINT)
    watching.finish(128 + signal.SIGINT, 15)
    on_tag("unbind")
    on_tag("bind", password=WRONG)  # an unbound tag takes any password


def drop_and_reconnect():
    """The link is lost twice; it comes back by itself, and the tag still obeys."""
    virtual = tag()
    on_tag("bind")
    watching = watch()
    for _ in range(2):
        air("hci0 drop")
        watching.expect(LOST, 15)
        watching.expect(BACK, 30)
    watching.stop()
    virtual.expect("^disconnected", 15)
    on_tag("ring")


def adapter_off_and_on():
    """A command needs the adapter on; a watch outlives its being off."""
    tag()
    on_tag("bind")
    power("hci0", False)
    on_tag("ring", status=3)
    do("scan", "--for", "2s", status=3)
    power("hci0", True)
    watching = watch()
    power("hci0", False)
    watching.expect(LOST, 15)
    power("hci0", True)
    watching.expect(BACK, 40)


def refused_password():
    """A bound tag takes the password that it was bound with, and no other."""
    virtual = tag("--password-file", PASSWORD)
    on_tag("bind", password=WRONG, status=5)
    virtual.expect("^wrong password", 5)
    on_tag("bind")


def no_such_tag():
    """A tag that nobody hears is not found, in the time that was asked for."""
    begun = time.monotonic()
    do("--timeout", "5", "ring", TAG, "--password-file", PASSWORD, status=4)
    took = time.monotonic() - begun
    if not 4 < took < 15:
        raise Failure(f"took {took:.1f} s")


def daemon_restarted():
    """The Bluetooth service is killed and comes back: so do the tag and the link."""
    virtual = tag()
    on_tag("bind")
    watching = watch()
    restart_daemon()
    watching.expect(LOST, 20)
    virtual.expect("^ready", 40)
    watching.expect(BACK, 60)


SCENARIOS = {  # and their limits, in seconds
    road: 150,
    drop_and_reconnect: 120,
    adapter_off_and_on: 150,
    refused_password: 60,
    no_such_tag: 30,
    daemon_restarted: 150,
}


class Overrun(BaseException):
    """Not a Failure: nothing in a scenario may swallow it."""


def overrun(*_):
    raise Overrun


def run(scenario, limit):
    begun = time.monotonic()
    problem = None
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
    forget_devices()
    verdict = "FAIL" if problem else "PASS"
    print(f"{verdict} {scenario.__name__} ({time.monotonic() - begun:.1f} s)", flush=True)
    if problem:
        print("    " + problem, flush=True)
    return not problem


def main():
    signal.signal(signal.SIGALRM, overrun)
    by_name = {scenario.__name__: scenario for scenario in SCENARIOS}
    names = sys.argv[2:] or list(by_name)
    unknown = [name for name in names if name not in by_name]
    if unknown:
        print(f"no scenario {unknown[0]}; there are: {' '.join(by_name)}")
        return 2
    passed = sum(run(by_name[name], SCENARIOS[by_name[name]]) for name in names)
    print(f"{passed} passed, {len(names) - passed} failed", flush=True)
    return 0 if passed == len(names) else 1


if __name__ == "__main__":
    sys.exit(main())
