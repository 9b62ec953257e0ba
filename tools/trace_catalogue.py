#!/usr/bin/env python3
"""Extract the catalogue of trace points from liblum's sources.

Reads every LUM_INFO, LUM_ERROR and LUM_DEBUG call below --source, checks that numbers are unique,
within 1 to 278, ascending within a source module and given to one module per block, and that each
file's trace_area is the area its path names. Writes the catalogue, one line a point:

    point <TAB> area <TAB> channel <TAB> format as written

and a header with the catalogue's digest; with --points one with a table of the points that there
are, for programs that read traces. Exits 1 with file and line when a check fails, and says
which numbers are free at that place: of that module, and between the calls before and behind it.

--table prints which numbers belong to which module, and which are free, as docs/architecture.md has
them between its markers; --page FILE fails where that page says otherwise, --rewrite FILE mends it.
"""
import argparse
import hashlib
import itertools
import pathlib
import re
import sys
from typing import NamedTuple

POINTS = 278
CHANNELS = {"INFO": "lum_info", "ERROR": "lum_error", "DEBUG": "lum_debug"}
CALL = re.compile(r"\bLUM_(INFO|ERROR|DEBUG)\(\s*(\d+)\s*,\s*((?:\"(?:[^\"\\\n]|\\.)*\"\s*)+)")
ANY_CALL = re.compile(r"\bLUM_(?:INFO|ERROR|DEBUG)\(")
AREA = re.compile(r"\btrace_area\[\]\s*=\s*\"(\w+)\"")


def area_of(path, source):
    first = path.relative_to(source).parts[0]
    return first.removesuffix(".cpp")


class Point(NamedTuple):
    number: int
    area: str
    channel: str
    literal: str
    path: pathlib.Path
    line: int

    def __str__(self):
        return f"{self.path}:{self.line}"


def read(source):
    """Every call in the order of its file, and what is wrong with files whatever their numbers."""
    points, failures = [], []
    for path in sorted(source.rglob("*.cpp")):
        text = path.read_text()
        calls = list(CALL.finditer(text))
        if len(calls) != len(ANY_CALL.findall(text)):
            failures.append(f"{path}: a trace call whose number or format is not a literal")
        if not calls:
            continue
        own = area_of(path, source)
        area = AREA.search(text)
        if not area or area.group(1) != own:
            failures.append(f"{path}: trace_area is not {own}")
        for call in calls:
            line = text.count("\n", 0, call.start()) + 1
            literal = "".join(re.findall(r"\"((?:[^\"\\\n]|\\.)*)\"", call.group(3)))
            points.append(
                Point(int(call.group(2)), own, CHANNELS[call.group(1)], literal, path, line))
    return points, failures


def blocks_of(points):
    """The modules in the order of their blocks: (area, first point, last point). Numbers that several
    modules have, and those that stand astray in another's block, count for nobody."""
    owners = {}
    for point in points:
        owners.setdefault(point.number, set()).add(point.area)
    owned = sorted((number, *areas) for number, areas in owners.items()
                   if len(areas) == 1 and 1 <= number <= POINTS)
    while True:
        runs = [(area, [number for number, _ in run])
                for area, run in itertools.groupby(owned, key=lambda one: one[1])]
        areas = [area for area, _ in runs]
        astray = []
        for at, (area, numbers) in enumerate(runs):
            is_inside = 0 < at < len(runs) - 1 and areas[at - 1] == areas[at + 1]
            if is_inside or areas.count(area) > 1:
                astray.append((len(numbers), not is_inside, numbers))
        if not astray:
            return [(area, numbers[0], numbers[-1]) for area, numbers in runs]
        lost = min(astray)[2]
        owned = [one for one in owned if one[0] not in lost]


def free_numbers(points):
    """The numbers that no call has: {area: inside its block}, and those between the blocks."""
    used = {point.number for point in points}
    blocks = blocks_of(points)
    inside = {area: [n for n in range(first, last) if n not in used] for area, first, last in blocks}
    covered = {n for _, first, last in blocks for n in range(first, last + 1)}
    return inside, [n for n in range(1, POINTS + 1) if n not in covered and n not in used]


