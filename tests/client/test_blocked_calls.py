"""Calls on modules, lines, LEDs and buses that begin and do not return: of 1, 2, 4 and 8 modules at
the driver's start, in operation and at its end. The other module is up all the while, the driver
answers and says which ones do not, and it ends in time and in order."""

import collections
import concurrent.futures
import contextlib
import dataclasses
import signal
import subprocess
import tempfile
import threading
import time
import traceback
import typing
import unittest

import stalls

COUNTS = (1, 2, 4, 8)
AT_ONCE = 12  # drivers; most of their time they wait

# lumd(8) promises 5 s; on a machine with a sanitizer and other work the clock of a test runs faster.
END = 15
PATIENCE = 60


def is_failing(port):
    return port["state"] == "failing" and "has not ended" in port.get("reason", "")


def has_lost_its_led(port):
    return port["led"]["state"] is None and "timed out" in port["led"].get("problem", "")


def has_red_led(port):
    return port["led"].get("name") == "fault"


def is_up(port):
    return port["state"] == "up"


def is_well(port):
    return is_up(port) and port["led"].get("state") == 1


@dataclasses.dataclass(frozen=True)
class Blocked:
    """A call that the driver makes for a module."""

    name: str
    call: str
    add: typing.Callable  # a port to the shelf
    place: typing.Callable  # what the call is made on, of a cage
    at_start: bool = True  # the driver makes it then, and does not only when it is told to
    prepare: tuple = ()  # what lumctl is told before, from which a red LED follows
    provoke: tuple = ()  # what lumctl is told to have it made
    told: typing.Callable = is_failing
    undo: tuple = ()  # what lumctl is told afterwards


def line(name):
    return lambda shelf, cage: cage.line(name)


def led(which, file):
    return lambda shelf, cage: shelf.led_file(cage, which, file)


def memory(shelf, cage):
    return cage.module


Shelf = stalls.StallingShelf
# The thread that polls all modules lights the LED of one that has come.
LIT = {"prepare": ("module", "remove"), "provoke": ("module", "insert"), "told": has_lost_its_led}

# What takes longest first.
CALLS = (
    Blocked("pread of an LED", "pread", Shelf.add, led("green:status", "brightness"),
            told=has_lost_its_led),
    Blocked("pread of a module's file", "pread", Shelf.add, memory,
            provoke=("show", "module", "--page", "0")),
    Blocked("pwrite to a module's file", "pwrite", Shelf.add, memory, False,
            (), ("set", "threshold=4")),
    Blocked("ioctl on a module's bus", "ioctl", Shelf.add_on_bus, lambda shelf, cage: cage.bus,
            provoke=("show", "module", "--page", "0")),
    Blocked("read of a presence line", "read", Shelf.add_with_lines, line("presence")),
    Blocked("read of a reset line", "read", Shelf.add_with_lines, line("reset")),
    Blocked("read of a low-power line", "read", Shelf.add_with_lines, line("low_power")),
    Blocked("write to a reset line", "write", Shelf.add_with_lines, line("reset"), False,
            (), ("module", "reset", "on"), is_well, ("module", "reset", "off")),
    Blocked("write to a low-power line", "write", Shelf.add_with_lines, line("low_power"), False,
            (), ("module", "low-power", "on"), is_well, ("module", "low-power", "off")),
    Blocked("write to an LED", "write", Shelf.add, led("green:status", "brightness"), **LIT),
    Blocked("read of an LED's trigger", "read", Shelf.add_with_trigger,
            led("green:status", "trigger"), **LIT),
)


