"""The driver while one of its allocations fails: at its start, and in each of its answers.

Of all allocations some are tried, spread over them, LUM_MEMORY_TRIALS of each kind; which ones moves
on from day to day.
"""

import json
import mmap
import os
import struct
import time
import unittest

import support
from support import BUILD, CLOCK, ShelfTest, UnixConnection

NEVER = 1 << 62
TRIALS = int(os.environ.get("LUM_MEMORY_TRIALS", "20"))


@unittest.skipIf(os.environ.get("LUM_SANITIZE"), "the sanitizers have an allocator of their own")
class WithoutMemory(ShelfTest):
    def setUp(self):
        super().setUp()
        self.cage = self.add_module("iivi-new-map")
        self.shelf.write_description()
        plan = self.shelf.folder / "memory"
        plan.write_bytes(bytes(24))
        with open(plan, "r+b") as file:
            self.plan = mmap.mmap(file.fileno(), 24)
        self.driver = support.driver.Driver(
            BUILD, self.shelf, LD_PRELOAD=f"{CLOCK} {BUILD / 'lum_test_memory.so'}",
            LUM_TEST_SECOND_MS="300", LUM_TEST_MEMORY=str(plan))
        self.tried = self.survived = 0

    def let_fail(self, number):
        """That allocation from now on fails; 0: none."""
        self.plan[:] = struct.pack("=QQQ", number, 0, 0)

    def asked(self):
        return struct.unpack("=QQQ", self.plan[:])[1]

    def ask(self, method, target, body=None):
        """The status of an answer; None when the connection was given up."""
        connection = UnixConnection(self.shelf.socket)
        try:
            connection.request(method, target, body=json.dumps(body) if body else None)
            answer = connection.getresponse()
            answer.read()
            return answer.status
        except (OSError, support.driver.http.client.HTTPException):
            return None
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
            time.sleep(0.02)
        raise self.failureException(f"neither up nor ended: {self.driver.log.read_text()}")

    @staticmethod
    def spread(count):
        """Numbers from 1 to `count`, as many as are to be tried."""
        step = max(1, count // TRIALS)
        return range(1 + int(time.time() // 86400) % step, count + 1, step)

    def tell(self, what, count):
        print(f"{what}: {count} allocations, {self.tried} of them made to fail, "
              f"{self.survived} survived", flush=True)

    def test_at_its_start(self):
        """It comes up, or ends with a word; then the next start comes up."""
        self.let_fail(NEVER)
        self.driver.__enter__()
        self.addCleanup(self.driver.__exit__)
        self.assertTrue(self.wait_until_up())
        count = self.asked()
        self.driver.kill()
        for number in self.spread(count):
            with self.subTest(allocation=number):
                self.tried += 1
                self.driver.log.write_text("")
                self.shelf.socket.unlink(missing_ok=True)
                self.let_fail(number)
                self.driver.start()
                if not self.wait_until_up():
                    log = self.driver.log.read_text()
                    if "Assertion `" not in log:  # liblum's own, as its headers say
                        self.assertGreater(self.driver.process.returncode, 0, log)
                        self.assertNotEqual(log.strip(), "")
                self.driver.kill()
                self.survived += 1
        self.tell("start", count)
        self.assertEqual(self.survived, self.tried)

    def test_while_it_serves(self):
        """An answer may fail; the driver stays, and answers the next time."""
        self.let_fail(0)
        self.driver.__enter__()
        self.addCleanup(self.driver.__exit__)
        self.assertTrue(self.wait_until_up())
        name = self.cage.name
        requests = [
            ("GET", "/v1/ports", None),
            ("GET", f"/v1/ports/{name}", None),
            ("GET", "/v1/settings", None),
            ("GET", "/v1/events", None),
            ("GET", "/v1/health", None),
            ("GET", "/metrics", None),
            ("POST", "/v1/replay", None),
        ]
        for request in requests:
            good = self.ask(*request)
            self.let_fail(NEVER)
            self.assertEqual(self.ask(*request), good)
            count = self.asked()
            for number in self.spread(count):
                with self.subTest(request=request, allocation=number):
                    self.tried += 1
                    self.let_fail(number)
                    self.ask(*request)
                    self.let_fail(0)
                    self.assertIsNone(self.driver.process.poll(), self.driver.log.read_text())
                    self.assertEqual(self.ask(*request), good)
                    self.survived += 1
            self.tell(" ".join(request[:2]), count)
        self.assertEqual(self.survived, self.tried)
