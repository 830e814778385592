#!/usr/bin/env python3
"""Compares how two parsers read XML documents: expat, and the library through `qxxml tree`.

compare_documents.py [--second] COMMAND... < LIST

COMMAND runs qxxml; LIST names the documents, one a line. Every document is read by the library
without a fault. Those that use only what both sides read alike are compared: names, attributes,
nesting and texts, line ends and blanks in attributes as XML evens them out. The others are counted
by what they use. The exit code is 1 after a fault or a difference.
"""
import collections
import html.entities
import re
import subprocess
import sys
import xml.parsers.expat

BATCH = 60
PREDEFINED = {"lt", "gt", "amp", "quot", "apos"}


def beyond(data, second):
    """What the two sides are not to agree about, or None."""
    try:
        text = data.decode("utf-8")
    except UnicodeDecodeError:
        return "another encoding"
    bare = re.sub(r"<!--.*?-->", "", text, flags=re.S)
    declaration = re.match(r"<\?xml\s[^>]*\?>", bare)
    if data[:1] >= b"\x80":
        return "a byte order mark"
    if declaration and not re.search(r"""encoding\s*=\s*["'](utf-8|us-ascii)["']""", declaration[0],
                                     re.I) and "encoding" in declaration[0]:
        return "another encoding"
    bare = bare[declaration.end() if declaration else 0:]
    if "<![CDATA[" in bare:
        return "a CDATA section"
    if "<?" in bare:
        return "a processing instruction"
    if re.search(r"<!DOCTYPE[^>]*\[", bare):
        return "a document type with its own declarations"
    for name in re.findall(r"&([^;]*);", bare):
        if second and (name.startswith("#") or name == "apos"):
            return "a reference that the second parser has not"
        if name.startswith("#x") or (name.startswith("#") and int(name[1:]) > 0xFFFF):
            return "a hexadecimal or a high reference"
        if name[0] != "#" and name not in PREDEFINED | set(html.entities.name2codepoint):
            return "a reference of its own"
    return None


def read_by_expat(data):
    """The tree as `qxxml tree` has it: [kind, text...] lines by depth."""
    root = {"name": "?xml", "attributes": [], "content": "", "tags": [], "epilog": ""}
    open_tags = [root]

    def start(name, attributes):
        pairs = list(zip(attributes[::2], attributes[1::2]))
        tag = {"name": name, "attributes": pairs, "content": "", "tags": [], "epilog": ""}
        open_tags[-1]["tags"].append(tag)
        open_tags.append(tag)

    def text(characters):
        tags = open_tags[-1]["tags"]
        if tags:
            tags[-1]["epilog"] += characters
        else:
            open_tags[-1]["content"] += characters

    parser = xml.parsers.expat.ParserCreate()
    parser.ordered_attributes = True
    parser.buffer_text = True
    parser.StartElementHandler = start
    parser.EndElementHandler = lambda name: open_tags.pop()
    parser.CharacterDataHandler = text
    # Names that a document type would declare.
    known = re.sub(rb"&(\w+);", lambda m: m[0] if m[1].decode() in PREDEFINED else
                   b"&#%d;" % html.entities.name2codepoint[m[1].decode()], data)
    parser.Parse(known, True)
    return root["tags"][0]


def unescaped(text):
    return re.sub(r"\\(.)", lambda m: {"n": "\n", "r": "\r", "t": "\t", "\\": "\\"}[m[1]], text)


def read_tool(lines):
    """The document's one top-level tag out of the tool's lines."""
    open_tags = []
    for line in lines:
        depth = len(line) - len(line.lstrip("\t"))
        kind, text = line[depth], unescaped(line[depth + 1:])
        if kind == "<":
            tag = {"name": text, "attributes": [], "content": "", "tags": [], "epilog": ""}
            del open_tags[depth:]
            if open_tags:
                open_tags[-1]["tags"].append(tag)
            open_tags.append(tag)
        elif kind == "@":
            at = text.index("=", 1)
            value = re.sub(r"\r\n|[\r\n\t]", " ", text[at + 1:])
            open_tags[depth - 1]["attributes"].append((text[:at], value))
        else:
            even = re.sub(r"\r\n?", "\n", text)
            if kind == '"':
                open_tags[depth - 1]["content"] += even
            else:
                open_tags[depth]["epilog"] += even
    top = open_tags[0]["tags"]
    if len(top) != 1:
        raise ValueError(f"{len(top)} top-level tags")
    top[0]["epilog"] = ""
    return top[0]


def count(tag):
    """Tags, attributes, characters of text."""
    tags, attributes, characters = 1, len(tag["attributes"]), len(tag["content"] + tag["epilog"])
    for child in tag["tags"]:
        a, b, c = count(child)
        tags, attributes, characters = tags + a, attributes + b, characters + c
    return tags, attributes, characters


def difference(a, b, path):
    path += "/" + a["name"]
    for what in ("name", "attributes", "content", "epilog"):
        if a[what] != b[what]:
            return f"{path}: {what} is {b[what]!r}, wanted {a[what]!r}"
    if len(a["tags"]) != len(b["tags"]):
        return f"{path}: {len(b['tags'])} children, wanted {len(a['tags'])}"
    for x, y in zip(a["tags"], b["tags"]):
        found = difference(x, y, path)
        if found:
            return found
    return None


def run_tool(command, names):
    """The lines of each document; those that were not parsed have none."""
    windows = ["Z:" + name.replace("/", "\\") for name in names]
    done = subprocess.run(command + windows, capture_output=True, check=False)
    if done.returncode not in (0, 1):
        sys.exit(f"qxxml ended with {done.returncode}: {done.stderr[-300:]!r}")
    parts = ("\n" + done.stdout.decode("utf-8").replace("\r\n", "\n")).split("\n# ")[1:]
    if len(parts) != len(names):
        sys.exit(f"qxxml showed {len(parts)} of {len(names)} documents: {done.stderr[-300:]!r}")
    return [part.rstrip("\n").split("\n")[1:] for part in parts]


def main():
    sys.setrecursionlimit(100000)
    second = "--second" in sys.argv[1:]
    command = [word for word in sys.argv[1:] if word != "--second"] + ["tree"]
    command += ["--second"] if second else []
    names = sys.stdin.read().split("\n")[:-1]
    passed_over, compared, differences = collections.Counter(), 0, []
    parsed, totals, size = 0, [0, 0, 0], 0
    for first in range(0, len(names), BATCH):
        batch = names[first:first + BATCH]
        for name, lines in zip(batch, run_tool(command, batch)):
            with open(name, "rb") as file:
                data = file.read()
            size += len(data)
            parsed += bool(lines)
            reason = beyond(data, second)
            if reason:
                passed_over[reason] += 1
                continue
            wanted = read_by_expat(data)
            try:
                found = difference(wanted, read_tool(lines), "")
            except (IndexError, ValueError) as error:
                found = f"not read: {error}"
            if found:
                differences.append(f"{name}: {found}")
            compared += 1
            totals = [a + b for a, b in zip(totals, count(wanted))]
    for text in differences[:10]:
        print(text)
    reasons = ", ".join(f"{n} with {what}" for what, n in passed_over.most_common())
    print(f"{'second' if second else 'first'} parser: {len(names)} documents of {size} bytes "
          f"without a fault, {parsed} parsed; {compared} compared ({totals[0]} tags, "
          f"{totals[1]} attributes, {totals[2]} characters), {len(differences)} differ; "
          f"passed over: {reasons or 'none'}")
    return 1 if differences or not names else 0


sys.exit(main())
