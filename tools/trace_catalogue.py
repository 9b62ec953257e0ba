#!/usr/bin/env python3
"""Extract the catalogue of trace points from liblum's sources.

Reads every LUM_INFO, LUM_ERROR and LUM_DEBUG call below --source, checks that numbers are unique,
within 1 to 278, ascending within a source module and given to one module per block, and that each
file's trace_area is the area its path names. Writes the catalogue, one line a point:

    point <TAB> area <TAB> channel <TAB> format as written

and a header with the catalogue's digest. Exits 1 with file and line when a check fails.
"""
import argparse
import hashlib
import pathlib
import re
import sys

POINTS = 278
CHANNELS = {"INFO": "lum_info", "ERROR": "lum_error", "DEBUG": "lum_debug"}
CALL = re.compile(r"\bLUM_(INFO|ERROR|DEBUG)\(\s*(\d+)\s*,\s*((?:\"(?:[^\"\\\n]|\\.)*\"\s*)+)")
ANY_CALL = re.compile(r"\bLUM_(?:INFO|ERROR|DEBUG)\(")
AREA = re.compile(r"\btrace_area\[\]\s*=\s*\"(\w+)\"")


def area_of(path, source):
    first = path.relative_to(source).parts[0]
    return first.removesuffix(".cpp")


def read(source):
    points, failures = [], []
    for path in sorted(source.rglob("*.cpp")):
        text = path.read_text()
        calls = list(CALL.finditer(text))
        if len(calls) != len(ANY_CALL.findall(text)):
            failures.append(f"{path}: a trace call whose number or format is not a literal")
        if not calls:
            continue
        area = AREA.search(text)
        if not area or area.group(1) != area_of(path, source):
            failures.append(f"{path}: trace_area is not {area_of(path, source)}")
        last = 0
        for call in calls:
            line = text.count("\n", 0, call.start()) + 1
            number = int(call.group(2))
            if not 1 <= number <= POINTS:
                failures.append(f"{path}:{line}: point {number} is not within 1 to {POINTS}")
            if number <= last:
                failures.append(f"{path}:{line}: point {number} does not ascend")
            last = number
            literal = "".join(re.findall(r"\"((?:[^\"\\\n]|\\.)*)\"", call.group(3)))
            points.append((number, area_of(path, source), CHANNELS[call.group(1)], literal,
                           f"{path}:{line}"))
    points.sort()
    for one, two in zip(points, points[1:]):
        if one[0] == two[0]:
            failures.append(f"{two[4]}: point {two[0]} is taken by {one[4]}")
    blocks = []
    for point in points:
        if not blocks or blocks[-1] != point[1]:
            blocks.append(point[1])
    for area in sorted({a for a in blocks if blocks.count(a) > 1}):
        failures.append(f"{area}: its points are not one block")
    return points, failures


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--source", type=pathlib.Path, required=True)
    parser.add_argument("--catalogue", type=pathlib.Path)
    parser.add_argument("--header", type=pathlib.Path)
    arguments = parser.parse_args()

    points, failures = read(arguments.source)
    for failure in failures:
        print(failure, file=sys.stderr)
    if failures:
        return 1

    used = {point[0]: point for point in points}
    lines = []
    for number in range(1, POINTS + 1):
        area, channel, literal = used[number][1:4] if number in used else ("-", "-", "reserved")
        lines.append(f"{number}\t{area}\t{channel}\t{literal}\n")
    catalogue = "".join(lines)
    digest = hashlib.md5(catalogue.encode()).hexdigest()
    if arguments.catalogue:
        arguments.catalogue.parent.mkdir(parents=True, exist_ok=True)
        arguments.catalogue.write_text(catalogue)
    if arguments.header:
        arguments.header.parent.mkdir(parents=True, exist_ok=True)
        arguments.header.write_text(
            "// Made by tools/trace_catalogue.py.\n#pragma once\n\n"
            f'#define LUM_TRACE_DIGEST "{digest}"\n')
    return 0


if __name__ == "__main__":
    sys.exit(main())
