"""The node as it is shown, when all is well and when something is not."""

import contextlib
import os
import sqlite3

from actions import Actions


class Node(Actions):
    def lines(self):
        """What is shown of the node, by the title of each line; of several the last."""
        return dict(line.split(":", 1) for line in self.says("show", "node").splitlines())

    def test_nothing_is_told_of_what_has_not_happened(self):
        self.begin()
        self.assertEqual(self.lines()["Controllers"].strip(), "6")
        shown = self.says("show", "node")
        for word in ("replayed", "could not be written", "Set aside", "the last"):
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

    def test_trace_lines_that_could_not_be_written(self):
        traces = self.shelf.folder / "traces"
        traces.mkdir()
        os.symlink("/dev/full", traces / "lum_info.log")
        self.begin()
        failing = [channel for channel in self.does("show", "node")["traces"]
                   if channel["failures"] > 0]
        self.assertEqual([channel["name"] for channel in failing], ["lum_info"])
        self.assertRegex(self.says("show", "node"),
                         r"lum_info\.log: \d+ lines, [1-9]\d* could not be written\n")
