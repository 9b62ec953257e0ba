#!/usr/bin/env python3
"""What the driver spends on an answer, in processor time of its own, and its private memory after
eight scrapes at once. Beside it the same document, read and written by Python's json; beside the
metrics as much text, copied line by line.

usage: bench/answers.py --build BUILD [--ports N ...] [--times T] [--json FILE]
"""

import argparse
import io
import json
import pathlib
import sys
import tempfile
import threading
import time

SOURCE = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(SOURCE / "tests"))

from shelf import cages, driver  # noqa: E402

EXAMPLE = SOURCE / "examples" / "modules" / "iivi-new-map.toml"
ANSWERS = ("/metrics", "/v1/ports", "/v1/shelf")
SCRAPES_AT_ONCE = 8


def asked(connection, path):
    connection.request("GET", path)
    answer = connection.getresponse()
    text = answer.read()
    assert answer.status == 200, (path, answer.status)
    return text


def copied(text):
    """The reference: the document made anew of its parts."""
    if text[:1] == b"{":
        return json.dumps(json.loads(text))
    page = io.StringIO()
    for line in text.decode().splitlines():
        page.write(line + "\n")
    return page.getvalue()


def measured(node, path, times):
    """Milliseconds of the driver's processor for an answer, those of the reference, and its size."""
    connection = driver.UnixConnection(node.shelf.socket)
    text = asked(connection, path)
    begun = node.processor_seconds()
    for _ in range(times):
        asked(connection, path)
    spent = (node.processor_seconds() - begun) / times
    connection.close()
    begun = time.process_time()
    for _ in range(times):
        copied(text)
    return 1000 * spent, 1000 * (time.process_time() - begun) / times, len(text)


def scraped_at_once(node):
    def scrape():
        asked(driver.UnixConnection(node.shelf.socket), "/metrics")
    scrapers = [threading.Thread(target=scrape) for _ in range(SCRAPES_AT_ONCE)]
    for one in scrapers:
        one.start()
    for one in scrapers:
        one.join()


def run(build, ports, times):
    with tempfile.TemporaryDirectory(prefix="lum-bench-") as folder:
        shelf = cages.Shelf(folder, "bench")
        for number in range(ports):
            cage = shelf.add_cage(1 + number // 15, f"{number}.toml", "simulated")
            cage.module.write_text(EXAMPLE.read_text())
        shelf.write_description()
        with driver.Driver(build, shelf) as node:
            assert node.wait_for(lambda found: all(port.get("temperature_c") is not None
                                                   for port in found.values()), 90)
            rows = []
            for path in ANSWERS:
                spent, reference, size = measured(node, path, times)
                rows.append({"answer": path, "ports": ports, "ms": round(spent, 2),
                             "reference_ms": round(reference, 2),
                             "ratio": round(spent / reference, 2), "bytes": size})
            scraped_at_once(node)
            return rows, node.private_kilobytes()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", 1)[0])
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--ports", type=int, nargs="+", default=[60, 225])
    parser.add_argument("--times", type=int, default=100)
    parser.add_argument("--json", type=pathlib.Path)
    wanted = parser.parse_args()
    print("answer      ports        ms  reference   ratio    bytes")
    found = []
    for ports in wanted.ports:
        rows, memory = run(wanted.build.resolve(), ports, wanted.times)
        for row in rows:
            print(f"{row['answer']:10}  {row['ports']:5}  {row['ms']:8.2f}  {row['reference_ms']:9.2f}  "
                  f"{row['ratio']:5.2f}x  {row['bytes']:7}", flush=True)
        print(f"{ports} ports: {memory} kB of private memory after {SCRAPES_AT_ONCE} scrapes at once",
              flush=True)
        found += rows + [{"ports": ports, "private_kb": memory}]
    if wanted.json:
        wanted.json.write_text(json.dumps({"rows": found}, indent=1) + "\n")


if __name__ == "__main__":
    main()
