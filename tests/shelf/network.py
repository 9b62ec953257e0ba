"""Many nodes on one machine: each a shelf of its own, a driver on it and a port of its own."""

import json
import pathlib
import random
import re
import socket
import urllib.request

from shelf import cages
from shelf.driver import Driver

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples" / "modules"
KINDS = ("iivi-old-map", "accelink-old-map", "iivi-new-map")
SPAN_KIND = "iivi-new-map"
SAMPLE = re.compile(r"^(\w+)(?:\{(.*)\})? (\S+)$", re.M)
LABEL = re.compile(r'(\w+)="((?:[^"\\]|\\.)*)"')


def free_ports(count):
    """Loopback ports that nothing listens on, below those that the system hands out by itself: what
    is started again finds its own still free."""
    found = []
    for port in random.sample(range(20000, 32000), 4000):
        with socket.socket() as probe:
            probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            try:
                probe.bind(("127.0.0.1", port))
            except OSError:
                continue
        found.append(port)
        if len(found) == count:
            return found
    raise RuntimeError(f"this machine has no {count} loopback ports from 20000 to 31999 left")


class Node:
    """Three simulated modules and, as the end of a span, one whose memory is a file."""

    def __init__(self, build, folder, name, http_port):
        self.build = build
        self.name = name
        self.http_port = http_port
        folder = pathlib.Path(folder) / name
        folder.mkdir()
        self.shelf = cages.Shelf(folder, name)
        self.modules = []
        for number, kind in enumerate(KINDS, 1):
            cage = self.shelf.add_cage(1, f"{number}.toml", backend="simulated")
            cages.copy_description(EXAMPLES / f"{kind}.toml", cage.module, serial=f"{name}-{number}")
            self.modules.append(cage)
        self.span = self.shelf.add_cage(2, "span.eeprom")
        self.write_span(fallen_by=0)
        self.shelf.write_description(f"http_port = {http_port}")
        self.driver = Driver(build, self.shelf, options=())

    @property
    def target(self):
        return f"127.0.0.1:{self.http_port}"

    def write_span(self, fallen_by):
        """The span's module, in place, with powers that are so many dB less than at first."""
        text = (EXAMPLES / f"{SPAN_KIND}.toml").read_text()
        lowered = re.sub(r"(powers_dbm = \[)([-.\d]+)",
                         lambda found: f"{found[1]}{float(found[2]) - fallen_by:.2f}", text)
        description = self.shelf.folder / "span.toml"
        description.write_text(lowered)
        image = self.shelf.folder / "span.new"
        cages.make_image(self.build / "lum-module-image", description, image)
        memory = image.read_bytes()
        mode = "r+b" if self.span.module.exists() else "wb"
        with open(self.span.module, mode) as module:
            module.write(memory)

    def samples(self):
        """What the node itself measures now: of each sample its name, labels and value."""
        with urllib.request.urlopen(f"http://{self.target}/metrics", timeout=20) as answer:
            text = answer.read().decode()
        return [(name, dict(LABEL.findall(labels or "")), float(value))
                for name, labels, value in SAMPLE.findall(text)]

    def values(self, metric, **labels):
        return [value for name, has, value in self.samples()
                if name == metric and labels.items() <= has.items()]


class Network:
    """Runs nodes for as long as the block lasts; all are ended with it."""

    def __init__(self, build, folder, count):
        self.nodes = [Node(build, folder, f"node-{number:02}", port)
                      for number, port in enumerate(free_ports(count), 1)]

    def __enter__(self):
        try:
            for node in self.nodes:
                node.driver.__enter__()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for node in self.nodes:
            if node.driver.process:
                node.driver.kill()

    def wait_until_up(self, seconds):
        """Until every port of every node is up; else what is not."""
        for node in self.nodes:
            up = node.driver.wait_for(
                lambda ports: all(port["state"] == "up" for port in ports.values()), seconds)
            if up is None:
                states = {name: port["state"] for name, port in node.driver.ports().items()}
                raise RuntimeError(f"{node.name} has not come up within {seconds} s: {states}")

    def write_targets(self, file):
        """For the file-based discovery of Prometheus: whole at once, for it is being watched."""
        groups = [{"targets": [node.target], "labels": {"instance": node.name}}
                  for node in self.nodes]
        part = file.with_suffix(".part")
        part.write_text(json.dumps(groups, indent=2))
        part.rename(file)
