"""A small shelf of simulated modules and a driver on it, for one test each."""

import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest
import urllib.parse

BUILD = pathlib.Path(os.environ["LUM_BUILD"])
SOURCE = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = SOURCE / "examples" / "modules"
sys.path.insert(0, str(SOURCE / "tests"))

from shelf import cages, driver  # noqa: E402
from shelf.driver import UnixConnection  # noqa: E402, F401

LUMD = BUILD / "lumd"
LUMCTL = BUILD / "lumctl"
CLOCK = BUILD / "lum_test_clock.so"

# What a second of the library's sleep lasts. A cycle of 1.5 s still leaves the driver the time to
# feed what each one has read, which it looks for once a second.
QUICK = 300
REAL = 1000


def run(*arguments, **environment):
    """Runs a command to its end and returns it, with its output as text."""
    return subprocess.run(
        arguments, env=dict(os.environ, **environment),
        capture_output=True, text=True, check=False, timeout=30,
    )


def changes(name):
    """The target of every request that may change something, of that port where it is one's."""
    place = urllib.parse.quote(name, safe="")
    document = json.loads((SOURCE / "client/lumd/api/openapi.json").read_text())
    found = [path.replace("{name}", place).replace("{operation}", "delete")
             for path, ways in document["paths"].items() if ways.keys() & {"post", "put", "delete"}]
    assert len(found) > 15, found
    return found


def full_pipe(test):
    """The writing end of a pipe that is full and that nobody reads until the test ends."""
    reader, writer = os.pipe()
    test.addCleanup(os.close, reader)
    test.addCleanup(os.close, writer)
    os.set_blocking(writer, False)
    try:
        while True:
            os.write(writer, b"x" * 65536)
    except BlockingIOError:
        os.set_blocking(writer, True)
    return writer


class Driver(driver.Driver):
    """A driver whose library sleeps shorter, or until it is told to go on."""

    def __init__(self, build, shelf, options, second_ms):
        self.held = shelf.folder / "polling-is-held"
        self.pause = shelf.folder / "polling-is-paused"
        super().__init__(build, shelf, options, LD_PRELOAD=str(CLOCK),
                         LUM_TEST_PAUSE=str(self.pause),
                         LUM_TEST_HOLD=str(self.held), LUM_TEST_SECOND_MS=str(second_ms),
                         LUM_TEST_HANG="1",
                         LUM_TEST_YESTERDAY=str(shelf.folder / "yesterday"),
                         LUM_TEST_TOMORROW=str(shelf.folder / "tomorrow"))

    def hold_polling(self):
        """No polling cycle begins from here on; one that is running goes on."""
        self.held.touch()

    def go_on_polling(self):
        self.held.unlink()

    def poll_once_more(self):
        """Waits until a polling cycle that has not begun yet has ended."""
        before = self.get("/v1/polling")["cycles"]
        assert self.wait_for(lambda _: self.get("/v1/polling")["cycles"] > before + 1, 30)

    def poll_once(self):
        """Lets one polling cycle run and end, and holds the next."""
        before = self.get("/v1/polling")["cycles"]
        self.go_on_polling()
        assert self.wait_for(lambda _: self.get("/v1/polling")["cycles"] > before, 30)
        self.hold_polling()


class ShelfTest(unittest.TestCase):
    """Each test has a folder with a shelf in it, at first without ports."""

    PRELOADED = (CLOCK,)  # into the driver

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="lum-test-")
        self.addCleanup(folder.cleanup)
        self.shelf = cages.Shelf(folder.name, "test")
        self.driver = None

    def add_module(self, kind, slot=1, **changes):
        """A port with a simulated module in it."""
        cage = self.shelf.add_cage(slot, f"{len(self.shelf.cages)}.toml", backend="simulated")
        cages.copy_description(EXAMPLES / f"{kind}.toml", cage.module, **changes)
        return cage

    def add_file(self, slot=1):
        """A port with a file of a module's memory in its cage, whose bus can hang."""
        cage = self.shelf.add_cage(slot, f"{len(self.shelf.cages)}.eeprom")
        cages.make_image(BUILD / "lum-module-image", EXAMPLES / "iivi-new-map.toml", cage.module)
        return cage

    @staticmethod
    def hang(cage):
        """From here on nobody who opens the module's memory comes back, until it is freed."""
        marker = cage.module.with_name(cage.module.name + ".hangs")
        marker.touch()
        return marker

    def add_empty(self, slot=1):
        return self.shelf.add_cage(slot, "nothing.eeprom")

    def start(self, extra="", options=("--alarm-tests",), second_ms=QUICK, held=False, edit=None):
        """Starts the driver on the shelf and waits until it has brought its ports up. `edit` may
        change the description's text before."""
        self.shelf.write_description()
        if edit:
            self.shelf.description.write_text(edit(self.shelf.description.read_text()))
        if extra:
            text = self.shelf.description.read_text()
            self.shelf.description.write_text(f"{extra}\n{text}")
        self.driver = Driver(BUILD, self.shelf, options, second_ms)
        self.driver.environment["LD_PRELOAD"] = " ".join(map(str, self.PRELOADED))
        if held:
            self.driver.hold_polling()
        self.driver.__enter__()
        self.addCleanup(self.driver.__exit__)
        self.assertIsNotNone(self.driver.wait_for(
            lambda ports: all(port["state"] != "absent" for port in ports.values()), 30))
        return self.driver

    def log_with(self, text, seconds=20):
        """What the driver has said, once that is among it."""
        self.assertIsNotNone(
            self.driver.wait_for(lambda _: text in self.driver.log.read_text(), seconds),
            f"{text!r} is not in {self.driver.log.read_text()!r}")
        return self.driver.log.read_text()

    def wait_for_state(self, cage, state, seconds=20):
        ports = self.driver.wait_for(lambda now: now[cage.name]["state"] == state, seconds)
        self.assertIsNotNone(
            ports, f"{cage.name} is {self.driver.ports()[cage.name]['state']}, not {state}")
        return ports[cage.name]
