#!/usr/bin/env python3
"""vproxy.py COUNT: controllers hci0, hci1... on /dev/vhci, each relayed to an emulated controller of `btvirt -s`.

It adds what the emulation lacks. Commands are datagrams to /run/vproxy.sock:
  HCI adv_rssi DBM    signal strength of the advertisements that HCI hears
  HCI conn_rssi DBM   signal strength of its link
  HCI adv_ms MS       how often the last advertisement is heard again
  HCI mute 0|1        1: hears no advertisement, as if all were out of range
  HCI drop            its links are lost
  HCI cut N PACKET    a link is lost with its N-th packet of the Attribute Protocol whose hexadecimal text matches the
                      pattern, which gets lost, too; each such command takes one link, in their order
  HCI cuts            how many of those are still to come
  HCI calm            as at the start
"""
import os
import re
import select
import socket
import struct
import sys
import time

COMMAND, ACL, SCO, EVENT = 1, 2, 3, 4  # packet types
HEADER_SIZE = {ACL: 5, SCO: 4, EVENT: 3}
RESET, DISCONNECT, READ_RSSI, READ_POWER, SCAN_ENABLE = 0x0C03, 0x0406, 0x1405, 0x0C2D, 0x200C
DISCONNECTED, STATUS, LE_META = 0x05, 0x0F, 0x3E  # events
CONNECTED, ADVERTISEMENT, CONNECTED_ENHANCED = 0x01, 0x02, 0x0A  # of LE_META
TIMED_OUT, REMOTE_ENDED = 0x08, 0x13  # reasons
ATTRIBUTE_PROTOCOL, FIRST_DYNAMIC = 4, 0x40  # channels
CONTINUED = 1  # flag of an ACL packet
CONTROL = "/run/vproxy.sock"


