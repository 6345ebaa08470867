# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""A tag has other attributes than the daemon remembers."""
import re

from kit import PASSWORD, TAG, bound_tag, do, on_tag, require, scenario
from stack import adapter_address, daemon_setting, expect_links, remove_devices

HASH = re.compile("[0-9a-f]{32}(?=:00002b2a-)")  # by which a device may tell that they have changed
STALE = "has other attributes than bluetoothd remembers"
REMEDY = "Cache = no"


def ring(seconds, **how):
    return do("--log", "radio", "--timeout", f"{seconds}s", "ring", TAG, "--password-file", PASSWORD,
              seconds=seconds + 30, **how)


def memory():
    return f"/var/lib/bluetooth/{adapter_address()}/cache/{adapter_address('hci1')}"


def remembered():
    """What the daemon remembers of the tag that is on the air now; a virtual one moves each time it goes there."""
    on_tag("ring")
    expect_links(0)
    with open(memory(), encoding="utf-8") as file:
        return file.read()


def tag_that_moved(memory_begins=""):
    """The daemon remembers what the tag had before, and under what the tag says of itself now, as of a tag that does
    not say when it changes."""
    virtual = bound_tag()
    before = remembered()
    virtual.stop()
    virtual = bound_tag()
    now = remembered()
    require(HASH.sub("", before) != HASH.sub("", now), "the tag has the same attributes as before")
    remove_devices()
    with open(memory(), "w", encoding="utf-8") as file:
        file.write(memory_begins + HASH.sub(HASH.search(now).group(), before))
    return virtual


@scenario(180)
def stale_attributes():
    """The daemon is told to forget the tag, and finds its attributes anew."""
    virtual = tag_that_moved("[General]\nName=Tag\n\n")
    said = ring(60)
    require(STALE in said, f"nothing was stale: {said}")
    virtual.expect("^ring", 5)


@scenario(240)
def stale_attributes_for_good():
    """A daemon that remembers nothing else of the tag does not forget them either; the log tells the remedy."""
    virtual = tag_that_moved()
    said = ring(30, status=6)
    require(STALE in said and REMEDY in said, f"no remedy is told: {said}")
    with daemon_setting(REMEDY):
        virtual.expect("^ready", 60)
        ring(60)
        virtual.expect("^ring", 5)
