#!/usr/bin/env python3
"""Style that a tool can judge: format, line width, first lines, function and file lengths; of the
scripts the line width."""
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


def scripts():
    listed = subprocess.run(["git", "ls-files", "--", "scripts"], cwd=root, check=True,
                            capture_output=True, text=True).stdout.split("\n")
    return [root / name for name in listed if name]


def bare(text):
    """The code alone, line for line: no comments, no texts, no lines of the preprocessor."""
    pattern = (r'R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"'
               r"|(?<![0-9A-Fa-f])'(?:\\.[^'\n]*|[^'\\\n])'"
               r"|//[^\n]*|/\*.*?\*/|^[ \t]*#(?:\\\n|[^\n])*")
    return re.sub(pattern, lambda match: "\n" * match[0].count("\n"), text, flags=re.M | re.S)


def opens_function(head):
    """Whether the brace behind these words opens a function's body or a lambda's."""
    if re.match(r"(\} *)?((if|else|for|while|switch|do|catch|namespace)\b|extern$)", head):
        return False
    if re.search(r"(?<![<,] )\b(class|struct|union|enum)\b[^()]*$", head):
        return False
    return re.search(r"[)\]]\s*((const|noexcept|override|final|mutable|try)\s*|->[^()]*)*$", head)


def functions(text):
    """First line and length of every body, those inside classes and the lambdas too."""
    open_braces, head, depth, line = [], "", 0, 1
    for at, c in enumerate(code := bare(text)):
        line += c == "\n"
        depth += (c == "(") - (c == ")")
        if c == "{":
            # An initialiser without a space before it: what follows belongs to the same head.
            within = code[at - 1].isalnum() or code[at - 1] in "_>"
            first = line - head.strip().count("\n")
            open_braces.append((first if opens_function(head.strip()) else None,
                                head if within else "", depth))
            head, depth = "", 0
        elif c == "}" and open_braces:
            first, head, depth = open_braces.pop()
            if first:
                yield first, line - first + 1
        elif c == ";" and depth == 0:
            head = ""
        else:
            head += c


def function_faults(path, text):
    for first, length in functions(text):
        if length > FUNCTION_LINES:
            yield f"{path}:{first}: a function of {length} lines"


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
        if len(lines) > FILE_LINES and path.parts[0] == "qx":
            faults.append(f"{path}: {len(lines)} lines")
        faults += function_faults(path, text)
    for file in files + scripts():
        faults += [f"{file.relative_to(root)}:{n}: over {WIDTH} columns"
                   for n, line in enumerate(file.read_text().split("\n"), 1) if len(line) > WIDTH]
    format_check = subprocess.run(
        ["clang-format", "--dry-run", "-Werror", *map(str, files)], capture_output=True, text=True)
    if format_check.returncode:
        faults += sorted({line.split(": error")[0] + ": clang-format would change it"
                          for line in format_check.stderr.split("\n") if ": error" in line})
    print("\n".join(faults) if faults else f"style: {len(files)} files, {len(scripts())} scripts")
    return 1 if faults else 0


sys.exit(main())
