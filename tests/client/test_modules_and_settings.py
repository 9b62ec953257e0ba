"""Modules and settings: each command as it should go, and what it refuses."""

import os
import threading
import time

import support
from actions import Actions
from support import cages


class Modules(Actions):
    def test_a_module_is_pulled_and_put_back(self):
        self.begin()
        self.assertFalse(self.does("module", "remove", self.first.name)["present"])
        view = self.wait_for_state(self.first, "empty", 5)
        self.assertEqual(view["vendor"]["serial"], "")
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: now[self.first.name]["led"]["state"] == 3, 5))
        self.assertTrue(self.does("module", "insert", self.first.name)["present"])
        view = self.wait_for_state(self.first, "up", 5)
        self.assertEqual(view["vendor"]["serial"], "IV25B00231")
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: now[self.first.name]["temperature_c"] == 41.25
            and now[self.first.name]["led"]["state"] == 1, 12))

    def test_another_module_takes_its_place(self):
        self.begin()
        another = self.shelf.folder / "another.toml"
        cages.copy_description(support.EXAMPLES / "iivi-alarm.toml", another, serial="OTHER1")
        self.does("module", "insert", self.first.name, "--description", str(another))
        ports = self.driver.wait_for(
            lambda now: now[self.first.name]["vendor"]["serial"] == "OTHER1"
            and now[self.first.name]["temperature_c"] == 47.5, 12)
        self.assertIsNotNone(ports)
        self.assertTrue(ports[self.first.name]["raised"])

    def test_a_hanging_module_blocks_nobody_else(self):
        self.begin()
        self.does("module", "fault", self.first.name, "hang")
        self.wait_for_state(self.first, "failing", 12)
        asked = time.monotonic()
        for _ in range(3):
            self.assertEqual(self.port(self.other)["state"], "up")
        self.does("port", "update", self.other.name, "up")
        self.does("set", self.other.name, "mode=3")
        self.assertLess(time.monotonic() - asked, 5)
        self.assertIn("it goes on", self.fails(1, "set", self.first.name, "threshold=9"))
        waiting = [threading.Thread(target=self.fails, args=(1, "port", "update", self.first.name,
                                                             "up", "--wait", "1"))
                   for _ in range(6)]
        for thread in waiting:
            thread.start()
        asked = time.monotonic()
        self.assertEqual(len(self.does("show", "ports")["ports"]), 3)
        self.assertLess(time.monotonic() - asked, 3)
        for thread in waiting:
            thread.join()
        self.does("module", "release", self.first.name)
        self.does("module", "fault", self.first.name, "none")
        ports = self.driver.wait_for(
            lambda now: now[self.first.name]["sub_ports"][0]["configuration"]["threshold"] == 9
            and now[self.first.name]["state"] == "up", 12)
        self.assertIsNotNone(ports)

    def test_a_byte_is_poked(self):
        self.begin()
        self.does("module", "poke", self.first.name, "0", "0x0a", "0x02")
        self.assertEqual(self.page(self.first, 0)[10], 2)
        ports = self.driver.wait_for(lambda now: now[self.first.name]["led"]["state"] == 3
                                     and now[self.first.name]["raised"], 12)
        self.assertEqual(ports[self.first.name]["raised"], ["sub-port 0 alarm flag-10"])

    def test_flags_and_alarms_have_one_vocabulary(self):
        alarmed = self.add_module("iivi-alarm", slot=2)
        self.begin()
        self.does("module", "poke", alarmed.name, "0", "13", "0x21")
        self.does("module", "poke", alarmed.name, "0", "49", "0x40")
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: (now[alarmed.name]["flags"] or [0] * 8)[7] == 0x40
            and now[alarmed.name]["sub_ports"][1]["pm"].get("raised"), 15))
        port = self.port(alarmed)
        self.assertEqual(port["flag_bytes"], [9, 10, 11, 12, 13, 64, 70, 49])
        shown = self.says("show", "port", alarmed.name, "--verbose")
        lines = [line.strip() for line in shown.splitlines()]
        self.assertNotIn("alarm 0x", shown)
        self.assertIn("sub-port 0 alarm flag-13 (first)", lines)
        self.assertIn("sub-port 1 alarm flag-13 (second)", lines)
        self.assertIn("sub-port 1 alarms flag-49-a and flag-49-b", lines)
        self.assertIn("Flag bytes:    byte 9: {:02x}, 10: {:02x}, 11: {:02x}, 12: {:02x}, "
                      "13: 21, 64: {:02x}, 70: {:02x}, 49: 40".format(
                          *port["flags"][:4], *port["flags"][5:7]), lines)
        for sub_port, known in enumerate(i for i in self.does("show", "alarms", "--all")
                                         ["interfaces"] if i["port"] == alarmed.name):
            self.assertEqual(port["sub_ports"][sub_port]["pm"]["raised"], known["raised"])
            self.assertRegex(shown, f"  alarms        {', '.join(known['raised'])}, [0-9]+ s ago\n")
        self.assertRegex(self.says("show", "port", self.first.name),
                         "  alarms        none, [0-9]+ s ago\n")

    def test_faults_are_shown(self):
        self.begin()
        self.does("module", "fault", self.first.name, "refuse-every=3", "code=121")
        shown = self.does("show", "module", self.first.name)["module"]
        self.assertEqual(shown["faults"], "refuse-every=3,code=121")
        self.assertIn("refuse-every=3,code=121", self.says("show", "module", self.first.name))

    def test_refusals(self):
        empty = self.add_empty(slot=2)
        self.begin()
        for action in ("insert", "remove", "release"):
            self.assertIn("nobody", self.fails(1, "module", action, "nobody"))
            self.fails(2, "module", action)
        self.assertIn(f"there is no module at {empty.module}",
                      self.fails(1, "module", "insert", empty.name))
        self.assertIn("only a simulated", self.fails(
            1, "module", "insert", empty.name, "--description", str(self.first.module)))
        wrong = self.shelf.folder / "wrong.toml"
        wrong.write_text("vendor = 3\n")
        self.assertIn(f"{wrong}:1: ", self.fails(
            1, "module", "insert", self.first.name, "--description", str(wrong)))
        self.fails(1, "module", "insert", self.first.name, "--description", "/nowhere.toml")
        self.assertIn("frob", self.fails(1, "module", "fault", self.first.name, "frob"))
        self.fails(2, "module", "fault", self.first.name)
        self.fails(1, "module", "poke", self.first.name, "0", "256", "0")
        self.fails(1, "module", "poke", self.first.name, "256", "0", "0")
        self.fails(1, "module", "poke", self.first.name, "200", "128", "0")
        self.fails(2, "module", "poke", self.first.name, "0", "x", "0")
        self.fails(2, "module", "poke", self.first.name, "0", "0")


