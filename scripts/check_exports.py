#!/usr/bin/env python3
"""The DLL exports what docs/exports.txt lists, and imports system DLLs only.

check_exports.py DLL            compare
check_exports.py DLL --write    write the list anew
"""
import pathlib
import re
import subprocess
import sys

root = pathlib.Path(__file__).resolve().parent.parent
listed_in = root / "docs" / "exports.txt"
tool = "x86_64-w64-mingw32-objdump"
SYSTEM = {
    "advapi32.dll", "dbghelp.dll", "dinput8.dll", "gdi32.dll", "kernel32.dll", "msvcrt.dll",
    "ole32.dll", "psapi.dll", "rpcrt4.dll", "shell32.dll", "shlwapi.dll", "user32.dll",
    "version.dll", "winmm.dll", "ws2_32.dll", "wsock32.dll", "wtsapi32.dll",
}


def demangle(names):
    shown = subprocess.run(["x86_64-w64-mingw32-c++filt"], input="\n".join(names), text=True,
                           capture_output=True, check=True).stdout.split("\n")
    return sorted(f"{name}  {text}" if text != name else name for name, text in zip(names, shown))


def main():
    dump = subprocess.run([tool, "-p", sys.argv[1]], text=True, capture_output=True,
                          check=True).stdout
    table = dump[dump.index("[Ordinal/Name Pointer] Table"):]
    names = re.findall(r"^\s*\[\s*\d+\] (?:\+base\[\s*\d+\] +[0-9a-f]+ )?(\S+)$", table, re.M)
    imports = {name.lower() for name in re.findall(r"DLL Name: (\S+)", dump)}
    lines = demangle(names)
    if "--write" in sys.argv:
        listed_in.write_text("\n".join(lines) + "\n")
        return 0

    faults = [f"imports {name}" for name in sorted(imports - SYSTEM)]
    listed = set(listed_in.read_text().splitlines())
    faults += [f"exported but not listed: {line}" for line in lines if line not in listed]
    faults += [f"listed but not exported: {line}" for line in sorted(listed - set(lines))]
    print("\n".join(faults) if faults else f"exports: {len(lines)}, system imports only")
    if faults:
        print("exports: run scripts/check_exports.py DLL --write if the change is meant")
    return 1 if faults else 0


sys.exit(main())
