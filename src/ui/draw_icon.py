#!/usr/bin/env python3
"""Draws the Windows programs' icon: a white padlock on a blue rounded square, as one .ico.

The images are 16, 24, 32 and 48 pixels as 32-bit DIBs with their AND mask (what every shell reads), and
256 pixels as PNG (what the shell's large views read). Only the standard library is used, and the same
bytes come out on every run.

Usage: draw_icon.py OUTPUT.ico
"""
import os
import struct
import sys
import tempfile
import zlib

DIB_SIZES = (16, 24, 32, 48)
PNG_SIZE = 256

BACKGROUND = (31, 95, 191)
LOCK = (255, 255, 255)


def in_rounded_box(x, y, left, top, right, bottom, radius):
    nearest_x = min(max(x, left + radius), right - radius)
    nearest_y = min(max(y, top + radius), bottom - radius)
    inside_box = left <= x <= right and top <= y <= bottom
    return inside_box and (x - nearest_x) ** 2 + (y - nearest_y) ** 2 <= radius ** 2


def colour_at(x, y):
    """The colour at a point of the unit square (x right, y down), or None where the icon is clear."""
    if not in_rounded_box(x, y, 0.02, 0.02, 0.98, 0.98, 0.2):
        return None
    in_body = in_rounded_box(x, y, 0.25, 0.44, 0.75, 0.84, 0.06)
    distance = ((x - 0.5) ** 2 + (y - 0.44) ** 2) ** 0.5
    in_shackle = 0.12 <= distance <= 0.2 and y <= 0.44
    in_keyhole = (x - 0.5) ** 2 + (y - 0.6) ** 2 <= 0.05 ** 2 or (abs(x - 0.5) <= 0.022 and 0.6 <= y <= 0.74)
    if (in_body and not in_keyhole) or in_shackle:
        return LOCK
    return BACKGROUND


def render(size):
    """Rows of (r, g, b, a), top row first; 4x4 samples a pixel give the edges their softness."""
    samples = 4
    rows = []
    for py in range(size):
        row = []
        for px in range(size):
            total = [0, 0, 0, 0]
            for sy in range(samples):
                for sx in range(samples):
                    colour = colour_at((px + (sx + 0.5) / samples) / size, (py + (sy + 0.5) / samples) / size)
                    if colour is not None:
                        total = [total[0] + colour[0], total[1] + colour[1], total[2] + colour[2], total[3] + 1]
            covered = total[3]
            if covered == 0:
                row.append((0, 0, 0, 0))
            else:
                alpha = round(255 * covered / samples ** 2)
                row.append((round(total[0] / covered), round(total[1] / covered), round(total[2] / covered), alpha))
        rows.append(row)
    return rows


def dib_image(size):
    """A 32-bit BITMAPINFOHEADER image of an icon: twice the height (colour, then AND mask), bottom-up."""
    rows = render(size)
    mask_stride = (size + 31) // 32 * 4
    colour = bytearray()
    mask = bytearray()
    for row in reversed(rows):
        mask_row = bytearray(mask_stride)
        for x, (r, g, b, a) in enumerate(row):
            colour += bytes((b, g, r, a))
            if a == 0:
                mask_row[x // 8] |= 0x80 >> (x % 8)
        mask += mask_row
    header = struct.pack("<IiiHHIIiiII", 40, size, size * 2, 1, 32, 0, len(colour) + len(mask), 0, 0, 0, 0)
    return header + bytes(colour) + bytes(mask)


def png_image(size):
    rows = render(size)
    raw = b"".join(b"\0" + bytes(channel for pixel in row for channel in pixel) for row in rows)

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    header = struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b"")


def icon_file():
    images = [(size, dib_image(size)) for size in DIB_SIZES] + [(PNG_SIZE, png_image(PNG_SIZE))]
    directory = struct.pack("<HHH", 0, 1, len(images))
    offset = len(directory) + 16 * len(images)
    entries = b""
    for size, data in images:
        side = size if size < 256 else 0  # 0 stands for 256 in a directory entry
        entries += struct.pack("<BBBBHHII", side, side, 0, 0, 1, 32, len(data), offset)
        offset += len(data)
    return directory + entries + b"".join(data for _, data in images)


def main():
    if len(sys.argv) != 2:
        print("usage: draw_icon.py OUTPUT.ico", file=sys.stderr)
        return 2
    output = sys.argv[1]
    # Written beside its place and renamed, so that a stopped build leaves no half icon.
    fd, temp_path = tempfile.mkstemp(dir=os.path.dirname(os.path.abspath(output)), suffix=".tmp")
    with os.fdopen(fd, "wb") as handle:
        handle.write(icon_file())
    os.chmod(temp_path, 0o644)
    os.replace(temp_path, output)
    return 0


if __name__ == "__main__":
    sys.exit(main())
