#!/usr/bin/env python3
"""Includes run down only. Holds the table of rooms and checks every #include of qx/ against it.

A room may include rooms of lower floors, and rooms of its own floor along the arrows: within a
group, a later step may include all earlier ones ("a > b" reads: b includes a). A header that ends
in _impl.h is its own folder's alone.
"""
import pathlib
import re
import sys

FLOORS = [
    ["base/export", "base/compiler > base/block_scan", "base/windows", "base/rectangle",
     "base/hash"],
    ["memory/arena", "memory/free_list", "memory/report", "tasks/atomic", "tasks/mutex",
     "tasks/guard"],
    ["memory/batches > memory/heap > memory/global_new memory/lua_alloc > memory/client_new"],
    ["memory/allocators > base/array_body > base/dynamic_array base/standard_containers",
     "memory/pools", "memory/stack_allocator", "memory/transient_allocator",
     "memory/string_pool"],
    ["text/basic_string > text/string > text/convert > text/parse text/match > text/format"],
    ["tasks/semaphore tasks/event > tasks/thread > tasks/threads tasks/thread_pool",
     "files/error_codes > files/file_streams files/mapped_file > files/memory_streams "
     "files/async_in",
     "app/process", "app/cpu_config", "app/floating_point", "app/power", "app/uuid",
     "app/time_date", "app/clipboard", "app/system_info", "data/tokeniser", "data/csv",
     "data/registry", "net/socket_errors"],
    ["files/filesystem > files/file_class files/file_watch > files/search_paths > "
     "files/file_name",
     "files/pack_index > files/pack_file", "files/compression",
     "tasks/fibre > tasks/scheduler > tasks/task > tasks/legacy_task",
     "images/pixel > images/pixel_copy > images/image > images/tga > images/resize",
     "data/entities > data/xml > data/xml_parser > data/xml_writer"],
    ["app/application app/window_messages app/key_table > app/window > "
     "app/timers app/input app/debug_menu > app/message_loop",
     "net/socket > net/mail net/web_fetch"],
    ["diagnostics/call_stack diagnostics/map_file diagnostics/teams "
     "diagnostics/assertion_dialog diagnostics/assertion_log > diagnostics/message_box > "
     "diagnostics/profiler diagnostics/mini_profile diagnostics/assert > memory/memory_tracking",
     "diagnostics/database_log", "diagnostics/watch"],
]

root = pathlib.Path(__file__).resolve().parent.parent
places = {}  # room -> (floor, group, step)
for floor, groups in enumerate(FLOORS):
    for group, chain in enumerate(groups):
        for step, rooms in enumerate(chain.split(" > ")):
            for room in rooms.split():
                places[room] = (floor, group, step)


def room_of(path):
    """qx/text/format_float_impl.h -> text/format: the longest room that the stem begins with."""
    folder, stem = path.parent.name, path.stem
    while stem:
        if f"{folder}/{stem}" in places:
            return f"{folder}/{stem}"
        stem = stem.rpartition("_")[0]
    return None


def may_include(room, other):
    if room == other:
        return True
    (floor, group, step), (other_floor, other_group, other_step) = places[room], places[other]
    if other_floor != floor:
        return other_floor < floor
    return other_group == group and other_step < step


def main():
    faults = []
    for path in sorted((root / "qx").glob("*/*")):
        if path.suffix not in (".h", ".cpp", ".S"):
            continue
        shown = path.relative_to(root)
        room = room_of(path)
        if room is None:
            faults.append(f"{shown}: no room of that name in the table of floors")
            continue
        for number, line in enumerate(path.read_text().splitlines(), 1):
            match = re.match(r'\s*#\s*include\s+"(qx/[^"]+)"', line)
            if match:
                header = pathlib.Path(match.group(1))
                other = room_of(header)
                if header.stem.endswith("_impl") and header.parent.name != path.parent.name:
                    faults.append(f"{shown}:{number}: {header} is of another folder")
                if other is None or not may_include(room, other):
                    faults.append(f"{shown}:{number}: {room} may not include {match.group(1)}")
            system = re.match(r"\s*#\s*include\s+<(windows|win[a-z0-9]+|dinput|dbghelp|psapi|"
                              r"tlhelp32|shl\w+|wts\w+)\.h>", line, re.I)
            allowed = ("_platform" in path.name or path.name in ("windows.h",) or
                       str(shown) == "qx/net/socket.h")
            if system and not allowed:
                faults.append(f"{shown}:{number}: a system header outside the platform half")
    print("\n".join(faults) if faults else f"floors: {len(places)} rooms, includes run down only")
    return 1 if faults else 0


sys.exit(main())
