# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""The calendar clock is set: nothing may wait by it."""
import time

from kit import BACK, LOST, TAG, bound_tag, require, scenario, start, watch
from program import Reader
from stack import air, expect_discovery, movable_clock

DAY = 24 * 3600
READINGS = 3  # seconds from one reading of the signal strength to the next


@scenario(180)
def clock_set_while_connected():
    """The link is kept, its signal strength is read as often as before, and it comes back when it is lost."""
    bound_tag()
    watching = watch()
    with movable_clock() as move:
        for strength, jump in ((-41, 2 * DAY), (-42, -4 * DAY)):
            readings, begun = Reader(watching, now=True), time.monotonic()
            air(f"hci0 conn_rssi {strength}")
            move(jump)
            for _ in range(3):
                readings.expect(f"rssi {strength} dBm", 15)
            took = time.monotonic() - begun
            require(took > READINGS, f"three readings in {took:.1f} s")
        require(not any(LOST in line for line in watching.lines), f"the link was lost: {watching.report()}")
        for jump in (4 * DAY, -4 * DAY):
            air("hci0 drop")
            watching.expect(LOST, 15)
            move(jump)
            watching.expect(BACK, 40)


@scenario(120)
def clock_set_while_scanning():
    """A scan takes the time that it was given, and hears what comes later."""
    bound_tag()
    air("hci1 hidden 1")
    seconds, begun = 12, time.monotonic()
    scanning = start("scan", "--for", f"{seconds}s", "--json")
    expect_discovery()
    with movable_clock() as move:
        move(DAY)
        move(-2 * DAY)
        air("hci1 hidden 0")
        heard = scanning.finish(0, seconds + 30)
    took = time.monotonic() - begun
    require(took > seconds, f"the scan took but {took:.1f} s")
    require(TAG in heard, f"the tag is not in {heard}")
