#!/usr/bin/env python3
"""Puts what lumctl really prints into the pages.

A block of a page that is a screen stands behind a comment with its command:

    <!-- lumctl at 80 columns: show ports -b -->

The command runs on the demo's shelf of ten ports, one of them with an alarm, whose polling stands
still. Ages, times and the shelf's folder are not of the machine it runs on.

usage: tools/refresh_screens.py --build build            rewrites the screens
       tools/refresh_screens.py --build build --check    fails where one is not as it would be
"""

import argparse
import difflib
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

SOURCE = pathlib.Path(__file__).resolve().parents[1]
SCREEN = re.compile(
    r"(?P<head><!-- lumctl at (?P<columns>\d+) columns: (?P<command>.+?) -->\n```\n)"
    r"(?P<text>.*?)(?P<tail>^```$)", re.DOTALL | re.MULTILINE)
COMMENT = re.compile(r"<!-- *lumctl")
GROWING = ("AGE S", "SINCE S", "PUBLISHED")  # columns of numbers that go on with the time
MOMENTS = (
    (re.compile(r"\b\d+(\.\d+)? s ago\b"), "1 s ago"),
    (re.compile(r"\bfor \d+ s\b"), "for 60 s"),
    (re.compile(r"\b\d{4}-\d\d-\d\d( |T)\d\d:\d\d(:\d\d)?"), r"2026-01-01\g<1>12:00\g<2>"),
    (re.compile(r"\b\d\d:\d\d:\d\d\b"), "12:00:00"),
)


def pages():
    return sorted([SOURCE / "README.md", *SOURCE.glob("docs/*.md")])


def with_one(line, edge):
    """The line with 1 for the number that stands alone where a column of them ends."""
    found = re.search(r"(?<=  )\d+$", line[:edge])
    if found is None or line[edge:edge + 1] not in ("", " "):
        return line
    return line[:found.start()] + "1".rjust(edge - found.start()) + line[edge:]


def normal(text, folder):
    """The output without what is different each time."""
    lines, edges = [], []
    for line in text.replace(str(folder), "/srv/demo").splitlines():
        titles = [found.end() for title in GROWING
                  for found in re.finditer(rf"(?<!\S){title}(?!\S)", line)]
        edges = titles or edges
        for edge in [] if titles else edges:
            line = with_one(line, edge)
        for moment, fixed in MOMENTS:
            line = moment.sub(fixed, line)
        lines.append(line.rstrip())
    return "\n".join(lines) + "\n"


class Shelf:
    """The demo's shelf, polled once."""

    def __init__(self, build, folder):
        os.environ["LUM_BUILD"] = str(build)
        sys.path += [str(SOURCE / "tests" / "client"), str(SOURCE / "tools" / "demo")]
        import support
        import tour
        self.build = build
        self.folder = folder
        self.shelf, described, _, self.empty, self.failing = tour.make_shelf(build, folder)
        self.alarmed = self.shelf.cages[4]
        tour.cages.poke(self.alarmed.module, tour.FLAG_BYTE, tour.FLAG_BITS)
        self.filled = list(described)
        self.handles = {}  # as they are shown
        self.driver = support.Driver(build, self.shelf, ("--alarm-tests",), support.QUICK)

    def __enter__(self):
        self.driver.hold_polling()
        self.driver.__enter__()
        try:
            if self.driver.wait_for(self.is_up, 60) is None:
                raise RuntimeError("the shelf does not come up")
            self.driver.poll_once()
            settled = self.driver.wait_for(self.is_settled, 60)
            if settled is None:
                raise RuntimeError("the shelf is not polled well")
            self.number_handles(settled)
        except BaseException:
            self.driver.__exit__()
            raise
        return self

    def __exit__(self, *_):
        self.driver.__exit__()

    def number_handles(self, ports):
        """Those ports that do not answer get their handles in the order in which they give up."""
        theirs = [sub["ifhandle"] for cage in (self.empty, self.failing)
                  for sub in ports[cage.name]["sub_ports"]]
        self.handles = {f"0x{now:08x}": f"0x{shown:08x}"
                        for now, shown in zip(theirs, sorted(theirs))}

    def is_up(self, ports):
        return (ports[self.empty.name]["state"] == "empty"
                and all(ports[name]["state"] == "up" for name in self.filled))

    def is_settled(self, ports):
        polled = all(sub["readings"] and {"power_1", "alarms"} <= sub.get("pm", {}).keys()
                     for name in self.filled for sub in ports[name]["sub_ports"])
        return (polled and ports[self.empty.name]["state"] == "empty"
                and ports[self.failing.name]["state"] == "failing"
                and ports[self.alarmed.name]["led"]["name"] == "fault")

    def screen(self, command, columns):
        done = subprocess.run(
            [self.build / "lumctl", *shlex.split(command)], capture_output=True, text=True,
            check=False, timeout=30,
            env=dict(os.environ, LUMD_SOCKET=str(self.shelf.socket), COLUMNS=columns))
        if done.returncode != 0:
            raise RuntimeError(f"lumctl {command}: {done.stderr.strip()}")
        shown = re.sub(r"\b0x[0-9a-f]{8}\b", lambda found: self.handles.get(found[0], found[0]),
                       done.stdout)
        return normal(shown, self.folder)


def refreshed(page, shelf):
    text = page.read_text()
    if len(COMMENT.findall(text)) != len(SCREEN.findall(text)):
        raise RuntimeError(f"{page}: a comment with a command of lumctl has no block behind it")
    return SCREEN.sub(
        lambda found: found["head"] + shelf.screen(found["command"], found["columns"])
        + found["tail"], text)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--check", action="store_true")
    words = parser.parse_args()
    wrong = False
    with tempfile.TemporaryDirectory(prefix="lum-screens-") as folder, \
            Shelf(words.build.resolve(), pathlib.Path(folder)) as shelf:
        for page in pages():
            before, now = page.read_text(), refreshed(page, shelf)
            if now == before:
                continue
            name = str(page.relative_to(SOURCE))
            wrong = True
            if not words.check:
                page.write_text(now)
                print(f"{name}: refreshed")
                continue
            sys.stdout.writelines(difflib.unified_diff(
                before.splitlines(True), now.splitlines(True), name, f"{name}, as it would be"))
    if wrong and words.check:
        sys.exit("screens differ from what is printed; tools/refresh_screens.py --build DIR "
                 "takes it over")


if __name__ == "__main__":
    try:
        main()
    except RuntimeError as failed:
        sys.exit(f"tools/refresh_screens.py: {failed}")
