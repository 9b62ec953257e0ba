"""What is shown is known, or said not to be known."""

import time

from actions import Actions
from monitored import Monitored
from support import LUMCTL, run


class Answers(Actions):
    """Whatever the interface manager does with a request, its cause is told."""

    causes = (
        (("im", "refuse", "1", "11"), "the interface manager refused the {}: .+ \\(11\\)"),
        (("im", "drop", "1"), "the interface manager dropped the {}: it will not be answered"),
        (("im", "fail-next", "1", "5"), "the interface manager failed the {}: .+ \\(5\\)"),
        (("im", "fail-name", "Ots0_1_0_2_1", "28"),
         "the interface manager failed the {} of Ots0_1_0_2_1: .+ \\(28\\)"),
        (("im", "hold", "on"), "the interface manager has not answered the {} within 1 s"),
    )

    def meets(self, what, *command):
        for fault, said in self.causes:
            with self.subTest(fault=fault):
                self.does(*fault)
                self.assertRegex(self.fails(1, *command, "--wait", "1"), said.format(what))
                self.does("im", "behave")
                self.does("replay")

    def test_to_a_replay(self):
        self.begin()
        self.meets("replay", "replay")
        self.does("im", "empty", "1")
        self.assertIn("answered the replay for no controller", self.fails(1, "replay"))

    def test_a_replay_counts_what_was_confirmed_to_it_alone(self):
        self.begin()
        for fault in (("hold", "on"), ("drop", "1"), ("fail-name", "Ots0_2_0_1_0", "5")):
            with self.subTest(fault=fault):
                self.does("im", *fault)
                done = run(LUMCTL, "--socket", self.shelf.socket, "replay", "--wait", "0.2")
                self.assertEqual((done.returncode, done.stdout), (1, "0 of 6 controllers confirmed\n"))
                self.does("im", "behave")
                self.assertEqual(self.does("replay")["confirmed"], 6)

    def test_to_an_update(self):
        self.begin()
        self.meets("update", "port", "update", self.second.name, "up")

    def test_to_a_creation(self):
        self.begin()
        for fault, said in self.causes:
            with self.subTest(fault=fault):
                self.does("port", "delete", self.second.name)
                self.does(*fault)
                self.assertRegex(self.fails(1, "port", "create", "1", "--wait", "1"),
                                 said.format("creation"))
                self.does("im", "behave")
                self.does("replay")
                self.wait_for_state(self.second, "up")

    def test_to_a_deletion(self):
        self.begin()
        for fault, said in self.causes:
            with self.subTest(fault=fault):
                self.does(*fault)
                self.assertRegex(
                    self.fails(1, "port", "delete", self.second.name, "--wait", "1"),
                    said.format("deletion"))
                self.does("im", "behave")
                if self.port(self.second)["state"] == "deleting":
                    run(LUMCTL, "--socket", self.shelf.socket, "port", "delete", self.second.name)
                self.wait_for_state(self.second, "absent")
                self.does("port", "create", "1")
                self.wait_for_state(self.second, "up")

    def test_that_is_known_also_where_nobody_waits(self):
        self.begin()
        self.does("im", "drop", "1")
        self.assertIn("dropped the replay", self.fails(1, "replay", "--wait", "0"))
        self.does("replay")
        self.does("im", "hold", "on")
        done = run(LUMCTL, "--socket", self.shelf.socket, "port", "update", self.first.name, "up",
                   "--wait", "0")
        self.assertEqual((done.returncode, done.stdout), (0, "not answered yet\n"))

    def test_garbage_that_ends_the_driver(self):
        """The library takes it for a fatal inconsistency; who asked is told that the driver went."""
        self.begin()
        self.does("im", "malform", "1", "garbage")
        self.assertRegex(self.fails(1, "replay"), "ended before it answered")


