"""What is printed, wherever it goes to: terminals that know nothing, full disks, pipes that end."""

import json
import os
import re
import signal
import subprocess

from actions import Actions
from support import LUMCTL, LUMD, run
from terminal import Terminal, needs_a_terminal

NO_SPACE = "cannot write to standard output: No space left on device\n"


class Terminals(Actions):
    def on_a_terminal(self, *arguments, **environment):
        terminal = Terminal(LUMCTL, "--socket", self.shelf.socket, *arguments, **environment)
        self.assertEqual(os.waitstatus_to_exitcode(terminal.end()), 0, terminal.output)
        self.assertTrue(terminal.output)
        return terminal.output

    @needs_a_terminal
    def test_colours_are_for_terminals_that_have_them(self):
        self.begin()
        self.assertIn(b"\x1b[32m", self.on_a_terminal("show", "ports"))
        self.assertIn(b"\x1b[32m", self.on_a_terminal("show", "ports", NO_COLOR=""))
        for environment in ({"NO_COLOR": "1"}, {"TERM": "dumb"}, {"TERM": ""}):
            for words in (("show", "ports"), ("show", "port", self.first.name),
                          ("show", "alarms"), ("--help",)):
                self.assertNotIn(b"\x1b", self.on_a_terminal(*words, **environment), environment)

    @needs_a_terminal
    def test_a_dumb_terminal_is_never_steered(self):
        self.begin()
        shown = self.on_a_terminal("watch", "--interval", "0.1", "--count", "2", TERM="dumb")
        self.assertNotIn(b"\x1b", shown)
        self.assertEqual(shown.count(b"  cycle "), 2)
        self.does("im", "hold", "on")
        terminal = Terminal(LUMCTL, "--socket", self.shelf.socket, "port", "update",
                            self.first.name, "up", "--wait", "1.5", TERM="dumb")
        self.assertEqual(os.waitstatus_to_exitcode(terminal.end()), 1)
        self.assertNotIn(b"\x1b", terminal.output)
        self.assertNotIn(b"#", terminal.output)

    @needs_a_terminal
    def test_without_colours_the_screen_is_drawn_all_the_same(self):
        self.begin()
        shown = self.on_a_terminal("watch", "--interval", "0.1", "--count", "2", NO_COLOR="1")
        self.assertIn(b"\x1b[?1049h", shown)
        self.assertEqual(re.findall(rb"\x1b\[[0-9;]*m", shown), [])


class Lost(Actions):
    """What cannot be written is not passed over in silence."""

    def full(self, *arguments, program=LUMCTL):
        with open("/dev/full", "w", encoding="ascii") as full:
            done = subprocess.run([program, *arguments], stdout=full, stderr=subprocess.PIPE,
                                  text=True, check=False, timeout=30)
        return done.returncode, done.stderr

    def test_on_a_full_disk(self):
        self.begin()
        to = ("--socket", self.shelf.socket)
        for words in ((*to, "show", "ports"), (*to, "show", "node", "--json"), ("--help",),
                      ("--version",), ("completion", "bash"), ("__complete", "--", "sh"),
                      (*to, "watch"), (*to, "watch", "--json"), (*to, "resync"),
                      (*to, "set", self.first.name, "threshold=3")):
            self.assertEqual(self.full(*words), (1, f"lumctl: {NO_SPACE}"), words)
        stored = self.port(self.first)["sub_ports"][0]["configuration"]
        self.assertEqual(stored["threshold"], 3, "it was done, and could not be told")

    def test_on_a_full_disk_of_lumd(self):
        self.add_module("iivi-old-map")
        self.shelf.write_description()
        for words in (("--help",), ("--version",),
                      ("--config", self.shelf.description, "--check")):
            self.assertEqual(self.full(*words, program=LUMD), (1, f"lumd: {NO_SPACE}"), words)

    def test_errors_that_nobody_can_read_end_as_they_should(self):
        wrong = self.shelf.folder / "wrong.toml"
        wrong.write_text("colour = 1\n")
        for status, *words in ((3, LUMCTL, "--socket", "/nowhere", "show", "node"),
                               (2, LUMCTL, "nosuch"), (2, LUMCTL, "set"), (2, LUMD, "--nosuch"),
                               (2, LUMD, "--check", "--config", wrong)):
            with open("/dev/full", "w", encoding="ascii") as full:
                done = subprocess.run(words, stdout=subprocess.DEVNULL, stderr=full, check=False,
                                      timeout=30)
            self.assertEqual(done.returncode, status, words)

    def test_a_reader_that_has_gone_ends_it_without_a_word(self):
        self.begin()
        for words in (("show", "ports"), ("show", "ports", "--json"), ("watch",),
                      ("watch", "--json"), ("--help",)):
            for ignored in (False, True):
                reader, writer = os.pipe()
                os.close(reader)
                with subprocess.Popen(
                        [LUMCTL, "--socket", self.shelf.socket, *words], stdout=writer,
                        stderr=subprocess.PIPE, restore_signals=not ignored) as command:
                    os.close(writer)
                    said = command.communicate(timeout=20)[1]
                self.assertEqual((command.returncode, said), (-signal.SIGPIPE, b""),
                                 (words, ignored))

    def test_a_reader_that_takes_one_line(self):
        self.begin()
        done = run("sh", "-c", f"'{LUMCTL}' --socket '{self.shelf.socket}' show ports | head -1")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertTrue(done.stdout.startswith("PORT"))


