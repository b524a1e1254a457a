#!/usr/bin/env python3
"""Draws the wait window's pictures as 142x142 PNGs, 8 bits per channel with alpha.

  509.png  a finger lying on the sensor (shown while the program waits)
  504.png  a fingerprint with a green tick (a match)
  505.png  a fingerprint with a red cross (a refusal)

Usage: draw_pictures.py [FOLDER]   (default: the folder of this script). Only the standard library is
used, and the output is the same bytes on every run, so the committed files can be checked against it.
"""
import math
import os
import struct
import sys
import zlib

SIZE = 142


def blank():
    return [[(0, 0, 0, 0)] * SIZE for _ in range(SIZE)]


def blend(img, x, y, colour, coverage):
    """Lays `colour` (r, g, b, a) over the pixel with the given coverage (0..1)."""
    if not (0 <= x < SIZE and 0 <= y < SIZE) or coverage <= 0:
        return
    r, g, b, a = colour
    a = a / 255.0 * min(coverage, 1.0)
    dr, dg, db, da = img[y][x]
    da /= 255.0
    out = a + da * (1 - a)
    if out <= 0:
        return
    mix = lambda s, d: int(round((s * a + d * da * (1 - a)) / out))
    img[y][x] = (mix(r, dr), mix(g, dg), mix(b, db), int(round(out * 255)))


def fill_shape(img, inside, colour):
    """Fills the points where inside(x, y) holds, with 4x4 supersampling for soft edges."""
    for y in range(SIZE):
        for x in range(SIZE):
            hits = sum(inside(x + (i + 0.5) / 4, y + (j + 0.5) / 4) for i in range(4) for j in range(4))
            blend(img, x, y, colour, hits / 16.0)


def rounded_rect(x0, y0, x1, y1, radius):
    def inside(x, y):
        cx = min(max(x, x0 + radius), x1 - radius)
        cy = min(max(y, y0 + radius), y1 - radius)
        return (x - cx) ** 2 + (y - cy) ** 2 <= radius ** 2 and x0 <= x <= x1 and y0 <= y <= y1
    return inside


def ellipse(cx, cy, rx, ry):
    return lambda x, y: ((x - cx) / rx) ** 2 + ((y - cy) / ry) ** 2 <= 1


def fingerprint_ridges(cx, cy, rx, ry, width):
    """Concentric elliptic ridges, open at the bottom like a fingertip's print."""
    def inside(x, y):
        dx, dy = (x - cx) / rx, (y - cy) / ry
        d = math.hypot(dx, dy)
        if d > 1 or (dy > 0.55 and abs(dx) < 0.25):
            return False
        phase = (d * rx) % (2 * width)
        return phase < width and d * rx > width
    return inside


def segment(x0, y0, x1, y1, thickness):
    def inside(x, y):
        vx, vy = x1 - x0, y1 - y0
        t = max(0.0, min(1.0, ((x - x0) * vx + (y - y0) * vy) / (vx * vx + vy * vy)))
        px, py = x0 + t * vx, y0 + t * vy
        return (x - px) ** 2 + (y - py) ** 2 <= (thickness / 2) ** 2
    return inside


def print_picture():
    img = blank()
    fill_shape(img, ellipse(64, 68, 44, 56), (245, 240, 232, 255))
    fill_shape(img, fingerprint_ridges(64, 68, 44, 56, 4), (70, 80, 96, 255))
    return img


def badge(img, colour):
    fill_shape(img, ellipse(106, 106, 30, 30), (255, 255, 255, 255))
    fill_shape(img, ellipse(106, 106, 26, 26), colour)


def tick():
    img = print_picture()
    badge(img, (40, 160, 70, 255))
    fill_shape(img, lambda x, y: segment(92, 106, 102, 117, 7)(x, y) or segment(102, 117, 121, 95, 7)(x, y),
               (255, 255, 255, 255))
    return img


def cross():
    img = print_picture()
    badge(img, (205, 40, 40, 255))
    fill_shape(img, lambda x, y: segment(95, 95, 117, 117, 7)(x, y) or segment(117, 95, 95, 117, 7)(x, y),
               (255, 255, 255, 255))
    return img


def finger_on_sensor():
    img = blank()
    fill_shape(img, rounded_rect(21, 84, 121, 134, 12), (60, 66, 76, 255))
    fill_shape(img, rounded_rect(31, 92, 111, 126, 8), (120, 130, 146, 255))
    # The finger, from above, its tip resting on the sensor's window.
    fill_shape(img, lambda x, y: (46 <= x <= 96 and 8 <= y <= 100) and
               (y >= 34 or ellipse(71, 34, 25, 26)(x, y)) and (y <= 90 or ellipse(71, 90, 25, 14)(x, y)),
               (232, 188, 160, 255))
    fill_shape(img, rounded_rect(58, 22, 84, 44, 9), (246, 222, 206, 255))  # the nail
    return img


def png(img):
    raw = b"".join(b"\x00" + bytes(c for px in row for c in px) for row in img)
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)
    header = struct.pack(">IIBBBBB", SIZE, SIZE, 8, 6, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(raw, 9)) +
            chunk(b"IEND", b""))


def main():
    folder = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.abspath(__file__))
    for name, draw in (("504", tick), ("505", cross), ("509", finger_on_sensor)):
        with open(os.path.join(folder, name + ".png"), "wb") as f:
            f.write(png(draw()))
    return 0


if __name__ == "__main__":
    sys.exit(main())
