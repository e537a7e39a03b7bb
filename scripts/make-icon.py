#!/usr/bin/env python3
"""Draws Kelvo's application icon, a network socket on a blue tile, as a
16 by 16, 256-colour .ico file.

    scripts/make-icon.py res/kelvo.ico
"""
import struct
import sys

PIXELS = [
    "..BBBBBBBBBBBB..",
    ".BBBBBBBBBBBBBB.",
    "BBBBBBBBBBBBBBBB",
    "BBWWWWWWWWWWWWBB",
    "BBWKYKYKYKYKYWBB",
    "BBWKYKYKYKYKYWBB",
    "BBWKKKKKKKKKKWBB",
    "BBWKKKKKKKKKKWBB",
    "BBWKKKKKKKKKKWBB",
    "BBWWWWKKKKWWWWBB",
    "BBBBBWKKKKWBBBBB",
    "BBBBBWWWWWWBBBBB",
    "BBBBBBBBBBBBBBBB",
    "BBBBBBBBBBBBBBBB",
    ".BBBBBBBBBBBBBB.",
    "..BBBBBBBBBBBB..",
]
# Palette index and (red, green, blue) of each letter; "." is transparent.
COLOURS = {
    ".": (0, (0x00, 0x00, 0x00)),
    "B": (1, (0x1F, 0x5F, 0xA8)),
    "W": (2, (0xFF, 0xFF, 0xFF)),
    "K": (3, (0x20, 0x20, 0x28)),
    "Y": (4, (0xE0, 0xB0, 0x30)),
}
SIZE = 16


def icon_bytes():
    palette = bytearray(256 * 4)
    for index, (red, green, blue) in COLOURS.values():
        palette[index * 4:index * 4 + 4] = bytes((blue, green, red, 0))
    colour_rows, mask_rows = [], []
    for row in reversed(PIXELS):  # bitmaps are stored bottom-up
        colour_rows.append(bytes(COLOURS[c][0] for c in row))
        mask = 0
        for c in row:
            mask = mask << 1 | (c == ".")
        mask_rows.append(struct.pack(">H", mask) + b"\0\0")  # rows pad to 32 bits
    header = struct.pack("<IiiHHIIiiII", 40, SIZE, 2 * SIZE, 1, 8, 0, 0, 0, 0, 256, 0)
    image = header + bytes(palette) + b"".join(colour_rows) + b"".join(mask_rows)
    directory = struct.pack("<HHH", 0, 1, 1)
    entry = struct.pack("<BBBBHHII", SIZE, SIZE, 0, 0, 1, 8, len(image), 6 + 16)
    return directory + entry + image


if __name__ == "__main__":
    with open(sys.argv[1], "wb") as out:
        out.write(icon_bytes())
