"""The node as it is shown, when all is well and when something is not."""

import contextlib
import resource
import sqlite3
import socket
import time

from actions import Actions
from support import LUMCTL, run


class Node(Actions):
    def lines(self):
        """What is shown of the node, by the title of each line; of several the last."""
        return dict(line.split(":", 1) for line in self.says("show", "node").splitlines())

    def test_nothing_is_told_of_what_has_not_happened(self):
        self.begin()
        self.assertEqual(self.lines()["Controllers"].strip(), "6")
        shown = self.says("show", "node")
        for word in ("replayed", "could not be written", "Set aside", "the last", "Polling:"):
            self.assertNotIn(word, shown)

    def test_a_replay_is_told_until_the_next_creation_or_resync(self):
        self.begin()
        self.does("replay")
        self.assertTrue(self.does("show", "node")["resync"])
        self.assertEqual(self.lines()["Controllers"].strip(),
                         "6, the library counts 12, replayed since the last creation or resync")
        self.assertNotIn("owed", self.says("show", "node"))
        self.does("resync")
        self.assertEqual(self.lines()["Controllers"].strip(), "6, the library counts 12")

    def test_a_store_that_was_set_aside(self):
        (self.shelf.folder / "state").mkdir()
        (self.shelf.folder / "state" / "checkpoints.db").write_bytes(b"no store at all" * 100)
        self.begin()
        aside = self.does("show", "node")["checkpoints"]["set_aside"]
        line = self.lines()["Set aside"]
        self.assertIn(f"{aside['file']}: was not usable: {aside['reason']}", line)

    def test_the_store_s_last_failure(self):
        self.begin()
        self.does("set", self.first.name, "threshold=7")
        store = self.does("show", "node")["checkpoints"]
        self.assertNotIn("last_failure", store)
        self.assertEqual(self.driver.stop(6), 0)
        with contextlib.closing(sqlite3.connect(store["file"], isolation_level=None)) as database:
            database.execute("UPDATE entries SET checksum = checksum + 1")
        self.begin()
        store = self.does("show", "node")["checkpoints"]
        self.assertGreater(store["failures"], 0)
        self.assertIn(f"{store['failures']} failures, the last: {store['last_failure']}",
                      self.lines()["Checkpoints"])

    def test_a_store_that_cannot_be_used(self):
        blocked = self.shelf.folder / "state" / "checkpoints.db"
        blocked.mkdir(parents=True)
        self.begin()
        store = self.does("show", "node")["store"]
        self.assertFalse(store["usable"])
        self.assertIn("Is a directory", store["reason"])
        self.assertIn(store["reason"], self.lines()["Store"])
        self.assertIn(store["reason"], self.says("show", "ports"))
        self.assertIn(store["reason"], self.says("show", "port", self.first.name))
        self.assertEqual(self.port(self.first)["store"]["reason"], store["reason"])
        self.assertIsNone(self.port(self.first)["checkpoint"]["id"])
        self.assertIn("lum_store_usable 0", self.metrics())
        said = self.fails(1, "set", self.first.name, "threshold=7")
        self.assertIn("not saved", said)
        self.assertIn(store["reason"], said)

        blocked.rmdir()
        self.assertTrue(self.driver.wait_for(
            lambda _: self.does("show", "node")["store"]["usable"], 30))
        self.does("set", self.first.name, "threshold=8")
        self.assertEqual(self.port(self.first)["store"]["troubles"], [])
        self.assertIn("lum_store_usable 1", self.metrics())

    def test_a_store_whose_file_is_taken_away(self):
        self.begin()
        self.does("set", self.first.name, "threshold=7")
        file = self.shelf.folder / "state" / "checkpoints.db"
        taken = file.with_name("taken")
        file.rename(taken)
        self.assertIn("not saved", self.fails(1, "set", self.first.name, "threshold=8"))
        store = self.does("show", "node")["store"]
        self.assertEqual((store["usable"], [one["trouble"] for one in store["records"]]),
                         (False, ["unsaved"]))
        self.assertIn("its file was moved or removed", store["reason"])
        taken.rename(file)
        self.assertTrue(self.driver.wait_for(
            lambda _: self.does("show", "node")["store"]["usable"], 30))
        self.does("set", self.first.name, "threshold=9")
        file.unlink()
        self.assertTrue(self.driver.wait_for(
            lambda _: not self.does("show", "node")["store"]["usable"], 30))

    def test_settings_that_a_store_took_along_when_it_was_set_aside(self):
        self.begin()
        self.does("set", self.first.name, "threshold=7")
        self.assertEqual(self.driver.stop(6), 0)
        (self.shelf.folder / "state" / "checkpoints.db").write_bytes(b"no store at all" * 100)
        self.begin()
        [record] = self.does("show", "node")["store"]["records"]
        self.assertEqual((record["port"], record["trouble"]), (self.first.name, "lost"))
        self.assertIn("set aside", record["reason"])

    def limit_files(self, size):
        """The driver's files may have so many bytes from now on; none is without a limit."""
        resource.prlimit(self.driver.process.pid, resource.RLIMIT_FSIZE,
                         (resource.RLIM_INFINITY if size is None else size,
                          resource.RLIM_INFINITY))

    def deletion_fails(self):
        """Why the first port's deletion fails, behind the settings that it was to drop."""
        done = run(LUMCTL, "--socket", self.shelf.socket, "port", "delete", self.first.name)
        self.assertEqual(done.returncode, 1, done.stderr)
        dropped, said = done.stderr.splitlines()
        self.assertIn(f"the deletion drops the settings of {self.first.name}:0", dropped)
        return said

    def test_a_deletion_that_a_full_disk_refuses(self):
        self.begin()
        self.does("set", self.first.name, "threshold=7")
        self.limit_files(1024)
        said = self.deletion_fails()
        self.assertIn(f"the settings of port {self.first.name} are still in the store", said)
        [trouble] = self.port(self.first)["store"]["troubles"]
        self.assertEqual(trouble["trouble"], "undeleted")
        self.assertFalse(self.port(self.first)["store"]["usable"])
        self.assertIn(f"{self.first.name}: not deleted: {trouble['reason']}",
                      self.lines()["Settings"])
        self.assertIn(trouble["reason"], self.says("show", "port", self.first.name))
        self.assertIn('lum_store_records{trouble="undeleted"} 1', self.metrics())

        self.limit_files(None)
        self.assertTrue(self.driver.wait_for(
            lambda _: not self.does("show", "node")["store"]["records"], 30))
        self.does("port", "create", "1")
        self.assertEqual(
            self.port(self.first)["sub_ports"][0]["configuration"]["threshold"], None)

    def test_settings_of_a_deletion_that_could_not_be_noted(self):
        self.begin()
        self.does("set", self.first.name, "threshold=7")
        self.limit_files(0)
        said = self.deletion_fails()
        self.assertIn("its settings come back", said)
        self.driver.process.kill()
        self.driver.process.wait()
        self.begin()
        self.assertIn("the settings come back", self.driver.log.read_text())
        self.assertEqual(
            self.port(self.first)["sub_ports"][0]["configuration"]["threshold"], 7)

    def test_settings_that_were_lost(self):
        self.begin()
        self.does("set", self.first.name, "threshold=7")
        file = self.does("show", "node")["checkpoints"]["file"]
        self.assertEqual(self.driver.stop(6), 0)
        with contextlib.closing(sqlite3.connect(file, isolation_level=None)) as database:
            database.execute("UPDATE entries SET checksum = checksum + 1")
        self.begin()
        [record] = self.does("show", "node")["store"]["records"]
        self.assertEqual((record["port"], record["trouble"]), (self.first.name, "lost"))
        self.assertIn(f"{self.first.name}: lost: {record['reason']}", self.lines()["Settings"])
        self.assertIn(record["reason"], self.says("show", "port", self.first.name))
        self.assertIn('lum_store_records{trouble="lost"} 1', self.metrics())
        self.assertIn(record["reason"], self.driver.log.read_text())

    def metrics(self):
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(10)
            connection.connect(str(self.shelf.socket))
            connection.sendall(b"GET /metrics HTTP/1.0\r\n\r\n")
            return b"".join(iter(lambda: connection.recv(65536), b"")).decode()

    def test_trace_lines_that_could_not_be_written(self):
        self.begin()
        longest = self.shelf.folder / "traces" / "lum_info.log"
        limit = longest.stat().st_size
        resource.prlimit(self.driver.process.pid, resource.RLIMIT_FSIZE, (limit, limit))
        self.does("port", "update", self.first.name, "up")
        failing = [channel for channel in self.does("show", "node")["traces"]
                   if channel["failures"] > 0]
        self.assertEqual([channel["name"] for channel in failing], ["lum_info"])
        self.assertRegex(self.says("show", "node"),
                         r"lum_info\.log: \d+ lines?, [1-9]\d* could not be written, "
                         r"it cannot be written now: ")

    def trace(self, name):
        return next(channel for channel in self.does("show", "node")["traces"]
                    if channel["name"] == name)

    def wait_for_trace(self, name, condition):
        """Has lines traced until what is shown of the channel is so."""
        for _ in range(100):
            self.does("port", "update", self.first.name, "up")
            channel = self.trace(name)
            if condition(channel):
                return channel
            time.sleep(0.1)
        self.fail(channel)

    def test_a_trace_file_that_cannot_be_had_is_shown_and_comes_back(self):
        blocked = self.shelf.folder / "traces" / "lum_info.log"
        blocked.mkdir(parents=True)
        self.begin()
        self.assertEqual([channel["name"] for channel in self.does("show", "node")["traces"]],
                         ["lum_error", "lum_info", "lum_debug", "lum_periodic"])
        reason = self.trace("lum_info")["reason"]
        self.assertIn("Is a directory", reason)
        self.assertIn(f"could not be written, it cannot be written now: {reason}\n",
                      self.says("show", "node"))
        self.assertIn('lum_trace_usable{channel="lum_info"} 0', self.metrics())
        self.assertIn('lum_trace_usable{channel="lum_debug"} 1', self.metrics())
        blocked.rmdir()
        self.wait_for_trace("lum_info", lambda channel: channel["reason"] is None)
        self.assertIn('lum_trace_usable{channel="lum_info"} 1', self.metrics())
        self.assertGreater(blocked.stat().st_size, 0)

    def test_a_trace_file_that_was_taken_away_is_made_again(self):
        self.begin()
        taken = self.shelf.folder / "traces" / "lum_info.log"
        taken.unlink()
        self.wait_for_trace("lum_info", lambda _: taken.exists())
        self.assertGreater(taken.stat().st_size, 0)


