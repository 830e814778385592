#!/usr/bin/env python3
"""Style that a tool can judge: format, line width, first lines, function and file lengths."""
import pathlib
import re
import subprocess
import sys

WIDTH = 100
FUNCTION_LINES = 60
FILE_LINES = 800

root = pathlib.Path(__file__).resolve().parent.parent
folders = ("qx", "tests", "fuzz", "benchmarks", "examples", "tools")


def sources():
    listed = subprocess.run(["git", "ls-files", "--", *folders], cwd=root, check=True,
                            capture_output=True, text=True).stdout.split("\n")
    return [root / name for name in listed if name.endswith((".h", ".cpp"))]


def function_faults(path, lines):
    """A body opens with a line that ends in '{' at column 0 and closes with '}' at column 0."""
    start = None
    for number, line in enumerate(lines, 1):
        if start is None:
            if re.match(r"^[A-Za-z~].*\)[^;=]*\{$|^[^ #/}].*\) *(const|noexcept)* *\{$", line):
                start = number
        elif line.startswith("}"):
            length = number - start + 1
            if length > FUNCTION_LINES and "long:" not in lines[start - 2]:
                yield f"{path}:{start}: a function of {length} lines"
            start = None


def main():
    faults = []
    files = sources()
    for file in files:
        path = file.relative_to(root)
        text = file.read_text()
        lines = text.split("\n")
        if file.suffix == ".h" and not re.match(rf"// {re.escape(file.name)} - ", lines[0]):
            faults.append(f"{path}:1: the first line names the file and its purpose")
        if file.suffix == ".h" and "#pragma once" not in text and "global_new" not in file.name:
            faults.append(f"{path}: no #pragma once")
        faults += [f"{path}:{n}: over {WIDTH} columns" for n, line in enumerate(lines, 1)
                   if len(line) > WIDTH]
        if len(lines) > FILE_LINES and path.parts[0] == "qx":
            faults.append(f"{path}: {len(lines)} lines")
        faults += function_faults(path, lines)
    format_check = subprocess.run(
        ["clang-format", "--dry-run", "-Werror", *map(str, files)], capture_output=True, text=True)
    if format_check.returncode:
        faults += sorted({line.split(": error")[0] + ": clang-format would change it"
                          for line in format_check.stderr.split("\n") if ": error" in line})
    print("\n".join(faults) if faults else f"style: {len(files)} files")
    return 1 if faults else 0


sys.exit(main())