class Readings(Monitored):
    """A reading is shown, exported and kept only from the poll that gave it."""

    def numbers(self, cage):
        port = self.port(cage)
        return [port["temperature_c"], port["supply_v"], port["flags"],
                *(sub["readings"] for sub in port["sub_ports"])]

    def test_none_from_a_replay_until_the_next_poll(self):
        self.begin()
        self.driver.hold_polling()
        self.driver.poll_once()
        time.sleep(1.5)  # what was polled is fed
        kept = self.does("show", "pm", self.first.name)["interfaces"][0]["bins"][0]
        self.does("replay")
        self.assertEqual(self.numbers(self.first), [None, None, None, [], []])
        self.assertNotIn("last_poll_age_s", self.port(self.first)["dom"])
        screen = self.says("show", "ports")
        self.assertNotIn("0.00", screen)
        self.assertNotIn("-2.85", screen)
        metrics = self.driver_metrics()
        self.assertNotIn(f'lum_power_dbm{{port="{self.first.name}"', metrics)
        self.assertNotIn(f'lum_alarm{{alarm="flag-10",port="{self.first.name}"', metrics)
        time.sleep(2.5)  # the feed comes round
        self.assertIn("there is no reading now", self.says("show", "pm", self.first.name))
        after = self.does("show", "pm", self.first.name)["interfaces"][0]["bins"][0]
        self.assertEqual((after["samples"], after["values"]), (kept["samples"], kept["values"]))
        self.driver.poll_once()
        self.assertEqual(self.numbers(self.first)[0], 41.25)
        self.assertIn("-2.85", self.says("show", "ports"))
        self.assertNotIn("there is no reading now", self.says("show", "pm", self.first.name))

    def driver_metrics(self):
        from support import UnixConnection
        connection = UnixConnection(self.shelf.socket)
        connection.request("GET", "/metrics")
        text = connection.getresponse().read().decode()
        connection.close()
        return text

    def test_alarms_wait_with_them(self):
        self.begin()
        self.driver.hold_polling()
        self.assertFalse(self.alarms(self.alarmed, 0)["waiting"])
        self.does("replay")
        waiting = self.alarms(self.alarmed, 0)
        self.assertTrue(waiting["waiting"])
        self.assertIn("flag-10", waiting["raised"], "what was known last")
        self.assertIn("waiting for the next poll", self.says("show", "port", self.alarmed.name))
        self.assertIn("before the last poll was cleared", self.says("show", "alarms"))
        self.assertIn("8 sub-ports wait for the next poll", self.says("show", "alarms"))
        self.driver.poll_once()
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: not self.alarms(self.alarmed, 0)["waiting"], 10))

    def test_alarms_do_not_wait_while_nothing_was_cleared(self):
        self.begin()
        end = time.monotonic() + 4
        while time.monotonic() < end:
            self.assertFalse(self.alarms(self.alarmed, 0)["waiting"])
            self.assertIn(f'lum_alarm{{alarm="flag-10",port="{self.alarmed.name}"',
                          self.driver_metrics())

    def test_alarms_that_nobody_told_of_are_not_known(self):
        self.start(held=True)
        self.wait_for_state(self.first, "up")
        known = self.does("show", "alarms", "--all")
        self.assertEqual((known["known"], known["unknown"]), (0, 8))
        self.assertIsNone(known["interfaces"][0]["raised"])
        self.assertIn("The alarms of 8 sub-ports are not known yet", self.says("show", "alarms"))

    def test_a_bin_that_a_test_has_touched_is_marked(self):
        self.begin()
        self.assertFalse(self.bin(0)["tested"])
        self.does("inject", "readings", f"{self.first.name}:0", "power-1", "on")
        self.does("inject", "readings", f"{self.first.name}:0", "power-1", "off")
        self.assertTrue(self.bin(0)["tested"])
        self.assertFalse(self.bin(1)["tested"], "the other sub-port's")
        self.assertRegex(self.says("show", "pm", self.first.name), "15min.* test")

    def bin(self, sub_port):
        return self.does("show", "pm", self.first.name)["interfaces"][sub_port]["bins"][0]

    def test_every_screen_has_the_same_units(self):
        """Performance monitoring keeps a microwatt's tenths and reading 4's; nobody is shown them."""
        self.begin()
        sub_port = self.port(self.first)["sub_ports"][0]
        by_name = {reading["name"]: reading for reading in sub_port["readings"]}
        values = self.values(self.first, 0)
        self.assertEqual(values["reading-4-b"]["value"]["current"], by_name["reading-4"]["value"])
        self.assertEqual(values["power-1"]["microwatt"]["current"], by_name["power-1"]["microwatt"])
        self.assertAlmostEqual(values["power-1"]["dbm"]["current"], by_name["power-1"]["dbm"], 1)
        self.assertEqual(sub_port["pm"]["reading_4"], {"value": 204.3})
        self.assertEqual(sub_port["pm"]["power_1"], {"microwatt": 1621.8, "dbm": 2.1})
        metrics = self.driver_metrics()
        watts = next(line for line in metrics.splitlines() if line.startswith("lum_power_watts")
                     and f'port="{self.first.name}"' in line and 'reading="power-1"' in line)
        self.assertAlmostEqual(float(watts.split()[-1]), 0.0016218, 7)

    def test_what_no_module_can_have_measured_is_marked(self):
        self.begin()
        screen = self.says("show", "ports")
        self.assertNotIn("?", screen)
        for offset, value in ((14, 0x7F), (15, 0xFF), (16, 0xFF), (17, 0xFF), (18, 0x0F), (19, 0xFF)):
            self.does("module", "poke", self.first.name, "0", str(offset), str(value))
        self.driver.poll_once_more()
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: not self.values(self.first, 0)["power-0"]["plausible"], 10))
        self.assertRegex(self.says("show", "pm", self.first.name), "power-0 .* dBm[?]\n")
        port = self.port(self.first)
        self.assertEqual(port["implausible"], ["temperature_c", "supply_v"])
        self.assertEqual([one["plausible"] for one in port["sub_ports"][0]["readings"][:2]],
                         [False, True])
        screen = self.says("show", "ports")
        for mark in ("128.00?", "6.553?", "40.95?", "powers are -60 to 35 dBm"):
            self.assertIn(mark, screen)
        self.assertIn("not plausible", self.says("show", "port", self.first.name))
        self.assertRegex(self.driver_metrics(),
                         rf'lum_implausible_readings{{port="{self.first.name}"}} 3')

    def test_a_power_beyond_all_others_is_marked_and_its_watts_have_an_end(self):
        """Bit 12 is the sign: raw 35000 is 350 dBm, more than 32 bits of tenths of a microwatt."""
        self.begin()
        for high, low, dbm, microwatt, plausible in ((0x88, 0xB8, 350.0, 429496729.5, False),
                                                     (0xFF, 0xFF, -0.02, 995.4, True)):
            self.does("module", "poke", self.first.name, "0", "18", str(high))
            self.does("module", "poke", self.first.name, "0", "19", str(low))
            self.driver.poll_once_more()
            self.assertEqual(self.port(self.first)["sub_ports"][0]["readings"][0],
                             {"name": "power-0", "raw": high << 8 | low, "dbm": dbm,
                              "microwatt": microwatt, "plausible": plausible})


