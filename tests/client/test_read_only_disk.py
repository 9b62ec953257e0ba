"""A state directory on a disk that is mounted read-only: the node runs, with what it has saved."""

import contextlib
import os
import re
import socket
import sqlite3
import subprocess
import time
import unittest
from unittest import mock

from actions import Actions
from certificates import Authority
from support import BUILD, Driver, QUICK


@unittest.skipUnless(os.geteuid() == 0, "it takes root to mount")
class ReadOnly(Actions):
    def setUp(self):
        super().setUp()
        self.state = self.shelf.folder / "state"
        self.state.mkdir()
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=4m", "tmpfs", self.state],
                                 capture_output=True, check=False)
        if mounted.returncode != 0:
            self.skipTest("nothing can be mounted here")
        self.addCleanup(subprocess.run, ["umount", "-l", self.state], check=True)
        self.runtime = self.shelf.folder / "runtime"
        self.runtime.mkdir()

    def set_read_only(self, is_so=True):
        how = "ro" if is_so else "rw"
        subprocess.run(["mount", "-o", f"remount,{how}", self.state], check=True)

    def start_driver(self, extra=""):
        self.shelf.write_description()
        text = self.shelf.description.read_text()
        self.shelf.description.write_text(f"{extra}\n{text}")
        self.driver = Driver(BUILD, self.shelf, (), QUICK)
        self.driver.environment["RUNTIME_DIRECTORY"] = f"{self.runtime}:/nowhere"
        self.driver.__enter__()
        self.addCleanup(self.driver.kill)

    def begin(self):
        self.start_driver()
        self.wait_for_state(self.other, "up")
        self.wait_for_state(self.first, "up")

    def test_the_socket_is_made_in_the_runtime_directory(self):
        self.set_read_only()
        self.shelf.socket = self.runtime / "lumd.sock"
        self.begin()
        said = self.driver.log.read_text()
        self.assertIn(f"lumd.sock: Read-only file system; the API is on {self.shelf.socket}", said)
        self.assertEqual(self.shelf.socket.stat().st_mode & 0o777, 0o600)
        self.assertEqual(self.driver.stop(6), 0)
        self.assertFalse(self.shelf.socket.exists())

    def test_what_was_recorded_is_told_all_the_same(self):
        self.begin()
        path = f"/v1/ports/{self.first.name.replace('/', '%2F')}/history"
        self.assertIsNotNone(self.driver.wait_for(lambda _: self.driver.get(path)["times"], 20))
        self.assertEqual(self.driver.stop(6), 0)
        with contextlib.closing(sqlite3.connect(self.state / "records.db")) as database:
            (polls,) = database.execute("SELECT count(*) FROM samples").fetchone()
            (last,) = database.execute("SELECT max(number) FROM events").fetchone()
        self.assertGreater(polls, 0)
        self.set_read_only()
        self.shelf.socket = self.runtime / "lumd.sock"
        self.begin()
        events = self.driver.get("/v1/events")
        self.assertEqual([one["number"] for one in events["events"][:last]],
                         list(range(1, last + 1)))
        self.assertFalse(events["kept"])
        self.assertGreater(len(self.driver.get(path)["times"]), 0)

    def test_a_socket_that_was_left_behind_is_in_nobodys_way(self):
        self.begin()
        self.driver.kill()
        self.set_read_only()
        self.shelf.socket = self.runtime / "lumd.sock"
        self.begin()

    def test_without_any_folder_the_tcp_port_is_left(self):
        self.set_read_only()
        self.runtime.rmdir()
        self.runtime.write_text("no folder")
        self.start_driver("http_port = 0")
        said = self.wait_for_words("read-only API on")
        self.assertIn("the API is on its TCP port alone", said)
        port = int(re.search(r"http://127\.0\.0\.1:(\d+)/", said).group(1))
        with socket.create_connection(("127.0.0.1", port), timeout=10) as connection:
            connection.sendall(b"GET /v1/ports HTTP/1.0\r\nHost: localhost\r\n\r\n")
            self.assertIn(b" 200 ", connection.recv(100))
        self.assertEqual(self.driver.stop(6), 0)

    def test_the_service_manager_hears_of_it_there_too(self):
        """Also where who asks over TCP would need a certificate."""
        authority = Authority(self.shelf.folder, "ca")
        certificate, key = authority.sign("node")
        self.set_read_only()
        self.runtime.rmdir()
        self.runtime.write_text("no folder")
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.bind(str(self.shelf.folder / "notify.sock"))
            manager.settimeout(10)
            with mock.patch.dict(os.environ, NOTIFY_SOCKET=str(self.shelf.folder / "notify.sock"),
                                 WATCHDOG_USEC="2000000"):
                self.start_driver(f'http_port = 0\nhttp_certificate = "{certificate}"\nhttp_key = "{key}"\n'
                                  f'http_client_ca = "{authority.file}"')
            heard = 0
            while heard < 3:
                heard += manager.recv(4096).decode().splitlines().count("WATCHDOG=1")

    def test_without_any_api_it_says_what_to_do(self):
        self.set_read_only()
        self.runtime.rmdir()
        self.runtime.write_text("no folder")
        self.start_driver()
        self.assertEqual(self.driver.process.wait(5), 1)
        self.assertIn("choose another place with api_socket", self.driver.log.read_text())

    def test_a_socket_that_was_chosen_is_not_made_elsewhere(self):
        self.set_read_only()
        self.start_driver('api_socket = "state/chosen.sock"')
        self.assertEqual(self.driver.process.wait(5), 1)
        self.assertIn("chosen.sock: Read-only file system", self.driver.log.read_text())

    def wait_for_words(self, words):
        for _ in range(100):
            said = self.driver.log.read_text()
            if words in said:
                return said
            time.sleep(0.1)
        self.fail(said)

    def threshold(self):
        return self.port(self.first)["sub_ports"][0]["configuration"]["threshold"]

    def expect_saved_settings(self):
        """They are in force, and every view says that no others will be kept."""
        self.begin()
        self.assertEqual(self.threshold(), 7)
        store = self.does("show", "node")["store"]
        self.assertEqual((store["usable"], store["readable"], store["records"]), (False, True, []))
        self.assertIn("Read-only file system", store["reason"])
        for shown in (("show", "node"), ("show", "ports"), ("show", "port", self.first.name)):
            self.assertIn("saved settings can be read, changes are not kept: " + store["reason"],
                          self.says(*shown))
        said = self.fails(1, "set", self.first.name, "threshold=8")
        self.assertIn("in force but not saved", said)
        self.assertEqual(self.threshold(), 8)

    def test_saved_settings_are_in_force(self):
        self.begin()
        self.does("set", self.first.name, "threshold=7")
        self.assertEqual(self.driver.stop(6), 0)
        self.set_read_only()
        self.shelf.socket = self.runtime / "lumd.sock"
        self.expect_saved_settings()
        self.set_read_only(False)
        self.assertTrue(self.driver.wait_for(
            lambda _: self.does("show", "node")["store"]["usable"], 30))
        self.does("set", self.first.name, "threshold=9")
        self.assertEqual(self.driver.stop(6), 0)
        self.shelf.socket = self.state / "lumd.sock"
        self.begin()
        self.assertEqual(self.threshold(), 9)

    def test_saved_settings_that_are_not_merged_yet_are_in_force(self):
        self.begin()
        self.does("set", self.first.name, "threshold=6")
        self.assertEqual(self.driver.stop(6), 0)
        self.begin()
        self.does("set", self.first.name, "threshold=7")
        self.driver.kill()
        self.assertGreater((self.state / "checkpoints.db-wal").stat().st_size, 0)
        self.set_read_only()
        self.shelf.socket = self.runtime / "lumd.sock"
        self.expect_saved_settings()
