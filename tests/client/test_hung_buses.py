"""Modules whose bus really hangs, and everything that must go on all the same."""

import threading
import time

from actions import Actions


class HungBuses(Actions):
    def setUp(self):
        super().setUp()
        self.hung = [self.add_file(slot=3) for _ in range(4)]

    def hang_all(self):
        markers = [self.hang(cage) for cage in self.hung]
        self.addCleanup(lambda: [marker.unlink(missing_ok=True) for marker in markers])
        return markers

    def test_from_the_start(self):
        """The node comes up around them, answers, and tells which ones do not."""
        self.hang_all()
        self.start()
        self.wait_for_state(self.first, "up")
        for cage in self.hung:
            port = self.port(cage)
            self.assertIsNone(port["module"]["present"])
            self.assertNotIn("known_age_s", port["module"])

    def test_from_the_start_no_port_waits_for_the_cage_of_another(self):
        """Also not for one of its own slot, nor one of a slot before its own."""
        beside = self.add_file(slot=1)
        marker = self.hang(beside)
        self.addCleanup(lambda: marker.unlink(missing_ok=True))
        self.start()
        for cage in (self.first, self.second, self.other, *self.hung):
            self.wait_for_state(cage, "up")
        self.assertIsNone(self.port(beside)["module"]["present"])

    def test_from_the_start_no_port_waits_for_a_module_that_shows_and_does_not_answer(self):
        hangs = self.add_module("iivi-new-map", slot=1, faults="hang")
        self.start()
        for cage in (self.first, self.second, self.other, *self.hung):
            self.wait_for_state(cage, "up")
        self.does("module", "release", hangs.name)
        self.wait_for_state(hangs, "up")

    def test_while_it_runs(self):
        """Every answer comes from what is known, and says how old that is."""
        self.begin()
        self.wait_for_state(self.hung[0], "up")
        self.hang_all()
        for cage in self.hung:
            self.wait_for_state(cage, "failing")
        for _ in range(3):
            for cage in (*self.hung, self.first):
                self.does("show", "module", cage.name)
                self.port(cage)
            self.does("show", "ports")
        self.assertRegex(self.fails(1, "show", "module", self.hung[0].name, "--page", "0"),
                         "does not answer|does not end")

    def test_the_other_cages_are_watched_on(self):
        self.begin()
        self.hang_all()
        self.does("module", "remove", self.second.name)
        self.wait_for_state(self.second, "empty")
        self.does("module", "insert", self.second.name)
        self.wait_for_state(self.second, "up")

    def test_changes_that_wait_keep_nobody_from_remedies(self):
        """Of one simulated module that hangs: its release and other modules' settings come through."""
        self.begin()
        self.does("module", "fault", self.first.name, "hang")
        self.wait_for_state(self.first, "failing")
        waiting = [threading.Thread(target=self.try_settings) for _ in range(40)]
        for thread in waiting:
            thread.start()
        time.sleep(0.5)
        self.does("set", self.other.name, "threshold=3")
        self.does("module", "release", self.first.name)
        for thread in waiting:
            thread.join()
        self.wait_for_state(self.first, "up")

    def try_settings(self):
        try:
            self.driver.lumctl("set", self.first.name, "threshold=5")
        except RuntimeError:
            pass  # the lane is full, or the change goes on alone: both are told

    def test_a_deletion_that_hangs_leaves_the_other_slots_alone(self):
        self.begin()
        self.does("module", "fault", self.first.name, "hang")
        self.wait_for_state(self.first, "failing")
        hanging = threading.Thread(target=self.try_deletion)
        hanging.start()
        time.sleep(0.5)
        self.does("port", "delete", "--slot", "2")
        self.does("port", "create", "2")
        self.wait_for_state(self.other, "up")
        self.does("module", "release", self.first.name)
        hanging.join()
        self.wait_for_state(self.first, "absent")

    def try_deletion(self):
        try:
            self.driver.lumctl("port", "delete", self.first.name)
        except RuntimeError:
            pass  # it goes on alone
