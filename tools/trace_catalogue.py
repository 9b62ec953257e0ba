#!/usr/bin/env python3
"""Extract the catalogue of trace points from liblum's sources.

Reads every LUM_INFO, LUM_ERROR and LUM_DEBUG call below --source, checks that numbers are unique,
within 1 to 278, ascending within a source module and given to one module per block, and that each
file's trace_area is the area its path names. Writes the catalogue, one line a point:

    point <TAB> area <TAB> channel <TAB> format as written

and a header with the catalogue's digest. Exits 1 with file and line when a check fails, and says
which numbers are free for that module.

--table prints which numbers belong to which module, and which are free, as docs/architecture.md has
them between its markers; --page FILE fails where that page says otherwise, --rewrite FILE mends it.
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
            failures.append((f"{path}: a trace call whose number or format is not a literal", None))
        if not calls:
            continue
        own = area_of(path, source)
        area = AREA.search(text)
        if not area or area.group(1) != own:
            failures.append((f"{path}: trace_area is not {own}", None))
        last = 0
        for call in calls:
            line = text.count("\n", 0, call.start()) + 1
            number = int(call.group(2))
            if not 1 <= number <= POINTS:
                failures.append((f"{path}:{line}: point {number} is not within 1 to {POINTS}", own))
            if number <= last:
                failures.append((f"{path}:{line}: point {number} does not ascend", own))
            last = number
            literal = "".join(re.findall(r"\"((?:[^\"\\\n]|\\.)*)\"", call.group(3)))
            points.append((number, own, CHANNELS[call.group(1)], literal,
                           f"{path}:{line}"))
    points.sort()
    for one, two in zip(points, points[1:]):
        if one[0] == two[0]:
            failures.append((f"{two[4]}: point {two[0]} is taken by {one[4]}", two[1]))
    blocks = []
    for point in points:
        if not blocks or blocks[-1] != point[1]:
            blocks.append(point[1])
    for area in sorted({a for a in blocks if blocks.count(a) > 1}):
        failures.append((f"{area}: its points are not one block", area))
    return points, failures


def blocks_of(points):
    """The modules in the order of their blocks: (area, first point, last point). A point that stands
    in another's block does not count."""
    runs = []
    for number, area, *_ in points:
        if not runs or runs[-1][0] != area:
            runs.append((area, []))
        runs[-1][1].append(number)
    largest = {}
    for area, numbers in runs:
        if len(numbers) > len(largest.get(area, [])):
            largest[area] = numbers
    blocks = [(area, numbers[0], numbers[-1]) for area, numbers in largest.items()]
    return sorted(blocks, key=lambda block: block[1])


def free_numbers(points):
    """The numbers that no call has: {area: inside its block}, and those between the blocks."""
    used = {point[0] for point in points}
    blocks = blocks_of(points)
    inside = {area: [n for n in range(first, last) if n not in used] for area, first, last in blocks}
    covered = {n for _, first, last in blocks for n in range(first, last + 1)}
    return inside, [n for n in range(1, POINTS + 1) if n not in covered and n not in used]


def free_for(points, wanted):
    """Inside the module's block, and beside it as far as its neighbours' blocks."""
    inside, between = free_numbers(points)
    found = list(inside.get(wanted, []))
    blocks = blocks_of(points)
    names = [area for area, *_ in blocks]
    if wanted not in names:
        return between
    at = names.index(wanted)
    low = blocks[at - 1][2] if at > 0 else 0
    high = blocks[at + 1][1] if at + 1 < len(blocks) else POINTS + 1
    return sorted(found + [n for n in between if low < n < high])


def ranges(numbers):
    """[1, 2, 3, 7] -> "1 to 3, 7"."""
    runs = []
    for number in numbers:
        if runs and runs[-1][1] == number - 1:
            runs[-1][1] = number
        else:
            runs.append([number, number])
    texts = []
    for first, last in runs:
        texts += [f"{first} to {last}"] if last - first > 1 else [str(n) for n in range(first, last + 1)]
    return ", ".join(texts)


def table(points):
    inside, between = free_numbers(points)
    lines = ["| points | module | free inside its block |", "|---|---|---|"]
    for area, first, last in blocks_of(points):
        block = f"{first}" if first == last else f"{first} to {last}"
        lines.append(f"| {block} | {area} | {ranges(inside[area]) or 'none'} |")
    lines += ["", f"Free between the blocks: {ranges(between)}."]
    return "\n".join(lines) + "\n"


MARKERS = ("<!-- made by tools/trace_catalogue.py --rewrite -->\n", "<!-- end -->\n")


def page_with(page, text):
    """The page with what stands between its markers replaced."""
    head, rest = page.split(MARKERS[0], 1)
    tail = rest.split(MARKERS[1], 1)[1]
    return head + MARKERS[0] + text + MARKERS[1] + tail


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--source", type=pathlib.Path, required=True)
    parser.add_argument("--catalogue", type=pathlib.Path)
    parser.add_argument("--header", type=pathlib.Path)
    parser.add_argument("--table", action="store_true")
    parser.add_argument("--page", type=pathlib.Path)
    parser.add_argument("--rewrite", type=pathlib.Path)
    arguments = parser.parse_args()

    points, failures = read(arguments.source)
    for text, area in failures:
        free = ranges(free_for(points, area)) if area else ""
        print(text + (f"; free for {area}: {free}" if free else ""), file=sys.stderr)
    if failures:
        return 1
    if arguments.table:
        print(table(points), end="")
    if arguments.rewrite:
        arguments.rewrite.write_text(page_with(arguments.rewrite.read_text(), table(points)))
    if arguments.page:
        page = arguments.page.read_text()
        if page_with(page, table(points)) != page:
            print(f"{arguments.page}: its table of trace points is not today's; run "
                  f"{sys.argv[0]} --source {arguments.source} --rewrite {arguments.page}",
                  file=sys.stderr)
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
