"""A night in which one thing after the other breaks, and what the morning learns of it."""

import os
import pwd
import shutil
import time

from actions import Actions
from support import LUMCTL, run


class Night(Actions):
    def setUp(self):
        super().setUp()
        self.hangs = self.add_file(slot=2)
        self.flaps = self.add_module("iivi-old-map", slot=3)
        self.lost = self.add_empty(slot=4)

    def events(self):
        return self.driver.get("/v1/events")["events"]

    def happened(self, kind, text, port=None):
        """Waits until the event is told, and keeps it for the morning."""
        def found():
            return [one for one in self.events()
                    if one["number"] > self.last and one["kind"] == kind and text in one["text"]
                    and (port is None or one["port"] == port.name)]
        self.assertIsNotNone(self.driver.wait_for(lambda _: found(), 70),
                             (kind, text, self.events()))
        self.told.append(found()[0])
        self.last = self.told[-1]["number"]

    def test_each_thing_is_told_in_order_and_without_a_flood(self):
        gone = self.shelf.folder / "gone"
        gone.mkdir()
        self.last, self.told = 0, []
        self.start(edit=lambda text: text.replace("modules/nothing", "gone/nothing"))
        self.happened("ports-settled", "6 ports")
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: all(now[cage.name]["temperature_c"] is not None
                            for cage in (self.first, self.second, self.other)), 20))

        user = pwd.getpwuid(os.getuid()).pw_name
        self.does("set", f"{self.second.name}:0", "threshold=12")
        self.happened("setting-changed", f"threshold 12, was never set, by {user}", self.second)
        self.does("module", "remove", self.first.name)
        self.happened("module-out", "the module has gone: ", self.first)
        self.does("inject", "alarm", f"{self.second.name}:1", "flag-10", "on")
        self.happened("alarm-raised", "flag-10", self.second)
        self.does("im", "refuse", "1", "11")
        self.fails(1, "replay")
        self.happened("batch-refused", "1 batch")
        gone.rmdir()
        self.happened("port-state", f"failing, was empty: {gone} cannot be reached", self.lost)
        shutil.rmtree(self.shelf.folder / "leds" / f"{self.second.led}:red:fault")
        self.happened("led-broken", "cannot be", self.second)
        log = self.shelf.folder / "traces" / "lum_info.log"
        log.unlink()
        log.mkdir()
        self.happened("trace-lost", str(log))
        self.does("module", "fault", self.other.name, "refuse-every=1", "code=121")
        self.happened("port-state", "failing, was up: the module's last transfer", self.other)
        for action in ("remove", "insert") * 6:  # a contact that is loose
            self.does("module", action, self.flaps.name)
            time.sleep(1.2)  # cages are compared once a second
        self.driver.pause.touch()
        self.happened("not-polled", "polling is switched off")
        self.driver.pause.unlink()
        self.happened("over", "not-polled")
        self.hang(self.hangs)
        self.happened("port-state", "failing, was up: a transfer has not ended", self.hangs)
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: any("left_out" in one for one in self.events()), 70), self.events())

        self.morning()

    def morning(self):
        shown = self.says("events").splitlines()
        places = [next(i for i, line in enumerate(shown) if one["text"] in line
                       and (one["port"] or "") in line) for one in self.told]
        self.assertEqual(places, sorted(places))
        journal = [line for line in self.driver.log.read_text().splitlines() if line[0] == "<"]
        told = [next(i for i, line in enumerate(journal) if one["text"] in line
                     and (one["port"] or "") in line) for one in self.told]
        self.assertEqual(len(set(told)), len(self.told))
        self.assertLess(len(journal), 60)
        flapped = [line for line in shown if f"{self.flaps.name}: " in line and "module" in line]
        self.assertLessEqual(len(flapped), 6 + 6, flapped)

        check = run(LUMCTL, "--socket", self.shelf.socket, "check", "--all")
        self.assertEqual(check.returncode, 2)
        self.assertRegex(check.stdout, "^LUM CRITICAL - ")
        for kind, place in (("failing", self.other), ("failing", self.hangs),
                            ("place-missing", self.lost), ("led-broken", self.second)):
            self.assertIn(f"port {place.name} {kind}: ", check.stdout)
        self.assertIn("trace-lost: ", check.stdout)
