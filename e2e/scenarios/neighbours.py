# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""Other programs on the same adapter."""
import signal

from kit import BACK, LOST, TAGS, bound_tag, expect_heard, require, scenario, start, tag, watch
from program import Failure, Program
from stack import adapter_address, air, devices, expect_links, until


@scenario(90)
def two_clients():
    """One program's scan goes on beside another's link, and ends without it."""
    bound_tag(1)
    bound_tag(2)
    watching = watch(1)
    expect_heard({TAGS[2]: 100})
    expect_links(1)
    air("hci0 conn_rssi -41")
    watching.expect("rssi -41 dBm", 15)
    watching.end()
    require(not any(LOST in line for line in watching.lines), f"the link was lost: {watching.lines}")

class Sharer:
    """A program on a tag that another one uses, too."""

    def __init__(self):
        self.program, self.linked, self.returns = watch(), True, 0

    def await_loss(self):
        if self.linked:
            self.program.expect(LOST, 15)

    def await_return(self):
        try:
            self.program.expect(BACK, 20)
        except Failure:
            require(not self.program.ended, self.program.report())
            self.linked = False
        else:
            self.linked = True
            self.returns += 1


@scenario(420)
def two_programs_on_one_tag():
    """They share the link, and both come back when it is lost.

    The tag has one session at a time: where the two handshakes get into each other one program stays out until the next
    loss. So there are several, but neither may stay out for good, as it does where a request that the daemon calls "in
    progress" is not sent again.
    """
    bound_tag()
    both = [Sharer(), Sharer()]
    expect_links(1)
    for _ in range(8):
        air("hci0 drop")
        for each in both:
            each.await_loss()
        for each in both:
            each.await_return()
        if all(each.returns >= 2 for each in both):
            return
    require(False, f"came back {[each.returns for each in both]} times after 8 losses")


def foreign_scan(*settings):
    """The stack's own command line, which scans through the daemon, too."""
    program = Program("stdbuf", "-oL", "bluetoothctl")
    program.expect("Agent registered", 20)
    for line in (f"select {adapter_address()}", *settings, "scan on"):
        program.type(line)
    program.expect("Discovery started", 20)
    return program


def expect_sighting(number):
    """By the daemon, which tells all who scan."""
    path = "/org/bluez/hci0/dev_" + adapter_address(f"hci{number}").replace(":", "_")
    until(lambda: path in devices(), 40, f"{path} is not heard")


@scenario(240)
def foreign_scans():
    """Others scan with a filter that hides tags, and end in order or not: ours goes on beside them and after."""
    for number in (1, 2, 3):
        tag("--battery", str(60 + number), number=number)
        air(f"hci{number} hidden 1")
    other = foreign_scan("menu scan", "pattern no-tag", "back")
    scanning = start("scan", "--for", "10m", "--json")
    air("hci1 hidden 0")
    expect_sighting(1)
    other.type("scan off")
    other.expect("Discovery stopped", 20)
    air("hci2 hidden 0")
    expect_sighting(2)
    other.type("scan on")
    other.expect("Discovery started", 20)
    other.process.kill()
    air("hci3 hidden 0")
    expect_sighting(3)
    scanning.process.send_signal(signal.SIGINT)
    heard = scanning.finish(128 + signal.SIGINT, 30)
    for number in (1, 2, 3):
        require(TAGS[number] in heard, f"{TAGS[number]} is not in {heard}")


def lose(watching):
    air("hci0 drop")
    watching.expect(LOST, 15)
    watching.expect(BACK, 60)


@scenario(240)
def link_beside_foreign_scan():
    """A link is made, lost and made again while others scan, after they have stopped, and after they were killed."""
    bound_tag()
    other = foreign_scan()
    watching = watch()
    lose(watching)
    other.type("scan off")
    other.expect("Discovery stopped", 20)
    lose(watching)
    other.type("scan on")
    other.expect("Discovery started", 20)
    other.process.kill()
    lose(watching)
