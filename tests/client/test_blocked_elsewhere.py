"""Calls on what is no module's, such as traces, settings, the system log and the service manager, that
begin and do not return: at the driver's start, in operation and at its end. The module is up and
polled all the while, and the driver ends in time."""

import collections
import concurrent.futures
import contextlib
import dataclasses
import signal
import socket
import subprocess
import tempfile
import threading
import time
import traceback
import typing
import unittest

import stalls

AT_ONCE = 12  # drivers; most of their time they wait
END = 15  # seconds, where lumd(8) promises 5: for a machine with a sanitizer and other work
PATIENCE = 60

START, OPERATION, AT_END = "at the start", "in operation", "at the end"


class Life:
    """A driver with one module, a service manager, a system log, and what they are told."""

    def __init__(self, test, blocked, phase):
        self.test = test
        self.blocked = blocked
        self.phase = phase
        folder = tempfile.TemporaryDirectory(prefix="lum-test-")
        test.addCleanup(folder.cleanup)
        self.shelf = stalls.StallingShelf(folder.name, "test")
        self.cage = self.shelf.add()
        self.shelf.write_description()
        self.place = self.shelf.folder / blocked.place
        self.marker = stalls.marker_of(self.place, blocked.call)
        self.driver = stalls.Driver(
            self.shelf, NOTIFY_SOCKET=str(self.reader("manager")), WATCHDOG_USEC="1000000",
            LUM_TEST_SYSLOG=str(self.reader("log")))
        self.asking = []

    def reader(self, name):
        place = self.shelf.folder / name
        taking = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.test.addCleanup(taking.close)
        taking.bind(str(place))
        return place

    def start(self):
        self.driver.__enter__()
        self.test.addCleanup(self.driver.__exit__)

    def wait_until_up(self):
        self.test.assertIsNotNone(
            self.driver.wait_for(lambda ports: ports[self.cage.name]["state"] == "up", PATIENCE),
            self.driver.log.read_text())

    def stall(self):
        self.marker.parent.mkdir(exist_ok=True)
        self.marker.touch()

    def free(self):
        self.marker.unlink()
        for asking in self.asking:
            asking.join()

    def wait_until_inside(self):
        end = time.monotonic() + PATIENCE
        while not stalls.under_way(self.driver.process, self.place, self.blocked.call):
            self.test.assertLess(time.monotonic(), end,
                                 f"no such call was made: {self.driver.log.read_text()}")
            time.sleep(0.1)

    def set(self):
        self.driver.lumctl("set", self.cage.name, f"threshold={4 + len(self.asking)}")

    # ---- What has the call made

    def change_settings(self):
        """In a thread: the answer may wait for what does not return."""
        def ask():
            with contextlib.suppress(RuntimeError, subprocess.TimeoutExpired):
                self.set()
        self.asking.append(threading.Thread(target=ask))
        self.asking[-1].start()

    def lose_store(self):
        """Which the system log is told of."""
        store = self.shelf.folder / "state" / "checkpoints.db"
        store.rename(store.with_name("elsewhere"))
        self.change_settings()

    def damage_store(self):
        state = self.shelf.folder / "state"
        state.mkdir(exist_ok=True)
        (state / "checkpoints.db").write_bytes(b"no store" * 1000)

    def read_again(self):
        self.driver.process.send_signal(signal.SIGHUP)

    def kill_one(self):
        """A driver that leaves its rings and its socket behind."""
        self.start()
        self.wait_until_up()
        self.driver.kill()

    # ---- The ways through it

    def check_that_it_goes_on(self):
        self.wait_until_up()
        self.driver.poll_once_more()
        self.test.assertIn(self.cage.name, self.driver.lumctl("show", "ports"))
        self.driver.lumctl("show", "node")

    def end(self):
        self.driver.process.send_signal(signal.SIGTERM)
        status = self.driver.process.wait(END)
        said = self.driver.log.read_text()
        if self.blocked.ends_in_order:
            self.test.assertEqual(status, 0, said)
            self.test.assertTrue(said.endswith("stopped\n"), said)
        else:
            self.test.assertEqual(status, 1, said)
            self.test.assertTrue(said.endswith("something does not end; leaving it behind\n"), said)

    def live(self):
        if self.phase is START:
            self.blocked.before(self)
            self.stall()
        self.start()
        if self.phase is not START:
            self.wait_until_up()
            self.stall()
            self.blocked.provoke(self)
        self.wait_until_inside()
        if self.phase is not AT_END:
            self.check_that_it_goes_on()
        if self.phase is OPERATION:
            self.free()
            self.set_if_kept()
            self.check_that_it_goes_on()
        self.end()

    def set_if_kept(self):
        if self.blocked.provoke is not Life.lose_store:
            self.set()


