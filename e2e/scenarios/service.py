"""The adapter and the daemon go away and come back."""
import signal

from kit import BACK, LOST, TAG, bound_tag, do, on_tag, require, scenario, start, watch
from stack import air, expect_discovery, expect_links, power, restart_daemon


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
