"""NAME:SUBPORT means the same to every command."""

import json

from actions import Actions
from support import UnixConnection


class SubPorts(Actions):
    """On the shelf of the actions, two of whose ports have names: one ends as a sub-port would."""

    def setUp(self):
        super().setUp()
        write = self.shelf.write_description

        def write_with_names():
            write()
            text = self.shelf.description.read_text()
            for number, name in ((1, "west"), (2, "shelf:1")):
                line = f"number = {number}\nhandle = {number}\n"
                assert line in text
                text = text.replace(line, f'{line}name = "{name}"\n')
            self.shelf.description.write_text(text)

        self.shelf.write_description = write_with_names
        self.start()
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: all(port["state"] == "up" for port in now.values()), 20))

    def numbers(self, *words):
        return [part["sub_port"] for part in self.does(*words)["sub_ports"]]

    def test_the_port_or_one_of_its_sub_ports_is_shown(self):
        for command in ("port", "module"):
            for name in ("west", "0/1/0/1"):
                self.assertEqual(self.numbers("show", command, name), [0, 1])
                for number in (0, 1):
                    self.assertEqual(self.numbers("show", command, f"{name}:{number}"), [number])
        shown = self.says("show", "port", "west:1")
        self.assertIn("Sub-port 1: Ots0_1_0_1_1", shown)
        self.assertNotIn("Sub-port 0", shown)
        self.assertIn("page", self.does("show", "module", "west:0", "--page", "0"))

    def test_a_name_that_ends_so_is_a_name(self):
        self.assertEqual(self.numbers("show", "port", "shelf:1"), [0, 1])
        self.assertEqual(self.numbers("show", "port", "shelf:1:0"), [0])
        self.assertEqual(self.does("set", "shelf:1", "mode=3")["sub_port"], 0)
        self.assertEqual(self.does("set", "shelf:1:1", "mode=3")["sub_port"], 1)
        self.does("port", "update", "shelf:1", "up")
        self.assertEqual(self.does("inject", "alarm", "shelf:1:1", "all", "off")["sub_port"], 1)
        self.does("ea", "update", "shelf:1:0")

    def test_what_is_monitored_of_a_sub_port(self):
        self.driver.poll_once_more()
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.does("show", "pm", "west")["interfaces"], 20))
        for name, expected in (("west", {0, 1}), ("west:0", {0}), ("west:1", {1})):
            found = self.does("show", "pm", name)["interfaces"]
            self.assertEqual({one["sub_port"] for one in found}, expected)

    def test_what_is_done_to_whole_ports_takes_no_sub_port(self):
        for words in (("port", "update", "west:0", "up"), ("port", "delete", "west:1"),
                      ("module", "remove", "west:0"), ("module", "insert", "west:0"),
                      ("module", "fault", "west:0", "hang"), ("module", "release", "west:1"),
                      ("module", "poke", "west:0", "0", "0", "0"), ("clear", "stats", "west:1")):
            said = self.fails(1, *words)
            self.assertIn('is a sub-port, and this is for whole ports: give "west"', said, words)
        self.assertEqual(self.numbers("show", "port", "west"), [0, 1])

    def test_a_sub_port_that_there_is_not(self):
        for words in (("show", "port", "west:7"), ("show", "module", "west:2"),
                      ("set", "west:2", "mode=3"), ("show", "pm", "west:9"),
                      ("port", "update", "west:2", "up")):
            self.assertIn("port west has sub-ports 0 and 1, not ", self.fails(1, *words), words)
        for name in ("west:", "west:x", "west:10", ":0", "wset:0"):
            self.assertIn("the node has no port", self.fails(1, "show", "port", name), name)
        self.assertIn('no port "wset" (did you mean "west"?)', self.fails(1, "show", "port", "wset:0"))

    def test_the_path_and_the_body_of_settings_agree(self):
        connection = UnixConnection(self.shelf.socket)
        for sub_port, status in ((1, 200), (0, 400)):
            connection.request("POST", "/v1/ports/west:1/settings",
                               json.dumps({"sub_port": sub_port, "mode": 3}))
            answer = connection.getresponse()
            self.assertEqual(answer.status, status, answer.read())
            answer.read()
        connection.close()
