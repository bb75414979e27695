#!/usr/bin/env python3
"""Writes data/textures/brick.png: a seamless brick wall in running bond, two bricks across
and two courses down. Bricks are 215 x 65 mm with 10 mm joints, so the picture stands for
450 x 150 mm of wall (give the texture page a real width of 450 mm). Only the standard
library is used, so the picture can be made again anywhere."""

import struct
import sys
import zlib

WIDTH, HEIGHT = 384, 128  # 450 x 150 mm at 1.171875 mm a pixel
MM = 450.0 / WIDTH
BRICK_W, BRICK_H, JOINT = 215.0, 65.0, 10.0


def lcg(seed):
    state = seed & 0xFFFFFFFF
    while True:
        state = (state * 1103515245 + 12345) & 0x7FFFFFFF
        yield state / 0x7FFFFFFF


def main(path):
    rand = lcg(20261124)
    # One tint per brick: 2 courses x 3 brick slots (the half bricks of the offset course
    # meet across the picture's edge, so they share a slot).
    tints = [[(next(rand) - 0.5) * 40 for _ in range(3)] for _ in range(2)]
    grain = lcg(7)
    rows = []
    for y in range(HEIGHT):
        row = bytearray([0])  # filter: none
        ymm = (y + 0.5) * MM
        course = int(ymm // (BRICK_H + JOINT)) % 2
        in_course = ymm % (BRICK_H + JOINT)
        for x in range(WIDTH):
            xmm = (x + 0.5) * MM
            if course == 1:
                xmm = (xmm + (BRICK_W + JOINT) / 2) % 450.0
            slot = int(xmm // (BRICK_W + JOINT))
            in_brick = xmm % (BRICK_W + JOINT)
            noise = (next(grain) - 0.5) * 18
            if in_course >= BRICK_H or in_brick >= BRICK_W:
                v = 188 + noise * 0.6
                r, g, b = v, v * 0.97, v * 0.9
            else:
                t = tints[course][slot % 3] + noise
                r, g, b = 160 + t, 74 + t * 0.6, 52 + t * 0.4
            row += bytes(max(0, min(255, int(round(c)))) for c in (r, g, b))
        rows.append(bytes(row))

    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)

    png = b"\x89PNG\r\n\x1a\n"
    png += chunk(b"IHDR", struct.pack(">IIBBBBB", WIDTH, HEIGHT, 8, 2, 0, 0, 0))
    png += chunk(b"IDAT", zlib.compress(b"".join(rows), 9))
    png += chunk(b"IEND", b"")
    with open(path, "wb") as f:
        f.write(png)


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "data/textures/brick.png")
