#!/usr/bin/env python3
"""Which lines and branches of Files/ no test has run, and whether that is known.

Usage: tests/coverage.py PROFILE PROGRAM…

PROFILE is what llvm-profdata merged, each PROGRAM one that was built with the coverage preset. tests/uncovered.txt
explains what stays uncovered; what it does not explain is printed. The exit status is 1 where less is covered than is
promised, where something is uncovered without an explanation, or where an explanation has no line any more. What is
explained and covered all the same is printed too: it may hang on the moment, or its explanation may go.
"""
import collections
import json
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
EXPLAINED = ROOT / "tests" / "uncovered.txt"
PROMISED = {"lines": 95.0, "branches": 90.0}


def export(profile, programs, *options):
    objects = [argument for program in programs[1:] for argument in ("-object", program)]
    command = ["llvm-cov", "export", programs[0], *objects, f"-instr-profile={profile}", *options]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def name_of(path):
    """A path's name from the root; None for what is not asked for."""
    name = os.path.relpath(path, ROOT)
    return name if name.startswith("Files/") else None


def line_counts(text):
    """{file: {line: times run}}"""
    counts, name = collections.defaultdict(dict), ""
    for row in text.splitlines():
        if row.startswith("SF:"):
            name = name_of(row[3:])
        elif name and (match := re.fullmatch(r"DA:(\d+),(\d+)", row)):
            counts[name][int(match[1])] = int(match[2])
    return counts


def branch_counts(text):
    """{file: {(line, column, end line, end column): [times true, times false]}}; instantiations of a template together"""
    counts = collections.defaultdict(lambda: collections.defaultdict(lambda: [0, 0]))
    for file in json.loads(text)["data"][0]["files"]:
        name = name_of(file["filename"])
        for branch in file["branches"] if name else ():
            both = counts[name][tuple(branch[:4])]
            both[0] += branch[4]
            both[1] += branch[5]
    return counts


def uncovered_places(lines, branches):
    """How often each place is uncovered, as tests/uncovered.txt says it: "FILE: SOURCE LINE [what is missing]"."""
    places = collections.Counter()
    for name, counts in lines.items():
        source = (ROOT / name).read_text().splitlines()
        for line, count in counts.items():
            if not count and source[line - 1].strip() not in ("}", "};", "});"):
                places[f"{name}: {source[line - 1].strip()} [never run]"] += 1
        for (line, column, end_line, end_column), (taken, skipped) in branches.get(name, {}).items():
            if taken and skipped or not counts.get(line):
                continue
            condition = source[line - 1][column - 1:end_column - 1 if end_line == line else None]
            way = "false" if taken else "true"
            places[f"{name}: {source[line - 1].strip()} [{condition} is never {way}]"] += 1
    return places


def explained_places():
    return collections.Counter(row for row in EXPLAINED.read_text().splitlines() if row.startswith("Files/"))


def is_there(place):
    name, text = place.split(": ", 1)
    return (ROOT / name).exists() and text.rsplit(" [", 1)[0] in (ROOT / name).read_text()


def percent(covered, total):
    return 100.0 * covered / total if total else 100.0


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    profile, *programs = sys.argv[1:]
    lines = line_counts(export(profile, programs, "-format=lcov"))
    branches = branch_counts(export(profile, programs))

    figures = {"lines": [0, 0], "branches": [0, 0]}
    print(f"{'file':52} {'lines':>13} {'branches':>17}")
    for file in sorted(lines):
        run = [sum(map(bool, lines[file].values())), len(lines[file])]
        ways = [sum(bool(way) for both in branches[file].values() for way in both), 2 * len(branches[file])]
        for figure, (covered, total) in zip(figures.values(), (run, ways)):
            figure[0] += covered
            figure[1] += total
        print(f"{file:52} {run[0]:5}/{run[1]:<5} {percent(*run):4.0f}"
              f" {ways[0]:7}/{ways[1]:<5} {percent(*ways):4.0f}")

    failed = False
    places, explained = uncovered_places(lines, branches), explained_places()
    for place, count in sorted((places - explained).items()):
        failed = True
        print(f"not explained: {place}" + (f" ({count} times)" if count > 1 else ""))
    for place in sorted(place for place in explained if not is_there(place)):
        failed = True
        print(f"explained, but no longer there: {place}")
    for place in sorted(place for place in explained - places if is_there(place)):
        print(f"explained, but covered this time: {place}")
    for name, (covered, total) in figures.items():
        reached = percent(covered, total)
        failed |= reached < PROMISED[name]
        print(f"{name}: {covered} of {total}, {reached:.2f} % ({PROMISED[name]:.0f} are promised)")
    print(f"uncovered places: {places.total()}, {(places - explained).total()} of them not explained")
    sys.exit(failed)


if __name__ == "__main__":
    main()