class Life:
    """A driver on a shelf of its own: one port that is left alone, and some on which a call can be
    kept from returning. Each way to an end of the driver is one of its methods."""

    def __init__(self, test, blocked, count):
        self.test = test
        self.blocked = blocked
        self.tried = collections.Counter()
        folder = tempfile.TemporaryDirectory(prefix="lum-test-")
        test.addCleanup(folder.cleanup)
        self.shelf = Shelf(folder.name, "test")
        self.good = self.shelf.add()
        self.cages = [blocked.add(self.shelf) for _ in range(count)]
        self.shelf.write_description()
        self.driver = stalls.Driver(self.shelf)
        self.asking = []

    # ---- What is done

    def start(self):
        self.driver.__enter__()
        self.test.addCleanup(self.driver.__exit__)

    def place(self, cage):
        return self.blocked.place(self.shelf, cage)

    def stall(self):
        for cage in self.cages:
            marker = stalls.marker_of(self.place(cage), self.blocked.call)
            marker.parent.mkdir(parents=True, exist_ok=True)
            marker.touch()

    def free(self):
        for cage in self.cages:
            stalls.marker_of(self.place(cage), self.blocked.call).unlink()
        for asking in self.asking:
            asking.join()
        self.asking.clear()

    def tell(self, words, cage):
        """The name of the port stands behind the command's own words."""
        first = 1 if words[0] == "set" else 2
        return self.driver.lumctl(*words[:first], cage.name, *words[first:])

    def tell_all(self, words):
        for cage in self.cages if words else ():
            self.tell(words, cage)
        if words and words == self.blocked.prepare:
            self.look(has_red_led, self.cages)

    def provoke(self):
        """The command is answered late or refused, for its call does not return."""
        if not self.blocked.provoke:
            return
        def ask(cage):
            with contextlib.suppress(RuntimeError, subprocess.TimeoutExpired):
                self.tell(self.blocked.provoke, cage)
        for cage in self.cages:
            self.asking.append(threading.Thread(target=ask, args=(cage,)))
            self.asking[-1].start()

    # ---- What holds

    def wait_for(self, what, condition):
        end = time.monotonic() + PATIENCE
        while not condition():
            if time.monotonic() > end:
                raise AssertionError(f"{what}: {self.driver.log.read_text()}")
            time.sleep(0.1)

    def wait_until_inside(self, phase):
        """Threads of the driver are in the call, one at least for each of the modules."""
        for cage in self.cages:
            self.wait_for(f"{cage.name}: no such call was made", lambda cage=cage: stalls.under_way(
                self.driver.process, self.place(cage), self.blocked.call))
        self.tried[phase] += len(self.cages)

    def ports(self):
        return self.driver.ports()

    def look(self, condition, cages):
        def holds():
            with contextlib.suppress(RuntimeError):
                ports = self.ports()
                return all(condition(ports[cage.name]) for cage in cages)
            return False
        self.wait_for(f"{condition.__name__}: {[cage.name for cage in cages]}", holds)

    def check_others(self):
        """The one that is left alone is up and can be changed, and every command is answered."""
        port = self.ports()[self.good.name]
        self.test.assertEqual(port["state"], "up")
        shown = self.driver.lumctl("show", "ports")
        for cage in (self.good, *self.cages):
            self.test.assertIn(cage.name, shown)
        self.driver.lumctl("set", self.good.name, f"threshold={3 + sum(self.tried.values()) % 5}")
        if self.blocked.told is not is_failing:
            self.driver.poll_once_more()  # no transfer hangs, which all of polling would wait for

    def check_unknown_at_start(self):
        """Nothing is said of a module, or of an LED, that nobody has seen yet."""
        if self.blocked.told is has_lost_its_led:
            self.look(has_lost_its_led, self.cages)
            return
        ports = self.ports()
        for port in (ports[cage.name] for cage in self.cages):
            self.test.assertNotEqual(port["state"], "up")
            self.test.assertNotIn("readings_age_s", port)

    def end(self):
        """In order, and in time."""
        self.driver.process.send_signal(signal.SIGTERM)
        status = self.driver.process.wait(END)
        said = self.driver.log.read_text()
        self.test.assertEqual(status, 0, said)
        self.test.assertTrue(said.endswith("stopped\n"), said)
        self.test.assertNotIn("something does not end", said)

    # ---- Ways through it

    def blocked_at_start(self):
        if not self.blocked.at_start:
            return
        self.stall()
        for phase in ("from the start to the end", "at the start"):
            self.start()
            self.wait_until_inside(phase)
            self.look(is_up, (self.good,))
            if phase == "from the start to the end":
                self.end()
        self.check_unknown_at_start()
        self.check_others()
        self.free()

    def blocked_in_operation_and_at_the_end(self):
        if not self.blocked.at_start:
            self.start()
        self.look(is_well, (self.good, *self.cages))
        for phase in ("in operation", "at the end"):
            self.tell_all(self.blocked.prepare)
            self.stall()
            self.provoke()
            self.wait_until_inside(phase)
            if phase == "at the end":
                break
            self.look(self.blocked.told, self.cages)
            self.check_others()
            self.free()
            self.tell_all(self.blocked.undo)
            self.look(is_well, (self.good, *self.cages))
        self.end()
        self.free()

    def live(self):
        self.blocked_at_start()
        self.blocked_in_operation_and_at_the_end()
        return self.tried


class BlockedCalls(unittest.TestCase):
    def test_what_waits_for_a_line_says_so(self):
        life = Life(self, next(one for one in CALLS if "write to a reset line" in one.name), 1)
        life.start()
        life.look(is_well, life.cages)
        life.stall()
        with self.assertRaises(RuntimeError) as refused:
            life.tell(life.blocked.provoke, life.cages[0])
        self.assertIn(f"it waits for {life.place(life.cages[0])}, which has not taken what it is set "
                      "to for", str(refused.exception))
        life.free()

    def test_of_one_module_and_of_several_at_each_time(self):
        tried = collections.Counter()
        failed = []
        with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as threads:
            lives = {threads.submit(Life(self, blocked, count).live):
                     f"{blocked.name}, {count} modules" for blocked in CALLS for count in COUNTS}
            for life in concurrent.futures.as_completed(lives):
                if life.exception() is None:
                    tried += life.result()
                else:
                    failed.append(lives[life] + ": "
                                  + "".join(traceback.format_exception(life.exception())))
        self.assertFalse(failed, "\n".join(failed))
        for phase, count in tried.items():
            print(f"blocked calls {phase}: {count} tried, {count} survived")
