"""What one node gives a scraper and what that costs it, measured, and multiplied to a network.

usage: python3 tools/demo_network/measure.py --build DIR [--ports N] [--nodes N] [--interval SECONDS]
"""

import argparse
import gzip
import pathlib
import re
import sys
import tempfile
import time
import urllib.request
from collections import Counter

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "tests"))

from shelf import cages  # noqa: E402
from shelf.driver import Driver  # noqa: E402
from shelf.network import EXAMPLES, KINDS, free_ports  # noqa: E402

SCRAPES = 200
IDLE_S = 30
# Of a sample on disk; Prometheus' own pages say 1 to 2.
SAMPLE_BYTES = 1.5
DAY_S = 86400
OWN_SERIES = 5  # up and four of the scrape, by Prometheus of each target


class MeasuredNode:
    def __init__(self, build, folder, ports):
        [self.http_port] = free_ports(1)
        self.shelf = cages.Shelf(folder, "measured")
        for number in range(ports):
            cage = self.shelf.add_cage(1, f"{number}.toml", backend="simulated")
            cages.copy_description(EXAMPLES / f"{KINDS[number % len(KINDS)]}.toml", cage.module)
        self.shelf.write_description(f"http_port = {self.http_port}")
        self.driver = Driver(build, self.shelf, options=())

    def scrape(self):
        with urllib.request.urlopen(f"http://127.0.0.1:{self.http_port}/metrics") as answer:
            return answer.read()

    def value(self, metric):
        return float(re.search(rf"^{metric} (\S+)$", self.scrape().decode(), re.M)[1])

    def seconds_of_processor(self, act):
        """Its processor time and the time that passed while something was done."""
        before, began = self.value("process_cpu_seconds_total"), time.monotonic()
        act()
        return self.value("process_cpu_seconds_total") - before, time.monotonic() - began


def series_by_metric(page):
    return Counter(re.match(rb"\w+", line)[0].decode()
                   for line in page.splitlines() if line and line[:1] != b"#")


def human(number, unit):
    for prefix in ("", "k", "M", "G"):
        if number < 1000:
            return f"{number:.3g} {prefix}{unit}"
        number /= 1000
    return f"{number:.3g} T{unit}"


def measure(node):
    up = node.driver.wait_for(lambda ports: all(port["state"] == "up" for port in ports.values()), 60)
    if up is None:
        raise RuntimeError("the node has not come up within 60 s")
    idle, idle_s = node.seconds_of_processor(lambda: time.sleep(IDLE_S))
    scraped, _ = node.seconds_of_processor(lambda: [node.scrape() for _ in range(SCRAPES)])
    return node.scrape(), idle / idle_s, scraped / SCRAPES, node.value("process_resident_memory_bytes")


def report(arguments, page, idle_share, scrape_s, memory):
    counts = series_by_metric(page)
    series = sum(counts.values()) + OWN_SERIES
    each = arguments.interval
    squeezed = len(gzip.compress(page, 6))
    print(f"A node of {arguments.ports} ports:")
    print(f"  {series} series, {len(page)} bytes a scrape, {squeezed} if it were compressed")
    print(f"  a scrape takes {scrape_s * 1000:.1f} ms of its processor: "
          f"{scrape_s / each * 100:.3f} % of one at a scrape each {each} s")
    print(f"  the rest of the driver takes {idle_share * 100:.1f} % of one, "
          f"{human(memory, 'B')} of memory")
    print(f"  its link carries {human(len(page) * 8 / each, 'bit/s')}")
    print("  most series: " + ", ".join(f"{name} {count}" for name, count in counts.most_common(6)))
    nodes = arguments.nodes
    rate = nodes * series / each
    print(f"{nodes} of them, each {each} s:")
    print(f"  {human(nodes * series, 'series')}, {human(rate, 'samples/s')}, "
          f"{human(nodes * len(page) * 8 / each, 'bit/s')}")
    print(f"  {human(rate * DAY_S, 'samples')} and {human(rate * DAY_S * SAMPLE_BYTES, 'B')} of disk "
          f"a day at {SAMPLE_BYTES} bytes a sample")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True, help="where lumd was built")
    parser.add_argument("--ports", type=int, default=60)
    parser.add_argument("--nodes", type=int, default=10000)
    parser.add_argument("--interval", type=int, default=60, help="seconds between two scrapes")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="lum-measure-") as folder:
        node = MeasuredNode(arguments.build.resolve(), folder, arguments.ports)
        with node.driver:
            report(arguments, *measure(node))
    return 0


if __name__ == "__main__":
    sys.exit(main())