class Surroundings(Actions):
    def test_a_node_in_another_rack_is_never_polled_and_says_so(self):
        self.start("rack = 3")
        first = self.first.name.replace("0/", "3/", 1)
        ports = self.driver.wait_for(lambda now: now[first]["state"] == "stale", 5)
        self.assertIn("rack 0 only", ports[first]["reason"])
        for words in (("show", "ports"), ("show", "pm"), ("show", "alarms")):
            self.assertIn("rack 0 only", self.says(*words))
        self.assertIn("the library reaches no module in this rack",
                      self.fails(1, "set", first, "threshold=3"))

    def test_128_ports_are_told_what_ends_it(self):
        for _ in range(125):
            self.add_module("iivi-old-map", slot=3)
        self.start()
        self.assertRegex(self.driver.log.read_text(), "with 128 ports the library's count of controllers")
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: "the deletion of one port ends that"
            in ((self.driver.get("/v1/polling")["halt"] or {}).get("reason", "")), 60))
        self.does("port", "delete", self.other.name)
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.driver.get("/v1/polling")["halt"] is None, 20))

    def start_with_empty_cage_in(self, name):
        """An empty cage whose file would be in a folder of its own, and the folder."""
        cage = self.add_empty(slot=3)
        folder = self.shelf.folder / name
        folder.mkdir()
        self.start(edit=lambda text: text.replace("modules/nothing", f"{name}/nothing"))
        self.wait_for_state(cage, "empty")
        return cage, folder

    def test_a_folder_that_may_not_be_entered_is_no_module(self):
        missing, shut = self.start_with_empty_cage_in("shut")
        shut.rmdir()
        shut.write_text("no folder")
        port = self.wait_for_state(missing, "failing")
        self.assertEqual(port["reason"], f"{shut} cannot be reached: Not a directory")
        self.assertNotIn(f"port {missing.name}: the module has gone",
                         self.log_with("cannot be reached").split("cannot be reached")[1])

    def states(self, cage, seconds):
        """Every state that the port shows within a time."""
        seen = set()
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            seen.add(self.driver.ports()[cage.name]["state"])
        return seen

    def test_an_empty_cage_is_never_failing(self):
        empty = self.add_empty(slot=3)
        self.begin()
        self.wait_for_state(empty, "empty")
        self.does("port", "delete", "--slot", "3")
        self.does("port", "create", "3")
        self.assertLessEqual(self.states(empty, 2.5), {"empty", "coming up"})
        self.does("replay")
        self.assertEqual(self.states(empty, 2.5), {"empty"})

    def test_a_folder_that_is_not_there_is_no_empty_cage(self):
        missing, gone = self.start_with_empty_cage_in("gone")
        gone.rmdir()
        port = self.wait_for_state(missing, "failing")
        self.assertEqual(port["reason"], f"{gone} cannot be reached: No such file or directory")
        self.assertIsNone(port["module"]["present"])
        self.assertIn(port["reason"], self.says("show", "port", missing.name))
        self.assertIn(port["reason"], self.says("show", "node"))
        self.log_with(f": {port['reason']}\n")
        gone.mkdir()
        self.wait_for_state(missing, "empty")
        self.log_with(f"port {missing.name}: empty, was failing")

    def test_a_bus_that_is_not_there_is_no_empty_cage(self):
        missing = self.add_empty(slot=3)
        self.start(edit=lambda text: text.replace(
            'backend = "file"\nmodule = "modules/nothing.eeprom"',
            'backend = "i2c-dev"\nbus = "/dev/i2c-99"\naddress = 0x50'))
        port = self.wait_for_state(missing, "failing")
        self.assertEqual(port["reason"], "/dev/i2c-99 cannot be reached: No such file or directory")
        self.assertIsNone(port["inserted"])
        self.assertIsNone(port["dom"]["transceiver_disabled"])
        self.assertNotIn("no module", self.says("show", "port", missing.name))

    def test_alarms_of_a_cage_that_cannot_be_looked_into(self):
        cage = self.add_file(slot=3)
        self.begin()
        self.wait_for_state(cage, "up")
        self.driver.poll_once_more()
        modules = cage.module.parent
        modules.rename(modules.with_name("elsewhere"))
        self.wait_for_state(cage, "failing")
        self.assertEqual([one["inserted"] for one in self.does("show", "alarms", "--all")["interfaces"]
                          if one["port"] == cage.name], [None, None])
        self.assertNotIn("no module", self.says("show", "alarms", "--all"))

    def test_an_led_that_cannot_be_set(self):
        self.begin()
        self.wait_for_led("normal")
        led = self.shelf.folder / "leds" / f"{self.first.led}:red:fault" / "brightness"
        led.unlink()
        led.mkdir()
        self.does("module", "poke", self.first.name, "0", "13", "1")  # a fault
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: now[self.first.name]["led"].get("wanted") == "fault", 20))
        shown = self.port(self.first)["led"]
        self.assertEqual(shown["wanted"], "fault")
        self.assertIn(str(led.parent), shown["problem"])
        self.assertIn("broken", self.says("show", "ports"))
        self.assertRegex(self.says("show", "port", self.first.name),
                         "LED: +broken: what it shows is not known, fault is wanted: ")
        node = self.says("show", "node")
        self.assertIn(f"port {self.first.name}: the LED {led.parent} cannot be set", node)
        self.log_with(f"the LED {led.parent} cannot be ")
        led.rmdir()
        led.write_text("0\n")
        self.wait_for_led("fault")
        self.assertTrue(self.shelf.led_is_lit(self.first, "red:fault"))

    def wait_for_led(self, name):
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: (now[self.first.name]["led"] or {}).get("name") == name
            and "problem" not in now[self.first.name]["led"], 20))

    def test_every_state_has_an_age(self):
        self.begin()
        before = self.port(self.first)["state_age_s"]
        time.sleep(1.1)
        self.assertGreater(self.port(self.first)["state_age_s"], before + 1)
        self.assertRegex(self.says("show", "port", self.first.name), "State: +up for [0-9]+ s")
        self.does("module", "remove", self.first.name)
        self.wait_for_state(self.first, "empty")
        self.assertLess(self.port(self.first)["state_age_s"], before + 1.1)