class RealBus(support.ShelfTest):
    def test_an_empty_cage_on_a_bus_is_named_after_the_bus(self):
        self.shelf.add_cage(1, "unused.eeprom")
        self.shelf.write_description()
        text = self.shelf.description.read_text()
        self.shelf.write_description = lambda: None
        self.shelf.description.write_text(text.replace('backend = "file"', 'backend = "i2c-dev"')
                                          .replace('module = "modules/unused.eeprom"',
                                                   'bus = "modules/i2c-3"\naddress = 0x51'))
        driver = self.start()
        with self.assertRaises(RuntimeError) as refused:
            driver.lumctl("module", "insert", "0/1/0/1")
        bus = self.shelf.folder / "modules" / "i2c-3"
        self.assertIn(f"there is no module at {bus} 0x51", str(refused.exception))


class FlatModule(Actions):
    def test_the_page_that_is_not_there_is_named(self):
        flat = self.add_file(2)
        os.truncate(flat.module, 256)
        self.begin()
        self.wait_for_state(flat, "failing")
        shown = self.does("show", "module", flat.name)
        self.assertRegex(shown["reason"], "page [0-9]+ is not there: the file ends after 256 bytes")
        self.assertIn(shown["module"]["last_error"]["reason"], shown["reason"])
        self.assertIn("is not there: the file ends after 256 bytes",
                      self.says("show", "module", flat.name))
        self.assertIn("page 3 is not there: the file ends after 256 bytes",
                      self.fails(1, "show", "module", flat.name, "--page", "3"))


