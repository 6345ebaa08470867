# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""What a user asks for, and what an answer is."""
import json
import signal
import time

from kit import PASSWORD, TAG, WRONG, bound_tag, do, on_tag, remember, require, scenario, tag, watch
from stack import air, expect_links


@scenario(150)
def road():
    """Every command, from the first scan to the last."""
    virtual = tag("--battery", "77")
    heard = [json.loads(line) for line in do("scan", "--for", "4s", "--json").splitlines() if line.startswith("{")]
    require(any(one["address"] == TAG and one["battery"] == 77 for one in heard), f"the tag is not in {heard}")
    on_tag("bind")
    virtual.expect("^bound", 5)
    for command in (["ring"], ["silence"], ["alert", "on"], ["delay", "30"], ["distance", "near"]):
        on_tag(*command)
    watching = watch()
    air("hci0 conn_rssi -48")
    watching.expect(r"rssi -48 dBm", 15)
    watching.end(signal.SIGINT)
    on_tag("unbind")
    on_tag("bind", password=WRONG)  # an unbound tag takes any password


@scenario(60)
def refused_password():
    """A bound tag takes the password that it was bound with, and no other."""
    virtual = bound_tag()
    on_tag("bind", password=WRONG, status=5)
    virtual.expect("^wrong password", 5)
    on_tag("bind")


@scenario(60)
def nothing_binds_but_bind():
    """A tag that nobody has bound stays so, whatever else it is asked."""
    virtual = tag()
    for command in ("ring", "watch", "unbind"):
        on_tag(command, status=9)
    virtual.refuse("^connected", 3)
    on_tag("ring", "--unlisted")
    virtual.expect("^bound", 5)


@scenario(30)
def no_such_tag():
    """A tag that nobody hears is not found, in the time that was asked for."""
    remember(1)
    begun = time.monotonic()
    do("--timeout", "5", "ring", TAG, "--password-file", PASSWORD, status=4)
    took = time.monotonic() - begun
    require(4 < took < 15, f"took {took:.1f} s")


@scenario(60)
def signal_levels():
    """The live link's strength is what counts, and each level has its limits."""
    bound_tag()
    watching = watch()
    for rssi, level in ((-70, "far"), (-69, "middle"), (-65, "middle"), (-64, "near")):
        air(f"hci0 conn_rssi {rssi}")
        watching.expect(f"rssi {rssi} dBm, {level}$", 15)


@scenario(60)
def button_press():
    """Each press arrives, and none comes from a link before."""
    virtual = bound_tag()
    watching = watch()
    for _ in range(3):
        virtual.type("press")
        watching.expect("button pressed", 15)
    watching.end()
    lines = watching.lines
    require(sum("button pressed" in line for line in lines) == 3, f"not three presses: {lines}")


@scenario(600)
def twenty_binds():
    """Nothing adds up over many sessions in a row."""
    virtual = tag()
    for _ in range(20):
        on_tag("bind")
        on_tag("unbind")
    for _ in range(40):
        virtual.expect("^disconnected", 5)
    expect_links(0)
