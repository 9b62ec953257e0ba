"""The live view, and what is drawn while a command waits."""

import json
import signal
import subprocess

from actions import Actions
from support import LUMCTL, run
from terminal import Terminal, needs_a_terminal

TAKE, GIVE_BACK = b"\x1b[?1049h", b"\x1b[?1049l"


class Watching(Actions):
    def watch(self, *options):
        return Terminal(LUMCTL, "--socket", self.shelf.socket, "watch", *options)

    @needs_a_terminal
    def test_redrawn_as_cycles_end(self):
        self.begin()
        terminal = self.watch()
        self.assertTrue(terminal.read_until(lambda drawn: drawn.count(b"\x1b[H\x1b[1m") >= 3, 20))
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
        self.assertTrue(terminal.read_until(lambda drawn: b"no driver answers" in drawn, 10))
        self.driver.start()
        seen = len(terminal.output)
        self.assertTrue(terminal.read_until(lambda drawn: b"cycle " in drawn[seen:], 10))
        terminal.kill(signal.SIGINT)
        self.assertEqual(terminal.end(), 0)

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
        self.fails(2, "watch", "soon")

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