class Controller:
    def __init__(self):
        self.calm()
        self.heard, self.again_at, self.scanning = {}, 0, False
        self.handles, self.dropping, self.unasked = set(), set(), 0
        self.pending = b""
        self.host = os.open("/dev/vhci", os.O_RDWR | os.O_NONBLOCK)
        self.device = socket.socket(socket.AF_UNIX)
        self.device.connect("/tmp/bt-server-le")
        os.write(self.host, b"\xff\x00")
        select.select([self.host], [], [], 5)
        self.name = "hci%d" % struct.unpack_from("<H", os.read(self.host, 64), 2)

    def calm(self):
        self.adv_rssi, self.conn_rssi, self.adv_ms, self.mute = -60, -55, 100, 0
        self.cuts, self.met = [], 0

    def from_host(self):
        packet = os.read(self.host, 4096)
        if packet[0] == ACL and self.is_cut_by(packet):
            return
        if packet[0] == COMMAND:
            opcode = struct.unpack_from("<H", packet, 1)[0]
            if opcode in (READ_RSSI, READ_POWER):
                return self.answer_level(opcode, struct.unpack_from("<H", packet, 4)[0])
            if opcode == SCAN_ENABLE:
                self.scanning = bool(packet[4])
                self.heard.clear()
            if opcode == RESET:
                self.scanning = False
                self.handles.clear()
                self.heard.clear()
        self.device.sendall(packet)

    def answer_level(self, opcode, handle):
        known = handle in self.handles
        level = (self.conn_rssi if opcode == READ_RSSI else 0) if known else 0
        os.write(self.host, struct.pack("<BBBBHBHb", EVENT, 0x0E, 7, 1, opcode, 0 if known else 2, handle, level))

    def from_device(self):
        data = self.device.recv(65536)
        if not data:
            sys.exit("the emulated controller went away")
        self.pending += data
        while self.pending:
            kind = self.pending[0]
            header = HEADER_SIZE[kind]
            if len(self.pending) < header:
                return
            body = struct.unpack_from("<H", self.pending, 3)[0] if kind == ACL else self.pending[header - 1]
            if len(self.pending) < header + body:
                return
            packet, self.pending = self.pending[: header + body], self.pending[header + body :]
            self.event(bytearray(packet))

    def event(self, packet):
        if packet[0] == EVENT and not self.look_at(packet) or packet[0] == ACL and self.is_cut_by(packet):
            return
        os.write(self.host, bytes(packet))

    def look_at(self, packet):
        """Keeps track of what passes; false drops the packet."""
        code = packet[1]
        if code == LE_META and packet[3] == ADVERTISEMENT:
            if self.mute:
                return False
            packet[-1] = self.adv_rssi & 255
            self.heard[(packet[5], bytes(packet[7:13]))] = packet
            self.again_at = time.monotonic() + self.adv_ms / 1000
        elif code == LE_META and packet[3] in (CONNECTED, CONNECTED_ENHANCED) and packet[4] == 0:
            self.handles.add(struct.unpack_from("<H", packet, 5)[0])
            self.met = 0
        elif code == DISCONNECTED:
            handle = struct.unpack_from("<H", packet, 4)[0]
            if handle in self.dropping:
                packet[6] = TIMED_OUT
            self.handles.discard(handle)
            self.dropping.discard(handle)
        elif code == STATUS and self.unasked and struct.unpack_from("<H", packet, 5)[0] == DISCONNECT:
            self.unasked -= 1
            return False  # the host did not ask
        return True

    def is_cut_by(self, packet):
        """Whether the link ends with this packet."""
        handle, _, _, channel = struct.unpack_from("<HHHH", bytes(packet).ljust(9, b"\0"), 1)
        if not self.cuts or handle >> 12 & 3 == CONTINUED or ATTRIBUTE_PROTOCOL != channel < FIRST_DYNAMIC:
            return False
        begin = 9 if channel == ATTRIBUTE_PROTOCOL else 11  # enhanced, it comes with a length of its own
        count, pattern = self.cuts[0]
        self.met += bool(pattern.fullmatch(packet[begin:].hex()))
        if self.met < count:
            return False
        del self.cuts[0]
        self.met = 0
        self.drop(handle & 0x0FFF)
        return True

    def drop(self, handle):
        self.dropping.add(handle)
        self.unasked += 1
        self.device.sendall(struct.pack("<BHBHB", COMMAND, DISCONNECT, 3, handle, REMOTE_ENDED))

    def command(self, words):
        if words == ["drop"]:
            for handle in self.handles - self.dropping:
                self.drop(handle)
        elif words == ["calm"]:
            self.calm()
        elif words[0] == "cut":
            self.cuts.append((int(words[1]), re.compile(words[2])))
        elif words[0] in ("adv_rssi", "conn_rssi", "adv_ms", "mute"):
            setattr(self, words[0], int(words[1]))
        return str(len(self.cuts))

    def tick(self, now):
        if self.adv_ms and self.scanning and not self.mute and now >= self.again_at:
            for packet in self.heard.values():
                packet[-1] = self.adv_rssi & 255
                os.write(self.host, bytes(packet))
            self.again_at = now + self.adv_ms / 1000


def obey(control, controllers):
    text, sender = control.recvfrom(200)
    name, *words = text.decode().split()
    for controller in controllers:
        if name == controller.name:
            control.sendto(controller.command(words).encode(), sender)


def main():
    controllers = [Controller() for _ in range(int(sys.argv[1]))]
    control = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    control.bind(CONTROL)
    handlers = {control.fileno(): lambda: obey(control, controllers)}
    for controller in controllers:
        handlers[controller.host] = controller.from_host
        handlers[controller.device.fileno()] = controller.from_device
    poll = select.poll()
    for descriptor in handlers:
        poll.register(descriptor, select.POLLIN)
    while True:
        busy = any(controller.scanning for controller in controllers)
        for descriptor, _ in poll.poll(10 if busy else 1000):
            try:
                handlers[descriptor]()
            except BlockingIOError:
                pass
        for controller in controllers:
            controller.tick(time.monotonic())


if os.path.exists(CONTROL):
    os.unlink(CONTROL)
main()
