"""qxlibs_gdb.py - how gdb shows strings and arrays.

    (gdb) source tools/debugger/qxlibs_gdb.py
    (gdb) print name
    $1 = "data\\boot.pack"
"""

import gdb
import gdb.printing


class StringPrinter:
    """String, UniString and what they derive from."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        storage = self.value["storage_"]
        encoding = "UTF-8" if storage.type.target().sizeof == 1 else "UTF-16LE"
        return storage.lazy_string(encoding, int(self.value["length_"]))

    def display_hint(self):
        return "string"


class ArrayPrinter:
    """DynamicArray and the other arrays with the same body."""

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


def build():
    printers = gdb.printing.RegexpCollectionPrettyPrinter("qxlibs")
    printers.add_printer("string", r"^QX::(String|UniString|BASIC_STRING<.*>)$", StringPrinter)
    printers.add_printer("array", r"^(QX::(DynamicArray|ArrayBody)|QX_STD::VECTOR)<.*>$",
                         ArrayPrinter)
    return printers


gdb.printing.register_pretty_printer(gdb.current_objfile(), build(), replace=True)
