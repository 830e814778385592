#!/usr/bin/env python3
"""Prints tests/files/foreign_streams.h: streams made by Python's zlib and by gzip.

    scripts/make_streams.py > tests/files/foreign_streams.h
"""
import gzip
import subprocess
import zlib

TEXTS = {
    "empty": b"",
    "once": b"The quick brown fox jumps over the lazy dog.",
    "runs": b"".join(bytes([i]) * (i * 7 % 300 + 1) for i in range(30)),
    "mixed": bytes((i * i // 7 + i % 11) % 251 for i in range(150)),
}

METHODS = {
    "stored": (0, zlib.Z_DEFAULT_STRATEGY, 9),
    "fast": (1, zlib.Z_DEFAULT_STRATEGY, 9),
    "small": (9, zlib.Z_DEFAULT_STRATEGY, 15),
    "fixed codes": (6, zlib.Z_FIXED, 15),
    "no matches": (6, zlib.Z_HUFFMAN_ONLY, 15),
}


def deflate(text, level, strategy, bits, pieces=False):
    packer = zlib.compressobj(level, zlib.DEFLATED, bits, 9, strategy)
    if not pieces:
        return packer.compress(text) + packer.flush()
    half = len(text) // 2
    first = packer.compress(text[:half]) + packer.flush(zlib.Z_FULL_FLUSH)
    return first + packer.compress(text[half:]) + packer.flush()


def row(text, method, wrapper, stream):
    body = stream.hex()
    lines = [body[i : i + 92] for i in range(0, len(body), 92)]
    print(f'    {{"{text}", "{method}", {wrapper},')
    print("\n".join(f'     "{line}"' for line in lines) + "},")


def main():
    print("// foreign_streams.h - made by scripts/make_streams.py; not to be edited.")
    print("#pragma once\n")
    print("struct ForeignStream {")
    print("    char const* text;\n    char const* method;\n    unsigned int wrapper;")
    print("    char const* digits;  // two a byte\n};\n")
    print("// clang-format off\ninline constexpr ForeignStream foreign_streams[] = {")
    for name, text in TEXTS.items():
        for method, (level, strategy, bits) in METHODS.items():
            row(name, method, 1, deflate(text, level, strategy, bits))
        row(name, "raw, two blocks", 0, deflate(text, 6, 0, -15, pieces=True))
        made = subprocess.run(["gzip", "-9n"], input=text, stdout=subprocess.PIPE, check=True)
        row(name, "gzip itself", 2, made.stdout)
        row(name, "gzip of Python", 2, gzip.compress(text, 6, mtime=1))
    print("};\n// clang-format on")


main()
