#!/usr/bin/env python3
"""Plants a fault for each check in a copy of the tree, and sees that the check reports it."""
import pathlib
import shutil
import subprocess
import sys
import tempfile

root = pathlib.Path(__file__).resolve().parent.parent
LONG_BODY = "() {\n" + "    ;\n" * 70 + "    return 0;\n"
LONG_FUNCTION = "\nint planted" + LONG_BODY + "}\n"
LONG_MEMBER = "\nstruct Planted {\nint member" + LONG_BODY + "}\n};\n"

CHECK_RECTANGLE = "check_headers.sh stamps qx/base/rectangle.h"

# check, file, what is added to it or put for a word of it, what the report must name
PLANTED = [
    ("check_floors.py", "qx/base/hash.h", '\n#include "qx/app/window.h"\n', "hash"),
    ("check_floors.py", "qx/tasks/task.h", '\n#include "qx/files/pack_file.h"\n', "task"),
    ("check_floors.py", "qx/data/csv.cpp", '\n#include "qx/memory/heap_impl.h"\n',
     "qx/memory/heap_impl.h is of another folder"),
    ("check_floors.py", "qx/data/csv.cpp", "\n#include <windows.h>\n", "a system header outside"),
    (CHECK_RECTANGLE, "qx/base/rectangle.h", "\nstd::string planted();\n", "does not stand alone"),
    (CHECK_RECTANGLE, "qx/base/rectangle.h", '\n#include "qx/base/windows.h"\n',
     "brings the system headers along"),
    ("check_style.py", "qx/base/rectangle.h", "\n// " + "long " * 30 + "\n", "rectangle.h"),
    ("check_style.py", "qx/text/convert.cpp", LONG_FUNCTION, "a function of"),
    ("check_style.py", "qx/text/convert.cpp", LONG_MEMBER, "a function of"),
    ("check_style.py", "qx/text/convert.cpp", "\n" * 800, "convert.cpp: "),
    ("check_style.py", "qx/base/rectangle.h", ("// rectangle.h - ", "// A "), "rectangle.h:1:"),
    ("check_style.py", "qx/base/rectangle.h", ("#pragma once", ""), "no #pragma once"),
    ("check_style.py", "qx/text/convert.cpp", "\nthread_local int planted;\n", "thread_local"),
    ("check_style.py", "qx/text/convert.cpp", "\n#include <sstream>\n", "<sstream>"),
    ("check_style.py", "qx/base/rectangle.h", "\ninline int planted = 0;\n", "state in a header"),
    ("check_style.py", "qx/base/rectangle.h", "\nstatic int planted;\n", "state in a header"),
    ("check_style.py", "qx/base/rectangle.h", "\ninline int planted() {\n    static int n;\n"
     "    return ++n;\n}\n", "state in a header"),
    ("check_style.py", "scripts/setup.sh", "\n# " + "long " * 30 + "\n", "setup.sh"),
    ("check_style.py", "qx/data/csv.cpp", ("#include <cstdlib>\n#include <cstring>",
                                           "#include <cstring>\n#include <cstdlib>"), "csv.cpp"),
    ("check_docs.py", "docs/arena.md", "\n`no_such_" "name_at_all`\n", "name_at_all"),
    ("check_docs.py", "docs/oddities.md", "\n`Arena.no_such_case`\n", "Arena.no_such_case"),
    ("check_docs.py", "README.md", "\n[gone](docs/gone.md)\n", "docs/gone.md"),
    ("check_docs.py", "docs/oddities.md", ("`Csv.cuts_tables_as_told`", "cases"),
     "no test pins it"),
    ("check_docs.py", "CONTRIBUTING.md", ("`net/mail.h`", "mail"), "qx/net/mail.h"),
    ("check_views.py", "qx/files/file_name.h", ("name_", "renamed_"), "name_"),
]
OF_EXPORTS = ("imports stranger.dll", "exported but not listed: planted",
              "listed but not exported: _ZN2QX13custom_mallocEyNS_5HEAPSE")

RUN = """### table

| workload | contender | ns/op | first is ahead by |
| --- | --- | --- | --- |
| work | **QXLibs** | {} | |
| | rival | {} | 2.00 |
"""

# ours and a rival's time behind 10 and 20, bench_diff.py's answer and the end of its report
RUNS = [(10, 40, 0, "0 slower, 0 faster"), (5, 20, 0, "0 slower, 1 faster"),
        (20, 20, 1, "1 slower, 0 faster"), (20, "none", 1, "1 slower, 0 faster"),
        ("none", 20, 2, "no row in common")]


def bench_diff_faults(folder):
    old, new = folder / "old.md", folder / "new.md"
    old.write_text(RUN.format(10, 20))
    for ours, theirs, answer, expected in RUNS:
        new.write_text(RUN.format(ours, theirs))
        told = subprocess.run([sys.executable, folder / "scripts/bench_diff.py", old, new],
                              capture_output=True, text=True)
        if told.returncode != answer or expected not in told.stdout:
            yield f"bench_diff.py takes {ours} and {theirs} behind 10 and 20 for something else"


def copy_of_tree(folder):
    listed = subprocess.run(["git", "ls-files"], cwd=root, check=True, capture_output=True,
                            text=True).stdout.split("\n")
    for name in filter(None, listed):
        (folder / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(root / name, folder / name)
    subprocess.run(["git", "init", "-q"], cwd=folder, check=True)
    subprocess.run(["git", "add", "-A"], cwd=folder, check=True)


def report_of(check, folder):
    """What a check says of the tree in `folder`; nothing where it finds no fault."""
    name, *arguments = check.split()
    shell = [sys.executable] if name.endswith(".py") else ["bash"]
    told = subprocess.run([*shell, folder / "scripts" / name, *arguments], cwd=folder,
                          capture_output=True, text=True)
    return told.stdout + told.stderr if told.returncode else ""


def report_of_exports(folder):
    """What check_exports.py says of a library that has nothing of ours in it."""
    (folder / "planted.c").write_text("void stranger(void);\n"
                                      "__declspec(dllexport) void planted(void) { stranger(); }\n")
    (folder / "stranger.def").write_text("LIBRARY stranger.dll\nEXPORTS\nstranger\n")
    for command in ("dlltool -d stranger.def -l stranger.a",
                    "gcc -shared -o planted.dll planted.c stranger.a"):
        subprocess.run(f"x86_64-w64-mingw32-{command}".split(), cwd=folder, check=True)
    return report_of("check_exports.py planted.dll", folder)


def main():
    faults = []
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        copy_of_tree(folder)
        for check, file, change, expected in PLANTED:
            path = folder / file
            before = path.read_text()
            path.write_text(before + change if isinstance(change, str) else
                            before.replace(*change))
            if check == "check_style.py":
                check += f" {file}"  # it takes long over the whole tree
            if expected not in report_of(check, folder):
                faults.append(f"{check} does not report the fault planted in {file}: {expected}")
            path.write_text(before)
        faults += bench_diff_faults(folder)
        exports = report_of_exports(folder)
        faults += [f"check_exports.py does not report: {expected}" for expected in OF_EXPORTS
                   if expected not in exports]
    count = len(PLANTED) + len(OF_EXPORTS)
    print("\n".join(faults) if faults else f"checks: {count} planted faults reported")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
