#!/usr/bin/env python3
"""Looks for a picture, pixel for pixel, inside a screenshot.

find_picture.py PICTURE SCREENSHOT    prints where; exit code 1 if it is not there

Both are read by ImageMagick, so that what the screen shows is held against another decoder.
"""
import subprocess
import sys

MAGICK = "/usr/bin/convert"


def load(path):
    size = subprocess.run([MAGICK, path, "-auto-orient", "-format", "%w %h", "info:"], check=True,
                          capture_output=True, text=True).stdout.split()
    pixels = subprocess.run([MAGICK, path, "-auto-orient", "-alpha", "off", "-depth", "8", "rgb:-"],
                            check=True, capture_output=True).stdout
    return int(size[0]), int(size[1]), pixels


def rows(width, height, pixels):
    return [pixels[y * width * 3:(y + 1) * width * 3] for y in range(height)]


def places(needle, haystack):
    """Every column where the row `needle` stands in the row `haystack`."""
    at = haystack.find(needle)
    while at >= 0:
        if at % 3 == 0:
            yield at
        at = haystack.find(needle, at + 1)


def main():
    picture, screen = load(sys.argv[1]), load(sys.argv[2])
    wanted, shown = rows(*picture), rows(*screen)
    for top in range(screen[1] - picture[1] + 1):
        for left in places(wanted[0], shown[top]):
            if all(shown[top + y][left:left + len(row)] == row for y, row in enumerate(wanted)):
                print(f"the picture stands at ({left // 3}, {top})")
                return 0
    print(f"{sys.argv[1]} is not in {sys.argv[2]}")
    return 1


sys.exit(main())
