"""What was never set, what a test has changed, what hangs and what was swapped is told as that."""

import datetime
import os
import re
import threading
import time

import stalls
import support
from actions import Actions
from monitored import Monitored
from shelf import cages
from support import BUILD, EXAMPLES, LUMCTL, run


class NeverSet(Actions):
    def configuration(self, cage, sub_port=0):
        return self.port(cage)["sub_ports"][sub_port]["configuration"]

    def test_settings_that_nobody_made_are_not_0(self):
        self.begin()
        for cage in (self.first, self.other):
            for sub_port in (0, 1):
                shown = self.configuration(cage, sub_port)
                self.assertEqual({shown[name] for name in (
                    "threshold", "p2_setting", "mode", "setting_a", "setting_b", "enable", "sub1")},
                    {None})
        self.assertIn("never set: threshold, p2-setting, mode,",
                      self.says("show", "port", self.first.name))

    def test_what_goes_along_with_a_setting_is_in_force(self):
        self.begin()
        said = self.says("set", self.first.name, "setting-a=7", "threshold=-3")
        self.assertIn("setting-b never set -> 0 (comes along)", said)
        self.assertIn("threshold -3, setting-a 7, setting-b 0, enable 0, sub1 0; "
                      "never set: p2-setting, mode",
                      " ".join(self.says("show", "port", f"{self.first.name}:0").split()))
        shown = self.configuration(self.first)
        self.assertEqual((shown["setting_b"], shown["mode"]), (0, None))
        self.assertIsNone(self.configuration(self.first, 1)["setting_b"], "the other's own")

    def test_settings_that_cannot_be_read_are_not_never_set(self):
        self.begin()
        self.does("set", self.first.name, "threshold=7")
        self.driver.kill()
        store = self.shelf.folder / "state" / "checkpoints.db"
        for file in store.parent.glob("checkpoints.db*"):
            file.unlink()
        store.mkdir()
        self.begin()
        shown = self.configuration(self.first)
        self.assertEqual((shown["threshold"], shown["changed_known"]), (None, False))
        said = self.says("show", "port", self.first.name)
        self.assertIn("not known: threshold", said)
        self.assertNotIn("never set", said)
        node = self.says("show", "node")
        self.assertIn("entries not known", node)
        self.assertNotIn("0 entries", node)


class Tests(Monitored):
    """What a test forces or adds is marked wherever it is shown."""

    def metrics(self):
        connection = support.UnixConnection(self.shelf.socket)
        connection.request("GET", "/metrics")
        text = connection.getresponse().read().decode()
        connection.close()
        return text

    def pm(self, sub_port=0):
        return self.port(self.first)["sub_ports"][sub_port]["pm"]

    def injected(self, kind):
        return (f'lum_injected{{kind="{kind}",port="{self.first.name}",sub_port="0"}} 1'
                in self.metrics())

    def test_forced_alarms(self):
        self.begin()
        self.assertEqual(self.pm()["injected"], [])
        self.assertFalse(self.injected("alarms"))
        self.does("inject", "alarm", f"{self.first.name}:0", "flag-13", "on")
        self.assertEqual((self.pm()["raised"], self.pm()["injected"]), (["flag-13"], ["flag-13"]))
        self.assertEqual(self.pm(1)["injected"], [])
        self.assertTrue(self.injected("alarms"))
        self.assertFalse(self.injected("readings"))
        self.assertIn("flag-13 (injected by a test)", self.says("show", "port", self.first.name))
        checked = run(LUMCTL, "--socket", self.shelf.socket, "check", "--all")
        self.assertIn("flag-13 (injected by a test)", checked.stdout)
        self.assertNotRegex(self.says("show", "port", self.alarmed.name), "flag-10 .*injected")

    def test_a_forced_alarm_stays_marked_for_as_long_as_it_is_shown(self):
        self.begin()
        name = f"{self.first.name}:0"
        self.does("inject", "alarm", name, "flag-13", "on")
        self.driver.hold_polling()
        self.does("replay")
        self.does("inject", "alarm", name, "flag-13", "off")
        self.assertEqual((self.pm()["raised"], self.pm()["injected"]), (["flag-13"], ["flag-13"]))
        self.assertIn("flag-13*", self.says("show", "alarms"))

    def test_raised_readings(self):
        self.begin()
        self.assertFalse(self.pm()["tested"])
        self.does("inject", "readings", f"{self.first.name}:0", "power-1", "on")
        self.assertTrue(self.pm()["tested"])
        self.assertEqual(self.pm()["power_1"]["microwatt"], 5128.6)
        self.assertTrue(self.injected("readings"))
        self.assertFalse(self.pm(1)["tested"])

    def test_nothing_old_is_stored_for_a_test(self):
        self.begin()
        self.driver.pause.touch()
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: not self.driver.get("/v1/polling")["running"], 10))
        time.sleep(1.5)  # what was polled is fed
        before = self.does("show", "pm", self.first.name)["interfaces"][0]
        told = run(LUMCTL, "--socket", self.shelf.socket, "inject", "readings",
                   f"{self.first.name}:0", "power-1", "on")
        self.assertIn("polled again: polling is switched off", told.stdout + told.stderr)
        after = self.does("show", "pm", self.first.name)["interfaces"][0]
        self.assertEqual(after["bins"][0]["samples"], before["bins"][0]["samples"])
        self.assertGreaterEqual(after["age_s"], before["age_s"])

    def test_what_is_kept_is_as_old_as_its_poll(self):
        self.begin()
        self.driver.hold_polling()
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: not self.driver.get("/v1/polling")["running"], 10))
        time.sleep(1.5)
        self.does("inject", "readings", f"{self.first.name}:0", "power-1", "on")
        port = self.port(self.first)
        self.assertGreaterEqual(port["sub_ports"][0]["pm"]["age_s"] + 0.002,
                                port["sub_ports"][0]["readings_age_s"])


