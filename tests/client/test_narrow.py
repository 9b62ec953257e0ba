"""What is shown where there is little room, and of many ports."""

import json
import re
import unicodedata

from actions import Actions
from support import LUMCTL, run

LONG = "row-17-cabinet-3-" + "x" * 41 + "-west"  # 63 characters
WIDE = "光回線ポート" * 3  # 54 bytes in 18 characters of two columns each


def width(text):
    return sum(2 if unicodedata.east_asian_width(sign) in "WF" else 1 for sign in text)


class Narrow(Actions):
    def shown(self, columns, *arguments):
        done = run(LUMCTL, "--socket", self.shelf.socket, *arguments, COLUMNS=str(columns))
        self.assertEqual((done.returncode, done.stderr), (0, ""), arguments)
        return done.stdout

    def begin_with_names(self, *names):
        def edit(text):
            for cage, name in zip(self.shelf.cages, names):
                handle = f"handle = {cage.handle}\n"
                text = text.replace(handle, f'{handle}name = "{name}"\n', 1)
            return text
        self.start(edit=edit)
        self.assertIsNotNone(self.driver.wait_for(
            lambda ports: all(sub["readings"] and "power_1" in sub.get("pm", {})
                              for port in ports.values() for sub in port["sub_ports"]), 20))

    def test_every_screen_fits_into_60_columns(self):
        self.shelf.cages.clear()
        self.first = self.add_module("iivi-alarm")
        self.second = self.add_module("iivi-new-map", faults="refuse-every=3,code=121")
        self.begin_with_names()
        self.does("inject", "alarm", self.first.name + ":0", "all", "on")
        settings = ("p2-setting=31", "setting-a=12", "setting-b=4", "mode=1")
        for words in (("show", "ports"), ("show", "ports", "-b"), ("show", "port", self.first.name),
                      ("show", "port", self.first.name, "--verbose"), ("show", "pm"),
                      ("show", "pm", "--bins", "24h"), ("show", "alarms"),
                      ("show", "alarms", "--all"), ("show", "controllers"),
                      ("show", "module", self.first.name, "--page", "0"), ("watch", "--count", "1"),
                      ("events",), ("set", self.first.name, *settings, "--dry-run"),
                      ("set", self.first.name, *settings)):
            for line in self.shown(60, *words).splitlines():
                if "/" in line and " " not in line.strip():
                    continue  # the path of a file
                self.assertLessEqual(width(line), 60, words)

    def test_names_of_63_and_wide_ones_stay_whole_or_are_marked(self):
        self.begin_with_names(LONG, WIDE)
        brief = self.shown(60, "show", "ports", "-b")
        self.assertTrue(all(width(line) <= 60 for line in brief.splitlines()), brief)
        self.assertNotIn(LONG, brief)
        self.assertIn("…", brief)
        self.assertIn("Names are shortened to 20 columns", brief)
        for words in (("show", "ports"), ("show", "ports", "--columns", "port,state"),
                      ("show", "pm"), ("show", "alarms", "--all"), ("show", "port", LONG)):
            self.assertIn(LONG, re.sub("\n +", "", self.shown(60, *words)), words)
        shown = self.shown(120, "show", "ports", "-b").splitlines()
        states = [width(line[:line.index(" up ")]) for line in shown if " up " in line]
        self.assertEqual(len(set(states)), 1, "wide characters take two columns")

    def test_what_is_left_out_is_named(self):
        self.begin()
        narrow = self.shown(60, "show", "ports", "-b")
        self.assertRegex(narrow, r"columns not shown at 60: (.|\n)*SERIAL, FW;\s+--columns or")
        self.assertNotIn("not shown", self.shown(200, "show", "ports", "-b"))

    def test_a_pipe_gets_everything(self):
        for _ in range(12):
            self.add_module("iivi-old-map", slot=2)
        self.begin()
        shown = self.says("show", "ports")
        self.assertEqual(len(shown.splitlines()), 1 + 2 * 15)
        self.assertIn("IFHANDLE", shown)
        self.assertNotIn("not shown", shown)
        for words in (("show", "ports", "-b"), ("show", "alarms", "--all"), ("show", "pm")):
            self.assertNotIn("not shown", self.says(*words))


