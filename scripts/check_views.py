#!/usr/bin/env python3
"""Checks the natvis views: well-formed, and every type and field that they name stands in the
header that the comment above the view names."""
import pathlib
import re
import sys
import xml.etree.ElementTree as tree

root = pathlib.Path(__file__).resolve().parent.parent
natvis = root / "tools/debugger/qxlibs.natvis"
NAMESPACE = "{http://schemas.microsoft.com/vstudio/debugger/natvis/2010}"
EXPRESSIONS = ("Size", "ValuePointer", "StringView", "Item", "Exec")


def expressions(view):
    """What the debugger evaluates in a view."""
    for node in view.iter():
        tag = node.tag.removeprefix(NAMESPACE)
        text = node.text or ""
        if tag == "DisplayString":
            yield from re.findall(r"\{([^{}]+)\}", text.replace("{{", "").replace("}}", ""))
        elif tag in EXPRESSIONS:
            yield text
        yield node.get("Condition", "")
        yield node.get("InitialValue", "")


def known(word, text):
    """Declared in `text`, or in what `text` builds on."""
    return re.search(rf"\b{word}\b", text)


def main():
    text = natvis.read_text()
    headers = re.findall(r"<!-- (qx/\S+\.h)", text)
    views = tree.fromstring(text).findall(NAMESPACE + "Type")
    if len(headers) != len(views):
        sys.exit("views: each type needs a comment with its header above it")
    arrays = (root / "qx/base/array_body.h").read_text()
    faults = []
    for name, view in zip(headers, views):
        header = (root / name).read_text()
        type_name = re.match(r"\w+::(\w+)", view.get("Name")).group(1)
        words = {type_name}
        for expression in expressions(view):
            words |= set(re.findall(r"[A-Za-z_]\w*", re.sub(r",.*", "", expression)))
        for word in sorted(words - {"link"}):
            if not known(word, header) and not (word == "count_" and known(word, arrays)):
                faults.append(f"{natvis.name}: {view.get('Name')}: {word} is not in {name}")
    print("\n".join(faults) if faults else f"views: {len(views)} types")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
