"""The live view, and what is drawn while a command waits."""

import json
import os
import signal
import subprocess

from actions import Actions
from support import LUMCTL, run
from terminal import Terminal, needs_a_terminal

TAKE, GIVE_BACK = b"\x1b[?1049h", b"\x1b[?1049l"


class Watching(Actions):
    def watch(self, *options, **environment):
        return Terminal(LUMCTL, "--socket", self.shelf.socket, "watch", *options, **environment)

    @needs_a_terminal
    def test_redrawn_as_cycles_end(self):
        self.begin()
        terminal = self.watch()
        self.assertTrue(terminal.read_until(lambda drawn: drawn.count(b"\x1b[H\x1b[K\x1b[1m") >= 3, 20))
        terminal.kill(signal.SIGINT)
        self.assertEqual(terminal.end(), 0)
        self.assertTrue(terminal.output.startswith(TAKE))
        self.assertTrue(terminal.output.endswith(GIVE_BACK))
        for text in (b"Ots0_1_0_1_0", b"II-VI", b"cycle "):
            self.assertIn(text, terminal.output)

    @needs_a_terminal
    def test_the_terminal_comes_back_when_it_is_ended(self):
        self.begin()
        terminal = self.watch("--interval", "0.2")
        self.assertTrue(terminal.read_until(lambda drawn: b"cycle " in drawn, 5))
        terminal.kill(signal.SIGTERM)
        self.assertEqual(terminal.end(), signal.SIGTERM)
        self.assertTrue(terminal.output.endswith(GIVE_BACK))

    @needs_a_terminal
    def test_the_driver_may_go_and_come_back(self):
        self.begin()
        terminal = self.watch("--interval", "0.2")
        self.assertTrue(terminal.read_until(lambda drawn: b"cycle " in drawn, 5))
        self.driver.stop(6)
        self.assertTrue(terminal.read_until(
            lambda drawn: b"no driver answers" in drawn and b"trying again" in drawn
            and b"what stands below is old" in drawn, 10))
        self.driver.start()
        seen = len(terminal.output)
        self.assertTrue(terminal.read_until(lambda drawn: b"cycle " in drawn[seen:], 10))
        terminal.kill(signal.SIGINT)
        self.assertEqual(terminal.end(), 0)

    @needs_a_terminal
    def test_keys_filter_sort_and_end_it(self):
        self.begin()
        terminal = self.watch("--interval", "0.2")
        terminal.resize(60, 24)
        self.assertTrue(terminal.read_until(lambda drawn: b"q quit" in drawn, 5))
        self.assertFalse(terminal.echoes(), "what is typed is not seen")
        seen = len(terminal.output)
        terminal.type("s")
        self.assertTrue(terminal.read_until(lambda drawn: b"sorted by worst" in drawn[seen:], 5))
        terminal.type("/0/2/")
        self.assertTrue(terminal.read_until(lambda drawn: b"1 of 3 ports" in drawn[seen:], 5))
        terminal.type("\r")
        self.assertTrue(terminal.read_until(lambda drawn: b'filter "0/2/"' in drawn[seen:], 5))
        terminal.type("q")
        self.assertEqual(terminal.end(), 0)
        self.assertTrue(terminal.output.endswith(GIVE_BACK))

    @needs_a_terminal
    def test_the_terminal_is_given_back_for_as_long_as_it_is_stopped(self):
        self.begin()
        terminal = Terminal("bash", "--norc", "--noediting", "-i", PS1="ready> ")
        self.assertTrue(terminal.read_until(lambda drawn: b"ready> " in drawn, 5))
        terminal.type(f"'{LUMCTL}' --socket '{self.shelf.socket}' watch --interval 0.2\r")
        self.assertTrue(terminal.read_until(lambda drawn: b"q quit" in drawn, 5))
        self.assertFalse(terminal.echoes())
        terminal.type("\x1a")
        self.assertTrue(terminal.read_until(
            lambda drawn: b"Stopped" in drawn.split(GIVE_BACK)[-1], 5))
        self.assertTrue(terminal.echoes())
        terminal.type("fg\r")
        self.assertTrue(terminal.read_until(
            lambda drawn: b"q quit" in drawn.split(TAKE)[-1] and drawn.count(TAKE) >= 2, 5))
        self.assertFalse(terminal.echoes())
        terminal.type("q")
        self.assertTrue(terminal.read_until(
            lambda drawn: drawn.count(GIVE_BACK) >= 2
            and b"ready> " in drawn.split(GIVE_BACK)[-1], 5))
        terminal.type("exit\r")
        self.assertEqual(terminal.end(), 0)

    @needs_a_terminal
    def test_the_terminal_comes_back_after_a_crash(self):
        self.begin()
        for number in (signal.SIGTERM, signal.SIGSEGV, signal.SIGABRT, signal.SIGHUP):
            terminal = self.watch("--interval", "0.2")
            self.assertTrue(terminal.read_until(lambda drawn: b"q quit" in drawn, 5))
            terminal.kill(number)
            self.assertTrue(terminal.read_until(lambda drawn: drawn.endswith(GIVE_BACK), 5))
            self.assertEqual(os.WTERMSIG(terminal.end()), number)

    @needs_a_terminal
    def test_it_is_drawn_again_in_another_size(self):
        self.begin()
        terminal = self.watch("--interval", "60", "--brief")
        terminal.resize(120, 24)
        self.assertTrue(terminal.read_until(lambda drawn: b"AGE S" in drawn, 5))
        seen = len(terminal.output)
        terminal.resize(60, 24)
        self.assertTrue(terminal.read_until(lambda drawn: b"not shown at 60" in drawn[seen:], 5))
        terminal.kill(signal.SIGINT)
        self.assertEqual(terminal.end(), 0)

    @needs_a_terminal
    def test_the_last_column_is_not_erased_again(self):
        self.begin()
        terminal = self.watch("--count", "2", "--interval", "0.2")
        self.assertEqual(terminal.end(), 0)
        self.assertIn(b"\x1b[K", terminal.output)
        self.assertNotRegex(terminal.output, rb"[^H\n]\x1b\[[KJ]")

    @needs_a_terminal
    def test_a_hanging_driver_holds_up_no_key(self):
        self.begin()
        terminal = self.watch("--interval", "0.2")
        self.assertTrue(terminal.read_until(lambda drawn: b"q quit" in drawn, 5))
        self.driver.process.send_signal(signal.SIGSTOP)
        try:
            self.assertTrue(terminal.read_until(
                lambda drawn: b"no answer of the driver for" in drawn
                and b"what stands below is old" in drawn, 15))
            terminal.type("q")
            self.assertEqual(terminal.end(), 0)
        finally:
            self.driver.process.send_signal(signal.SIGCONT)

    @needs_a_terminal
    def test_what_has_changed_is_marked(self):
        self.begin()
        for environment, mark in (({}, b"\x1b[7m55.00"), ({"NO_COLOR": "1"}, b"56.00*"),
                                  ({"TERM": "dumb"}, b"57.00*")):
            temperature = mark.split(b".")[0][-2:].decode()
            terminal = self.watch("--interval", "0.2", **environment)
            self.assertTrue(terminal.read_until(lambda drawn: b"cycle " in drawn, 5))
            self.does("module", "poke", self.second.name, "0", "14", temperature)
            self.does("module", "poke", self.second.name, "0", "15", "0")
            self.assertTrue(terminal.read_until(lambda drawn: mark in drawn, 15), environment)
            terminal.kill(signal.SIGINT)
            terminal.end()

    def test_nothing_is_marked_for_programs(self):
        self.begin()
        before = self.port(self.first)["module"]["transfers"]
        shown = self.says("watch", "--count", "3", "--columns", "port,age,state")
        self.assertGreater(self.port(self.first)["module"]["transfers"], before)
        self.assertNotIn("*", shown)

    def test_some_ports_in_some_order(self):
        self.begin()
        shown = self.says("watch", "--count", "1", "--sort", "port", "--reverse", "--brief",
                          self.first.name, self.other.name)
        self.assertNotIn(self.second.name, shown)
        self.assertLess(shown.index(self.other.name), shown.index(self.first.name))
        self.assertIn("nosuch", self.fails(1, "watch", "nosuch"))

    @needs_a_terminal
    def test_a_dumb_terminal_is_told_of_a_restart(self):
        self.begin()
        terminal = self.watch("--interval", "0.2", TERM="dumb")
        self.assertTrue(terminal.read_until(lambda drawn: b"cycle " in drawn, 5))
        self.driver.stop(6)
        self.assertTrue(terminal.read_until(lambda drawn: b"trying again" in drawn, 10))
        self.driver.start()
        self.assertTrue(terminal.read_until(
            lambda drawn: b"cycle " in drawn.split(b"trying again")[-1], 15))
        self.assertEqual(terminal.output.count(b"trying again"), 1)
        terminal.kill(signal.SIGINT)
        terminal.end()

    def test_a_pipe_ends_with_the_driver(self):
        self.begin()
        with subprocess.Popen([LUMCTL, "--socket", self.shelf.socket, "watch"],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE) as watching:
            self.assertTrue(watching.stdout.readline())
            self.driver.stop(6)
            self.assertIn(b"no driver answers", watching.communicate(timeout=20)[1])
        self.assertEqual(watching.returncode, 3)

    def test_plain_where_there_is_no_terminal(self):
        self.begin()
        shown = self.says("watch", "--interval", "0.2", "--count", "3")
        self.assertEqual(shown.count("  cycle "), 3)
        self.assertNotIn("\x1b", shown)
        self.assertEqual(shown.count("Ots0_1_0_2_1"), 3)

    def test_a_line_of_json_for_each_picture(self):
        self.begin()
        done = run(LUMCTL, "--socket", self.shelf.socket, "watch", "--count", "2", "--interval",
                   "0.1", "--json")
        pictures = [json.loads(line) for line in done.stdout.splitlines()]
        self.assertEqual([len(picture["ports"]) for picture in pictures], [3, 3])
        self.assertIn("cycles", pictures[0]["polling"])
        self.assertEqual([list(picture) for picture in pictures],
                         [["schema", "polling", "ports"]] * 2)

    def test_what_it_refuses(self):
        self.fails(3, "watch", "--count", "1")
        self.fails(2, "watch", "--count", "0")
        self.fails(2, "watch", "--interval", "0")
        self.fails(2, "watch", "--interval", "soon")
        self.fails(2, "watch", "--brief", "--wide")

    @needs_a_terminal
    def test_a_bar_while_a_command_waits(self):
        self.begin()
        self.does("im", "hold", "on")
        terminal = Terminal(LUMCTL, "--socket", self.shelf.socket, "port", "update",
                            self.first.name, "up", "--wait", "1.5")
        self.assertNotEqual(terminal.end(), 0)
        self.assertIn(b"#", terminal.output)
        self.assertIn(b"waiting for the driver", terminal.output)
        with subprocess.Popen(
                [LUMCTL, "--socket", self.shelf.socket, "port", "update", self.first.name, "up",
                 "--wait", "1.5"], stdout=subprocess.PIPE, stderr=subprocess.PIPE) as plain:
            self.assertNotIn(b"#", plain.communicate()[1], "no terminal, no bar")
        self.does("im", "behave")