class Numbers(Actions):
    """One port, and not one ports."""

    def setUp(self):
        super().setUp()
        self.shelf.cages.clear()
        self.first = self.add_module("iivi-old-map")

    def test_one_is_told_from_many(self):
        self.start()
        self.wait_for_state(self.first, "up")
        self.assertIn('node "test": 1 port, cold start', self.driver.log.read_text())
        done = run(LUMD, "--config", self.shelf.description, "--check")
        self.assertEqual(done.stdout.splitlines()[0], f"{self.shelf.description}: right, 1 port")
        self.driver.poll_once_more()
        self.assertRegex(self.says("watch", "--count", "1"), r": 1 port in [\d.]+ s")
        self.does("set", self.first.name, "threshold=3")
        self.assertRegex(self.says("show", "node"), r"\.db: 1 entry, \d+ writes?, 0 failures")

    def test_ordinals(self):
        self.start()
        for number, shown in (("1", "1st"), ("2", "2nd"), ("3", "3rd"), ("4", "4th"),
                              ("11", "11th"), ("12", "12th"), ("13", "13th"), ("21", "21st"),
                              ("112", "112th"), ("1002", "1002nd")):
            self.assertIn(f"  every {shown} element fails with code 5\n",
                          self.says("im", "fail-every", number, "5"))


class Schema(Actions):
    def test_every_answer_has_the_version_of_its_documents(self):
        self.begin()
        name = self.first.name
        for words in (("show", "ports"), ("show", "port", name), ("show", "module", name),
                      ("show", "controllers"), ("show", "node"), ("show", "pm"),
                      ("show", "alarms"), ("show", "config"), ("im", "show"),
                      ("config", "export"), ("watch", "--count", "1"),
                      ("clear", "stats"), ("port", "update", name, "up"), ("resync",), ("replay",),
                      ("set", name, "threshold=3"), ("module", "fault", name, "none"),
                      ("im", "behave"), ("inject", "alarm", f"{name}:0", "all", "off"),
                      ("ea", "connect"), ("port", "delete", name, "--dry-run"),
                      ("port", "delete", self.second.name), ("port", "create", "1")):
            answer = self.does(*words)
            self.assertEqual(list(answer)[0], "schema", words)
            self.assertEqual(answer["schema"], 1, words)

    def test_a_picture_has_it_once(self):
        self.begin()
        picture = self.does("watch", "--count", "1")
        self.assertEqual(json.dumps(picture).count('"schema"'), 1)