class Many(Actions):
    """Ports with a line each, some of them, in an order."""

    def setUp(self):
        super().setUp()
        self.empty = self.add_empty(slot=2)
        self.failing = self.add_module("iivi-old-map", slot=2, faults="refuse-every=1,code=121")

    def begin(self):
        super().begin()
        self.wait_for_state(self.empty, "empty")
        self.wait_for_state(self.failing, "failing")

    def named(self, *arguments):
        """The ports that are shown, in their order."""
        return [line.split()[0] for line in self.says("show", "ports", "-b", *arguments).splitlines()
                if line.startswith("0/")]

    def test_which_ports(self):
        self.begin()
        self.assertEqual(self.named(self.first.name, "0/2/0/1"), [self.first.name, self.other.name])
        self.assertEqual(self.named("--state", "empty,failing"),
                         [self.empty.name, self.failing.name])
        self.assertEqual(self.named("--slot", "1"), [self.first.name, self.second.name])
        self.assertEqual(self.named("--slot", "2/0", "--state", "up"), [self.other.name])
        self.assertEqual(self.says("show", "ports", "--slot", "9"), "none of 5 ports is selected\n")
        self.does("port", "delete", self.second.name)
        self.assertNotIn(self.second.name, self.named())
        self.assertEqual(self.named("--state", "absent"), [self.second.name])
        self.assertEqual(self.named(self.second.name), [self.second.name])

    def test_json_has_the_same_ports(self):
        self.begin()
        shown = self.does("show", "ports", "--state", "empty,failing", "--sort", "worst")
        self.assertEqual([port["name"] for port in shown["ports"]],
                         [self.failing.name, self.empty.name])
        picture = json.loads(self.says("watch", "--count", "1", "--json", self.other.name))
        self.assertEqual([port["name"] for port in picture["ports"]], [self.other.name])

    def test_in_which_order(self):
        self.begin()
        self.assertEqual(self.named("--sort", "worst")[:2], [self.failing.name, self.empty.name])
        self.assertEqual(self.named("--sort", "worst", "--reverse")[-1], self.failing.name)
        temperatures = self.named("--sort", "temperature")
        self.assertEqual(set(temperatures[-2:]), {self.failing.name, self.empty.name},
                         "what is not known comes last")

    def test_which_columns(self):
        self.begin()
        self.assertEqual(
            self.says("show", "ports", "--columns", "state,port,reason", self.empty.name),
            "STATE  PORT     REASON\n"
            "empty  0/2/0/2  there is no module in the cage\n")
        self.assertIn("0x", self.says("show", "ports", "--wide"))
        self.assertRegex(self.says("show", "ports", "--columns", "controller:1", self.first.name),
                         "Ots0_1_0_1_1")

    def test_one_reason_is_told_once(self):
        self.begin()
        shown = self.says("show", "ports", "-b")
        self.assertIn(f"there is no module in the cage ({self.empty.name})\n", shown)
        self.assertEqual([line for line in shown.splitlines() if line.startswith("0/")],
                         [line for line in shown.splitlines()[1:6]], "a line a port")

    def test_what_it_refuses(self):
        self.begin()
        self.assertIn('did you mean "temperature"?',
                      self.fails(2, "show", "ports", "--columns", "port,temprature"))
        self.assertIn('did you mean "failing"?', self.fails(2, "show", "ports", "--state", "faling"))
        self.assertIn("SLOT/INSTANCE", self.fails(2, "show", "ports", "--slot", "one"))
        self.assertIn("worst", self.fails(2, "show", "ports", "--sort", "wurst"))
        self.assertIn("only one of", self.fails(2, "show", "ports", "-b", "--wide"))
        self.assertIn("nosuch", self.fails(1, "show", "ports", self.first.name, "nosuch"))
        self.assertIn("without a sub-port", self.fails(1, "show", "ports", self.first.name + ":0"))
        self.assertIn("no option -x", self.fails(2, "show", "ports", "-x"))


class Sections(Actions):
    def test_a_port_without_internals(self):
        self.begin()
        shown = self.says("show", "port", self.first.name)
        for internal in ("rsip", "Handle", "Mutex", "Checkpoint", "raw", "status bytes", "0x"):
            self.assertNotIn(internal, shown)
        whole = self.says("show", "port", self.first.name, "--verbose")
        for internal in ("rsip", "Handle", "Mutex", "Checkpoint", "Transfers", "changed 0x"):
            self.assertIn(internal, whole)
        sections = shown.split("\n\n")
        self.assertEqual(len(sections), 4)
        self.assertTrue(sections[0].startswith("Port:"))
        self.assertTrue(sections[1].startswith("Vendor:"))
        self.assertTrue(sections[2].startswith("Sub-port 0: Ots0_1_0_1_0"))

    def test_an_empty_cage_has_no_lines_of_dashes(self):
        empty = self.add_empty(slot=2)
        self.begin()
        self.wait_for_state(empty, "empty")
        shown = self.says("show", "port", empty.name)
        self.assertIn("Module:        none in the cage\n", shown)
        self.assertNotRegex(shown, r": +-\n")

    def test_a_module_is_not_the_port_again(self):
        self.begin()
        shown = self.says("show", "module", self.first.name)
        for own in ("Vendor:", "OUI", "Serial:", "Temperature:", "Transfers:", "Location:", "Present:"):
            self.assertIn(own, shown)
        for of_the_port in ("State:", "LED:", "Sub-port", "settings", "Ots0_", "Mutex"):
            self.assertNotIn(of_the_port, shown)
