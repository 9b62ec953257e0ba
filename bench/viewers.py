#!/usr/bin/env python3
"""What those who look at the page cost the driver, beside its own polling, as ratios.

A viewer asks for what the page asks for, as often, over the Unix socket, and reads the stream of
events. Times are the driver's processor time.

usage: bench/viewers.py --build BUILD [--ports N] [--seconds S]
"""

import argparse
import os
import pathlib
import sys
import tempfile
import threading
import time

SOURCE = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(SOURCE / "tests"))

from shelf import cages, driver  # noqa: E402

# As client/panel asks while the shelf is shown: path, seconds.
ASKED = (("/v1/ports", 5), ("/v1/health", 5), ("/v1/polling", 5), ("/v1/pm", 120))


class Viewer(threading.Thread):
    def __init__(self, socket, ends, delay):
        super().__init__(daemon=True)
        self.socket, self.ends, self.delay = socket, ends, delay
        self.answers = 0

    def run(self):
        self.ends.wait(self.delay)
        due = [0] * len(ASKED)
        stream = driver.UnixConnection(self.socket)
        stream.request("GET", "/v1/events", headers={"Accept": "text/event-stream"})
        connection = driver.UnixConnection(self.socket)
        while not self.ends.is_set():
            for place, (path, every) in enumerate(ASKED):
                if due[place] > time.monotonic():
                    continue
                due[place] = time.monotonic() + every
                connection.request("GET", path)
                answer = connection.getresponse()
                answer.read()
                assert answer.status == 200, (path, answer.status)
                self.answers += 1
            self.ends.wait(0.5)
        stream.close()
        connection.close()


def processor_seconds(process):
    fields = pathlib.Path(f"/proc/{process.pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def measured(node, viewers, seconds):
    """Processor seconds a second with so many viewers, answers they got, and the slowest cycle."""
    ends = threading.Event()
    crowd = [Viewer(node.shelf.socket, ends, 5 * n / max(viewers, 1)) for n in range(viewers)]
    for one in crowd:
        one.start()
    time.sleep(6)  # each has asked for everything once
    begun, used = time.monotonic(), processor_seconds(node.process)
    cycles = node.get("/v1/polling")["cycles"]
    answers, slowest = sum(one.answers for one in crowd), 0.0
    while time.monotonic() - begun < seconds:
        time.sleep(1)
        last = node.get("/v1/polling")["last"]
        slowest = max(slowest, last["duration_s"] if last else 0.0)
    share = (processor_seconds(node.process) - used) / (time.monotonic() - begun)
    cycles = node.get("/v1/polling")["cycles"] - cycles
    answers = sum(one.answers for one in crowd) - answers
    if not all(one.is_alive() for one in crowd):
        sys.exit("a viewer was refused")
    ends.set()
    for one in crowd:
        one.join(10)
    return share, answers, cycles, slowest


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--ports", type=int, default=60)
    parser.add_argument("--seconds", type=int, default=30)
    wanted = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="lum-bench-") as folder:
        shelf = cages.Shelf(folder, "bench")
        example = (SOURCE / "examples" / "modules" / "iivi-new-map.toml").read_text()
        for number in range(wanted.ports):
            cage = shelf.add_cage(1 + number // 15, f"{number}.toml", "simulated")
            cage.module.write_text(example)
        shelf.write_description()
        with driver.Driver(wanted.build.resolve(), shelf) as node:
            assert node.wait_for(lambda ports: all(port.get("temperature_c") is not None
                                                   for port in ports.values()), 60)
            print(f"{wanted.ports} ports, {wanted.seconds} s each\n\n"
                  "viewers  processor  beside polling alone  answers/s  cycles  slowest cycle")
            alone = None
            for viewers in (0, 1, 50):
                share, answers, cycles, slowest = measured(node, viewers, wanted.seconds)
                alone = alone or share
                print(f"{viewers:7}  {100 * share:7.2f} %  {share / alone:18.2f} x  "
                      f"{answers / wanted.seconds:9.1f}  {cycles:6}  {1000 * slowest:10.1f} ms",
                      flush=True)


if __name__ == "__main__":
    main()
