#!/usr/bin/env python3
"""Counts the instructions of calls of the library with callgrind, and compares with what is on
record: they are the same each time for the same compiler and the same libraries.

usage: instructions.py PROGRAM FILE            fails when a count is not on record, or is more than
                                               a tenth above it
       instructions.py PROGRAM --accept FILE   puts what is counted on record
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

TIMES = 100  # as the program makes each call
# The C library's plainest way with bytes, whatever the processor has better ones for.
PLAIN = "glibc.cpu.hwcaps=-AVX,-AVX2,-AVX512F,-AVX512VL,-AVX512BW,-ERMS,-FSRM"
OF_CALLER = "on its caller's thread"  # of whatever is so called other threads' work is not counted


def dumped(program, separate):
    """Instructions of each call, by what it is: on all threads, or on that alone which makes it."""
    with tempfile.TemporaryDirectory(prefix="lum-instructions-") as folder:
        subprocess.run(
            ["valgrind", "--tool=callgrind", f"--callgrind-out-file={folder}/out",
             f"--separate-threads={separate}", program],
            check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=300,
            env=dict(os.environ, GLIBC_TUNABLES=PLAIN))
        found = {}
        for dump in pathlib.Path(folder).iterdir():
            text = dump.read_text(errors="replace")
            what = re.search(r"^desc: Trigger: Client Request: (.*)$", text, re.MULTILINE)
            summary = re.search(r"^(?:summary|totals): (\d+)", text, re.MULTILINE)
            if what and summary:
                found[what.group(1)] = round(int(summary.group(1)) / TIMES)
        return found


def counted(program):
    everywhere, on_one = dumped(program, "no"), dumped(program, "yes")
    return {what: (on_one if what.endswith(OF_CALLER) else everywhere)[what] for what in everywhere}


def on_record(file):
    lines = (line.split(" ", 1) for line in pathlib.Path(file).read_text().splitlines())
    return {what: int(number) for number, what in lines}


def main():
    arguments = [one for one in sys.argv[1:] if one != "--accept"]
    if len(arguments) != 2:
        sys.exit(__doc__.split("\n\n", 1)[1])
    program, file = arguments
    found = counted(program)
    if not found:
        sys.exit("instructions.py: callgrind has counted nothing")
    if "--accept" in sys.argv:
        pathlib.Path(file).write_text("".join(f"{n} {what}\n" for what, n in sorted(found.items())))
        return
    known = on_record(file)
    is_good = set(known) == set(found)
    for what, number in sorted(found.items()):
        remark = ""
        if what not in known:
            remark = "  <- not on record"
        elif number * 10 > known[what] * 11:
            remark, is_good = f"  <- was {known[what]}", False
        print(f"{number:8}  {what}{remark}")
    for what in sorted(set(known) - set(found)):
        print(f"{what} is on record and not counted")
    if not is_good:
        sys.exit(f"instructions.py: {file} says otherwise; if that is meant, take it over with "
                 "tools/check.sh accept-counts and say why in the commit")


if __name__ == "__main__":
    main()
