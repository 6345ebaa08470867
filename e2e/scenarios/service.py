# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""The adapter and the daemon go away and come back."""
import signal

from kit import BACK, LOST, TAG, bound_tag, do, on_tag, require, scenario, start, watch
from stack import (adapter_address, air, expect_discovery, expect_links, power, restart_bus, restart_daemon,
                   unplug)


@scenario(90)
def adapter_off_and_on():
    """Every command needs the adapter on, and says so at once."""
    bound_tag()
    power("hci0", False)
    on_tag("ring", status=3)
    do("scan", "--for", "2s", status=3)
    power("hci0", True)
    on_tag("ring")


@scenario(60)
def power_off_while_scanning():
    """A scan outlives it: what comes into range later is heard."""
    bound_tag()
    air("hci0 mute 1")
    scanning = start("scan", "--for", "15s")
    expect_discovery()
    power("hci0", False)
    scanning.expect("adapter is off", 10)
    power("hci0", True)
    scanning.expect("adapter is on", 10)
    air("hci0 mute 0")
    require(TAG in scanning.finish(0, 40), "the tag is not heard")


@scenario(120)
def power_off_while_connected():
    """A watch outlives its adapter's being off."""
    bound_tag()
    watching = watch()
    for _ in range(2):
        power("hci0", False)
        watching.expect(LOST, 15)
        expect_links(0)
        power("hci0", True)
        watching.expect(BACK, 40)


def outlive_daemon(how):
    virtual = bound_tag()
    watching = watch()
    restart_daemon(how)
    watching.expect(LOST, 20)
    virtual.expect("^ready", 40)
    watching.expect(BACK, 60)


@scenario(150)
def daemon_restarted():
    """The Bluetooth service is killed and comes back: so do the tag and the link."""
    outlive_daemon(signal.SIGKILL)


@scenario(150)
def daemon_terminated():
    """It is told to end, takes the adapters down with it, and comes back."""
    outlive_daemon(signal.SIGTERM)


@scenario(240)
def bus_restarted():
    """The bus ends, and the daemon with it; both come back, and so do the tag and the link."""
    virtual = bound_tag()
    watching = watch()
    restart_bus()
    watching.expect(LOST, 20)
    virtual.expect("^ready", 90)
    watching.expect(BACK, 90)


@scenario(180)
def adapter_unplugged():
    """The adapter is unplugged under a link, and comes back under another name; it is known by its address."""
    bound_tag()
    watching = watch(adapter=adapter_address())
    unplug("hci0")
    watching.expect(LOST, 20)
    air("spare plug")  # which gets the name that has become free
    air("hci0 plug")
    require(air("hci0 name") != "hci0", "the adapter has its old name")
    watching.expect(BACK, 60)
    watching.end(signal.SIGINT)
