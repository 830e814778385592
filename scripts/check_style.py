#!/usr/bin/env python3
"""Style that a tool can judge: format, line width, first lines, function and file lengths, and what
the library's own sources leave alone; of the scripts the line width.

check_style.py [FILE…]          these files alone
"""
import pathlib
import re
import subprocess
import sys

WIDTH = 100
FUNCTION_LINES = 60
FILE_LINES = 800

root = pathlib.Path(__file__).resolve().parent.parent
folders = ("qx", "tests", "fuzz", "benchmarks", "examples", "tools")


def listed(*places):
    names = sys.argv[1:] or subprocess.run(["git", "ls-files", "--", *places], cwd=root, check=True,
                                           capture_output=True, text=True).stdout.splitlines()
    return [name for name in names if name.startswith(places)]


def sources():
    return [root / name for name in listed(*folders) if name.endswith((".h", ".cpp"))]


def scripts():
    return [root / name for name in listed("scripts")]


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


def banned_faults(path, text):
    """What no source of the library uses: state of a thread that goes stale across a fibre switch,
    and iostreams."""
    if re.search(r"\b(thread_local|__thread)\b", bare(text)):
        yield f"{path}: thread_local"
    if stream := re.search(r"#\s*include <((io|[io]|f|s)stream|streambuf|iomanip)>", text):
        yield f"{path}: <{stream[1]}>"


def state_faults(path, text):
    """Variables of a public header that the library and each client would have for themselves."""
    within = {line for first, length in functions(text) for line in range(first, first + length)}
    for number, line in enumerate(bare(text).split("\n"), 1):
        found = re.match(
            r"( *)(static|inline)\b(?!.*\b(constexpr|operator|namespace)\b)[^()]*?([=;{])", line)
        declares_member = found and found[1] and found[2] == "static" and found[4] == ";"
        if found and not (declares_member and number not in within):
            yield f"{path}:{number}: state in a header"


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
        if path.parts[0] == "qx":
            faults += banned_faults(path, text)
            if file.suffix == ".h" and not file.stem.endswith("_impl"):
                faults += state_faults(path, text)
    for file in files + scripts():
        faults += [f"{file.relative_to(root)}:{n}: over {WIDTH} columns"
                   for n, line in enumerate(file.read_text().split("\n"), 1) if len(line) > WIDTH]
    format_check = subprocess.run(["clang-format", "--dry-run", "-Werror", *map(str, files)],
                                  stdin=subprocess.DEVNULL, capture_output=True, text=True)
    if format_check.returncode:
        faults += sorted({line.split(": error")[0] + ": clang-format would change it"
                          for line in format_check.stderr.split("\n") if ": error" in line})
    print("\n".join(faults) if faults else f"style: {len(files)} files, {len(scripts())} scripts")
    return 1 if faults else 0


sys.exit(main())
