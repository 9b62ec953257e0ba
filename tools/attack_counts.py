#!/usr/bin/env python3
"""Prints what attacks have tried in a run of ctest, and what of it the system has survived: the sums
of each test's lines with `N tried, N survived` in the log that ctest leaves in the build, of tests
that have passed too.

usage: tools/attack_counts.py BUILD
"""

import pathlib
import re
import sys

BEGIN = re.compile(r"^\d+/\d+ Testing: (.+)$")
COUNT = re.compile(r"\b([\d,]+) tried, ([\d,]+) survived\b")


def sums(log):
    """Tried and survived of each test that counts, by its name."""
    counted = {}
    name = ""
    for line in log.splitlines():
        begin = BEGIN.match(line)
        if begin:
            name = begin.group(1)
        for found in COUNT.findall(line):
            before = counted.get(name, (0, 0))
            counted[name] = tuple(old + int(new.replace(",", "")) for old, new in zip(before, found))
    return counted


def main():
    log = pathlib.Path(sys.argv[1]) / "Testing" / "Temporary" / "LastTest.log"
    counted = sums(log.read_text(errors="replace"))
    if not counted:
        return
    print("\nWhat was tried, and survived:")
    for name, (tried, survived) in sorted(counted.items()):
        print(f"{tried:9,} {survived:9,}  {name}")


if __name__ == "__main__":
    main()
