#!/usr/bin/env python3
"""Compares decoded pictures, pixel by pixel, with what ImageMagick decodes from the same files.

compare_pictures.py PICTURES OUT    PICTURES/*.tga against OUT/<name>.tga.bgra

Colour has to be equal everywhere. Alpha has to be the file's where the file has 8 bits of it, the
grey itself for a grey file (that is how grey widens to four bytes), and opaque everywhere else.
"""
import pathlib
import subprocess
import sys

MAGICK = "/usr/bin/convert"


def decoded_by_other(path, layout):
    return subprocess.run([MAGICK, str(path), "-auto-orient", "-depth", "8", f"{layout}:-"],
                          check=True, capture_output=True).stdout


def expected(path):
    header = path.read_bytes()[:18]
    width = header[12] | header[13] << 8
    if header[17] & 15 == 8:
        return decoded_by_other(path, "bgra"), width
    colour = decoded_by_other(path, "bgr")
    pixels = bytearray(b"\xff") * (len(colour) // 3 * 4)
    for channel in range(3):
        pixels[channel::4] = colour[channel::3]
    if header[2] in (3, 11):
        pixels[3::4] = colour[0::3]
    return bytes(pixels), width


def main():
    pictures, out = map(pathlib.Path, sys.argv[1:3])
    count = 0
    for path in sorted(pictures.glob("*.tga")):
        ours_in = out / f"{path.name}.bgra"
        if not ours_in.exists():
            print(f"{path.name}: not decoded")
            return 1
        ours, (theirs, width) = ours_in.read_bytes(), expected(path)
        if ours != theirs:
            at = next((i for i, (a, b) in enumerate(zip(ours, theirs)) if a != b),
                      min(len(ours), len(theirs))) // 4
            print(f"{path.name}: pixel ({at % width}, {at // width}) is "
                  f"{ours[at * 4:at * 4 + 4].hex()}, the other decoder says "
                  f"{theirs[at * 4:at * 4 + 4].hex()}")
            return 1
        count += 1
    print(f"{count} pictures, every pixel equal")
    return 0 if count else 1


sys.exit(main())
