#!/usr/bin/env python3
"""Draws Pelmark's program icon and writes it as a Windows .ico file.

The picture: a blue rounded tile holding three white transaction lines of growing length (the
lines put in order) and an amber arrow pointing down. Every size is drawn from the same shapes
with 4x4 supersampling, so small sizes stay smooth. 16 to 48 pixels are stored as 32-bit
bitmaps (which every Windows reads), 256 pixels as PNG (as Windows Vista and later expect).

usage: make_icon.py OUTPUT.ico
"""
import struct
import sys
import zlib

SIZES = (16, 24, 32, 48, 256)
SAMPLES = 4

TILE_TOP = (0x3A, 0x7F, 0xC8)
TILE_BOTTOM = (0x1C, 0x4A, 0x86)
LINE = (0xFF, 0xFF, 0xFF)
ARROW = (0xF4, 0xB4, 0x2C)


def in_rounded_rect(x, y, left, top, right, bottom, radius):
    if not (left <= x <= right and top <= y <= bottom):
        return False
    cx = min(max(x, left + radius), right - radius)
    cy = min(max(y, top + radius), bottom - radius)
    return (x - cx) ** 2 + (y - cy) ** 2 <= radius ** 2


def in_triangle(x, y, a, b, c):
    def side(p, q):
        return (x - q[0]) * (p[1] - q[1]) - (p[0] - q[0]) * (y - q[1])

    d1, d2, d3 = side(a, b), side(b, c), side(c, a)
    negative = d1 < 0 or d2 < 0 or d3 < 0
    positive = d1 > 0 or d2 > 0 or d3 > 0
    return not (negative and positive)


def shade(x, y):
    """The colour at a point of the unit square, or None outside the tile."""
    if not in_rounded_rect(x, y, 0.04, 0.04, 0.96, 0.96, 0.18):
        return None
    for top, length in ((0.24, 0.30), (0.44, 0.40), (0.64, 0.50)):
        if in_rounded_rect(x, y, 0.14, top, 0.14 + length, top + 0.11, 0.04):
            return LINE
    if 0.745 <= x <= 0.835 and 0.22 <= y <= 0.60:
        return ARROW
    if in_triangle(x, y, (0.64, 0.56), (0.94, 0.56), (0.79, 0.80)):
        return ARROW
    t = y
    return tuple(round(a + (b - a) * t) for a, b in zip(TILE_TOP, TILE_BOTTOM))


def render(size):
    """Rows of (r, g, b, a), top row first."""
    rows = []
    step = 1.0 / (size * SAMPLES)
    for py in range(size):
        row = []
        for px in range(size):
            r = g = b = covered = 0
            for sy in range(SAMPLES):
                for sx in range(SAMPLES):
                    colour = shade((px * SAMPLES + sx + 0.5) * step, (py * SAMPLES + sy + 0.5) * step)
                    if colour is not None:
                        r, g, b = r + colour[0], g + colour[1], b + colour[2]
                        covered += 1
            if covered:
                row.append((r // covered, g // covered, b // covered, 255 * covered // SAMPLES ** 2))
            else:
                row.append((0, 0, 0, 0))
        rows.append(row)
    return rows


def bitmap_entry(size, rows):
    """A 32-bit DIB: header with double height, BGRA rows bottom-up, then the AND mask."""
    header = struct.pack("<IiiHHIIiiII", 40, size, size * 2, 1, 32, 0, 0, 0, 0, 0, 0)
    pixels = b"".join(bytes((b, g, r, a)) for row in reversed(rows) for (r, g, b, a) in row)
    mask_stride = ((size + 31) // 32) * 4
    mask = bytearray()
    for row in reversed(rows):
        bits = bytearray(mask_stride)
        for x, (_, _, _, a) in enumerate(row):
            if a == 0:
                bits[x // 8] |= 0x80 >> (x % 8)
        mask += bits
    return header + pixels + bytes(mask)


def png_entry(size, rows):
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)

    raw = b"".join(b"\x00" + b"".join(bytes(p) for p in row) for row in rows)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b""))


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    images = []
    for size in SIZES:
        rows = render(size)
        images.append((size, png_entry(size, rows) if size >= 256 else bitmap_entry(size, rows)))
    out = struct.pack("<HHH", 0, 1, len(images))
    offset = 6 + 16 * len(images)
    for size, data in images:
        dim = 0 if size >= 256 else size  # 0 stands for 256 in the directory
        out += struct.pack("<BBBBHHII", dim, dim, 0, 0, 1, 32, len(data), offset)
        offset += len(data)
    out += b"".join(data for _, data in images)
    with open(sys.argv[1], "wb") as f:
        f.write(out)


if __name__ == "__main__":
    main()
