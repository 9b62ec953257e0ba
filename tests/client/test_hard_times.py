"""A clock that is set back, and memory and descriptors that run out while everybody asks."""

import contextlib
import json
import os
import re
import resource
import socket
import threading
import unittest

from actions import Actions


class HardTimes(Actions):
    def test_a_clock_that_is_set_back_changes_no_state(self):
        self.begin()
        self.set_clock("yesterday")

    def test_a_clock_that_is_set_ahead_changes_no_state(self):
        self.begin()
        self.set_clock("tomorrow")

    def set_clock(self, day):
        self.driver.poll_once_more()
        samples = self.samples()
        (self.shelf.folder / day).touch()
        self.driver.poll_once_more()
        port = self.port(self.first)
        self.assertEqual(port["state"], "up")
        self.assertLess(port["dom"]["last_poll_age_s"], 60)
        self.assertLess(self.does("show", "node")["uptime_s"], 600)
        self.assertIsNotNone(self.driver.wait_for(lambda _: self.samples() > samples, 20))

    def samples(self):
        """How many values performance monitoring has of the first port, in all its bins."""
        shown = self.does("show", "pm", self.first.name)
        return sum(kept["samples"] for one in shown["interfaces"] for kept in one["bins"])

    @unittest.skipIf(os.environ.get("LUM_SANITIZE"), "a sanitizer ends the process without memory")
    def test_memory_that_runs_out_leaves_everybody_served_afterwards(self):
        self.start("http_port = 0")
        self.wait_for_state(self.first, "up")
        port = int(re.search(r"http://127\.0\.0\.1:(\d+)/", self.driver.log.read_text()).group(1))
        size = re.search(r"^VmSize:\s+(\d+) kB", self.status(), re.MULTILINE)
        with self.limited(resource.RLIMIT_AS, int(size.group(1)) * 1024 + 512 * 1024):
            self.everybody_asks(port)
        self.is_served(port)

    def test_descriptors_that_run_out_leave_everybody_served_afterwards(self):
        self.start("http_port = 0")
        self.wait_for_state(self.first, "up")
        port = int(re.search(r"http://127\.0\.0\.1:(\d+)/", self.driver.log.read_text()).group(1))
        with self.limited(resource.RLIMIT_NOFILE, 24):
            self.everybody_asks(port)
        self.is_served(port)

    def test_strangers_who_take_every_connection_of_theirs_leave_the_owner_served(self):
        """They ask for much and read nothing, so that none of them gives way to another."""
        self.start("http_port = 0")
        self.wait_for_state(self.first, "up")
        port = int(re.search(r"http://127\.0\.0\.1:(\d+)/", self.driver.log.read_text()).group(1))
        much = b"GET /v1/openapi.json HTTP/1.1\r\nHost: localhost\r\n\r\n" * 100
        with contextlib.ExitStack() as strangers:
            for _ in range(64):
                one = strangers.enter_context(socket.socket())
                one.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
                one.connect(("127.0.0.1", port))
                one.sendall(much)
            self.assertTrue(self.driver.wait_for(lambda _: self.is_refused(port), 10))
            self.assertIn(self.first.name, self.driver.ports())
            self.driver.lumctl("show", "node")

    @staticmethod
    def is_refused(port):
        """Whether one more of them finds no place."""
        with socket.create_connection(("127.0.0.1", port), timeout=5) as one:
            one.sendall(b"GET /healthz HTTP/1.1\r\nHost: localhost\r\n\r\n")
            return b" 503 " in one.recv(64)

    def status(self):
        with open(f"/proc/{self.driver.process.pid}/status", encoding="ascii") as status:
            return status.read()

    @contextlib.contextmanager
    def limited(self, what, limit):
        """The driver has no more of it than that."""
        pid = self.driver.process.pid
        before = resource.prlimit(pid, what)
        resource.prlimit(pid, what, (limit, before[1]))
        try:
            yield
        finally:
            resource.prlimit(pid, what, before)

    def everybody_asks(self, port):
        threads = [threading.Thread(target=self.ask, args=(port, number)) for number in range(60)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    def ask(self, port, number):
        body = json.dumps({"script": "x" * 200000})
        with contextlib.suppress(OSError):
            if number % 2 == 0:
                connection = socket.create_connection(("127.0.0.1", port), timeout=3)
            else:
                connection = socket.socket(socket.AF_UNIX)
                connection.settimeout(3)
                connection.connect(str(self.shelf.socket))
            with connection:
                connection.sendall(
                    f"POST /v1/modules/{number} HTTP/1.1\r\nHost: localhost\r\n"
                    f"Content-Length: {len(body)}\r\n\r\n{body}".encode())
                connection.recv(65536)

    def is_served(self, port):
        """By both ways in, and its modules are watched and polled on."""
        with socket.create_connection(("127.0.0.1", port), timeout=10) as connection:
            connection.sendall(b"GET /v1/ports HTTP/1.0\r\nHost: localhost\r\n\r\n")
            self.assertIn(b" 200 ", connection.recv(100))
        self.driver.poll_once_more()
        self.does("module", "remove", self.first.name)
        self.wait_for_state(self.first, "empty")
        self.does("module", "insert", self.first.name)
        self.wait_for_state(self.first, "up")
