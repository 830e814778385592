"""qxlibs_gdb.py - how gdb shows the library's values.

    (gdb) source tools/debugger/qxlibs_gdb.py
    (gdb) print name
    $1 = "data\\boot.pack"

Shown: strings of both widths, arrays, vectors, lists, file names, XML tags and attributes.
"""

import gdb
import gdb.printing


def text_of(string):
    """A string's characters, without reading past them."""
    storage = string["storage_"]
    encoding = "UTF-8" if storage.type.target().strip_typedefs().sizeof == 1 else "UTF-16LE"
    return storage.string(encoding, "replace", int(string["length_"]))


class StringPrinter:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        return text_of(self.value)

    def display_hint(self):
        return "string"


class ArrayPrinter:
    """DynamicArray and VECTOR."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return "%d of %d" % (int(self.value["count_"]), int(self.value["capacity_"]))

    def children(self):
        data = self.value["data_"]
        for i in range(int(self.value["count_"])):
            yield "[%d]" % i, data[i]

    def display_hint(self):
        return "array"


class ListPrinter:
    """LIST, whose nodes form a ring through the list's own link."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return "list"

    def children(self):
        ends = self.value["ends_"]
        node = gdb.lookup_type(self.value.type.strip_typedefs().name + "::Node").pointer()
        link = ends["next"]
        at = 0
        while link != ends.address:
            yield "[%d]" % at, link.cast(node)["value"]
            link = link["next"]
            at += 1

    def display_hint(self):
        return "array"


class NamePrinter:
    """FileName, one pointer to the text."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        name = self.value["name_"]
        return text_of(name.dereference()) if int(name) else ""

    def display_hint(self):
        return "string"


class AttributePrinter:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        return "%s='%s'" % (text_of(self.value["name"]), text_of(self.value["value"]))


class TagPrinter:
    """An XML document or one of its tags: as its start tag, what it holds below."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return "<%s>" % text_of(self.value["name"])

    def children(self):
        for field in ("attributes", "content", "tags", "epilog"):
            yield field, self.value[field]


PRINTERS = (
    ("string", r"^QX::(String|UniString|BASIC_STRING<.*>)$", StringPrinter),
    ("array", r"^(QX::(DynamicArray|ArrayBody)|QX_STD::VECTOR)<.*>$", ArrayPrinter),
    ("list", r"^QX_STD::LIST<.*>$", ListPrinter),
    ("name", r"^QX::FileName$", NamePrinter),
    ("attribute", r"^QX::XML_ATTRIBUTE$", AttributePrinter),
    ("tag", r"^QX::(XML|XML_TAG<.*>)$", TagPrinter),
)


def build():
    printers = gdb.printing.RegexpCollectionPrettyPrinter("qxlibs")
    for name, pattern, printer in PRINTERS:
        printers.add_printer(name, pattern, printer)
    return printers


gdb.printing.register_pretty_printer(gdb.current_objfile(), build(), replace=True)
