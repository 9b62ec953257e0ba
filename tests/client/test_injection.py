"""Injected alarms and readings, and the entity agent."""

from monitored import Monitored


class Injection(Monitored):
    def test_each_alarm_injected_and_taken_back(self):
        self.begin()
        name = f"{self.first.name}:1"
        for alarm, bit in (("flag-10", 0x2), ("12", 0x1), ("flag-13", 0x4), ("20", 0x20000),
                           ("flag-49-b", 0x40000), ("flag-64-high", 0x80000),
                           ("flag-64-low", 0x100000), ("all", 0x1E0007)):
            with self.subTest(alarm=alarm):
                reply = self.does("inject", "alarm", name, alarm, "on")
                self.assertTrue(reply["complete"])
                self.assertEqual(self.alarms(self.first, 1)["bitmap"], bit)
                self.assertEqual(self.alarms(self.first, 1)["injected"], reply["alarms"])
                self.does("inject", "alarm", name, alarm, "off")
                self.assertEqual(self.alarms(self.first, 1)["bitmap"], 0)
        self.does("inject", "alarm", f"{self.first.name}:0", "all", "on")
        self.assertEqual(self.alarms(self.first, 0)["bitmap"], 0x180007)
        self.assertIn("* is injected", self.says("show", "alarms"))
        self.assertEqual(self.alarms(self.first, 1)["bitmap"], 0, "the other sub-port's own")

    def test_letting_an_alarm_go_leaves_the_modules_own(self):
        self.begin()
        name = f"{self.alarmed.name}:0"
        self.does("inject", "alarm", name, "all", "on")
        self.does("inject", "alarm", name, "all", "off")
        self.assertEqual(self.alarms(self.alarmed, 0)["bitmap"], 0x80002)

    def test_readings_injected_and_taken_back(self):
        self.begin()
        name = f"{self.first.name}:0"
        for what, value, before, after in (
                ("reading-3", "reading-3", 26, 36), ("4", "reading-4-b", 204.3, 254.3),
                ("power-1", "power-1", 1621.8, 5128.6), ("3", "power-0", 518.8, 1644.3)):
            with self.subTest(what=what):
                unit = "microwatt" if value.startswith("power") else "value"
                self.assertEqual(self.values(self.first, 0)[value][unit]["current"], before)
                self.does("inject", "readings", name, what, "on")
                now = self.values(self.first, 0)[value][unit]
                self.assertEqual((now["current"], now["maximum"]), (after, after))
                self.does("inject", "readings", name, what, "off")
                self.assertEqual(self.values(self.first, 0)[value][unit]["current"], before)
        reply = self.does("inject", "readings", name, "all", "on")
        self.assertEqual(reply["offsets"], {"reading-3": 100, "reading-4": 500,
                                            "power-1": 500, "power-0": 500})
        self.assertEqual(self.does("inject", "readings", name, "5", "off")["offsets"], {})

    def test_the_text_of_a_test(self):
        self.begin()
        self.does("inject", "text", "anything#Ots0_1_0_1_1#1#12#1")
        self.assertEqual(self.alarms(self.first, 1)["bitmap"], 0x80000, "12 is hexadecimal")
        self.does("inject", "text", "#Ots0_1_0_1_1#1#12#0")
        self.assertEqual(self.alarms(self.first, 1)["bitmap"], 0)
        self.assertIn("alarms forced on: flag-10",
                      self.says("inject", "text", "x#Ots0_1_0_1_0#1#a#1"))

    def test_wrong_injections_are_refused(self):
        self.begin()
        name = f"{self.first.name}:0"
        for text, why in (
                ("nothing", "expected ANYTHING#"), ("x#Ots0_1_0_1_0#1#a", "expected ANYTHING#"),
                ("x#Ots0_1_0_1_0#1#a#1#2", "expected ANYTHING#"),
                ("x#Eth0_1_0_1_0#1#a#1", "no interface name"),
                ("x#Ots0_1_0_1#1#a#1", "no interface name"),
                ("x#Ots0_1_0_999_0#1#a#1", "no interface name"),
                ("x#Ots" + "0" * 100 + "_1_0_1_0#1#a#1", "no interface name"),
                ("x#Ots0_1_0_1_2#1#a#1", "sub-ports 0 and 1"),
                ("x#Ots0_1_0_77_0#1#a#1", "no port"), ("x#Ots0_1_0_1_0#3#a#1", "no test 0x3"),
                ("x#Ots0_1_0_1_0#1#z#1", "no hexadecimal"),
                ("x#Ots0_1_0_1_0#1##1", "no hexadecimal"),
                ("x#Ots0_1_0_1_0#1#123456789#1", "no hexadecimal"),
                ("x#Ots0_1_0_1_0#1#10#1", "no alarm 16"), ("x#Ots0_1_0_1_0#2#6#1", "no readings")):
            with self.subTest(text=text):
                self.assertIn(why, self.fails(1, "inject", "text", text))
        self.assertIn("expected one of flag-12, ",
                      self.fails(1, "inject", "alarm", name, "flag-99", "on"))
        self.assertIn("does not have", self.fails(1, "inject", "alarm", name, "flag-49-a", "on"))
        self.assertIn("expected one of reading-3, ",
                      self.fails(1, "inject", "readings", name, "6", "on"))
        self.assertIn("no port", self.fails(1, "inject", "alarm", "nobody:0", "all", "on"))
        for wrong in ([name, "all", "maybe"], [self.first.name, "all", "on"],
                      [f"{self.first.name}:2", "all", "on"], [name, "all"]):
            self.fails(2, "inject", "alarm", *wrong)
        self.assertEqual(self.does("show", "alarms")["interfaces"][0]["port"], self.alarmed.name)

    def test_an_injection_waits_for_the_first_readings(self):
        failing = self.add_module("iivi-old-map", faults="refuse-every=1,code=121")
        self.start()
        self.wait_for_state(failing, "failing")
        reply = self.does("inject", "alarm", f"{failing.name}:0", "flag-12", "on")
        self.assertFalse(reply["complete"])
        self.assertEqual(reply["alarms"], ["flag-12"])
        self.assertIsNone(self.alarms(failing, 0)["bitmap"])
        self.does("module", "fault", failing.name, "none")
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: now[failing.name]["sub_ports"][0]["pm"].get("alarms") == 1, 15))

    def test_without_alarm_tests_nothing_is_injected(self):
        self.start(options=())
        self.assertIn("--alarm-tests",
                      self.fails(1, "inject", "alarm", f"{self.first.name}:0", "all", "on"))

    def test_the_entity_agent(self):
        self.begin()
        self.assertEqual(self.does("ea", "connect")["result"]["code"], 0)
        self.assertIn("not complete", self.says("ea", "connect"))
        ended = self.does("ea", "resync-end")
        self.assertEqual(ended["resync"], {"replay_required": 0, "complete": True})
        handle = self.handles(self.first)[1]
        for operation in ("create", "update", "get-info", "delete"):
            reply = self.does("ea", operation, f"{self.first.name}:1")
            self.assertEqual(reply["interface"], {"name": "Ots0_1_0_1_1", "ifhandle": handle})
            self.assertTrue(reply["served"], operation)
        self.does("ea", "create", "Ots0_1_0_1_1", "--handle", "0x1234")
        self.assertEqual(self.handles(self.first)[1], 0x1234, "recorded")
        self.assertTrue(self.does("ea", "update", "Ots9_9_9_9_9", "--handle", "7")["served"])
        self.assertIn("must be given", self.fails(1, "ea", "update", "Ots9_9_9_9_9"))
        self.assertIn("no port", self.fails(1, "ea", "update", "nobody:0"))
        self.fails(1, "ea", "update", "Ots" + "9" * 100, "--handle", "7")
        self.fails(2, "ea", "update")
        self.fails(2, "ea", "update", "Ots0_1_0_1_1", "--admin", "256")

    def test_the_entity_agent_cannot_name_a_port_without_its_sub_port(self):
        """The library ends the process that creates such an interface."""
        self.begin()
        for name in ("Ots0_1_0_1", "abc0_1_0_1", "Ots000_01_0_1", "Ots0_0_0_65537", "Ots9_9_9_9"):
            for operation in ("create", "update", "get-info", "delete"):
                with self.subTest(name=name, operation=operation):
                    said = self.fails(1, "ea", operation, name, "--handle", "0x4321")
                    self.assertIn(f'"{name}" has no sub-port', said)
                    self.assertIn("such as Ots0_1_0_3_1", said)
        self.assertIsNone(self.driver.process.poll())
        self.assertNotIn(0x4321, self.handles(self.first))
