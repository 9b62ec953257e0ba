"""The ports as they are shown."""

import contextlib
import json
import shutil

import support
from support import BUILD, LUMCTL, cages, run


class Ports(support.ShelfTest):
    def test_a_small_shelf_as_json(self):
        module = self.add_module("iivi-new-map", serial="TEST0001")
        empty = self.add_empty(slot=2)
        driver = self.start()
        self.wait_for_state(empty, "empty")
        ports = driver.wait_for(
            lambda now: now[module.name]["sub_ports"][0]["readings"]
            and "power_1" in now[module.name]["sub_ports"][0]["pm"], 15)
        self.assertEqual(list(ports), ["0/1/0/1", "0/2/0/1"])

        port = ports["0/1/0/1"]
        self.assertEqual(
            [port[key] for key in ("rack", "slot", "instance", "port", "rsip", "port_handle")],
            [0, 1, 0, 1, 0x10001, 1])
        self.assertEqual((port["state"], port["reason"], port["inserted"]), ("up", "", True))
        self.assertEqual(port["vendor"], {
            "name": "II-VI", "part": "OAP-2B-AB2", "serial": "TEST0001", "revision": "B0",
            "date": "250304", "oui": "00.90.65", "extra_code": "LN12", "extra_id": "CLEI-OAPAAB2"})
        self.assertEqual(port["firmware"], {"version": 6, "text": "0.06"})
        self.assertTrue(port["new_memmap"])
        self.assertEqual((port["temperature_c"], port["supply_v"]), (41.25, 3.287))
        self.assertEqual((port["led"]["state"], port["led"]["name"]), (1, "normal"))
        self.assertGreaterEqual(port["led"]["known_age_s"], 0)
        self.assertEqual(port["flags"], [0] * 8)
        self.assertTrue(port["dom"]["enabled"])
        self.assertFalse(port["dom"]["transceiver_disabled"])
        self.assertLess(port["dom"]["last_poll_age_s"], 12)

        first, second = port["sub_ports"]
        self.assertEqual(first["ifname"], "Ots0_1_0_1_0")
        self.assertEqual(second["ifname"], "Ots0_1_0_1_1")
        self.assertTrue(first["created"] and second["created"])
        self.assertNotEqual(first["ifhandle"], second["ifhandle"])
        self.assertEqual([r["dbm"] for r in first["readings"][:3]], [-2.85, 2.1, -19.4])
        self.assertEqual([r["microwatt"] for r in first["readings"][:3]], [518.8, 1621.8, 11.4])
        self.assertEqual([r["value"] for r in first["readings"][3:]], [26.8, 204.3])
        self.assertEqual(first["readings"][0]["raw"], 0x10001 - 285)
        self.assertEqual(first["status"], [1, 1, 2])
        self.assertEqual(first["pm"]["power_1"], {"microwatt": 1621.8, "dbm": 2.1})
        self.assertEqual(first["pm"]["alarms"], 0)

    def test_an_empty_cage_has_nothing_to_show(self):
        empty = self.add_empty()
        self.start()
        port = self.wait_for_state(empty, "empty")
        self.assertFalse(port["inserted"])
        self.assertEqual(set(port["vendor"].values()), {""})
        self.assertIsNone(port["new_memmap"])
        for key in ("firmware", "temperature_c", "supply_v", "flags"):
            self.assertIsNone(port[key], key)
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: now[empty.name]["led"]["state"] == 3, 5))
        self.assertEqual([sub["readings"] for sub in port["sub_ports"]], [[], []])

    def test_a_failing_module_is_failing_and_harms_no_other(self):
        failing = self.add_module("accelink-new-map", faults="refuse-every=1,code=121")
        good = self.add_module("iivi-old-map")
        self.start()
        port = self.wait_for_state(failing, "failing")
        self.assertIn("Remote I/O error", port["reason"])
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: now[failing.name]["led"]["state"] == 3, 5))
        self.assertEqual(port["module"]["last_error"]["code"], 121)
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: now[good.name]["temperature_c"] == 38.5, 15))

    def test_a_module_file_may_come_be_short_and_vanish(self):
        cage = self.shelf.add_cage(1, "late.eeprom")
        made = self.shelf.folder / "made.eeprom"
        cages.make_image(BUILD / "lum-module-image", support.EXAMPLES / "iivi-alarm.toml", made)
        self.start(held=True)
        self.wait_for_state(cage, "empty")

        shutil.copyfile(made, cage.module)
        port = self.wait_for_state(cage, "up")
        self.assertEqual(port["vendor"]["serial"], "IV25B00232")
        self.assertIsNone(port["temperature_c"], "nothing has been polled yet")
        self.driver.go_on_polling()
        ports = self.driver.wait_for(lambda now: now[cage.name]["temperature_c"] == 47.5, 10)
        self.assertEqual(ports[cage.name]["led"]["state"], 3)

        with open(cage.module, "r+b") as memory:
            memory.truncate(100)
        self.wait_for_state(cage, "failing", 10)
        cage.module.unlink()
        port = self.wait_for_state(cage, "empty", 5)
        self.assertEqual(port["vendor"]["serial"], "")

    def test_another_module_in_the_cage_is_noticed(self):
        cage = self.shelf.add_cage(1, "swapped.eeprom")
        tool = BUILD / "lum-module-image"
        cages.make_image(tool, support.EXAMPLES / "iivi-old-map.toml", cage.module)
        self.start()
        self.assertEqual(self.wait_for_state(cage, "up")["vendor"]["name"], "II-VI")
        self.driver.wait_for(lambda now: now[cage.name]["temperature_c"] is not None, 10)
        cages.make_image(tool, support.EXAMPLES / "accelink-new-map.toml", cage.module)
        ports = self.driver.wait_for(
            lambda now: now[cage.name]["vendor"]["name"] == "ACCELINK", 5)
        self.assertIsNotNone(ports)

    def test_the_table(self):
        module = self.add_module("iivi-old-map")
        self.add_empty()
        driver = self.start()
        driver.wait_for(lambda now: now[module.name]["temperature_c"] is not None
                        and now["0/1/0/2"]["state"] == "empty", 15)
        for columns, most_lines in (("80", 12), ("200", 10)):
            done = run(LUMCTL, "--socket", self.shelf.socket, "show", "ports", COLUMNS=columns)
            self.assertLessEqual(max(map(len, done.stdout.splitlines())), int(columns))
            self.assertLessEqual(len(done.stdout.splitlines()), most_lines)
            for text in ("II-VI", "OAP-2B-AA1", "IV24A00017", "0.05", "38.50", "3.305", "-18.75",
                         "normal", "there is no module in the cage", "Ots0_1_0_2_1"):
                self.assertIn(text, done.stdout)
            self.assertNotIn("\x1b", done.stdout)
        wide = driver.lumctl("show", "ports", "--wide").splitlines()
        self.assertEqual(len(wide), 1 + 4)

    def test_module_texts_cannot_steer_the_terminal(self):
        cage = self.add_module("iivi-old-map")
        escape = '\n[[raw]]\npage = 0\noffset = 148\nbytes = [27, 91, 50, 74, 255, 7, 194, 155]\n'
        cage.module.write_text(cage.module.read_text() + escape)
        driver = self.start()
        self.wait_for_state(cage, "up")
        for shown in (driver.lumctl("show", "ports"), driver.lumctl("show", "port", cage.name),
                      self.metrics()):
            self.assertFalse(set(shown) & {"\x1b", "\x07", "\x9b"})
        self.assertIn("\x1b", json.loads(
            driver.lumctl("show", "port", cage.name, "--json"))["vendor"]["part"])

    def metrics(self):
        connection = support.UnixConnection(self.shelf.socket)
        connection.request("GET", "/metrics")
        with contextlib.closing(connection):
            return connection.getresponse().read().decode()

    def test_the_other_views(self):
        cage = self.add_module("iivi-old-map")
        driver = self.start()
        self.wait_for_state(cage, "up")
        controllers = json.loads(driver.lumctl("show", "controllers", "--json"))
        self.assertEqual([c["name"] for c in controllers["controllers"]],
                         ["Ots0_1_0_1_0", "Ots0_1_0_1_1"])
        self.assertIn("Ots0_1_0_1_1", driver.lumctl("show", "controllers"))
        node = json.loads(driver.lumctl("show", "node", "--json"))
        self.assertEqual((node["name"], node["restart"], node["ports"]), ("test", False, 1))
        self.assertIn("cold start", driver.lumctl("show", "node"))
        page = json.loads(driver.lumctl("show", "module", cage.name, "--page", "0", "--json"))
        self.assertEqual(bytes(page["page"]["bytes"][129:134]), b"II-VI")
        self.assertIn("II-VI", driver.lumctl("show", "module", cage.name, "--page", "0"))

    def test_a_second_start_is_a_warm_one(self):
        cage = self.add_module("iivi-old-map")
        first = self.start()
        self.wait_for_state(cage, "up")
        self.assertEqual(first.stop(6), 0)
        self.start()
        self.assertTrue(json.loads(self.driver.lumctl("show", "node", "--json"))["restart"])
