"""The readings of the last hours, kept over a restart, and performance monitoring that goes on."""

import contextlib
import sqlite3
import struct
import time
import urllib.parse

from monitored import Monitored

READINGS = ["power-0", "power-1", "power-2", "reading-3", "reading-4"]
MINUS_20_DBM = 0xF831
BEYOND = 0x0FFF  # 40.95 dBm, which no module can have measured


class History(Monitored):
    def history(self, name=None):
        port = urllib.parse.quote(name or self.first.name, safe="")
        return self.driver.get(f"/v1/ports/{port}/history")

    def polls(self, name=None):
        return len(self.history(name)["times"])

    def wait_for_polls(self, number):
        self.assertIsNotNone(self.driver.wait_for(lambda _: self.polls() >= number, 30))

    def give_power(self, word):
        """power-0 of the first module's sub-port 0."""
        self.does("module", "poke", self.first.name, "0", "18", str(word >> 8))
        self.does("module", "poke", self.first.name, "0", "19", str(word & 0xFF))

    def rows(self, name="power-0 dBm"):
        said = self.says("show", "history", self.first.name)
        return [line for line in said.splitlines() if line.startswith(name + " ")]

    def stop(self):
        self.driver.process.terminate()
        self.assertEqual(self.driver.process.wait(10), 0)

    def record(self):
        return contextlib.closing(sqlite3.connect(self.shelf.folder / "state" / "records.db",
                                                  isolation_level=None))

    def again(self):
        self.driver.start()
        self.assertIsNotNone(self.driver.wait_for(
            lambda ports: all(port["state"] == "up" for port in ports.values()), 30))

    def test_each_poll_is_a_sample_of_every_reading(self):
        self.begin()
        self.wait_for_polls(2)
        shown = self.history()
        self.assertEqual(shown["port"], self.first.name)
        self.assertEqual([(one["sub_port"], one["name"]) for one in shown["readings"]],
                         [(sub, name) for sub in (0, 1) for name in READINGS])
        self.assertEqual([one["unit"] for one in shown["readings"]],
                         ["dBm", "dBm", "dBm", None, None] * 2)
        times = shown["times"]
        self.assertEqual(times, sorted(set(times)))
        self.assertLessEqual(abs(time.time() - times[-1]), 30)
        self.assertGreaterEqual(times[1] - times[0], 1.4, "as often as polls are")
        now = self.port(self.first)["sub_ports"]
        for one in shown["readings"]:
            self.assertEqual(len(one["values"]), len(times))
            reading = {known["name"]: known for known in now[one["sub_port"]]["readings"]}[one["name"]]
            self.assertEqual(one["values"][-1], reading.get("dbm", reading.get("value")))

    def test_of_a_sub_port(self):
        self.begin()
        shown = self.history(f"{self.first.name}:1")
        self.assertEqual({one["sub_port"] for one in shown["readings"]}, {1})
        self.assertIn('no port "none"', self.fails(1, "show", "history", "none"))

    def test_the_screen(self):
        self.begin()
        self.wait_for_polls(2)
        lines = self.says("show", "history", self.first.name).splitlines()
        self.assertRegex(lines[0], rf"^Port {self.first.name}: \d polls from "
                                   r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d to \d\d:\d\d:\d\d UTC$")
        self.assertRegex(lines[2], r"^sub-port 0  \d\d:\d\d +\d\d:\d\d  LOWEST HIGHEST    LAST$")
        rows = self.rows()
        self.assertEqual(len(rows), 2)
        power = self.port(self.first)["sub_ports"][0]["readings"][0]["dbm"]
        self.assertRegex(rows[0], rf"^power-0 dBm ▅[ ▅]* +{power:.2f} +{power:.2f} +{power:.2f}$")

    def test_what_changes_is_seen(self):
        self.begin()
        self.wait_for_polls(1)
        self.give_power(MINUS_20_DBM)
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.history()["readings"][0]["values"][-1] == -20.0, 20))
        row = self.rows()[0]
        self.assertIn("█", row)
        self.assertIn("▁", row)
        self.assertTrue(row.endswith("  -20.00"), row)

    def test_without_a_poll_nothing_is_known(self):
        bare = self.add_empty(slot=3).name
        self.begin()
        self.assertEqual(self.history(bare)["times"], [])
        self.assertEqual(self.says("show", "history", bare), "nothing is known: no poll of port "
                         f"{bare} in that time has read its module\n")
        self.assertIn("nothing is known", self.says("show", "history", self.first.name,
                                                    "--since", "2999-01-01T00:00:00Z"))
        self.assertEqual(self.does("show", "history", self.first.name, "--since",
                                   "2999-01-01T00:00:00Z")["readings"][0]["values"], [])
        self.assertIn("expected", self.fails(2, "show", "history", self.first.name,
                                             "--since", "soon"))

    def test_while_nothing_is_polled_it_says_so(self):
        self.begin()
        self.wait_for_polls(1)
        self.driver.pause.touch()
        self.assertIsNotNone(self.driver.wait_for(lambda _: self.history()["halt"], 20))
        self.assertIn("No module has been polled for",
                      self.says("show", "history", self.first.name))

    def test_what_was_kept_by_a_clock_ahead_takes_nobodys_place(self):
        self.begin()
        self.wait_for_polls(1)
        self.stop()
        with self.record() as database:
            name, start, numbers = database.execute(
                "SELECT name, start, numbers FROM bins WHERE length=900").fetchone()
            database.executemany(
                "INSERT INTO bins VALUES(?,900,?,1,0,0,?)",
                [(name, start + 900 * (later + 100), numbers) for later in range(40)])
        self.again()
        self.wait_for_polls(self.polls() + 1)
        self.stop()
        with self.record() as database:
            starts = [row[0] for row in database.execute(
                "SELECT start FROM bins WHERE name=? AND length=900 ORDER BY start", (name,))]
        self.assertEqual(starts[0], start)
        self.assertEqual(len(starts), 34, "of those ahead as many are left as of others")

    def test_it_is_kept_over_a_restart(self):
        self.begin()
        self.wait_for_polls(2)
        before = self.history()
        self.stop()
        self.again()
        self.wait_for_polls(len(before["times"]) + 1)
        after = self.history()
        for old, new in zip(before["times"], after["times"]):
            self.assertAlmostEqual(old, new, delta=0.25)
        for old, new in zip(before["readings"], after["readings"]):
            self.assertEqual(new["values"][:len(old["values"])], old["values"])

    def test_monitoring_goes_on_after_a_restart(self):
        self.begin()
        bins = self.does("show", "pm", self.first.name)["interfaces"][0]["bins"]
        self.stop()
        self.again()
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.bins()[1]["samples"] > bins[1]["samples"], 20))
        now = self.bins()
        self.assertEqual(now[1]["start"], bins[1]["start"])
        self.assertTrue(now[1]["partial"])
        self.stop()
        with self.record() as database:
            (names,) = database.execute("SELECT count(DISTINCT name) FROM bins").fetchone()
        self.assertEqual(names, 8)

    def bins(self):
        return self.does("show", "pm", self.first.name)["interfaces"][0]["bins"]

    def test_a_port_that_was_deleted_begins_anew(self):
        self.begin()
        self.does("port", "delete", self.first.name)
        self.stop()
        with self.record() as database:
            (names,) = database.execute("SELECT count(DISTINCT name) FROM bins").fetchone()
        self.assertEqual(names, 6)

    def test_a_record_that_nobody_can_have_written_does_no_harm(self):
        self.begin()
        self.wait_for_polls(1)
        self.stop()
        with self.record() as database:
            (rsip,) = database.execute("SELECT min(rsip) FROM samples").fetchone()
            database.execute("DELETE FROM samples")
            now = int(time.time() * 1000)
            word = struct.pack("=I10H", 0, *range(10))
            for begun, blob in ((now + 3600_000, word), (now - 5 * 3600_000, word), (-1, word),
                                (now - 1000, word[:-1]), (now - 2000, b""), (2**62, word)):
                database.execute("INSERT INTO samples VALUES(?,?,?)", (rsip, begun, blob))
            database.execute("INSERT INTO samples VALUES(?,?,?)", (2**40, "soon", "text"))
            database.execute("UPDATE bins SET numbers=x'00', samples=-1, length='long'")
        self.again()
        self.wait_for_polls(1)
        self.assertLess(time.time() - self.history()["times"][0], 30)
        self.assertLessEqual(self.bins()[1]["samples"], 10)

    def test_a_record_of_before_there_was_history_goes_on(self):
        self.begin()
        self.wait_for_polls(1)
        events = self.driver.get("/v1/events")["events"]
        self.stop()
        with self.record() as database:
            database.executescript(
                "DROP TABLE samples; DROP TABLE bins; PRAGMA user_version=1;")
        self.again()
        self.wait_for_polls(1)
        self.assertEqual(self.driver.get("/v1/events")["events"][:len(events)], events)
        self.stop()
        with self.record() as database:
            (samples,) = database.execute("SELECT count(*) FROM samples").fetchone()
        self.assertGreater(samples, 0)

    def test_what_no_module_can_have_measured_is_left_out(self):
        self.begin()
        self.wait_for_polls(1)
        self.give_power(BEYOND)
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.history()["readings"][0]["values"][-1] is None, 20))
        said = self.says("show", "history", f"{self.first.name}:0")
        self.assertRegex(said, r"sub-port 0: \d readings? of power-0 left out, which no module can "
                               "have measured")
        self.assertTrue(self.rows()[0].endswith("       -"), "the last is not known")
