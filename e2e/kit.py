# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""What the scenarios share: the program as an application on hci0, and as virtual tags on hci1, hci2..."""
import contextlib
import json
import os
import sys

from program import Failure, Program, secret_file

KVFOB = sys.argv[1]
BOOK = os.path.expanduser("~/.local/state/kvfob/tags")
KEEPER = os.path.join(os.path.dirname(KVFOB), "e2e_keeper")
LONG = "--long" in sys.argv  # what is told by passing time is given more of it
TAGS = [f"a1b2c3d4e5f{number}" for number in range(10)]  # the one on hciN is number N
TAG = TAGS[1]
PASSWORD = secret_file("open sesame")
WRONG = secret_file("wrong word")
LOST = "connection lost"  # as `watch` reports them
BACK = "connected$"

SCENARIOS = {}  # and their limits, in seconds


def scenario(limit):
    def add(function):
        SCENARIOS[function] = limit
        return function
    return add


def tag(*arguments, number=1):
    program = Program(KVFOB, "tag", "--adapter", f"hci{number}", "--address", TAGS[number], *arguments)
    program.expect("^ready", 30)
    return program


def bound_tag(number=1):
    """One that was bound from here, in an earlier life of it."""
    remember(number)
    return tag("--password-file", PASSWORD, number=number)


def remember(*numbers):
    """Puts bound tags into the program's list, their passwords not saved."""
    os.makedirs(os.path.dirname(BOOK), exist_ok=True)
    with open(BOOK, "a", encoding="utf-8", opener=lambda path, flags: os.open(path, flags, 0o600)) as file:
        file.writelines(f"bluez\t{TAGS[number]}\t\t\n" for number in numbers)


def forget_tags():
    with contextlib.suppress(FileNotFoundError):
        os.unlink(BOOK)


def start(*command, adapter="hci0"):
    return Program(KVFOB, "--radio", "bluez", "--adapter", adapter, *command)


def do(*command, status=0, seconds=45):
    return start(*command).finish(status, seconds)


def on_tag(command, *arguments, number=1, password=PASSWORD, **how):
    return do(command, TAGS[number], *arguments, "--password-file", password, **how)


def start_watch(number=1, **how):
    return start("watch", TAGS[number], "--password-file", PASSWORD, **how)


def watch(number=1, **how):
    program = start_watch(number, **how)
    program.expect(BACK, 40)
    return program


def keep(*numbers):
    """An application that stays connected to several tags."""
    return Program(KEEPER, "hci0", PASSWORD, *(TAGS[number] for number in numbers))


def expect_heard(batteries):
    heard = [json.loads(line) for line in do("scan", "--for", "4s", "--json").splitlines() if line.startswith("{")]
    found = {one["address"]: one["battery"] for one in heard}
    require(batteries.items() <= found.items(), f"not {batteries} but {found}")


def require(condition, what):
    if not condition:
        raise Failure(what)
