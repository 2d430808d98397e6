"""Draws picture.png, the picture that the example runs on: a lake in front of mountains, lettering and a colour chart.

usage: make_picture.py [output.png]
"""

import math
import os
import struct
import sys
import zlib

WIDTH, HEIGHT = 640, 480
SAMPLES = 2  # a side of a pixel
HORIZON = 300.0
SHORE = 408.0  # the colour chart lies below
SNOW_LINE = 226.0
SUN = (470.0, 150.0, 34.0)
RIDGES = [  # base line, height, wave length, seed, colour: the far ridge first
    (262.0, 92.0, 210.0, 1, (134, 146, 178)),
    (284.0, 74.0, 150.0, 2, (92, 110, 146)),
    (302.0, 52.0, 104.0, 3, (52, 78, 96)),
]
CHART = [
    (0, 0, 0), (64, 64, 64), (128, 128, 128), (192, 192, 192), (255, 255, 255), (255, 0, 0), (255, 160, 0), (255, 255, 0),
    (0, 200, 0), (0, 255, 255), (0, 80, 255), (60, 0, 160), (255, 0, 255), (120, 70, 30), (255, 200, 170), (16, 90, 60),
]
GLYPHS = {
    "T": "11111 00100 00100 00100 00100 00100 00100",
    "A": "01110 10001 10001 11111 10001 10001 10001",
    "R": "11110 10001 10001 11110 10100 10010 10001",
    "V": "10001 10001 10001 10001 10001 01010 00100",
    "U": "10001 10001 10001 10001 10001 10001 01110",
}
LETTERING = "TARVU"
LETTER_LEFT, LETTER_TOP, LETTER_DOT = 44.0, 40.0, 9.0


def mix(a, b, share):
    return tuple(x + (y - x) * share for x, y in zip(a, b))


def hash_01(n, seed):
    """A fixed number from 0 to 1 for every integer."""
    n = (n * 374761393 + seed * 668265263) & 0xFFFFFFFF
    n = ((n ^ (n >> 13)) * 1274126177) & 0xFFFFFFFF
    return ((n ^ (n >> 16)) & 0xFFFF) / 65535.0


def ridge_height(x, length, seed):
    """Value noise of five octaves, 0 to about 1."""
    height, weight = 0.0, 0.5
    for octave in range(5):
        at = x / length
        whole = math.floor(at)
        share = at - whole
        share = share * share * (3 - 2 * share)
        left, right = hash_01(whole, seed + 31 * octave), hash_01(whole + 1, seed + 31 * octave)
        height += weight * (left + (right - left) * share)
        weight *= 0.5
        length *= 0.5
    return height


RIDGE_LINES = [
    [base - height * ridge_height(x / SAMPLES, length, seed) for x in range(WIDTH * SAMPLES)]
    for base, height, length, seed, _ in RIDGES
]


def sky(x, y):
    colour = mix((58, 104, 176), (250, 206, 160), min(1.0, max(0.0, y / HORIZON)) ** 1.4)
    distance = math.hypot(x - SUN[0], y - SUN[1])
    if distance < SUN[2]:
        return (255, 246, 214)
    return mix(colour, (255, 230, 180), 0.55 * math.exp(-(distance - SUN[2]) / 60))


def landscape(x, y, column):
    """Sky and mountains."""
    colour = sky(x, y)
    for line, (base, _, _, _, ridge_colour) in zip(RIDGE_LINES, RIDGES):
        if y >= line[column]:
            haze = min(1.0, (y - line[column]) / max(1.0, base + 20 - line[column]))
            colour = mix(ridge_colour, (214, 202, 196), 0.35 * haze)
            if ridge_colour is RIDGES[0][4] and y - line[column] < 0.7 * (SNOW_LINE - line[column]):
                colour = (240, 244, 250)  # snow
    return colour


def lake(x, y, column):
    depth = (y - HORIZON) / (SHORE - HORIZON)
    wave = math.sin(y * 1.1 + 4 * math.sin(x * 0.02)) * (1 + 5 * depth)
    mirrored = HORIZON - (y - HORIZON) * 1.9 + wave
    shifted = min(WIDTH * SAMPLES - 1, max(0, column + int(3 * wave)))
    return mix(landscape(x + wave, mirrored, shifted), (24, 60, 92), 0.35 + 0.3 * depth)


def chart(x, y):
    if y < SHORE + 4:
        return (30, 30, 34)
    if y < SHORE + 44:
        return CHART[min(len(CHART) - 1, int(x * len(CHART) / WIDTH))]
    share = x / WIDTH
    if y < SHORE + 58:
        return (255 * share,) * 3
    if x < WIDTH / 2:  # a chequerboard that gets finer to the right
        cell = (7, 5, 3, 2, 1)[min(4, int(share * 10))]
        return ((int(x) // cell + int(y - SHORE - 58) // cell) % 2 * 255,) * 3
    share = (share - 0.5) * 2
    return (255 * share, 255 * (1 - abs(2 * share - 1)), 255 * (1 - share))


def lettering(x, y):
    row = int((y - LETTER_TOP) // LETTER_DOT)
    dot = int((x - LETTER_LEFT) // LETTER_DOT)
    if not 0 <= row < 7 or not 0 <= dot < 6 * len(LETTERING) or dot % 6 == 5:
        return False
    return GLYPHS[LETTERING[dot // 6]].split()[row][dot % 6] == "1"


def sample(column, row):
    x, y = (column + 0.5) / SAMPLES, (row + 0.5) / SAMPLES
    if y >= SHORE:
        return chart(x, y)
    if y >= HORIZON:
        return lake(x, y, column)
    if lettering(x, y):
        return (255, 252, 240)
    if lettering(x - 3, y - 3):  # shadow
        return mix(landscape(x, y, column), (20, 30, 60), 0.6)
    return landscape(x, y, column)


def pixel(x, y):
    samples = [sample(x * SAMPLES + i, y * SAMPLES + j) for i in range(SAMPLES) for j in range(SAMPLES)]
    return bytes(min(255, max(0, int(sum(channel) / len(samples) + 0.5))) for channel in zip(*samples))


def png(lines):
    """Each line is filtered by its difference from the pixel to the left and from the line above, whichever is smaller."""
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    filtered = bytearray()
    above = bytes(3 * WIDTH)
    for line in lines:
        left = bytes((a - b) & 255 for a, b in zip(line, bytes(3) + line))
        up = bytes((a - b) & 255 for a, b in zip(line, above))
        choices = [(1, left), (2, up)]
        filtered += min((bytes([kind]) + data for kind, data in choices), key=lambda d: sum(min(v, 256 - v) for v in d[1:]))
        above = line
    header = struct.pack(">IIBBBBB", WIDTH, HEIGHT, 8, 2, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(bytes(filtered), 9)) +
            chunk(b"IEND", b""))


def main():
    path = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(os.path.abspath(__file__)), "picture.png")
    lines = [b"".join(pixel(x, y) for x in range(WIDTH)) for y in range(HEIGHT)]
    with open(path, "wb") as file:
        file.write(png(lines))


if __name__ == "__main__":
    main()