class Names(Monitored):
    def test_a_reading_has_one_name_everywhere(self):
        self.begin()
        names = [one["name"] for one in self.port(self.first)["sub_ports"][0]["readings"]]
        self.assertEqual(names, ["power-0", "power-1", "power-2", "reading-3", "reading-4"])
        said = self.says("show", "port", self.first.name)
        connection = support.UnixConnection(self.shelf.socket)
        connection.request("GET", "/metrics")
        page = connection.getresponse().read().decode()
        connection.close()
        for name in names:
            self.assertRegex(said, rf"\n  {name} +-?[0-9]")
            self.assertIn(f'reading="{name}"', page)
        self.assertNotRegex(page, 'reading="[0-9]')


class Swaps(support.ShelfTest):
    """A module that takes another's place: no answer has what one says beside what the other is."""

    def setUp(self):
        super().setUp()
        self.cage = self.add_file()
        self.kinds = [self.shelf.folder / f"{number}.toml" for number in (0, 1)]
        text = (EXAMPLES / "iivi-new-map.toml").read_text()
        for kind, serial, celsius in zip(self.kinds, ("SERIAL-A", "SERIAL-B"), (20.0, 60.0)):
            text = re.sub("(?m)^serial = .*$", f'serial = "{serial}"', text)
            kind.write_text(re.sub("(?m)^temperature(_c)? = .*$",
                                   lambda found: f"temperature{found[1] or ''} = {celsius}", text))
        self.put(0)

    def put(self, which):
        other = self.cage.module.with_suffix(".new")
        cages.make_image(BUILD / "lum-module-image", self.kinds[which], other)
        os.replace(other, self.cage.module)

    def pairs(self, seconds):
        """What is said of the module within a time: serial and temperature."""
        seen = set()
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            port = self.driver.ports()[self.cage.name]
            seen.add((port["vendor"]["serial"], port["temperature_c"]))
        return seen

    def test_between_a_look_and_a_poll(self):
        self.start(held=True)
        self.driver.poll_once()
        true = {("SERIAL-A", 20.0), ("SERIAL-B", 60.0), ("SERIAL-A", None), ("SERIAL-B", None),
                ("", None)}
        for which in (1, 0, 1):
            time.sleep(1.7)  # polling has come to where it is held
            self.put(which)
            self.driver.go_on_polling()  # the next poll is now, and the next look within a second
            seen = self.pairs(0.3)
            self.driver.hold_polling()
            seen |= self.pairs(1.5)
            self.assertLessEqual(seen, true)
            self.driver.poll_once()
            self.assertEqual(self.pairs(0.1), {(("SERIAL-A", 20.0), ("SERIAL-B", 60.0))[which]})


