#!/usr/bin/env python3
"""How long a node takes from its start until every port is what it will be: with one empty cage, the
reference, for its identity is asked for again and again before it is let be; with many of them; and
with modules that answer.

usage: bench/bring_up.py --build BUILD [--json FILE]
"""

import argparse
import json
import pathlib
import statistics
import sys
import tempfile
import time

SOURCE = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(SOURCE / "tests"))

from shelf import cages, driver  # noqa: E402

EXAMPLE = SOURCE / "examples" / "modules" / "iivi-new-map.toml"
PORTS_OF_A_SLOT = 8
LIMIT = 60  # seconds
RUNS = 3
PASSING = {"coming up", "absent", "going"}
SHELVES = (("an empty cage", 1, 0), ("empty cages", 32, 0), ("modules", 0, 60),
           ("modules, empty cages beside", 32, 60))


def make_shelf(folder, empty, filled):
    shelf = cages.Shelf(folder, "bench")
    for number in range(filled + empty):
        cage = shelf.add_cage(1 + number // PORTS_OF_A_SLOT, f"{number}.toml", "simulated")
        cage.module.parent.mkdir(exist_ok=True)
        if number < filled:
            cage.module.write_text(EXAMPLE.read_text())
    shelf.write_description()
    return shelf


def states(node):
    try:
        return [port["state"] for port in node.get("/v1/ports")["ports"]]
    except RuntimeError:
        return []  # it does not answer yet


def seconds_until_up(build, empty, filled):
    with tempfile.TemporaryDirectory() as folder:
        shelf = make_shelf(folder, empty, filled)
        begun = time.monotonic()
        with driver.Driver(build, shelf) as node:
            while time.monotonic() < begun + LIMIT:
                found = states(node) if shelf.socket.exists() else []
                if len(found) == empty + filled and not PASSING & set(found):
                    return time.monotonic() - begun
                time.sleep(0.01)
    raise SystemExit(f"{empty} empty cages and {filled} modules were not up in {LIMIT} s")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--json", type=pathlib.Path)
    options = parser.parse_args()
    rows = []
    print(f"{'ports':<28} {'number':>6} {'seconds':>8} {'beside one empty cage':>22}")
    for name, empty, filled in SHELVES:
        seconds = statistics.median(seconds_until_up(options.build.resolve(), empty, filled)
                                    for _ in range(RUNS))
        rows.append({"name": name, "empty": empty, "filled": filled, "seconds": seconds,
                     "ratio": seconds / (rows[0]["seconds"] if rows else seconds)})
        print(f"{name:<28} {empty + filled:>6} {seconds:>8.2f} {rows[-1]['ratio']:>21.2f}x", flush=True)
    if options.json:
        options.json.write_text(json.dumps(rows, indent=1) + "\n")


if __name__ == "__main__":
    main()
