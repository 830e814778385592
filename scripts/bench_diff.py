#!/usr/bin/env python3
"""Compares two runs of scripts/bench.sh row by row.

A run is what it leaves: the folder build/bench/results, one file of it, or docs/performance.md.
Keep a copy of the folder before a change:

    cp -r build/bench/results build/before
    scripts/bench.sh arena
    scripts/bench_diff.py build/before build/bench/results

Prints the rows of our own whose time changed beyond the threshold as new / old: above 1 is slower.
Beside it stands how the rivals of the row changed, which nobody touched: the machine's own mood.
Ends with 1 if anything got slower, with 2 if there are no rows to compare.
"""
import argparse
import pathlib
import re
import statistics
import sys


def files_of(run):
    if run.is_dir():
        return sorted(run.glob("*.md"))
    if not run.is_file():
        print(f"bench_diff: no run at {run}")
        sys.exit(2)
    return [run]


def read(run):
    """{(table, workload): {contender: ns}}; the first contender of a row is ours."""
    rows = {}
    for file in files_of(run):
        title = row = None
        for line in file.read_text().splitlines():
            if line.startswith("#"):
                title, row = line.lstrip("# "), None
            cells = [cell.strip() for cell in line.split("|")[1:-1]]
            if len(cells) != 4 or not re.fullmatch(r"[\d.]+(e[+-]\d+)?", cells[2]):
                continue
            if cells[0]:
                row = rows.setdefault((title, cells[0]), {})
            if row is not None:
                row[cells[1].strip("*")] = float(cells[2])
    return rows


def changes(old, new):
    """(table, workload), our new / old, and the middle one of the rivals' or None."""
    for key in old.keys() & new.keys():
        ours, *rivals = old[key]
        if ours != next(iter(new[key])) or not old[key][ours]:
            continue
        drifts = [new[key][name] / old[key][name] for name in rivals
                  if name in new[key] and old[key][name]]
        yield key, new[key][ours] / old[key][ours], statistics.median(drifts) if drifts else None


def main():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("old", type=pathlib.Path)
    parser.add_argument("new", type=pathlib.Path)
    parser.add_argument("--threshold", type=float, default=10, metavar="PERCENT",
                        help="changes up to this are noise (default: 10)")
    parser.add_argument("--relative", action="store_true",
                        help="divide each change by that of the row's rivals")
    wanted = parser.parse_args()
    old, new = read(wanted.old), read(wanted.new)
    found = sorted(changes(old, new))
    if not found:
        print("bench_diff: no row in common")
        return 2

    limit = 1 + wanted.threshold / 100
    slower = faster = 0
    for (title, workload), ratio, drift in found:
        if wanted.relative and drift:
            ratio /= drift
        if 1 / limit <= ratio <= limit:
            continue
        slower, faster = slower + (ratio > 1), faster + (ratio < 1)
        beside = f"{drift:.2f}" if drift else "-"
        print(f"{'slower' if ratio > 1 else 'faster'} {ratio:6.2f}   rivals {beside:>5}   "
              f"{title}: {workload}")
    tables = {title for title, _ in old.keys() & new.keys()}  # the others were not run
    for what, gone in (("only in the old run", old.keys() - new.keys()),
                       ("only in the new run", new.keys() - old.keys())):
        for title, workload in sorted(gone):
            if title in tables:
                print(f"{what}: {title}: {workload}")
    print(f"bench_diff: {len(found)} rows, {slower} slower, {faster} faster by over "
          f"{wanted.threshold:g} %")
    return 1 if slower else 0


if __name__ == "__main__":
    sys.exit(main())
