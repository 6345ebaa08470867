# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""scan_bleak.py: scans with python3-bleak until its input ends, then says how many advertisements it was told of."""
import asyncio
import sys

from bleak import BleakScanner

heard = 0


def detected(_device, _advertisement):
    global heard
    heard += 1


async def main():
    ended = asyncio.Event()
    asyncio.get_running_loop().add_reader(sys.stdin, ended.set)
    async with BleakScanner(detected):
        await ended.wait()
        counted = heard
    print(counted, flush=True)


asyncio.run(main())
