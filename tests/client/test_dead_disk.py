"""A state directory on a disk that never answers: the node runs, and every view says that nothing
is kept."""

import time

from actions import Actions
from support import BUILD, Driver, QUICK


class DeadDisk(Actions):
    """Driver, traces and socket have their folder on it."""

    def setUp(self):
        super().setUp()
        self.state = self.shelf.folder / "state"
        self.runtime = self.shelf.folder / "runtime"
        self.runtime.mkdir()
        self.marker = self.shelf.folder / "state.hangs"

    def start_driver(self):
        self.shelf.write_description()
        text = self.shelf.description.read_text().replace('"traces"', '"state/traces"')
        self.assertIn("state/traces", text)
        self.shelf.description.write_text(text)
        self.driver = Driver(BUILD, self.shelf, (), QUICK)
        self.driver.environment["RUNTIME_DIRECTORY"] = str(self.runtime)
        self.driver.environment["LUM_TEST_DEAD_DISK"] = str(self.state)
        self.driver.__enter__()
        self.addCleanup(self.driver.kill)

    def begin(self):
        self.start_driver()
        self.wait_for_state(self.first, "up", 40)

    def begin_without_disk(self):
        self.marker.touch()
        self.shelf.socket = self.runtime / "lumd.sock"
        self.begin()

    def threshold(self):
        return self.port(self.first)["sub_ports"][0]["configuration"]["threshold"]

    def test_every_view_says_that_nothing_is_kept(self):
        self.begin_without_disk()
        store = self.does("show", "node")["store"]
        self.assertEqual((store["usable"], store["readable"]), (False, False))
        self.assertIn(f"the disk of {self.state} does not answer", store["reason"])
        for shown in (("show", "node"), ("show", "ports"), ("show", "port", self.first.name)):
            self.assertIn(store["reason"], self.says(*shown))
        self.assertIn("in force but not saved",
                      self.fails(1, "set", self.first.name, "threshold=8"))
        self.assertEqual(self.threshold(), 8)
        self.does("module", "remove", self.first.name)
        self.wait_for_state(self.first, "empty")
        self.assertEqual(self.driver.stop(5), 0)

    def test_it_is_stopped_in_time_also_while_it_starts(self):
        self.marker.touch()
        self.shelf.socket = self.runtime / "lumd.sock"
        self.start_driver()
        time.sleep(0.5)
        self.assertIsNotNone(self.driver.stop(5))

    def test_settings_come_back_once_it_answers(self):
        self.begin()
        self.does("set", self.first.name, "threshold=7")
        self.does("set", self.other.name, "threshold=6")
        self.assertEqual(self.driver.stop(6), 0)
        socket = self.shelf.socket
        self.begin_without_disk()
        self.assertNotEqual(self.threshold(), 7)
        self.marker.unlink()
        self.assertTrue(self.driver.wait_for(
            lambda _: self.does("show", "node")["store"]["usable"], 30))
        records = self.does("show", "node")["store"]["records"]
        self.assertEqual({one["trouble"] for one in records}, {"unread"})
        self.assertEqual(self.driver.stop(6), 0)
        self.shelf.socket = socket
        self.begin()
        self.assertEqual(self.threshold(), 7)

    def test_of_one_file_it_is_the_same(self):
        """The folder answers, and whoever opens the store hangs."""
        self.start_driver()
        self.wait_for_state(self.first, "up", 40)
        self.assertEqual(self.driver.stop(6), 0)
        marker = self.state / "checkpoints.db.hangs"
        marker.touch()
        self.start_driver()
        self.wait_for_state(self.first, "up", 40)
        self.assertIn("does not answer", self.does("show", "node")["store"]["reason"])
        marker.unlink()
        self.assertTrue(self.driver.wait_for(
            lambda _: self.does("show", "node")["store"]["usable"], 30))