class Halts(Monitored):
    """While nothing is polled, everything that shows a reading says so."""

    def shown_everywhere(self, said):
        for words in (("show", "ports"), ("show", "port", self.first.name),
                      ("show", "module", self.first.name), ("show", "pm"), ("show", "alarms"),
                      ("watch", "--count", "1")):
            self.assertRegex(self.says(*words), said, words)
        self.assertRegex(self.says("show", "node"), "Polling: +none for [0-9]+ s: ")
        for target in ("/v1/ports", "/v1/pm", "/v1/alarms", "/v1/polling", "/v1/node"):
            self.assertRegex(self.driver.get(target)["halt"]["reason"], said)

    def test_the_switch(self):
        self.begin()
        self.assertIsNone(self.driver.get("/v1/ports")["halt"])
        self.driver.pause.touch()
        self.shown_everywhere("polling is switched off: there is /tmp/skip_dom_fetch")
        self.driver.pause.unlink()
        self.assertIsNone(self.driver.get("/v1/ports")["halt"])

    def test_a_module_that_hangs(self):
        self.begin()
        self.does("module", "fault", self.second.name, "hang")
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.driver.get("/v1/ports")["halt"] is not None, 20))
        self.shown_everywhere(f"the module of port {self.second.name} holds it up")
        self.does("module", "release", self.second.name)
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.driver.get("/v1/ports")["halt"] is None, 20))
