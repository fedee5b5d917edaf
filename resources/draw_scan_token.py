#!/usr/bin/env python3
"""Draws scan_token.png: a phone showing a QR code, held over a till scanner.

The picture tells the cashier what to do in the scanning dialog. Only the standard library is
used, so anyone can redraw it: python3 draw_scan_token.py [output.png]
"""
import random
import struct
import sys
import zlib

W, H = 453, 350
pixels = bytearray(W * H * 4)  # RGBA, fully transparent


def blend(x, y, rgba):
    if not (0 <= x < W and 0 <= y < H):
        return
    r, g, b, a = rgba
    i = (y * W + x) * 4
    da = pixels[i + 3] / 255.0
    sa = a / 255.0
    oa = sa + da * (1 - sa)
    if oa == 0:
        return
    for k, c in enumerate((r, g, b)):
        pixels[i + k] = int((c * sa + pixels[i + k] * da * (1 - sa)) / oa + 0.5)
    pixels[i + 3] = int(oa * 255 + 0.5)


def coverage(inside, x, y, samples=3):
    """Share of a pixel inside a shape, for smooth edges."""
    hits = 0
    for sy in range(samples):
        for sx in range(samples):
            if inside(x + (sx + 0.5) / samples, y + (sy + 0.5) / samples):
                hits += 1
    return hits / (samples * samples)


def shape(inside, box, rgba):
    x0, y0, x1, y1 = box
    for y in range(max(0, int(y0) - 1), min(H, int(y1) + 2)):
        for x in range(max(0, int(x0) - 1), min(W, int(x1) + 2)):
            c = coverage(inside, x, y)
            if c > 0:
                blend(x, y, rgba[:3] + (int(rgba[3] * c),))


def rounded_rect(x0, y0, x1, y1, r, rgba):
    def inside(px, py):
        if not (x0 <= px <= x1 and y0 <= py <= y1):
            return False
        cx = min(max(px, x0 + r), x1 - r)
        cy = min(max(py, y0 + r), y1 - r)
        return (px - cx) ** 2 + (py - cy) ** 2 <= r * r
    shape(inside, (x0, y0, x1, y1), rgba)


def rect(x0, y0, x1, y1, rgba):
    for y in range(int(y0), int(y1)):
        for x in range(int(x0), int(x1)):
            blend(x, y, rgba)


def circle(cx, cy, r, rgba):
    shape(lambda px, py: (px - cx) ** 2 + (py - cy) ** 2 <= r * r,
          (cx - r, cy - r, cx + r, cy + r), rgba)


def polygon(points, rgba):
    xs = [p[0] for p in points]
    ys = [p[1] for p in points]

    def inside(px, py):
        n, res, j = len(points), False, len(points) - 1
        for i in range(n):
            xi, yi = points[i]
            xj, yj = points[j]
            if (yi > py) != (yj > py) and px < (xj - xi) * (py - yi) / (yj - yi) + xi:
                res = not res
            j = i
        return res
    shape(inside, (min(xs), min(ys), max(xs), max(ys)), rgba)


WHITE = (255, 255, 255, 255)
INK = (33, 37, 41, 255)
GREY = (108, 117, 125, 255)
LIGHT = (233, 236, 239, 255)
RED = (230, 57, 70, 255)
GREEN = (46, 160, 67, 255)

# Card behind everything.
rounded_rect(4, 4, W - 5, H - 5, 24, (248, 249, 250, 255))

# The scanner on the counter: body, window and the red beam going up.
rounded_rect(250, 250, 430, 330, 18, GREY)
rounded_rect(262, 258, 418, 276, 8, INK)
rect(272, 264, 408, 270, RED)
polygon([(276, 258), (404, 258), (366, 150), (314, 150)], (230, 57, 70, 70))

# The phone, held above the scanner's window.
rounded_rect(270, 40, 410, 230, 20, INK)
rounded_rect(280, 58, 400, 212, 8, WHITE)
rounded_rect(318, 46, 362, 51, 2, GREY)

# A QR code on the phone's screen: three finder patterns and seeded random modules.
qx, qy, m, n = 290, 85, 4, 25
rnd = random.Random(20241105)
grid = [[rnd.random() < 0.5 for _ in range(n)] for _ in range(n)]


def finder(gx, gy):
    for dy in range(7):
        for dx in range(7):
            ring = max(abs(dx - 3), abs(dy - 3))
            grid[gy + dy][gx + dx] = ring != 2
    for d in range(-1, 8):
        for gx2, gy2 in ((gx + d, gy - 1), (gx + d, gy + 7), (gx - 1, gy + d), (gx + 7, gy + d)):
            if 0 <= gx2 < n and 0 <= gy2 < n:
                grid[gy2][gx2] = False


finder(0, 0)
finder(n - 7, 0)
finder(0, n - 7)
for gy in range(n):
    for gx in range(n):
        if grid[gy][gx]:
            rect(qx + gx * m, qy + gy * m, qx + gx * m + m, qy + gy * m + m, INK)

# The cashier's side: a till screen with a tick, and an arrow from the phone to the scanner.
rounded_rect(40, 70, 210, 200, 14, GREY)
rounded_rect(52, 82, 198, 176, 6, LIGHT)
rect(110, 200, 140, 240, GREY)
rounded_rect(70, 236, 180, 252, 6, GREY)
circle(125, 129, 30, GREEN)
polygon([(108, 128), (120, 140), (143, 115), (148, 120), (120, 151), (103, 133)], WHITE)
polygon([(214, 128), (244, 128), (244, 116), (262, 136), (244, 156), (244, 144), (214, 144)],
        RED)


def png(path):
    raw = b"".join(b"\x00" + bytes(pixels[y * W * 4:(y + 1) * W * 4]) for y in range(H))

    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))

    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n")
        f.write(chunk(b"IHDR", struct.pack(">IIBBBBB", W, H, 8, 6, 0, 0, 0)))
        f.write(chunk(b"IDAT", zlib.compress(raw, 9)))
        f.write(chunk(b"IEND", b""))


png(sys.argv[1] if len(sys.argv) > 1 else "scan_token.png")
