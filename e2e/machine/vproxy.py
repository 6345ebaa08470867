#!/usr/bin/env python3
# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""vproxy.py COUNT: controllers hci0, hci1... on /dev/vhci, each relayed to an emulated controller of `btvirt -s`.

It adds what the emulation lacks: advertisements that are repeated and have a strength, links that are lost, the list of
accepted addresses. It mends the handles: each end of a link has one of its own, but the peripheral is told the other
end's, and what is sent arrives under the sender's; with a second link these differ. As a tag is, who is linked to a
central is silent. Commands are datagrams to /run/vproxy.sock, for a controller by the name that it had at the start:
  HCI adv_rssi DBM    signal strength of the advertisements that HCI hears
  HCI conn_rssi DBM   signal strength of its links
  HCI adv_ms MS       how often the last advertisement is heard again
  HCI mute 0|1        1: hears no advertisement, as if all were out of range
  HCI hidden 0|1      1: is out of everybody's range, and its links are lost
  HCI hears OTHER     1: it has heard the other since that was last hidden or not
  HCI drop            its links are lost
  HCI cut N PACKET    a link is lost with its N-th packet of the Attribute Protocol whose hexadecimal text matches the
                      pattern, which gets lost, too; each such command takes one link, in their order
  HCI cuts            how many of those are still to come
  HCI unplug          the host has this controller no more
  HCI die             the same, but the controller is gone without a word
  HCI plug            the host gets it back, maybe under another name
  HCI name            what the host calls it; "none" if it does not have it
  HCI calm            as at the start, but for what is plugged in
One more, "spare", is not plugged in at the start.
"""
import os
import select
import socket
import sys
import time

from controller import Controller

CONTROL = "/run/vproxy.sock"


class Air:
    """All controllers, and the one thread that serves them."""

    def __init__(self, count):
        self.poll, self.handlers, self.controllers = select.poll(), {}, []
        for name in [f"hci{number}" for number in range(count)] + ["spare"]:
            self.controllers.append(Controller(self, name))
        for controller in self.controllers[:count]:
            controller.plug()
        self.control = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.control.bind(CONTROL)
        self.watch(self.control.fileno(), self.obey)

    def watch(self, descriptor, handler):
        self.handlers[descriptor] = handler
        self.poll.register(descriptor, select.POLLIN)

    def forget(self, descriptor):
        del self.handlers[descriptor]
        self.poll.unregister(descriptor)

    def at(self, address):
        return next((each for each in self.controllers if each.address == address), None)

    def named(self, name):
        return next(each for each in self.controllers if each.name == name)

    def obey(self):
        text, sender = self.control.recvfrom(200)
        name, *words = text.decode().split()
        self.control.sendto(self.named(name).command(*words).encode(), sender)

    def serve(self):
        while True:
            busy = any(controller.scanning for controller in self.controllers)
            for descriptor, _ in self.poll.poll(10 if busy else 1000):
                try:
                    # One that was served before may have taken it away.
                    self.handlers.get(descriptor, lambda: None)()
                except BlockingIOError:
                    pass
            now = time.monotonic()
            for controller in self.controllers:
                controller.tick(now)


if os.path.exists(CONTROL):
    os.unlink(CONTROL)
Air(int(sys.argv[1])).serve()
