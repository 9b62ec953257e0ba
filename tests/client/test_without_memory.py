"""The driver while some of its allocations fail: at its start, in each of its answers, and while it
takes a connection; and what it does with what answers have taken.

Of all allocations some are tried, spread over them, LUM_MEMORY_TRIALS of each kind; which ones moves
on from day to day.
"""

import contextlib
import mmap
import os
import re
import socket
import struct
import threading
import time
import unittest
import urllib.parse

import support
from support import BUILD, CLOCK, ShelfTest, UnixConnection

PLAN = struct.Struct("=QQQQQ")  # as memory.c has it
NEVER = 1 << 62
TRIALS = int(os.environ.get("LUM_MEMORY_TRIALS", "20"))
RESERVED = 4  # so many failures in a row the driver's reserve makes up for
IN_A_ROW = (1, 2, 3, RESERVED)
# What liblum says when it ends the process as its headers state.
STATED_ENDS = re.findall(r'^ +"(.+)",$', (support.SOURCE / "tests/support/stated_ends.h").read_text(), re.M)
STARTS = 300  # at most, of those with several in a row: each takes a while


@unittest.skipIf(os.environ.get("LUM_SANITIZE"), "the sanitizers have an allocator of their own")
class WithoutMemory(ShelfTest):
    def setUp(self):
        super().setUp()
        self.cage = self.add_module("iivi-new-map")
        self.shelf.write_description()
        self.shelf.description.write_text("http_port = 0\n" + self.shelf.description.read_text())
        plan = self.shelf.folder / "memory"
        plan.write_bytes(bytes(PLAN.size))
        with open(plan, "r+b") as file:
            self.plan = mmap.mmap(file.fileno(), PLAN.size)
        self.driver = support.driver.Driver(
            BUILD, self.shelf, LD_PRELOAD=f"{CLOCK} {BUILD / 'lum_test_memory.so'}",
            LUM_TEST_SECOND_MS="300", LUM_TEST_MEMORY=str(plan))
        self.tried = self.survived = 0

    def let_fail(self, number, in_a_row=1):
        """That allocation from now on fails, and so many behind it; 0: none."""
        self.plan[:] = PLAN.pack(number, in_a_row, 0, 0, 0)

    def asked(self):
        return PLAN.unpack(self.plan[:])[2]

    def given_back(self):
        """How often the driver has given back what is free."""
        return PLAN.unpack(self.plan[:])[4]

    def ask(self, method, target):
        """The status of an answer; None when the connection was given up."""
        connection = UnixConnection(self.shelf.socket)
        try:
            connection.request(method, target)
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
    def spread(count, trials=TRIALS):
        """Numbers from 1 to `count`, so many of them."""
        step = max(1, count // trials)
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
        for in_a_row in IN_A_ROW:
            for number in self.spread(count, TRIALS if in_a_row == 1 else min(TRIALS, STARTS)):
                with self.subTest(allocation=number, in_a_row=in_a_row):
                    self.start_without(number, in_a_row)
            self.tell(f"start, {in_a_row} in a row", count)
        self.assertEqual(self.survived, self.tried)

    def start_without(self, number, in_a_row):
        self.tried += 1
        self.driver.log.write_text("")
        self.shelf.socket.unlink(missing_ok=True)
        self.let_fail(number, in_a_row)
        self.driver.start()
        if not self.wait_until_up():
            log = self.driver.log.read_text()
            if not any(f"Assertion `{end}' failed." in log for end in STATED_ENDS):
                self.assertGreater(self.driver.process.returncode, 0, log)
                self.assertNotEqual(log.strip(), "")
        self.driver.kill()
        self.survived += 1

    def begin(self):
        self.let_fail(0)
        self.driver.__enter__()
        self.addCleanup(self.driver.__exit__)
        self.assertTrue(self.wait_until_up())

    def test_while_it_serves(self):
        """An answer may fail; the driver stays, and answers the next time."""
        self.begin()
        name = urllib.parse.quote(self.cage.name, safe="")
        requests = [
            ("GET", "/v1/ports", 200),
            ("GET", f"/v1/ports/{name}", 200),
            ("GET", "/v1/settings", 200),
            ("GET", "/v1/events", 200),
            ("GET", "/v1/health", 200),
            ("GET", "/metrics", 200),
            ("POST", "/v1/controllers/replay", 200),
        ]
        for method, target, good in requests:
            self.assertEqual(self.ask(method, target), good)
            self.let_fail(NEVER)
            self.assertEqual(self.ask(method, target), good)
            count = self.asked()
            for in_a_row in IN_A_ROW:
                for number in self.spread(count):
                    with self.subTest(target=target, allocation=number, in_a_row=in_a_row):
                        self.tried += 1
                        self.let_fail(number, in_a_row)
                        self.ask(method, target)
                        self.let_fail(0)
                        self.assertIsNone(self.driver.process.poll(), self.driver.log.read_text())
                        self.assertEqual(self.ask(method, target), good)
                        self.survived += 1
            self.tell(f"{method} {target}", count)
        self.assertEqual(self.survived, self.tried)

    def test_what_several_answers_at_once_have_taken_is_given_back(self):
        self.begin()
        for _ in range(20):
            self.assertEqual(self.ask("GET", "/metrics"), 200)
        self.assertEqual(self.given_back(), 0, "one after the other")
        end = time.monotonic() + 60
        while self.given_back() == 0 and time.monotonic() < end:
            readers = [threading.Thread(target=self.ask, args=("GET", "/metrics")) for _ in range(8)]
            for reader in readers:
                reader.start()
            for reader in readers:
                reader.join()
        self.assertGreater(self.given_back(), 0)

    def connect_owner(self):
        connection = UnixConnection(self.shelf.socket)
        connection.connect()
        return connection.sock

    def connect_stranger(self):
        port = re.search(r"http://127\.0\.0\.1:(\d+)/", self.driver.log.read_text()).group(1)
        return socket.create_connection(("127.0.0.1", int(port)), timeout=20)

    @staticmethod
    def says_nothing(connection):
        """Waits until the driver has closed a connection on which nothing comes."""
        with connection:
            with contextlib.suppress(OSError):  # it has closed it already
                connection.shutdown(socket.SHUT_WR)
            with contextlib.suppress(ConnectionError):
                while connection.recv(4096):
                    pass

    def test_a_connection_that_finds_no_memory_is_closed_and_the_next_one_is_served(self):
        """So many allocations fail in a row that the driver's reserve does not help."""
        self.begin()
        for connect in (self.connect_owner, self.connect_stranger):
            self.says_nothing(connect())
            self.let_fail(NEVER)
            self.says_nothing(connect())
            count = self.asked()
            for in_a_row in (RESERVED + 1, 2 * RESERVED):
                for number in range(1, count + 1):
                    with self.subTest(connect=connect.__name__, allocation=number,
                                      in_a_row=in_a_row):
                        self.tried += 1
                        self.let_fail(number, in_a_row)
                        self.says_nothing(connect())
                        self.let_fail(0)
                        self.assertIsNone(self.driver.process.poll(), self.driver.log.read_text())
                        self.says_nothing(connect())
                        self.assertEqual(self.ask("GET", "/healthz"), 200)
                        self.survived += 1
            self.tell(connect.__name__, count)
        self.assertEqual(self.survived, self.tried)
