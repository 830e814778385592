#!/usr/bin/env python3
"""Builds a DLL that imports what another DLL imports and does nothing: the floor of its load time.

make_empty_dll.py DLL OUT
"""
import pathlib
import re
import subprocess
import sys

PREFIX = "x86_64-w64-mingw32"


def imports(dll):
    dump = subprocess.run([f"{PREFIX}-objdump", "-p", dll], text=True, capture_output=True,
                          check=True).stdout
    for block in dump.split("DLL Name: ")[1:]:
        library = block.split("\n")[0].strip().rsplit(".", 1)[0].lower()
        for name in re.findall(r"^\s+[0-9a-f]+\s+\d+\s+(\S+)$", block.split("\n\n")[0], re.M):
            yield library, name


def main():
    dll, out = sys.argv[1:3]
    found = sorted(set(imports(dll)))
    source = pathlib.Path(out).with_suffix(".s")
    lines = ["\t.data", "\t.globl table", "table:"]
    lines += [f"\t.quad __imp_{name}" for _, name in found]
    source.write_text("\n".join(lines) + "\n")
    libraries = [f"-l{library}" for library in dict.fromkeys(library for library, _ in found)]
    subprocess.run([f"{PREFIX}-gcc-posix", "-shared", "-o", out, str(source), "-Wl,-u,table",
                    *libraries], check=True)
    print(f"{out}: {len(found)} imports")


main()
