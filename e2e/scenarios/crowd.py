"""Several tags, and several programs on one adapter; one link at a time, as the emulated controllers mix up more."""
import json

from kit import LOST, PASSWORD, TAGS, bound_tag, do, on_tag, require, scenario, tag, watch
from stack import air, expect_links


def expect_heard(batteries):
    heard = [json.loads(line) for line in do("scan", "--for", "4s", "--json").splitlines() if line.startswith("{")]
    found = {one["address"]: one["battery"] for one in heard}
    require(batteries.items() <= found.items(), f"not {batteries} but {found}")


@scenario(120)
def several_tags():
    """All are heard, each as itself, and each obeys what it is told."""
    tags = {number: tag("--password-file", PASSWORD, "--battery", str(50 + number), number=number)
            for number in (1, 2, 3)}
    expect_heard({TAGS[number]: 50 + number for number in tags})
    for number, virtual in tags.items():
        on_tag("ring", number=number)
        virtual.expect("^ring", 5)
        expect_links(0)


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
