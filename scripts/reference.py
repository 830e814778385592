#!/usr/bin/env python3
"""Generates the API reference from the public headers: one page a room, and an index.

reference.py [OUT]    writes Markdown to OUT (default build/reference)

A header is read in blocks that blank lines divide. The comment that opens a block is its text; the
code below is shown as it stands. A block that declares something and says nothing is a warning, and
any warning makes the exit code 1.
"""
import pathlib
import re
import sys

root = pathlib.Path(__file__).resolve().parent.parent
PRIVATE = set((root / "cmake/private_headers.txt").read_text().split())  # not installed
NOISE = re.compile(r"^\s*(#|namespace\b|\} +// namespace|public:|extern template)")


def public_headers():
    for path in sorted((root / "qx").glob("*/*.h")):
        if not path.stem.endswith("_impl") and path.relative_to(root).as_posix() not in PRIVATE:
            yield path


def blocks(lines):
    block, number = [], 1
    for at, line in enumerate(lines + [""], 1):
        if line.strip():
            if not block:
                number = at
            block.append(line)
        elif block:
            yield number, block
            block = []


def split(block):
    """The comment that opens a block, and the code after it."""
    text = []
    for at, line in enumerate(block):
        if not line.strip().startswith("//"):
            return text, block[at:]
        text.append(re.sub(r"^\s*// ?", "", line))
    return text, []


def strip_private(lines):
    """Drops private sections, to the end of the class that opened them, and namespaces DETAIL."""
    kept, skip, inside = [], None, False
    for at, line in enumerate(lines):
        inside = ((inside or line.startswith("namespace DETAIL")) and
                  line != "}  // namespace DETAIL")
        if inside:
            kept.append("")
            continue
        indent = len(line) - len(line.lstrip())
        if skip is not None and line.strip() and indent <= skip and not re.match(
                r"\s*private:", line):
            skip = None
        if skip is None and re.match(r"\s*private:", line):
            skip = indent
        # A class begins privately; what stands before its `public:` is not shown.
        opens = re.match(r"\s*class\b[^;]*\{$", line)
        if skip is None and opens and not re.match(r"\s*(public|protected):", lines[at + 1]):
            kept.append(line)
            skip = indent
            continue
        if skip is None:
            kept.append(line)
        else:
            kept.append("")
    return kept


def page(path, warnings):
    shown = path.relative_to(root)
    lines = strip_private(path.read_text().split("\n"))
    out = [f"# {shown}", ""]
    first = True
    for number, block in blocks(lines):
        text, code = split(block)
        code = [line for line in code if not NOISE.match(line)]
        if first and text:
            head = text[0].partition(" - ")[2] or text[0]
            out += [head[:1].upper() + head[1:], "", *text[1:], ""]
            first = False
            continue
        declares = any("QX_API" in line or
                       re.match(r"\s*(class|struct|enum|template)\b.*[{;]", line)
                       for line in code)
        documented = text or any("//" in line for line in code)
        forward = all(re.match(r"\s*(class|struct|enum)\b[^{]*;$|\s*template <.*>$", line)
                      for line in code) or code[:1] == ["template <>"]
        if declares and not documented and not forward:
            warnings.append(f"{shown}:{number}: declared and not told: {code[0].strip()}")
        if code and any(line.strip() for line in code):
            if text:
                out += [*text, ""]
            out += ["```cpp", *code, "```", ""]
    return "\n".join(out)


def main():
    if sys.argv[1:2] and sys.argv[1].startswith("-"):
        sys.exit(__doc__)
    out = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else root / "build" / "reference")
    warnings, index = [], ["# API reference", ""]
    folder = None
    for path in public_headers():
        if path.parent.name != folder:
            folder = path.parent.name
            index += ["", f"## {folder}", ""]
        target = out / folder / f"{path.stem}.md"
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(page(path, warnings))
        purpose = path.read_text().split("\n")[0].partition(" - ")[2]
        index.append(f"- [{path.stem}]({folder}/{path.stem}.md): {purpose}")
    (out / "index.md").write_text("\n".join(index) + "\n")
    print("\n".join(warnings))
    print(f"reference: {len(warnings)} warnings, pages in {out}")
    return 1 if warnings else 0


sys.exit(main())
