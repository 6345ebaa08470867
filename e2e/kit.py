"""What the scenarios share: the program as an application on hci0, and as virtual tags on hci1, hci2..."""
import sys

from program import Failure, Program, secret_file

KVFOB = sys.argv[1]
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
    return tag("--password-file", PASSWORD, number=number)


def start(*command):
    return Program(KVFOB, "--radio", "bluez", "--adapter", "hci0", *command)


def do(*command, status=0, seconds=45):
    return start(*command).finish(status, seconds)


def on_tag(command, *arguments, number=1, password=PASSWORD, **how):
    return do(command, TAGS[number], *arguments, "--password-file", password, **how)


def start_watch(number=1):
    return start("watch", TAGS[number], "--password-file", PASSWORD)


def watch(number=1):
    program = start_watch(number)
    program.expect(BACK, 40)
    return program


def require(condition, what):
    if not condition:
        raise Failure(what)