def nothing(life):
    """The call is made without more ado."""


@dataclasses.dataclass(frozen=True)
class Blocked:
    """A call that the driver makes for itself."""

    name: str
    call: str
    place: str  # below the shelf's folder
    provoke: typing.Callable = nothing
    before: typing.Callable = nothing  # a start that makes it
    phases: tuple = (START, OPERATION, AT_END)
    ends_in_order: bool = True  # else within the bound alone


# As store.md has it: a disk that stops to answer holds up whoever changes settings. The end waits no
# longer for that than the driver's bound, and its status says so.
STORE = {"provoke": Life.change_settings, "phases": (OPERATION,)}
STORE_AT_END = {"provoke": Life.change_settings, "phases": (AT_END,), "ends_in_order": False}

CALLS = (
    Blocked("connecting to the service manager", "connect", "manager"),
    Blocked("sending to the service manager", "send", "manager"),
    Blocked("connecting to the system log", "connect", "log", Life.lose_store, Life.damage_store),
    Blocked("sending to the system log", "send", "log", Life.lose_store, Life.damage_store),
    Blocked("write to a trace file", "write", "traces/lum_info.log", Life.change_settings),
    Blocked("write of what a killed driver has traced", "write", "traces/lum_info.log",
            before=Life.kill_one, phases=(START,)),
    Blocked("pread of what a killed driver has traced", "pread", "traces/lum_info.ring",
            before=Life.kill_one, phases=(START,)),
    Blocked("read of the description", "read", "node.toml", Life.read_again,
            phases=(OPERATION, AT_END)),
    Blocked("pwrite of events", "pwrite", "state/records.db-wal", Life.change_settings),
    Blocked("pwrite of a record", "pwrite", "state/checkpoints.db-wal", phases=(START,)),
    Blocked("sync of a record", "sync", "state/checkpoints.db-wal", phases=(START,)),
    Blocked("pread of the store", "pread", "state/checkpoints.db", phases=(START,)),
    Blocked("pwrite of the journal", "pwrite", "state/checkpoints.db-changes", phases=(START,)),
    *(Blocked(f"{call} of a {what} under way", call, file, **when)
      for when in (STORE, STORE_AT_END)
      for what, call, file in (("record", "pwrite", "state/checkpoints.db-wal"),
                               ("record", "sync", "state/checkpoints.db-wal"),
                               ("change", "pwrite", "state/checkpoints.db-changes"))),
)


class BlockedElsewhere(unittest.TestCase):
    def test_at_each_time(self):
        tried = collections.Counter()
        failed = []
        with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as threads:
            lives = {threads.submit(Life(self, blocked, phase).live): (blocked, phase)
                     for blocked in CALLS for phase in blocked.phases}
            for life in concurrent.futures.as_completed(lives):
                blocked, phase = lives[life]
                tried[phase] += 1
                if life.exception() is not None:
                    failed.append(f"{blocked.name} {phase}: "
                                  + "".join(traceback.format_exception(life.exception())))
        self.assertFalse(failed, "\n".join(failed))
        for phase, count in tried.items():
            print(f"blocked calls elsewhere {phase}: {count} tried, {count} survived")