class Count(Actions):
    """The library polls nothing while its count of controllers, of 8 bits, is 0."""

    BEGUN = "the library counts no controllers although there are"
    ENDED = "modules are polled again"

    def gauge(self):
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(10)
            connection.connect(str(self.shelf.socket))
            connection.sendall(b"GET /metrics HTTP/1.0\r\n\r\n")
            answer = b"".join(iter(lambda: connection.recv(65536), b"")).decode()
        return float(next(line.split()[1] for line in answer.splitlines()
                          if line.startswith("lum_polling_halted ")))

    def assert_halted(self, halted):
        """Waits until the node says so, and looks at every place that tells of it."""
        for _ in range(100):
            node = self.does("show", "node")
            if node["polling_halted"] == halted:
                break
            time.sleep(0.1)
        self.assertEqual(node["polling_halted"], halted)
        self.assertEqual(node["controllers"] == 0, halted)
        self.assertEqual(self.gauge(), halted)
        self.assertEqual("Polling:" in self.says("show", "node"), halted)

    def said(self):
        log = self.driver.log.read_text()
        return log.count(self.BEGUN), log.count(self.ENDED)

    def cycles(self):
        return self.does("watch", "--count", "1")["polling"]["cycles"]

    def test_repeated_deletions_are_counted_again(self):
        self.begin()
        self.assert_halted(False)
        self.does("im", "drop", "3")
        for _ in range(3):
            self.fails(1, "port", "delete", self.first.name)
        self.assert_halted(True)
        self.assertEqual(self.said(), (1, 0))
        self.does("replay")
        self.assert_halted(False)
        self.assertEqual(self.said(), (1, 1))
        before = self.cycles()
        self.assertIsNotNone(self.driver.wait_for(lambda _: self.cycles() > before, 15))

    def test_every_replay_is_counted(self):
        self.add_module("iivi-old-map", slot=2)
        self.begin()
        for _ in range(31):
            self.does("replay")
        self.assert_halted(True)
        self.does("replay")
        self.assert_halted(False)
        self.assertEqual(self.said(), (1, 1))

    def test_ports_that_go_are_not_missed(self):
        self.begin()
        self.does("im", "hold", "on")
        self.does("port", "delete", "--slot", "1", "--wait", "0")
        self.fails(1, "port", "delete", "--slot", "2", "--wait", "3")
        node = self.does("show", "node")
        self.assertEqual((node["controllers"], node["controllers_existing"]), (0, 6))
        self.assertEqual((node["polling_halted"], self.said()), (False, (0, 0)))
        self.does("im", "behave")
