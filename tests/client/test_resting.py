"""A node to which nothing happens: who wakes, and what still shows without waiting for a cycle."""

import pathlib
import time

from actions import Actions
from support import REAL

# They answer this test.
OTHERS = ("lumd", "lumd-http", "lumd-action")
# Of a cycle: the polling thread, the look behind it with the thread that reads the LEDs, the keepers
# of the stores; and as many for whoever meets a lock. Looking each second takes twice that.
MOST_WAKEUPS = 10
CYCLES = 3
TRIES = 4


class Resting(Actions):
    def begin(self):
        self.start(second_ms=REAL)
        for cage in (self.first, self.second, self.other):
            self.wait_for_state(cage, "up")

    def slept(self):
        """By thread, its name and how often it has slept."""
        found = {}
        for folder in (pathlib.Path("/proc") / str(self.driver.process.pid) / "task").iterdir():
            try:
                lines = (folder / "status").read_text().splitlines()
            except OSError:
                continue  # it has just ended
            fields = dict(line.split(":", 1) for line in lines)
            name = fields["Name"].strip()
            if name not in OTHERS:
                found[folder.name] = name, int(fields["voluntary_ctxt_switches"])
        return found

    def cycles(self):
        return self.driver.get("/v1/polling")["cycles"]

    def wait_for_cycles(self, number):
        """Until so many have ended, asking seldom."""
        while self.cycles() < number:
            time.sleep(0.5)

    def woken_in_some_cycles(self):
        """How often each thread has, by its name."""
        begun = self.cycles() + 1
        self.wait_for_cycles(begun)
        before = self.slept()
        self.wait_for_cycles(begun + CYCLES)
        woken = {}
        for thread, (name, count) in self.slept().items():
            woken[name] = woken.get(name, 0) + count - before.get(thread, (name, 0))[1]
        return woken

    def test_a_node_without_anything_to_tell_wakes_a_few_times_a_cycle(self):
        self.begin()
        self.wait_for_cycles(self.cycles() + 4)  # what follows a start is over then
        # Where others have the processor, polling is late, and late polling is looked after.
        for _ in range(TRIES):
            woken = self.woken_in_some_cycles()
            rests = sum(woken.values()) <= CYCLES * MOST_WAKEUPS and "lum_presence" not in woken
            if rests:
                break
        self.assertIn("lumd-look", woken)
        self.assertTrue(rests, woken)

    def shows_before_the_next_cycle(self, change, kind):
        begun = self.cycles() + 1
        self.wait_for_cycles(begun)
        before = self.kinds().count(kind)
        self.does("module", change, self.first.name)
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.kinds().count(kind) > before, 30))
        return self.cycles() == begun

    def test_what_is_done_to_it_shows_before_the_next_cycle(self):
        self.begin()
        self.wait_for_cycles(self.cycles() + 4)
        for _ in range(TRIES):
            shown = self.shows_before_the_next_cycle("remove", "module-out")
            if shown:
                break
            self.shows_before_the_next_cycle("insert", "module-in")
        self.assertTrue(shown)

    def kinds(self):
        return [one["kind"] for one in self.driver.get("/v1/events")["events"]]
