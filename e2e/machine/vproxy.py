#!/usr/bin/env python3
"""vproxy.py COUNT: controllers hci0, hci1... on /dev/vhci, each relayed to an emulated controller of `btvirt -s`.

It adds what the emulation lacks. Commands are datagrams to /run/vproxy.sock:
  HCI adv_rssi DBM    signal strength of the advertisements that HCI hears
  HCI conn_rssi DBM   signal strength of its link
  HCI adv_ms MS       how often the last advertisement is heard again
  HCI mute 0|1        1: hears no advertisement, as if all were out of range
  HCI drop            its link is lost
"""
import os
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
CONTROL = "/run/vproxy.sock"


class Controller:
    def __init__(self):
        self.adv_rssi, self.conn_rssi, self.adv_ms, self.mute = -60, -55, 100, 0
        self.heard, self.again_at, self.scanning = {}, 0, False
        self.handle, self.dropping = None, False
        self.pending = b""
        self.host = os.open("/dev/vhci", os.O_RDWR | os.O_NONBLOCK)
        self.device = socket.socket(socket.AF_UNIX)
        self.device.connect("/tmp/bt-server-le")
        os.write(self.host, b"\xff\x00")
        select.select([self.host], [], [], 5)
        self.name = "hci%d" % struct.unpack_from("<H", os.read(self.host, 64), 2)

    def from_host(self):
        packet = os.read(self.host, 4096)
        if packet[0] == COMMAND:
            opcode = struct.unpack_from("<H", packet, 1)[0]
            if opcode in (READ_RSSI, READ_POWER):
                return self.answer_level(opcode, struct.unpack_from("<H", packet, 4)[0])
            if opcode == SCAN_ENABLE:
                self.scanning = bool(packet[4])
                self.heard.clear()
            if opcode == RESET:
                self.scanning, self.handle = False, None
                self.heard.clear()
        self.device.sendall(packet)

    def answer_level(self, opcode, handle):
        known = handle == self.handle
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
        if packet[0] == EVENT and not self.look_at(packet):
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
            self.handle = struct.unpack_from("<H", packet, 5)[0]
        elif code == DISCONNECTED:
            self.handle = None
            if self.dropping:
                packet[6] = TIMED_OUT
            self.dropping = False
        elif code == STATUS and self.dropping and struct.unpack_from("<H", packet, 5)[0] == DISCONNECT:
            return False  # the host did not ask
        return True

    def command(self, words):
        if words == ["drop"]:
            if self.handle is not None:
                self.dropping = True
                self.device.sendall(struct.pack("<BHBHB", COMMAND, DISCONNECT, 3, self.handle, REMOTE_ENDED))
        elif words[0] in ("adv_rssi", "conn_rssi", "adv_ms", "mute"):
            setattr(self, words[0], int(words[1]))

    def tick(self, now):
        if self.adv_ms and self.scanning and not self.mute and now >= self.again_at:
            for packet in self.heard.values():
                packet[-1] = self.adv_rssi & 255
                os.write(self.host, bytes(packet))
            self.again_at = now + self.adv_ms / 1000


def obey(control, controllers):
    words = control.recv(200).decode().split()
    for controller in controllers:
        if words[0] == controller.name:
            controller.command(words[1:])


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
