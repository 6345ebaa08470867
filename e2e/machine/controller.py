# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""One controller of the relay: between the host's /dev/vhci and an emulated controller."""
import contextlib
import errno
import itertools
import os
import re
import select
import socket
import struct
import threading
import time

COMMAND, ACL, SCO, EVENT = 1, 2, 3, 4  # packet types
HEADER_SIZE = {ACL: 5, SCO: 4, EVENT: 3}
RESET, DISCONNECT, READ_ADDRESS, READ_RSSI, READ_POWER = 0x0C03, 0x0406, 0x1009, 0x1405, 0x0C2D
ADVERTISE_ENABLE, SCAN_PARAMETERS, SCAN_ENABLE = 0x200A, 0x200B, 0x200C
ACCEPT_NOBODY, ACCEPT, ACCEPT_NO_MORE = 0x2010, 0x2011, 0x2012  # the list of those who are heard if it is in use
DISCONNECTED, COMPLETE, STATUS, LE_META = 0x05, 0x0E, 0x0F, 0x3E  # events
CONNECTED, ADVERTISEMENT, CONNECTED_ENHANCED = 0x01, 0x02, 0x0A  # of LE_META
PERIPHERAL = 1  # role
UNKNOWN_LINK, TIMED_OUT = 0x02, 0x08  # statuses and reasons
ATTRIBUTE_PROTOCOL, FIRST_DYNAMIC = 4, 0x40  # channels
CONTINUED = 1  # flag of an ACL packet
HANDLE_BITS = 12
FIRST_HANDLE = 42  # of the emulation; each link gets the lowest that is free
EMULATOR = "/tmp/bt-server-le"


class Link:
    """One end of a link, and how many packets it has seen of those that the next cut counts."""

    def __init__(self, peer, role):
        self.peer, self.role, self.met, self.ending = peer, role, 0, False


