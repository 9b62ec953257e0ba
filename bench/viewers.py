#!/usr/bin/env python3
"""What those who look at the page cost the driver, beside its own polling, as ratios.

A viewer asks for what the page asks for, as often, over the Unix socket, and reads the stream of
events. A hurry is events without end: the page asks again whenever it may. Times are the driver's
processor time; the last lines are verdicts.

usage: bench/viewers.py --build BUILD [--ports N] [--seconds S]
"""

import argparse
import pathlib
import sys
import tempfile
import threading
import time

SOURCE = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(SOURCE / "tests"))

from shelf import cages, driver  # noqa: E402

# As client/panel asks: path, seconds. PORT is a port of its own for each viewer.
HEAD = (("/v1/health", 5), ("/v1/polling", 5))
SHELF = HEAD + (("/v1/shelf", 10), ("/v1/pm", 120))
PORT = HEAD + (("/v1/modules/PORT", 5), ("/v1/pm?port=PORT", 15), ("/v1/settings?port=PORT", 15),
               ("/v1/ports/PORT/history", 60), ("/v1/shelf", 3600))
SPACING = 5  # live.js asks for nothing more often, however much happens
HURRIED = 15  # and only what it asks for at least as often
BEGINNING = ("/", "/panel/explanations.json", "/v1/events?limit=500")
MOST_OF_ONE = 1.0  # what a viewer may cost, in polling's own costs
JUDGED_PORTS = 60


def hurried(asked):
    return tuple((path, SPACING if every <= HURRIED else every) for path, every in asked)


CROWDS = (
    ("nobody", 0, SHELF),
    ("the shelf", 1, SHELF),
    ("the shelf, in a hurry", 1, hurried(SHELF)),
    ("a port", 1, PORT),
    ("a port, in a hurry", 1, hurried(PORT)),
    ("the shelf", 50, SHELF),
    ("ports", 50, PORT),
)


class Viewer(threading.Thread):
    def __init__(self, socket, ends, delay, asked, port):
        super().__init__(daemon=True)
        self.socket, self.ends, self.delay = socket, ends, delay
        name = port.replace("/", "%2F")
        self.asked = [(path.replace("PORT", name), every) for path, every in asked]
        self.answers = 0

    def run(self):
        self.ends.wait(self.delay)
        due = [0] * len(self.asked)
        stream = driver.UnixConnection(self.socket)
        stream.request("GET", "/v1/events", headers={"Accept": "text/event-stream"})
        connection = driver.UnixConnection(self.socket)
        for path in BEGINNING:
            self.ask(connection, path)
        while not self.ends.is_set():
            for place, (path, every) in enumerate(self.asked):
                if due[place] > time.monotonic():
                    continue
                due[place] = time.monotonic() + every
                self.ask(connection, path)
            self.ends.wait(0.2)
        stream.close()
        connection.close()

    def ask(self, connection, path):
        connection.request("GET", path)
        answer = connection.getresponse()
        answer.read()
        assert answer.status == 200, (path, answer.status)
        self.answers += 1


def measured(node, viewers, asked, seconds):
    """Processor seconds a second with so many viewers, answers they got, and how long the latest
    cycle took. Nobody but they asks meanwhile."""
    ends = threading.Event()
    names = [cage.name for cage in node.shelf.cages]
    crowd = [Viewer(node.shelf.socket, ends, 5 * n / max(viewers, 1), asked, names[n % len(names)])
             for n in range(viewers)]
    for one in crowd:
        one.start()
    time.sleep(6)  # each has asked for everything once
    cycles = node.get("/v1/polling")["cycles"]
    answers = sum(one.answers for one in crowd)
    begun, used = time.monotonic(), node.processor_seconds()
    time.sleep(seconds)
    share = (node.processor_seconds() - used) / (time.monotonic() - begun)
    answers = sum(one.answers for one in crowd) - answers
    polling = node.get("/v1/polling")
    cycles = polling["cycles"] - cycles
    latest = polling["last"]["duration_s"] if polling["last"] else 0.0
    if not all(one.is_alive() for one in crowd):
        sys.exit("a viewer was refused")
    ends.set()
    for one in crowd:
        one.join(10)
    return share, answers, cycles, latest


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
                  "viewers  of                     processor  beside polling alone  answers/s  "
                  "cycles   latest cycle")
            alone, verdicts = None, []
            for who, viewers, asked in CROWDS:
                share, answers, cycles, latest = measured(node, viewers, asked, wanted.seconds)
                alone = alone or share
                print(f"{viewers:7}  {who:21}  {100 * share:7.3f} %  {share / alone:18.2f} x  "
                      f"{answers / wanted.seconds:9.1f}  {cycles:6}  {1000 * latest:10.1f} ms",
                      flush=True)
                if viewers == 1:
                    verdicts.append(verdict(who, (share - alone) / alone))
    print("", *verdicts, sep="\n")
    if wanted.ports != JUDGED_PORTS:
        print(f"The bound is meant for {JUDGED_PORTS} ports, and these were {wanted.ports}.")


def verdict(who, cost):
    kept = "kept" if cost < MOST_OF_ONE else "BROKEN"
    return (f"{kept}: one viewer of {who} costs {max(cost, 0):.2f} x the polling itself, "
            f"less than {MOST_OF_ONE:.0f} x is meant")


if __name__ == "__main__":
    main()
