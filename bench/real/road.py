# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""road.py ADAPTER TAG PASSWORD_FILE: what road.cpp does, with python3-bleak and python3-cryptography."""
import asyncio
import binascii
import os
import sys

from bleak import BleakClient, BleakScanner
from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes

CHARACTERISTIC = "7f280002-8204-f393-e0a9-e50e24dcca9e"
KEY = b"QPRTVX-Harbonics"  # the same in every tag
RING, BIND, REMOVE_PASSWORD = 5, 19, 20
ANSWER = 1


def cipher(key):
    return Cipher(algorithms.AES(key), modes.ECB())


def encrypt(key, block):
    return cipher(key).encryptor().update(block)


def decrypt(key, block):
    return cipher(key).decryptor().update(block)


def is_tag(advertisement, tag):
    return any(len(frame) in (10, 11) and frame[:2] in (b"\xa1\x0b", b"\xa1\x0c") and frame[8:2:-1] == tag
               for frame in advertisement.service_data.values())


class Road:
    def __init__(self, client, tag):
        self.client, self.tag, self.key = client, tag, None
        self.values = asyncio.Queue()

    async def write(self, block):
        await self.client.write_gatt_char(CHARACTERISTIC, block, response=True)

    async def agree(self):
        """Each side's half, sent under the common key, makes up the key of this connection."""
        await self.client.start_notify(CHARACTERISTIC, lambda _, value: self.values.put_nowait(bytes(value)))
        theirs = decrypt(KEY, bytes(await self.client.read_gatt_char(CHARACTERISTIC)))[6:14]
        ours = os.urandom(8)
        plain = self.tag + ours
        plain += binascii.crc_hqx(plain, 0xFFFF).to_bytes(2, "big")
        await self.write(encrypt(KEY, plain))
        self.key = theirs + ours

    async def command(self, code, payload):
        frame = bytes((0, len(payload) + 1, code)) + payload
        await self.write(encrypt(self.key, frame + os.urandom(16 - len(frame))))
        while True:  # the value that was read comes as a notification, too
            answer = decrypt(self.key, await self.values.get())
            if answer[0] == ANSWER and answer[2] == code:
                if answer[1] > 1 and answer[3] != 0:
                    raise RuntimeError(f"command {code} is refused")
                return


async def walk(adapter, tag, password):
    found = asyncio.get_running_loop().create_future()

    def detected(device, advertisement):
        if not found.done() and is_tag(advertisement, tag):
            found.set_result(device)

    async with BleakScanner(detected, adapter=adapter):
        device = await found
    async with BleakClient(device, adapter=adapter) as client:
        road = Road(client, tag)
        await road.agree()
        await road.command(BIND, password)
        await road.command(RING, b"\0")
        print("rung", flush=True)
        sys.stdin.read()
        await road.command(REMOVE_PASSWORD, b"\0")


def main():
    with open(sys.argv[3], "rb") as file:
        password = file.readline().rstrip(b"\n")
    asyncio.run(asyncio.wait_for(walk(sys.argv[1], bytes.fromhex(sys.argv[2]), password), 45))


main()
