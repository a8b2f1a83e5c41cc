#!/usr/bin/env python3
"""Reads a PNG (8-bit RGB or RGBA, as Qt writes them) with the standard library
alone and fails unless it looks like a drawn window: at least the size given,
many colours (text, icons, badges) and no single colour covering nearly all of
it.  check-picture.py <picture.png> <min width> <min height>"""
import struct
import sys
import zlib
from collections import Counter


def pixels(path):
    data = open(path, "rb").read()
    if data[:8] != b"\x89PNG\r\n\x1a\n":
        sys.exit(f"{path}: not a PNG")
    pos, idat, header = 8, b"", None
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        if kind == b"IHDR":
            header = struct.unpack(">IIBBBBB", body)
        elif kind == b"IDAT":
            idat += body
        pos += 12 + length
    width, height, depth, colour, _, _, interlace = header
    if depth != 8 or colour not in (2, 6) or interlace:
        sys.exit(f"{path}: depth {depth}, colour type {colour}, interlace {interlace}: not read here")
    bpp = 4 if colour == 6 else 3
    raw = zlib.decompress(idat)
    stride = width * bpp
    previous = bytearray(stride)
    rows = []
    for y in range(height):
        start = y * (stride + 1)
        kind = raw[start]
        row = bytearray(raw[start + 1:start + 1 + stride])
        if kind == 1:
            for i in range(bpp, stride):
                row[i] = (row[i] + row[i - bpp]) & 0xFF
        elif kind == 2:
            for i in range(stride):
                row[i] = (row[i] + previous[i]) & 0xFF
        elif kind == 3:
            for i in range(stride):
                left = row[i - bpp] if i >= bpp else 0
                row[i] = (row[i] + ((left + previous[i]) >> 1)) & 0xFF
        elif kind == 4:
            for i in range(stride):
                a = row[i - bpp] if i >= bpp else 0
                b = previous[i]
                c = previous[i - bpp] if i >= bpp else 0
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                row[i] = (row[i] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 0xFF
        rows.append(bytes(row))
        previous = row
    return width, height, bpp, rows


def main():
    path, min_width, min_height = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    width, height, bpp, rows = pixels(path)
    colours = Counter()
    for row in rows:
        for x in range(0, len(row), bpp):
            colours[row[x:x + 3]] += 1
    total = width * height
    common = colours.most_common(1)[0][1] / total
    print(f"{path}: {width}x{height}, {len(colours)} colours, the commonest covers {common:.0%}")
    if width < min_width or height < min_height:
        sys.exit(f"smaller than {min_width}x{min_height}")
    if len(colours) < 64:
        sys.exit("too few colours for a window with text and icons")
    if common > 0.9:
        sys.exit("one colour covers nearly all of it: a blank window")


main()
