#!/usr/bin/env python3
"""extract_vmlinux.py VMLINUZ VMLINUX: takes the kernel out of its xz wrapping, so that the emulator need not unpack it."""
import lzma
import sys

XZ_MAGIC = b"\xfd7zXZ\0"


def payload(image):
    """The first xz stream of the image that holds an ELF file."""
    at = image.find(XZ_MAGIC)
    while at >= 0:
        try:
            unpacker = lzma.LZMADecompressor(lzma.FORMAT_XZ)
            content = unpacker.decompress(image[at:])
            if unpacker.eof and content.startswith(b"\x7fELF"):
                return content
        except lzma.LZMAError:
            pass
        at = image.find(XZ_MAGIC, at + 1)
    sys.exit("no kernel found in " + sys.argv[1])


with open(sys.argv[1], "rb") as source:
    kernel = payload(source.read())
with open(sys.argv[2], "wb") as target:
    target.write(kernel)
