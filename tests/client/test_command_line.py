"""Exit codes and one-line errors of lumctl, and what it prints besides."""

import json
import re
import socket
import threading

import support
from helps import every_help
from support import LUMCTL, LUMD, SOURCE, run


class CommandLine(support.ShelfTest):
    def fails(self, status, *arguments):
        done = run(LUMCTL, *arguments)
        self.assertEqual(done.returncode, status, done.stderr)
        self.assertEqual(done.stdout, "")
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        self.assertTrue(done.stderr.startswith("lumctl: "), done.stderr)
        return done.stderr

    def test_wrong_usage_is_2(self):
        self.fails(2)
        self.assertIn("frobnicate", self.fails(2, "frobnicate"))
        self.assertIn("--frobnicate", self.fails(2, "show", "ports", "--frobnicate"))
        self.fails(2, "show")
        self.fails(2, "show", "port")
        self.fails(2, "show", "module", "0/1/0/1", "--page", "256")

    def test_what_holds_for_every_command_stands_anywhere(self):
        self.add_module("iivi-old-map")
        self.start()
        place = ("--socket", self.shelf.socket)
        for words in ((*place, "--json", "show", "node"), (*place, "show", "node", "--json"),
                      ("--json", "show", *place, "node"), ("show", "--json", "node", *place),
                      ("show", "node", *place, "--timeout", "20", "--json"),
                      ("--timeout=20", *place, "show", "node", "--json")):
            done = run(LUMCTL, *words)
            self.assertEqual((done.returncode, done.stderr), (0, ""), words)
            self.assertEqual(json.loads(done.stdout)["name"], "test", words)
        self.assertIn("--socket is given twice", self.fails(2, *place, "show", "node", *place))

    def test_every_command_that_asks_takes_them(self):
        for path, known in every_help():
            if path and path[0] not in ("completion", "explain", "decode"):
                self.assertLessEqual({"--json", "--timeout", "--socket"}, {*known.options}, path)

    def test_what_asks_no_driver_has_no_use_for_them(self):
        for option in (("--json",), ("--timeout", "3"), ("--socket", "/nowhere")):
            said = self.fails(2, *option, "completion", "bash")
            self.assertIn(f'"completion bash" asks no driver, {option[0]} has no meaning', said)
            self.assertIn(f'has no option {option[0]}',
                          self.fails(2, "completion", "bash", *option))

    def test_no_driver_is_3(self):
        self.assertIn("/nowhere/socket", self.fails(3, "--socket", "/nowhere/socket", "show", "ports"))
        self.fails(3, "--socket", "x" * 200, "show", "node")

    def test_something_that_is_no_driver_is_3(self):
        abandoned = self.shelf.folder / "abandoned"
        abandoned.write_text("")
        self.fails(3, "--socket", abandoned, "show", "ports")

    def test_an_answer_that_is_too_deep_is_3(self):
        """Whatever answers in the driver's place cannot end the command but with a message."""
        place = self.shelf.folder / "impostor.sock"
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(str(place))
            listener.listen()
            thread = threading.Thread(target=self.answer_deeply, args=(listener,))
            thread.start()
            self.assertIn("32 arrays", self.fails(3, "--socket", place, "show", "node"))
            thread.join()

    @staticmethod
    def answer_deeply(listener):
        connection, _ = listener.accept()
        with connection:
            connection.recv(65536)
            body = b"[" * 100000 + b"]" * 100000
            connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n" % len(body) + body)

    def test_unknown_port_is_1(self):
        self.add_module("iivi-old-map")
        self.start()
        place = self.shelf.socket
        self.assertIn("nobody", self.fails(1, "--socket", place, "show", "port", "nobody"))
        self.fails(1, "--socket", place, "show", "module", "a/b/c%2f")

    def test_help_and_version(self):
        for command in (LUMCTL, LUMD):
            for asked in ("--help", "--version"):
                done = run(command, asked)
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.assertTrue(done.stdout)
        self.assertEqual(run(LUMD, "--frobnicate").returncode, 2)

    def test_every_command_and_option_stands_in_the_manual_page(self):
        text = (SOURCE / "docs" / "man" / "lumctl.1").read_text()
        text = re.sub(r"\\f.", "", text).replace("\\-", "-")
        words = set(re.findall(r"[\w-]+", text))
        for path, known in every_help():
            self.assertLessEqual({*path[-1:], *known.options}, words, path)