class Lines(Actions):
    def describe_lines(self):
        """One port's cage has a reset line."""
        self.lined = self.add_file(2)
        self.reset = self.shelf.folder / "reset"
        self.reset.write_text("1\n")
        module = f'module = "modules/{self.lined.module.name}"'
        self.start(edit=lambda text: text.replace(
            module, module + '\nreset = "reset"\nreset_value = "0"'))
        self.wait_for_state(self.lined, "up")

    def test_a_reset_line_is_left_alone_and_steered(self):
        self.describe_lines()
        self.assertEqual(self.reset.read_text(), "1\n")
        self.does("module", "reset", self.lined.name, "on")
        self.assertEqual(self.reset.read_text(), "0")
        line = self.does("show", "module", self.lined.name)["module"]["reset"]
        self.assertEqual(line, {"file": str(self.reset), "on": True})
        self.assertIn(f"on ({self.reset})", self.says("show", "module", self.lined.name))
        self.does("module", "reset", self.lined.name, "off")
        self.assertEqual(self.reset.read_text(), "1")
        self.wait_for_state(self.lined, "up")

    def test_what_is_wrong_with_a_line_is_told(self):
        self.describe_lines()
        self.assertIn("its description has no 'low_power'",
                      self.fails(1, "module", "low-power", self.lined.name, "on"))
        self.assertIn("its description has no 'reset'",
                      self.fails(1, "module", "reset", self.second.name, "off"))
        self.fails(2, "module", "reset", self.lined.name, "maybe")
        self.fails(2, "module", "reset", self.lined.name)
        self.reset.unlink()
        self.assertIn(f"{self.reset} cannot be set: No such file or directory",
                      self.fails(1, "module", "reset", self.lined.name, "on"))


class Settings(Actions):
    def test_settings_reach_the_module_and_are_completed_from_what_is_stored(self):
        self.begin()
        reply = self.does("set", self.first.name, "threshold=20", "setting-a=7")
        self.assertEqual((reply["sub_port"], reply["change_bits"], reply["module_written"]),
                         (0, 0x10000002, True))
        self.assertEqual(self.page(self.first, 2)[144:148], [300 >> 8, 300 & 255, 0, 200])
        reply = self.does("set", self.first.name + ":0", "setting_b=0x8", "enable=1", "mode=3")
        stored = reply["stored"]
        self.assertEqual([stored[key] for key in ("threshold", "setting_a", "setting_b", "enable",
                                                  "mode")], [20, 7, 8, 1, 3])
        self.assertEqual(stored["changed_bits"], 0x10040002)
        page = self.page(self.first, 1)
        self.assertEqual((page[198:202], page[211], page[197]), ([0, 70, 0, 80], 1, 2))
        view = self.port(self.first)
        self.assertEqual(view["sub_ports"][0]["configuration"], stored)
        self.assertEqual(view["sub_ports"][1]["configuration"]["changed"], [])
        self.assertTrue(view["checkpoint"]["created"])

    def test_sub_port_1_and_negative_thresholds(self):
        self.begin()
        stored = self.does("set", self.second.name + ":1", "threshold=-5", "sub1=1",
                           "p2-setting=3")["stored"]
        self.assertEqual((stored["threshold"], stored["sub1"], stored["p2_setting"]), (-5, 1, 3))
        page = self.page(self.second, 2)
        self.assertEqual(page[152:156], [0, 50, 0xFF, 0xCE])
        self.assertEqual(page[178:180], [0, 30])
        self.assertEqual(self.page(self.second, 3)[150], 1)
        self.assertIn("threshold -5", self.says("show", "port", self.second.name))

    def test_settings_survive_a_killed_driver(self):
        self.begin()
        self.does("set", self.first.name, "threshold=20")
        self.driver.process.kill()
        self.driver.process.wait(5)
        self.start()
        self.wait_for_state(self.first, "up")
        stored = self.port(self.first)["sub_ports"][0]["configuration"]
        self.assertEqual((stored["threshold"], stored["changed"]), (20, ["threshold"]))
        self.assertNotEqual(self.page(self.first, 2)[146:148], [0, 200], "the module is a new one")
        self.does("port", "update", self.first.name, "up")
        self.assertEqual(self.page(self.first, 2)[144:148], [300 >> 8, 300 & 255, 0, 200])

    def test_what_does_not_reach_the_module_is_told(self):
        self.begin()
        self.does("module", "remove", self.first.name)
        self.wait_for_state(self.first, "empty", 5)
        self.assertIn("the settings have not reached the module: ",
                      self.fails(1, "set", self.first.name, "threshold=3"))
        stored = self.port(self.first)["sub_ports"][0]["configuration"]
        self.assertEqual((stored["threshold"], stored["changed"]), (3, ["threshold"]))

    def test_refusals(self):
        self.begin()
        name = self.first.name
        for wrong in ("threshold", "threshold=", "threshold=1.5", "threshold=4294967296", "x=1",
                      "mode=0x", "=3", "mode= 3"):
            self.fails(2, "set", name, wrong)
        self.fails(2, "set", name)
        self.fails(2, "set", name, "mode=1", "mode=2")
        self.assertIn("mode", self.fails(1, "set", name, "mode=-1"))
        self.fails(1, "set", name + ":2", "mode=3")
        self.fails(1, "set", "nobody", "mode=3")
        self.assertEqual(self.port(self.first)["sub_ports"][0]["configuration"]["changed_bits"], 0)
