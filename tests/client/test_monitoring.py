"""What performance monitoring and the alarm service keep."""

import time

from monitored import Monitored

QUARTER = 900  # seconds
ENOUGH = 20  # for what is shown of one


class Monitoring(Monitored):
    def test_pm_of_every_sub_port(self):
        left = QUARTER - time.time() % QUARTER
        if left < ENOUGH:
            time.sleep(left)  # a quarter that has just begun has no bin yet
        self.begin()
        interfaces = self.does("show", "pm")["interfaces"]
        self.assertEqual([(i["port"], i["sub_port"]) for i in interfaces], [
            (cage.name, sub_port)
            for cage in (self.first, self.second, self.other, self.alarmed)
            for sub_port in (0, 1)])
        quarter, day = interfaces[0]["bins"]
        self.assertEqual([(b["length"], b["length_s"]) for b in (quarter, day)],
                         [("15min", 900), ("24h", 86400)])
        self.assertGreaterEqual(quarter["samples"], 1)
        self.assertTrue(day["partial"])
        values = self.values(self.first, 0)
        self.assertEqual(list(values), ["reading-3", "reading-4-a", "reading-4-b", "reading-4-c",
                                        "power-1", "power-0"])
        kinds = ("current", "minimum", "maximum", "average")
        self.assertEqual([values["power-1"]["microwatt"][kind] for kind in kinds], [1621.8] * 4)
        self.assertEqual([values["power-1"]["dbm"][kind] for kind in kinds], [2.1] * 4)
        self.assertEqual((values["reading-3"]["value"]["current"],
                          values["reading-4-c"]["value"]["current"]), (26, 204.3))
        text = self.says("show", "pm", self.first.name)
        for part in ("15min", "24h", "1621.8", "518.8", "reading-4 ", "dBm", "uW"):
            self.assertIn(part, text)
        bins = self.does("show", "pm", self.first.name, "--bins", "24h")["interfaces"][0]["bins"]
        self.assertEqual([b["length"] for b in bins], ["24h"])

    def test_pm_follows_the_polling_cycles(self):
        self.start(held=True)

        def samples(_):
            bins = self.driver.get("/v1/pm")["interfaces"][0]["bins"]
            return bins[0]["samples"] if bins else 0

        for cycle in (1, 2, 3):
            self.driver.poll_once()
            self.assertIsNotNone(self.driver.wait_for(lambda now: samples(now) >= cycle, 20))
            self.assertEqual(samples(None), cycle)

    def test_pm_of_what_is_not_there(self):
        empty = self.add_empty(slot=3)
        self.begin()
        self.assertIn("nothing is monitored yet", self.says("show", "pm", empty.name))
        self.assertIn("no port", self.fails(1, "show", "pm", "nobody"))
        self.fails(2, "show", "pm", "--bins", "7d")

    def test_a_modules_own_alarms_by_name(self):
        self.begin()
        shown = self.does("show", "alarms")
        self.assertEqual([(i["port"], i["sub_port"], i["raised"]) for i in shown["interfaces"]],
                         [(self.alarmed.name, 0, ["flag-10", "flag-64-high"])])
        self.assertEqual(shown["interfaces"][0]["bitmap"], 0x80002)
        self.assertEqual(shown["known"], 8)
        self.assertEqual([kind["bit"] for kind in shown["kinds"]],
                         [0x1, 0x2, 0x4, 0x20000, 0x40000, 0x80000, 0x100000])
        self.assertIn("flag-10, flag-64-high", self.says("show", "alarms"))
        self.assertEqual(len(self.says("show", "alarms", "--all").splitlines()), 1 + 8)

    def test_counters_and_their_clearing(self):
        self.begin()
        counters = self.alarms(self.alarmed, 0)["counters"]
        self.assertEqual(counters["raised"], {"flag-10": 1, "flag-64-high": 1})
        self.assertEqual(counters["bitmap_changes"], 1)
        self.assertEqual(self.does("clear", "stats", self.first.name)["cleared"], 2)
        self.assertEqual(self.alarms(self.alarmed, 0)["counters"]["bitmap_changes"], 1)
        self.assertEqual(self.does("clear", "stats")["cleared"], 8)
        known = self.alarms(self.alarmed, 0)
        self.assertEqual((known["counters"]["bitmap_changes"], known["counters"]["raised"]),
                         (0, {}))
        self.assertEqual(known["bitmap"], 0x80002, "the alarms stay")
        self.assertIn("no port", self.fails(1, "clear", "stats", "nobody"))
        self.fails(2, "clear")
