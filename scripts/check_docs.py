#!/usr/bin/env python3
"""Checks that what the documents name exists: files and links, identifiers of the code, and tests;
that each row of docs/oddities.md names one; and that each room has its cases, in a file of its own
name or in one that the table of CONTRIBUTING.md tells."""
import pathlib
import re
import subprocess
import sys

root = pathlib.Path(__file__).resolve().parent.parent
OTHERS = {"thread_local", "xyz", "PrivateUsage"}  # of the language, an example, the system


def tracked(*patterns):
    listed = subprocess.run(["git", "ls-files", "--", *patterns], cwd=root, check=True,
                            capture_output=True, text=True).stdout.split("\n")
    return [root / name for name in listed if name and (root / name).exists()]


def tests_of(code):
    """Suite.case of every test of the tree."""
    found = re.findall(r"\b(?:TYPED_)?TEST(?:_[FP])?\(\s*(\w+),\s*(\w+)\)", code)
    return {f"{suite}.{case}" for suite, case in found}


def spans(text):
    """What stands between backticks, outside blocks of code."""
    return re.findall(r"`([^`\n]+)`", re.sub(r"^```.*?^```", "", text, flags=re.M | re.S))


def rows_of(text):
    """The cells of each row of the tables, without their heads."""
    for row in re.findall(r"^\|(?! *(?:---|where|Room) *\|)(.*)\|$", text, flags=re.M):
        yield [cell.strip() for cell in row.split(" | ")]


def untested_oddities(text, tests):
    for cells in rows_of(text):
        if not tests.intersection(spans(cells[-1])):
            yield f"docs/oddities.md: no test pins it: {cells[0]}: {cells[1][:60]}"


def rooms_with_cases(text, files):
    """The headers that stand in a row of the table beside a file that exists. A header without a
    folder is of the folder before it."""
    table = text[text.index("The cases of a room stand in"):]
    for cells in rows_of(table):
        folder = ""
        for span in spans(cells[0]):
            if header := re.fullmatch(r"(?:(\w+)/)?(\w+\.h)", span):
                folder = header[1] or folder
                if files.intersection(spans(cells[-1])):
                    yield f"qx/{folder}/{header[2]}"


def rooms_without_cases(text, files):
    told = set(rooms_with_cases(text, files))
    for file in sorted(files):
        room = re.fullmatch(r"qx/(\w+)/(\w+)(?<!_impl)\.h", file)
        if room and file not in told and f"tests/{room[1]}/{room[2]}_test.cpp" not in files:
            yield f"CONTRIBUTING.md: nothing tells where the cases of {file} are"


def main():
    documents = tracked("*.md")
    files = {str(path.relative_to(root)) for path in tracked("*")}
    code = "\n".join(path.read_text(errors="replace") for path in tracked(
        "qx", "tests", "fuzz", "benchmarks", "examples", "tools", "scripts", "cmake", "*.txt",
        "*.json") if path.suffix not in (".md", ".png"))
    words = set(re.findall(r"\w+", code)) | OTHERS | {pathlib.Path(file).stem for file in files}
    tests = tests_of(code)
    faults = []
    for document in documents:
        name = document.relative_to(root)
        text = document.read_text()
        for link in re.findall(r"\]\(([^)#:]+)\)", text):
            if not (document.parent / link).exists():
                faults.append(f"{name}: link to {link}")
        for span in spans(text):
            if re.fullmatch(r"[\w.*-]+/[\w./*<>-]*", span):
                wanted = re.sub(r"<\w+>", "*", span.rstrip("/"))
                if not any(pathlib.PurePath(file).match(wanted) or
                           f"/{wanted}/" in f"/{file}" for file in files) and \
                        not wanted.startswith("build"):
                    faults.append(f"{name}: no file {span}")
            elif re.fullmatch(r"[A-Z]\w+\.[a-z]\w+", span) and "_" in span:
                if span not in tests:
                    faults.append(f"{name}: no test {span}")
            else:
                for word in re.findall(r"[A-Za-z_]\w{2,}", re.sub(r'"[^"]*"|-D', "", span)):
                    if word not in words:
                        faults.append(f"{name}: `{span}`: {word} is nowhere in the code")
    faults += untested_oddities((root / "docs/oddities.md").read_text(), tests)
    faults += rooms_without_cases((root / "CONTRIBUTING.md").read_text(), files)
    # Harness: a case that is excused must be there; the suites of parametrised ones have prefixes.
    suites = {test.partition(".")[0] for test in tests}
    for line in (root / "tests/harness/lasting.txt").read_text().split("\n"):
        suite, _, case = line.split(" ")[0].partition(".")
        suite = suite.rpartition("/")[2]
        if line and line[0] != "#" and suite not in suites or (
                case and case != "*" and f"{suite}.{case}" not in tests):
            faults.append(f"tests/harness/lasting.txt: no test {suite}.{case}")
    print("\n".join(faults) if faults else f"documents: {len(documents)} checked")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
