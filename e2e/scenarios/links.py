# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""Links that are lost, at any moment, and how they end in order."""
import signal

from kit import (BACK, LOST, PASSWORD, TAG, WRONG, bound_tag, do, on_tag, require, scenario, start_watch, tag,
                 watch)
from stack import air, expect_links

# The Attribute Protocol packet, in hexadecimal, that a link is lost with: the how-manieth such one of the link. Blocks
# of 16 bytes are the handshake's and the commands', as nothing else on this link has that size.
BLOCK = ".{32}"
ANSWER = "(1b....|23....1000)" + BLOCK  # a notification, alone or as one of several
HANDSHAKE = (
    (1, "10.*"),  # services are asked for
    (1, "08.*0328"),  # characteristics are
    (1, "12....0100"),  # notifications are
    (1, "0b" + BLOCK),  # the tag's half of the key arrives
    (1, "12...." + BLOCK),  # the token is written
    (2, "12...." + BLOCK),  # the password is
    (1, ANSWER),  # the tag accepts it
)
COMMAND = (
    (3, "12...." + BLOCK),  # the command is written
    (2, ANSWER),  # the tag has carried it out
)


def ring_through(cuts):
    """Rings although each of the first links is lost at its moment."""
    virtual = bound_tag()
    for count, packet in cuts:
        air(f"hci0 cut {count} {packet}")
    do("--timeout", "120", "ring", TAG, "--password-file", PASSWORD, seconds=130)
    left = air("hci0 cuts")
    require(left == "0", f"{left} of the {len(cuts)} moments never came")
    return virtual


@scenario(180)
def drop_in_handshake():
    """A link that is lost at any step of the handshake is made again, until one holds."""
    ring_through(HANDSHAKE)


@scenario(90)
def drop_in_command():
    """A command that is lost with its link is given again; one whose answer is lost, too."""
    virtual = ring_through(COMMAND)
    for _ in range(2):
        virtual.expect("^ring", 5)


@scenario(120)
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


@scenario(120)
def out_of_range_and_back():
    """No link without the tag; one as soon as it is heard again."""
    bound_tag()
    watching = watch()
    air("hci0 mute 1")
    air("hci0 drop")
    watching.expect(LOST, 15)
    watching.refuse(BACK, 3)
    air("hci0 mute 0")
    watching.expect(BACK, 40)


@scenario(120)
def removed_password():
    """Others have unbound the tag, which then takes ours anew; or have bound it, and it refuses us for good."""
    virtual = bound_tag()
    watching = watch()
    virtual.stop()
    air("hci0 drop")
    watching.expect(LOST, 15)
    virtual = tag()
    virtual.expect("^bound", 60)
    watching.expect(BACK, 15)
    virtual.stop()
    air("hci0 drop")
    watching.expect(LOST, 15)
    tag("--password-file", WRONG)
    watching.finish(5, 60)


@scenario(60)
def orderly_end():
    """Whoever is told to end takes the link along."""
    virtual = bound_tag()
    watching = watch()
    expect_links(1)
    watching.end(signal.SIGTERM)
    virtual.expect("^disconnected", 10)
    expect_links(0)


@scenario(90)
def crash_leaves_link():
    """A link that outlives its program is the next one's, and ends with it."""
    bound_tag()
    watching = watch()
    watching.process.kill()
    watching.finish(-signal.SIGKILL, 5)
    expect_links(1)
    on_tag("ring")
    expect_links(0)
    start_watch().expect(BACK, 40)