def room_of(points, wanted):
    """The numbers that may be the module's: its block, and beside it as far as its neighbours' blocks.
    Without a block yet, whatever is nobody's."""
    blocks = blocks_of(points)
    others = {n for area, first, last in blocks if area != wanted for n in range(first, last + 1)}
    free = [n for n in range(1, POINTS + 1) if n not in others]
    for area, first, last in blocks:
        if area == wanted:
            low = max((n for n in others if n < first), default=0)
            high = min((n for n in others if n > last), default=POINTS + 1)
            return [n for n in free if low < n < high]
    return free


def longest_ascent(calls):
    """The most of a file's calls whose numbers do not descend."""
    ascents = [[]]
    for call in calls:
        before = [one for one in ascents if not one or one[-1].number <= call.number]
        ascents.append(max(before, key=len) + [call])
    return max(ascents, key=len)


def is_out_of_order(point, of_file):
    """Whether the file's other calls ascend as well without this one. Where either of two may be the
    one that is out of order, both are."""
    most = longest_ascent(of_file)
    return len(most) < len(of_file) and len(most) == len(longest_ascent(
        [call for call in of_file if call is not point]))


def misnumbered(points):
    """Every call whose number is wrong: (call, why, the numbers that are free where it stands)."""
    rooms = {area: set(room_of(points, area)) for area in {point.area for point in points}}
    used = {point.number for point in points}
    in_room = [point for point in points if point.number in rooms[point.area]]
    for point in points:
        of_file = [call for call in in_room if call.path == point.path]
        rivals = [one for one in in_room if one is not point and one.number == point.number]
        if not 1 <= point.number <= POINTS:
            why = f"is not within 1 to {POINTS}"
        elif rivals:
            why = f"is taken by {rivals[0]}"
        elif point.number not in rooms[point.area]:
            why = f"is outside of {point.area}'s block"
        elif is_out_of_order(point, of_file):
            why = "does not ascend"
        else:
            continue
        kept = longest_ascent([call for call in of_file if call is not point])
        low = max((call.number for call in kept if call.line < point.line), default=0)
        high = min((call.number for call in kept if call.line > point.line), default=POINTS + 1)
        yield point, why, [n for n in sorted(rooms[point.area] - used) if low < n < high]


def refusal(points, point, why, free):
    text = f"{point}: point {point.number} {why}; free at this place: {ranges(free) or 'none'}"
    if free:
        return text
    elsewhere = sorted(set(room_of(points, point.area)) - {one.number for one in points})
    return f"{text}, elsewhere in {point.area}: {ranges(elsewhere) or 'none'}"


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


def points_header(used):
    rows = "".join(f'    {{{number}, "{used[number].area}"}},\n' for number in sorted(used))
    return ("// Made by tools/trace_catalogue.py.\n#pragma once\n\n#include <array>\n"
            "#include <cstdint>\n#include <string_view>\n\nnamespace lum_trace {\n\n"
            f"inline constexpr std::uint32_t last_point = {POINTS};\n\n"
            "struct point {\n  std::uint32_t number;\n  std::string_view area;\n};\n\n"
            f"inline constexpr auto points = std::to_array<point>({{\n{rows}}});\n\n"
            "}  // namespace lum_trace\n")


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
    parser.add_argument("--points", type=pathlib.Path)
    parser.add_argument("--table", action="store_true")
    parser.add_argument("--page", type=pathlib.Path)
    parser.add_argument("--rewrite", type=pathlib.Path)
    arguments = parser.parse_args()

    points, failures = read(arguments.source)
    failures += [refusal(points, *wrong) for wrong in misnumbered(points)]
    for text in failures:
        print(text, file=sys.stderr)
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

    used = {point.number: point for point in points}
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
    if arguments.points:
        arguments.points.parent.mkdir(parents=True, exist_ok=True)
        arguments.points.write_text(points_header(used))
    return 0


if __name__ == "__main__":
    sys.exit(main())
