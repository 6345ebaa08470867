#!/usr/bin/env python3
# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

"""extract_vmlinux.py VMLINUZ VMLINUX: takes the kernel out of its wrapping, by xz or zstd, so that the emulator need not
unpack it."""
import lzma
import subprocess
import sys

ELF_MAGIC = b"\x7fELF"


def unpack_xz(stream):
    try:
        unpacker = lzma.LZMADecompressor(lzma.FORMAT_XZ)
        content = unpacker.decompress(stream)
        return content if unpacker.eof else b""
    except lzma.LZMAError:
        return b""


def unpack_zstd(stream):
    """It complains of what follows the stream, so its status tells nothing."""
    return subprocess.run(["zstd", "-dcq"], input=stream, capture_output=True, check=False).stdout


WRAPPINGS = ((b"\xfd7zXZ\0", unpack_xz), (b"\x28\xb5\x2f\xfd", unpack_zstd))


def payload(image):
    """The first stream of the image that holds an ELF file."""
    for magic, unpack in WRAPPINGS:
        at = image.find(magic)
        while at >= 0:
            content = unpack(image[at:])
            if content.startswith(ELF_MAGIC):
                return content
            at = image.find(magic, at + 1)
    sys.exit("no kernel found in " + sys.argv[1])


with open(sys.argv[1], "rb") as source:
    kernel = payload(source.read())
with open(sys.argv[2], "wb") as target:
    target.write(kernel)
