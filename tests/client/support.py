"""A small shelf of simulated modules and a driver on it, for one test each."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

BUILD = pathlib.Path(os.environ["LUM_BUILD"])
SOURCE = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = SOURCE / "examples" / "modules"
sys.path.insert(0, str(SOURCE / "tools" / "demo"))

import shelf as shelves  # noqa: E402
from driver import Driver  # noqa: E402

LUMD = BUILD / "lumd"
LUMCTL = BUILD / "lumctl"


def run(*arguments, **environment):
    """Runs a command to its end and returns it, with its output as text."""
    return subprocess.run(
        arguments, env=dict(os.environ, **environment),
        capture_output=True, text=True, check=False, timeout=30,
    )


class ShelfTest(unittest.TestCase):
    """Each test has a folder with a shelf in it, at first without ports."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="lum-test-")
        self.addCleanup(folder.cleanup)
        self.shelf = shelves.Shelf(folder.name, "test")
        self.driver = None

    def add_module(self, kind, slot=1, **changes):
        """A port with a simulated module in it."""
        cage = self.shelf.add_cage(slot, f"{len(self.shelf.cages)}.toml", backend="simulated")
        shelves.copy_description(EXAMPLES / f"{kind}.toml", cage.module, **changes)
        return cage

    def add_empty(self, slot=1):
        return self.shelf.add_cage(slot, "nothing.eeprom")

    def start(self, extra="", options=("--alarm-tests",)):
        """Starts the driver on the shelf and waits until it answers."""
        self.shelf.write_description()
        if extra:
            text = self.shelf.description.read_text()
            self.shelf.description.write_text(f"{extra}\n{text}")
        self.driver = Driver(BUILD, self.shelf, options)
        self.driver.__enter__()
        self.addCleanup(self.driver.__exit__)
        self.assertIsNotNone(self.driver.wait_for(lambda ports: True, 30), "lumd does not answer")
        return self.driver

    def wait_for_state(self, cage, state, seconds=20):
        ports = self.driver.wait_for(lambda now: now[cage.name]["state"] == state, seconds)
        self.assertIsNotNone(
            ports, f"{cage.name} is {self.driver.ports()[cage.name]['state']}, not {state}")
        return ports[cage.name]
