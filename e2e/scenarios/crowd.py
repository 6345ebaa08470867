# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""Several tags on one adapter."""
import concurrent.futures
import random
import threading
import time

from kit import LONG, LOST, PASSWORD, TAGS, bound_tag, expect_heard, keep, on_tag, remember, scenario, tag
from program import Reader
from stack import air, expect_links, slowdown, until

LOSSES_FOR = 600 if LONG else 90  # seconds
BACK_WITHIN = 10  # of being heard, on a host that has nothing else to do


@scenario(120)
def several_tags():
    """All are heard, each as itself, and each obeys what it is told."""
    tags = {number: tag("--password-file", PASSWORD, "--battery", str(50 + number), number=number)
            for number in (1, 2, 3)}
    remember(*tags)
    expect_heard({TAGS[number]: 50 + number for number in tags})
    for number, virtual in tags.items():
        on_tag("ring", number=number)
        virtual.expect("^ring", 5)
        expect_links(0)


class Wanderer:
    """A tag that leaves at random, and comes back."""

    def __init__(self, number, keeper, over):
        self.number, self.keeper, self.over = number, keeper, over
        self.random = random.Random(number)
        self.reader = Reader(keeper)
        self.took = []

    def expect(self, what, seconds):
        self.reader.expect(f"^{TAGS[self.number]} {what}$", seconds)

    def wander(self):
        while not self.over.wait(self.random.uniform(0, 8)):
            air(f"hci{self.number} hidden 1")
            self.expect(LOST, 20)
            self.over.wait(self.random.uniform(0, 6))
            air(f"hci{self.number} hidden 0")
            # Not while the adapter listens for another tag alone, to connect to it.
            until(lambda: air(f"hci0 hears hci{self.number}") == "1", 20, f"hci{self.number} is not heard")
            begun = time.monotonic()
            self.expect("connected", BACK_WITHIN * slowdown())
            self.took.append(time.monotonic() - begun)
            self.keeper.type(f"ring {TAGS[self.number]}")
            self.expect("rings", 15)


@scenario(LOSSES_FOR + 150)
def three_tags_wander():
    """Three links of one program, each lost again and again: the tag is back soon after it is heard, and obeys."""
    virtual = [bound_tag(number) for number in (1, 2, 3)]
    keeper, over = keep(1, 2, 3), threading.Event()
    tags = [Wanderer(number, keeper, over) for number in (1, 2, 3)]
    for each in tags:
        each.expect("connected", 60)
    expect_links(3)
    with concurrent.futures.ThreadPoolExecutor() as pool:
        lives = [pool.submit(each.wander) for each in tags]
        try:
            concurrent.futures.wait(lives, LOSSES_FOR, concurrent.futures.FIRST_EXCEPTION)
        finally:
            over.set()
    for life in lives:
        life.result()
    print("    " + "; ".join(f"{len(each.took)} losses, back in {max(each.took):.1f} s at most" for each in tags))
    keeper.hang_up()
    for each in virtual:
        each.expect("^disconnected", 15)


@scenario(150)
def tag_dies():
    """One tag's radio fails under its link and works again later; the other link does not notice."""
    virtual = bound_tag(1)
    bound_tag(2)
    keeper = keep(1, 2)
    for number in (1, 2):
        Reader(keeper).expect(f"^{TAGS[number]} connected$", 60)
    other = Reader(keeper, now=True)
    air("hci1 die")
    keeper.expect(f"^{TAGS[1]} {LOST}$", 15)
    air("hci1 plug")
    virtual.expect("^ready", 60)
    keeper.expect(f"^{TAGS[1]} connected$", 60)
    other.refuse(f"^{TAGS[2]} {LOST}$", 1)
    keeper.hang_up()