class Identities(Actions):
    def test_one_that_could_not_be_read_is_read_again(self):
        """Which memory map the module has, and so where its status is, is not known meanwhile."""
        self.begin()
        self.does("module", "remove", self.first.name)
        self.wait_for_state(self.first, "empty")
        self.driver.hold_polling()
        self.does("module", "fault", self.first.name, "refuse-every=1,code=121")
        self.does("module", "insert", self.first.name)
        self.wait_for_state(self.first, "failing")
        time.sleep(1.5)  # its identity has been asked for
        shown = self.port(self.first)
        self.assertEqual((shown["vendor"]["serial"], shown["new_memmap"]), ("", None))
        self.does("module", "fault", self.first.name, "none")
        self.driver.go_on_polling()
        ports = self.driver.wait_for(
            lambda now: now[self.first.name]["vendor"]["serial"] != ""
            and now[self.first.name]["temperature_c"] is not None, 15)
        self.assertIsNotNone(ports)
        self.assertTrue(ports[self.first.name]["new_memmap"])
        self.assertEqual(ports[self.first.name]["sub_ports"][0]["status"], [1, 1, 2])


class Leds(Actions):
    """The file of an LED that does not answer holds up nobody else."""

    PRELOADED = (support.CLOCK, stalls.STALLS)

    def test_one_that_hangs(self):
        self.begin()
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: all(now[cage.name]["led"]["name"] == "normal"
                            for cage in (self.first, self.second)), 20))
        file = self.shelf.folder / "leds" / f"{self.first.led}:green:status" / "brightness"
        marker = stalls.marker_of(file, "pread")
        marker.touch()
        self.addCleanup(lambda: marker.exists() and marker.unlink())
        shown = self.driver.wait_for(
            lambda now: "problem" in now[self.first.name]["led"], 15)
        self.assertIsNotNone(shown, "and the views are there")
        self.assertIsNone(shown[self.first.name]["led"]["name"])
        self.assertIn("timed out", shown[self.first.name]["led"]["problem"])
        self.assertIn("timed out", self.says("show", "node"))
        other = self.shelf.folder / "leds" / f"{self.second.led}:green:status" / "brightness"
        other.write_text("0\n")
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: now[self.second.name]["led"]["name"] == "off", 10), "others are looked at")
        marker.unlink()
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: "problem" not in now[self.first.name]["led"], 15))

    def test_one_that_is_lost_is_told_at_once(self):
        self.begin()
        self.wait_for_state(self.first, "up")
        self.driver.hold_polling()
        led = self.shelf.folder / "leds" / f"{self.first.led}:red:fault" / "brightness"
        led.unlink()
        said = f"port {self.first.name}: led-broken: the LED {led.parent} cannot be"
        for _ in range(100):  # nobody asks the driver meanwhile
            if said in self.driver.log.read_text():
                break
            time.sleep(0.1)
        self.assertIn(said, self.driver.log.read_text())


class Traces(Actions):
    def test_why_a_trace_cannot_be_written_is_said_at_the_start(self):
        blocked = self.shelf.folder / "traces" / "lum_info.log"
        blocked.mkdir(parents=True)
        self.begin()
        self.assertRegex(self.driver.log.read_text(),
                         f"<4>lumd: trace-lost: {blocked}: .*Is a directory\n")


class Clocks(Actions):
    def test_when_the_driver_started_is_told_by_the_clock_of_now(self):
        (self.shelf.folder / "yesterday").touch()
        self.begin()
        (self.shelf.folder / "yesterday").unlink()
        started = datetime.datetime.fromisoformat(self.does("show", "node")["started"])
        now = datetime.datetime.now(datetime.timezone.utc)
        self.assertLess(abs(now - started), datetime.timedelta(hours=1))


