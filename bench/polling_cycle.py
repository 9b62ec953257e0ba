#!/usr/bin/env python3
"""What a polling cycle costs the whole driver while nobody looks and nothing happens: processor time
by thread, wake-ups and private memory, beside the two reads of a module's pages that a poll stands on.

usage: bench/polling_cycle.py --build BUILD [--seconds S] [--only PORTS:KIND ...] [--json FILE]
"""

import argparse
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time

SOURCE = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(SOURCE / "tests"))

from shelf import cages, driver  # noqa: E402

EXAMPLE = SOURCE / "examples" / "modules" / "iivi-new-map.toml"
KINDS = ((8, "simulated"), (60, "simulated"), (60, "file"), (225, "simulated"))
REFERENCE_LOOPS = 20000


def make_shelf(folder, build, ports, backend):
    shelf = cages.Shelf(folder, "bench")
    for number in range(ports):
        cage = shelf.add_cage(1 + number // 15, f"{number}.module", backend)
        if backend == "simulated":
            cage.module.write_text(EXAMPLE.read_text())
        else:
            subprocess.run([build / "lum-module-image", EXAMPLE, cage.module], check=True)
    shelf.write_description()
    return shelf


def reference_us(folder):
    """Processor time of two reads of 128 bytes from a file, as this interpreter makes them."""
    file = pathlib.Path(folder, "reference")
    file.write_bytes(bytes(1024))
    with open(file, "rb", buffering=0) as memory:
        begun = time.process_time()
        for _ in range(REFERENCE_LOOPS):
            os.pread(memory.fileno(), 128, 0)
            os.pread(memory.fileno(), 128, 512)
        return (time.process_time() - begun) * 1e6 / REFERENCE_LOOPS


def threads_of(process):
    """By thread: its name, nanoseconds of processor time, and how often it has slept."""
    found = {}
    for folder in pathlib.Path(f"/proc/{process.pid}/task").iterdir():
        try:
            status = (folder / "status").read_text()
            spent = int((folder / "schedstat").read_text().split()[0])
        except OSError:
            continue  # it has just ended
        fields = dict(line.split(":", 1) for line in status.splitlines())
        found[folder.name] = (fields["Name"].strip(), spent,
                              int(fields["voluntary_ctxt_switches"]))
    return found


def measured(node, seconds):
    """Of a cycle: nanoseconds and wake-ups, by the threads' names. What threads that have ended
    meanwhile did is not in it."""
    cycles, before = node.get("/v1/polling")["cycles"], threads_of(node.process)
    time.sleep(seconds)
    after = threads_of(node.process)
    cycles = node.get("/v1/polling")["cycles"] - cycles
    spent, woken = {}, {}
    for thread, (name, ns, sleeps) in after.items():
        _, ns_before, sleeps_before = before.get(thread, (name, 0, 0))
        spent[name] = spent.get(name, 0) + (ns - ns_before) / cycles
        woken[name] = woken.get(name, 0) + (sleeps - sleeps_before) / cycles
    return spent, woken


def run(build, ports, backend, seconds):
    with tempfile.TemporaryDirectory(prefix="lum-bench-") as folder:
        shelf = make_shelf(folder, build, ports, backend)
        reference = reference_us(folder)
        with driver.Driver(build, shelf) as node:
            assert node.wait_for(lambda found: all(port.get("temperature_c") is not None
                                                   for port in found.values()), 90)
            time.sleep(10)  # what is done once after the start is done
            spent, woken = measured(node, seconds)
            memory = node.private_kilobytes()
    cost = sum(spent.values()) / 1000 / ports
    parts = sorted(((ns / 1000 / ports, name) for name, ns in spent.items()), reverse=True)
    return {"ports": ports, "modules": backend, "us_a_port_and_cycle": round(cost, 2),
            "reference_us": round(reference, 2), "ratio": round(cost / reference, 2),
            "wakeups_a_cycle": round(sum(woken.values()), 1), "private_kb": memory,
            "threads": {name: round(us, 2) for us, name in parts if us >= 0.05},
            "wakeups": {name: round(count, 1) for name, count in woken.items() if count >= 0.05}}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", 1)[0])
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--seconds", type=int, default=40)
    parser.add_argument("--only", nargs="+", metavar="PORTS:KIND",
                        default=[f"{ports}:{backend}" for ports, backend in KINDS])
    parser.add_argument("--json", type=pathlib.Path)
    wanted = parser.parse_args()
    print("ports  modules    us a port and cycle  beside two preads  wake-ups a cycle  private kB")
    rows = []
    for ports, backend in (kind.split(":") for kind in wanted.only):
        row = run(wanted.build.resolve(), int(ports), backend, wanted.seconds)
        rows.append(row)
        print(f"{ports:5}  {backend:9}  {row['us_a_port_and_cycle']:19.2f}  {row['ratio']:16.2f}x  "
              f"{row['wakeups_a_cycle']:16.1f}  {row['private_kb']:10}", flush=True)
        print("       " + ", ".join(f"{name} {us}" for name, us in row["threads"].items()))
        print("       wake-ups: " + ", ".join(f"{name} {count}" for name, count
                                              in row["wakeups"].items()), flush=True)
    if wanted.json:
        wanted.json.write_text(json.dumps({"rows": rows}, indent=1) + "\n")


if __name__ == "__main__":
    main()