class Controller:
    def __init__(self, air, name):
        self.air, self.name, self.number = air, name, len(air.controllers)
        self.host = self.device = self.address = self.index = None
        self.calm()
        self.forget()

    def calm(self):
        self.adv_rssi, self.conn_rssi, self.adv_ms, self.mute, self.hidden = -60, -55, 100, 0, 0
        self.cuts = []

    def forget(self):
        """As a controller is that has just got its power, or was reset."""
        self.heard, self.again_at, self.scanning, self.advertising = {}, 0, False, False
        self.links, self.unasked = {}, 0
        self.choosy, self.accepted, self.noticed = False, set(), set()

    # Its two sides

    def plug(self):
        if self.device is None:
            self.device, self.pending = socket.socket(socket.AF_UNIX), b""
            self.device.connect(EMULATOR)
            self.air.watch(self.device.fileno(), self.from_device)
        self.host = os.open("/dev/vhci", os.O_RDWR | os.O_NONBLOCK)
        os.write(self.host, b"\xff\x00")
        select.select([self.host], [], [], 5)
        self.index = struct.unpack_from("<H", os.read(self.host, 64), 2)[0]
        self.air.watch(self.host, self.from_host)

    def unplug(self):
        """The emulated controller is kept, as it would not get its address back."""
        self.drop_all()
        self.send(struct.pack("<BHB", COMMAND, RESET, 0))
        if self.host is not None:
            self.air.forget(self.host)
            # The kernel may wait for a command to time out, while the other controllers have to go on.
            threading.Thread(target=os.close, args=(self.host,)).start()
            self.host = None
        self.forget()

    def die(self):
        """The emulation does not tell the other ends, so we do."""
        self.air.forget(self.device.fileno())
        self.device.close()
        self.device = self.address = None
        self.unplug()
        for other in self.air.controllers:
            for handle in [handle for handle, link in other.links.items() if link.peer is self]:
                del other.links[handle]
                other.tell(struct.pack("<BBBBHB", EVENT, DISCONNECTED, 4, 0, handle, TIMED_OUT))

    def tell(self, packet):
        """Hands a packet to the host, which takes none while the adapter is down."""
        if self.host is None:
            return
        try:
            os.write(self.host, bytes(packet))
        except OSError as error:
            if error.errno != errno.ENXIO:
                raise

    def send(self, packet):
        """Hands a packet to the emulated controller, if there is one; from_device sees it end."""
        if self.device is not None:
            with contextlib.suppress(ConnectionError):
                self.device.sendall(packet)

    # What the host sends

    def from_host(self):
        packet = os.read(self.host, 4096)
        if packet[0] == ACL:
            return self.data_from_host(packet)
        if packet[0] == COMMAND:
            opcode = struct.unpack_from("<H", packet, 1)[0]
            if opcode in (READ_RSSI, READ_POWER):
                return self.answer_level(opcode, struct.unpack_from("<H", packet, 4)[0])
            self.note(opcode, packet[4:])
        self.send(packet)

    def note(self, opcode, parameters):
        if opcode == ADVERTISE_ENABLE:
            self.advertising = bool(parameters[0])
        elif opcode == SCAN_PARAMETERS:
            self.choosy = bool(parameters[6] & 1)
        elif opcode == SCAN_ENABLE:
            self.scanning = bool(parameters[0])
            self.heard.clear()
        elif opcode == ACCEPT_NOBODY:
            self.accepted.clear()
        elif opcode == ACCEPT:
            self.accepted.add(parameters[1:7])
        elif opcode == ACCEPT_NO_MORE:
            self.accepted.discard(parameters[1:7])
        elif opcode == RESET:
            self.forget()

    def data_from_host(self, packet):
        """Marked with its sender, as its handle does not tell the other end whose it is."""
        handle, size = struct.unpack_from("<HH", packet, 1)
        if not self.is_cut_by(packet):
            self.send(struct.pack("<BHHB", ACL, handle, size + 1, self.number) + packet[5:])

    def answer_level(self, opcode, handle):
        known = handle in self.links
        level = (self.conn_rssi if opcode == READ_RSSI else 0) if known else 0
        status = 0 if known else UNKNOWN_LINK
        self.tell(struct.pack("<BBBBHBHb", EVENT, COMPLETE, 7, 1, opcode, status, handle, level))

    # What the emulated controller sends

    def from_device(self):
        try:
            data = self.device.recv(65536, socket.MSG_DONTWAIT)
        except ConnectionError:
            data = b""
        if not data:
            return self.die()
        self.pending += data
        while packet := self.next_packet():
            if packet[0] == ACL:
                self.data_from_device(packet)
            elif packet[0] != EVENT or self.look_at(packet):
                self.tell(packet)

    def next_packet(self):
        """Off what is pending; None if that is not a whole one."""
        kind = self.pending[0] if self.pending else EVENT
        size = HEADER_SIZE[kind]
        if len(self.pending) >= size:
            size += struct.unpack_from("<H", self.pending, 3)[0] if kind == ACL else self.pending[size - 1]
            if len(self.pending) >= size:
                packet, self.pending = bytearray(self.pending[:size]), self.pending[size:]
                return packet
        return None

    def data_from_device(self, packet):
        flags, size, sender = struct.unpack_from("<HHB", packet, 1)
        handles = [handle for handle, link in self.links.items() if link.peer and link.peer.number == sender]
        if not handles:
            return
        flags = flags >> HANDLE_BITS << HANDLE_BITS
        packet = struct.pack("<BHH", ACL, flags | handles[0], size - 1) + packet[6:]
        if not self.is_cut_by(packet):
            self.tell(packet)

    def look_at(self, packet):
        """Keeps track of what passes; false drops the packet."""
        code = packet[1]
        if code == LE_META and packet[3] == ADVERTISEMENT:
            return self.advertisement(packet)
        if code == LE_META and packet[3] in (CONNECTED, CONNECTED_ENHANCED) and packet[4] == 0:
            self.connected(packet)
        elif code == DISCONNECTED and packet[3] == 0:
            self.links.pop(struct.unpack_from("<H", packet, 4)[0], None)
        elif code == COMPLETE and struct.unpack_from("<H", packet, 4)[0] == READ_ADDRESS:
            self.address = bytes(packet[7:13])
        elif code == STATUS and self.unasked and struct.unpack_from("<H", packet, 5)[0] == DISCONNECT:
            self.unasked -= 1
            return False  # the host did not ask
        return True

    def advertisement(self, packet):
        packet[-1] = self.adv_rssi & 255
        address = bytes(packet[7:13])
        self.heard[(packet[5], address)] = packet
        self.again_at = time.monotonic() + self.adv_ms / 1000
        return self.hears(address)

    def hears(self, address):
        sender = self.air.at(address)
        if self.mute or sender and not sender.audible() or self.choosy and address not in self.accepted:
            return False
        self.noticed.add(address)
        return True

    def audible(self):
        linked = any(link.role == PERIPHERAL for link in self.links.values())
        return self.advertising and not linked and not self.hidden

    def connected(self, packet):
        handle, role, address = struct.unpack_from("<HBx6s", packet, 5)
        if role == PERIPHERAL:
            handle = next(free for free in itertools.count(FIRST_HANDLE) if free not in self.links)
            struct.pack_into("<H", packet, 5, handle)
        link = self.links[handle] = Link(self.air.at(address), role)
        if self.hidden or link.peer and link.peer.hidden:
            self.drop(handle)  # it went out of range meanwhile

    # What happens in the air

    def is_cut_by(self, packet):
        """Whether the link ends with this packet."""
        flags, _, _, channel = struct.unpack_from("<HHHH", bytes(packet).ljust(9, b"\0"), 1)
        link = self.links.get(flags & (1 << HANDLE_BITS) - 1)
        if not link or not self.cuts or flags >> HANDLE_BITS & 3 == CONTINUED:
            return False
        if ATTRIBUTE_PROTOCOL != channel < FIRST_DYNAMIC:
            return False
        begin = 9 if channel == ATTRIBUTE_PROTOCOL else 11  # enhanced, it comes with a length of its own
        count, pattern = self.cuts[0]
        link.met += bool(pattern.fullmatch(packet[begin:].hex()))
        if link.met < count:
            return False
        del self.cuts[0]
        for each in self.links.values():
            each.met = 0
        self.drop(flags & (1 << HANDLE_BITS) - 1)
        return True

    def drop(self, handle):
        if not self.links[handle].ending:
            self.links[handle].ending = True
            self.unasked += 1
            self.send(struct.pack("<BHBHB", COMMAND, DISCONNECT, 3, handle, TIMED_OUT))

    def drop_all(self):
        for handle in self.links:
            self.drop(handle)

    def tick(self, now):
        if not self.adv_ms or not self.scanning or now < self.again_at:
            return
        self.again_at = now + self.adv_ms / 1000
        for (_, address), packet in self.heard.items():
            if self.hears(address):
                packet[-1] = self.adv_rssi & 255
                self.tell(packet)

    def command(self, word, *arguments):
        if word in ("adv_rssi", "conn_rssi", "adv_ms", "mute", "hidden"):
            setattr(self, word, int(arguments[0]))
        if word == "drop" or word == "hidden" and self.hidden:
            self.drop_all()
        if word == "hidden":
            for other in self.air.controllers:
                other.noticed.discard(self.address)
        if word == "hears":
            return str(int(self.air.named(arguments[0]).address in self.noticed))
        if word == "cut":
            self.cuts.append((int(arguments[0]), re.compile(arguments[1])))
        elif word == "die" and self.device is not None:
            self.device.shutdown(socket.SHUT_RDWR)  # which from_device meets
        elif word in ("unplug", "calm") or word == "plug" and self.host is None:
            getattr(self, word)()
        elif word == "name":
            return "none" if self.host is None else f"hci{self.index}"
        return str(len(self.cuts))