class Updates(Actions):
    def test_settings_that_do_not_reach_the_module_are_told(self):
        self.begin()
        self.assertIsNone(self.does("port", "update", self.first.name, "up")["module_written"])
        self.does("set", self.first.name, "threshold=3")
        self.assertTrue(self.does("port", "update", self.first.name, "up")["module_written"])
        self.assertIsNone(self.does("port", "update", self.first.name, "down")["module_written"])
        self.does("module", "fault", self.first.name, "refuse-every=1,code=121,only=writes")
        self.assertIn("not all of the settings have reached the module",
                      self.says("port", "update", self.first.name, "up"))


    def test_what_a_controller_was_told_is_shown_and_nothing_before(self):
        self.begin()

        def told():
            return [sub["told"] for sub in self.port(self.first)["sub_ports"]]

        self.assertEqual(told(), [None, None])
        self.assertIsNone(self.does("show", "controllers")["controllers"][0]["state"])
        for state in ("down", "up"):
            self.does("port", "update", self.first.name, state)
            self.assertEqual(told(), [state, state])
            self.assertIn(f"last told {state}\n", self.says("show", "port", self.first.name))
            self.assertRegex(self.says("show", "controllers"), f"Ots0_1_0_1_0 .* {state} ")


class Transfers(Actions):
    def test_nothing_took_no_time(self):
        empty = self.add_empty(slot=3)
        self.start("rack = 3")
        name = empty.name.replace("0/", "3/", 1)
        self.assertIsNone(self.does("show", "module", name)["module"]["last_transfer_us"])
        self.assertIn("the last transfer took - us", self.says("show", "module", name))


class Buses(Actions):
    def test_what_is_no_bus_has_no_module(self):
        missing = self.add_empty(slot=3)
        bus = self.shelf.folder / "no-bus"
        bus.write_text("bytes of nobody's")
        self.start(edit=lambda text: text.replace(
            'backend = "file"\nmodule = "modules/nothing.eeprom"',
            f'backend = "i2c-dev"\nbus = "{bus}"\naddress = 0x50'))
        port = self.wait_for_state(missing, "failing")
        self.assertEqual(port["reason"], f"{bus} is no I2C bus")
        self.assertIsNone(port["module"]["present"])
        self.assertNotIn("no module", self.says("show", "port", missing.name))
        self.assertEqual(bus.read_text(), "bytes of nobody's")


class Waits(Actions):
    def test_an_action_that_waits_says_for_whose_module(self):
        self.begin()
        self.does("module", "fault", self.second.name, "hang")
        said = {}
        port = self.driver.wait_for(lambda now: now[self.second.name]["state"] == "failing", 30)
        self.assertIsNotNone(port)
        done = run(LUMCTL, "--socket", self.shelf.socket, "set", self.second.name, "mode=3")
        said = done.stdout + done.stderr
        self.assertRegex(said, f"has not ended: that of port {self.second.name} [(][0-9]+ s[)]")
        self.assertIn("a transfer with its module does not end",
                      self.fails(1, "module", "poke", self.second.name, "0", "14", "3"))
        self.does("module", "release", self.second.name)

    def test_a_poll_that_waited_for_its_port_is_as_old_as_it_is(self):
        """Also the last one of a cycle, behind which nothing is polled for a while."""
        self.begin()
        last = self.other
        self.driver.hold_polling()
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: not self.driver.get("/v1/polling")["running"], 10))
        time.sleep(1.7)  # polling has come to where it is held
        self.does("module", "poke", last.name, "0", "14", "50")
        begun = time.monotonic()
        self.does("module", "fault", last.name, "delay-ms=300,only=writes")
        setting = threading.Thread(target=run, args=(
            LUMCTL, "--socket", self.shelf.socket, "set", last.name, "threshold=3", "mode=3",
            "setting-a=3"))
        setting.start()
        time.sleep(0.2)
        self.driver.go_on_polling()
        time.sleep(0.2)
        self.driver.hold_polling()
        setting.join()
        ports = self.driver.wait_for(lambda now: now[last.name]["temperature_c"] is not None
                                     and now[last.name]["temperature_c"] > 49, 10)
        self.assertIsNotNone(ports)
        time.sleep(0.5)
        age = self.port(last)["dom"]["last_poll_age_s"]
        self.assertLess(age, time.monotonic() - begun)


class Offers(Actions):
    def test_the_slots_of_the_node_are_offered(self):
        self.begin()
        for words in (("port", "create", ""), ("port", "delete", "--slot", "")):
            offered = run(LUMCTL, "__complete", "--", *words, LUMD_SOCKET=str(self.shelf.socket))
            self.assertEqual([word for word in offered.stdout.split()
                              if not word.startswith("-")], ["1", "2"], words)
