"""The driver with allocations that fail: which of them, what it has met of that, and what it holds.

Of all allocations some are tried, spread over them, LUM_MEMORY_TRIALS of each kind; which ones moves
on from day to day. Of these LUM_MEMORY_PART, such as 2/4, leaves one in four, so that several
processes share them.
"""

import json
import mmap
import os
import re
import struct
import time
import unittest

from support import BUILD, CLOCK, SOURCE, ShelfTest, UnixConnection, driver

PLAN = struct.Struct("=QQQQQ")  # as memory.c has it, but for the blocks behind it
BLOCKS = struct.Struct("=q")
NEVER = 1 << 62
TRIALS = int(os.environ.get("LUM_MEMORY_TRIALS", "20"))
PART, PARTS = (int(word) for word in os.environ.get("LUM_MEMORY_PART", "1/1").split("/"))
RESERVED = 4  # so many failures in a row the driver's reserve makes up for
IN_A_ROW = (1, 2, 3, RESERVED)

# What liblum says when it ends the process as its headers state.
STATED_ENDS = re.findall(
    r'^ +"(.+)",$', (SOURCE / "tests/support/stated_ends.h").read_text(), re.M)


@unittest.skipIf(os.environ.get("LUM_SANITIZE"), "the sanitizers have an allocator of their own")
class FailingMemory(ShelfTest):
    def setUp(self):
        super().setUp()
        self.cage = self.add_module("iivi-new-map")
        self.describe()
        plan = self.shelf.folder / "memory"
        plan.write_bytes(bytes(PLAN.size + BLOCKS.size))
        with open(plan, "r+b") as file:
            self.plan = mmap.mmap(file.fileno(), PLAN.size + BLOCKS.size)
        self.driver = driver.Driver(
            BUILD, self.shelf, LD_PRELOAD=f"{CLOCK} {BUILD / 'lum_test_memory.so'}",
            LUM_TEST_SECOND_MS="300", LUM_TEST_MEMORY=str(plan))
        self.tried = self.survived = self.too_late = 0

    def describe(self, edit=lambda text: text):
        self.shelf.write_description("http_port = 0")
        self.shelf.description.write_text(edit(self.shelf.description.read_text()))

    def let_fail(self, number, in_a_row=1):
        """That allocation from now on fails, and so many behind it; 0: none."""
        self.plan[:PLAN.size] = PLAN.pack(number, in_a_row, 0, 0, self.given_back())

    def asked(self):
        return PLAN.unpack(self.plan[:PLAN.size])[2]

    def has_failed(self):
        """Whether an allocation has been made to fail since that was asked for."""
        return PLAN.unpack(self.plan[:PLAN.size])[3] > 0

    def be_without(self, seconds):
        """There is no memory at all for a while, in which nobody asks the driver for anything."""
        self.let_fail(1, NEVER)
        time.sleep(seconds)
        self.assertTrue(self.has_failed())
        self.assertIsNone(self.driver.process.poll(), self.driver.log.read_text())

    def given_back(self):
        """How often the driver has given back what is free."""
        return PLAN.unpack(self.plan[:PLAN.size])[4]

    def blocks(self):
        """The fewest that the driver has had at any moment of a while."""
        end = time.monotonic() + 0.1
        fewest = None
        while time.monotonic() < end:
            now, = BLOCKS.unpack(self.plan[PLAN.size:])
            fewest = now if fewest is None else min(fewest, now)
            time.sleep(0.001)
        return fewest

    def ask(self, method, target, body=None):
        """The status of an answer; None when the connection was given up."""
        return self.answer(method, target, body)[0]

    def answer(self, method, target, body=None):
        connection = UnixConnection(self.shelf.socket)
        headers = {} if body is None else {"Content-Type": "application/json"}
        try:
            connection.request(method, target, None if body is None else json.dumps(body), headers)
            answer = connection.getresponse()
            return answer.status, answer.read()
        except (OSError, driver.http.client.HTTPException):
            return None, b""
        finally:
            connection.close()

    def wait_until_up(self):
        """False when the driver has ended instead."""
        end = time.monotonic() + 60
        while time.monotonic() < end:
            if self.driver.process.poll() is not None:
                return False
            if self.shelf.socket.exists() and self.ask("GET", "/readyz") == 200:
                return True
            time.sleep(0.005)
        raise self.failureException(f"neither up nor ended: {self.driver.log.read_text()}")

    def begin_anew(self):
        self.driver.log.write_text("")
        self.shelf.socket.unlink(missing_ok=True)

    def start_undisturbed(self, fails=0):
        self.begin_anew()
        self.let_fail(fails)
        self.driver.start()
        self.addCleanup(self.driver.kill)
        self.assertTrue(self.wait_until_up(), self.driver.log.read_text())

    def begin(self):
        """From here on it runs, with every port up."""
        self.start_undisturbed()
        for cage in self.shelf.cages:
            self.wait_for_state(cage, "up")

    def expect_a_stated_end(self):
        """The driver has ended: it has said why, and not crashed, save as liblum's headers state."""
        log = self.driver.log.read_text()
        if not any(f"Assertion `{end}' failed." in log for end in STATED_ENDS):
            self.assertGreater(self.driver.process.returncode, 0, log)
            self.assertNotEqual(log.strip(), "")

    def met(self):
        """Whether what was to fail has failed: else the driver took another way this time, with
        fewer allocations. Counts the one or the other."""
        if self.has_failed():
            self.tried += 1
            return True
        self.too_late += 1
        return False

    @staticmethod
    def spread(count, trials=TRIALS):
        """Numbers from 1 to `count`, so many of them, and of these this part."""
        step = max(1, count // trials)
        return range(1 + int(time.time() // 86400) % step, count + 1, step)[PART - 1::PARTS]

    def tell(self, what, count, more=""):
        print(f"{what}: {count} allocations, {self.tried} tried, {self.survived} survived"
              f"{f', {self.too_late} not met' if self.too_late else ''}{more}", flush=True)
        self.assertEqual(self.survived, self.tried)
        self.tried = self.survived = self.too_late = 0
