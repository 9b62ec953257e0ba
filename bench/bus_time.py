#!/usr/bin/env python3
"""A shelf of 16 slots with 15 simulated modules each, whose transfers take as long as on a bus: how
long a polling cycle takes, beside what its transfers alone take, and what a module that is out of
order adds.

usage: bench/bus_time.py --build BUILD [--slots N] [--json FILE]
"""

import argparse
import json
import pathlib
import sys
import tempfile
import time

SOURCE = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(SOURCE / "tests"))

from shelf import cages, driver  # noqa: E402

EXAMPLE = SOURCE / "examples" / "modules" / "iivi-new-map.toml"
PORTS_A_SLOT = 15
BYTES = (128, 23)  # the two block reads of a visit
CLOCKS_A_BYTE = 9  # eight bits and the answer to them
ADDRESSING = 3  # bytes before those read: the module, the place in it, the module again
SELECTING = 7  # bytes of a page's selection and of reading back that it holds


def bus_ms(kilohertz):
    """What the two block reads of a visit take, the second with its page selected first."""
    transferred = sum(BYTES) + len(BYTES) * ADDRESSING + SELECTING
    return transferred * CLOCKS_A_BYTE / kilohertz


def cycle_after(node, cycles):
    """The report of a whole cycle that begins after so many have ended."""
    deadline = time.monotonic() + 120
    while time.monotonic() < deadline:
        report = node.get("/v1/polling")
        if report["cycles"] >= cycles + 2:
            return report["last"]["duration_s"]
        time.sleep(0.2)
    sys.exit("no polling cycle ends")


def measured(node):
    return cycle_after(node, node.get("/v1/polling")["cycles"])


def set_fault(node, names, script):
    for name in names:
        node.lumctl("module", "fault", name, script)


def run(build, slots, kilohertz):
    # A simulated transfer's length is in whole milliseconds; a visit makes two.
    delay = max(1, round(bus_ms(kilohertz) / len(BYTES)))
    with tempfile.TemporaryDirectory(prefix="lum-bench-") as folder:
        shelf = cages.Shelf(folder, "bench")
        for number in range(slots * PORTS_A_SLOT):
            cage = shelf.add_cage(number // PORTS_A_SLOT, f"{number}.toml", "simulated")
            cage.module.write_text(EXAMPLE.read_text())
        shelf.write_description()
        with driver.Driver(build, shelf) as node:
            assert node.wait_for(lambda found: all(port.get("temperature_c") is not None
                                                   for port in found.values()), 120)
            names = [cage.name for cage in shelf.cages]
            set_fault(node, names, f"delay-ms={delay}")
            whole = measured(node)
            set_fault(node, names[:1], "refuse-every=1,code=121")
            refusing = measured(node)
    return {"khz": kilohertz, "ports": len(names), "transfer_ms": delay,
            "bus_ms_a_visit": round(bus_ms(kilohertz), 2),
            "transfers_alone_s": round(len(names) * len(BYTES) * delay / 1000, 3),
            "cycle_s": round(whole, 3), "with_one_refusing_s": round(refusing, 3)}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", 1)[0])
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--slots", type=int, default=16)
    parser.add_argument("--json", type=pathlib.Path)
    wanted = parser.parse_args()
    print("  kHz  ports  a transfer  transfers alone     cycle  ratio  with one that refuses")
    rows = []
    for kilohertz in (100, 400):
        row = run(wanted.build.resolve(), wanted.slots, kilohertz)
        rows.append(row)
        print(f"{row['khz']:5}  {row['ports']:5}  {row['transfer_ms']:7} ms  "
              f"{row['transfers_alone_s']:13.2f} s  {row['cycle_s']:6.2f} s  "
              f"{row['cycle_s'] / row['transfers_alone_s']:4.2f}x  {row['with_one_refusing_s']:14.2f} s",
              flush=True)
    if wanted.json:
        wanted.json.write_text(json.dumps({"rows": rows}, indent=1) + "\n")


if __name__ == "__main__":
    main()
