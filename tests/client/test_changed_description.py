"""A description that changes while the driver runs: what a restart would change, and SIGHUP."""

import http.client
import signal

from actions import Actions
from support import LUMD, UnixConnection, run


class Changed(Actions):
    def setUp(self):
        super().setUp()
        self.text = ""

    def begin(self):
        super().begin()
        self.text = self.shelf.description.read_text()

    def edit(self, *replacements):
        """Changes the description that the driver was started with."""
        text = self.text
        for old, new in replacements:
            self.assertIn(old, text)
            text = text.replace(old, new, 1)
        self.shelf.description.write_text(text)

    def check(self, status=0):
        """The lines of --check, without the name of the file in front of them."""
        done = run(LUMD, "--config", self.shelf.description, "--check")
        self.assertEqual((done.returncode, done.stderr), (status, ""))
        front = f"{self.shelf.description}: "
        for line in done.stdout.splitlines():
            self.assertTrue(line.startswith(front), line)
        return [line[len(front):] for line in done.stdout.splitlines()]

    def metrics(self):
        connection = UnixConnection(self.shelf.socket)
        self.addCleanup(connection.close)
        connection.request("GET", "/metrics")
        return connection.getresponse().read().decode()

    def reload(self):
        """What the driver says upon SIGHUP, without what stands in front of each line."""
        before = self.driver.log.read_text()
        self.driver.process.send_signal(signal.SIGHUP)
        front = f"lumd: {self.shelf.description}: "

        def said():
            lines = self.driver.log.read_text()[len(before):].splitlines()
            events = tuple(f"<{priority}>" for priority in range(8))
            return [line.removeprefix(front) for line in lines if not line.startswith(events)]

        self.assertTrue(self.driver.wait_for(
            lambda _: said() and said()[-1].startswith("read again"), 10), said())
        return said()


class Check(Changed):
    def test_without_a_driver_nothing_is_compared(self):
        self.shelf.write_description()
        right, compared = self.check()
        self.assertEqual(right, "right, 3 ports")
        self.assertIn("not compared with a running driver: ", compared)
        self.assertIn(str(self.shelf.socket), compared)

    def test_the_same_description(self):
        self.begin()
        self.assertEqual(self.check()[1:], ["the running driver has the same"])

    def test_each_difference_is_told_with_what_it_takes(self):
        self.begin()
        self.edit(('name = "test"', 'name = "other"\nhttp_names = ["node7", "node8"]'),
                  ('led_directory = "leds"', 'led_directory = "elsewhere"'),
                  ("number = 1\nhandle = 1", 'name = "west"\nnumber = 1\nhandle = 1'),
                  ("handle = 2", "handle = 22"))
        leds = self.shelf.folder / "elsewhere"
        lines = self.check()
        self.assertIn("SIGHUP or a restart would change name: test -> other", lines)
        self.assertIn("SIGHUP or a restart would change http_names: none -> node7, node8", lines)
        self.assertIn(f"SIGHUP or a restart would change port {self.first.name} name: "
                      f"{self.first.name} -> west", lines)
        [port] = [line for line in lines if f"port {self.second.name}: handle 2" in line]
        self.assertTrue(port.startswith("a restart would change "), port)
        self.assertIn("-> handle 22, ", port)
        [folder] = [line for line in lines if "led_directory" in line]
        self.assertTrue(folder.startswith("a restart would change ") and
                        folder.endswith(f"-> {leds}"), folder)
        self.assertEqual(len(lines), 6)
        self.assertEqual(self.does("show", "node")["name"], "test", "nothing was taken over")

    def test_ports_that_come_and_go_have_a_line_each(self):
        self.begin()
        block = self.text[self.text.rindex("[[slot]]"):]
        self.shelf.description.write_text(
            self.text.replace(block, block.replace("number = 1\nhandle", "number = 9\nhandle")))
        changes = self.check()[1:]
        self.assertEqual(len(changes), 2, changes)
        self.assertTrue(changes[0].startswith("a restart would change port 0/2/0/9 is new: handle"))
        self.assertEqual(changes[1], f"a restart would change port {self.other.name} is gone")

    def test_a_wrong_description_is_not_compared(self):
        self.begin()
        self.edit(('name = "test"', "name = 3"))
        done = run(LUMD, "--config", self.shelf.description, "--check")
        self.assertEqual((done.returncode, done.stdout), (2, ""))


class Reload(Changed):
    def test_what_can_be_is_taken_over_and_the_rest_is_told(self):
        self.begin()
        self.does("set", self.first.name, "threshold=20")
        self.edit(('name = "test"', 'name = "other"'),
                  ('led_directory = "leds"', 'led_directory = "elsewhere"'),
                  ("number = 1\nhandle = 1", 'name = "west"\nnumber = 1\nhandle = 1'),
                  ("[[slot]]", '[interface_manager]\ndelay_ms = 7\ndelay_max_ms = 9\n'
                               '[units]\nthreshold = "0.1 dBm"\n[[slot]]'))
        said = self.reload()
        self.assertIn("taken over: name: test -> other", said)
        self.assertIn(f"taken over: port {self.first.name} name: {self.first.name} -> west", said)
        self.assertIn("taken over: units threshold: none -> 0.1 dBm", said)
        self.assertIn("taken over: interface_manager delay_ms: 0 -> 7", said)
        [restart] = [line for line in said if line.startswith("needs a restart: ")]
        self.assertIn("led_directory", restart)
        self.assertEqual(said[-1], "read again: 5 taken over, 1 needs a restart")

        self.assertEqual(self.does("show", "node")["name"], "other")
        self.assertEqual(self.does("show", "port", "west")["state"], "up")
        self.assertEqual(self.does("show", "port", self.first.name)["name"], "west")
        [port] = self.does("show", "config", "west:0")["ports"]
        threshold = port["sub_ports"][0]["settings"][0]
        self.assertEqual((threshold["unit"], threshold["in_force"]["value"]), ("0.1 dBm", 20))
        self.assertIn('port="west"', self.metrics())
        manager = self.does("im", "show")["behaviour"]
        self.assertEqual((manager["delay_ms"]["min"], manager["delay_ms"]["max"]), (7, 9))
        self.assertEqual(self.check()[1:],
                         [restart.replace("needs a restart:", "a restart would change")])
        self.does("module", "remove", "west")
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: "port west: the module has gone" in self.driver.log.read_text(), 10))

    def test_what_was_taken_over_can_be_taken_back(self):
        self.begin()
        self.edit(("number = 1\nhandle = 1", 'name = "west"\nnumber = 1\nhandle = 1'))
        self.reload()
        self.assertIn("west", self.driver.ports())
        self.edit()
        self.assertEqual(self.reload(), [
            f"taken over: port {self.first.name} name: west -> {self.first.name}",
            "read again: 1 taken over, 0 need a restart"])
        self.assertIn(self.first.name, self.driver.ports())
        self.assertEqual(self.reload(), ["read again: nothing has changed"])

    def test_with_ports_that_come_or_go_no_name_is_taken_over(self):
        self.begin()
        self.edit(("number = 2\nhandle = 2", "number = 3\nhandle = 2"),
                  ("number = 1\nhandle = 1",
                   'name = "second"\nnumber = 1\nhandle = 1'))
        said = self.reload()
        self.assertIn(f"needs a restart: port {self.first.name} name: {self.first.name} -> second",
                      said)
        self.assertIn(f"needs a restart: port {self.second.name} is gone", said)
        self.assertEqual(said[-1], "read again: 0 taken over, 3 need a restart")
        self.assertEqual(set(self.driver.ports()),
                         {self.first.name, self.second.name, self.other.name})

    def test_a_broken_description_leaves_everything_as_it_is(self):
        self.begin()
        self.edit(('name = "test"', 'name = "other"'), ("handle = 2", "handle = 1"))
        said = self.reload()
        self.assertIn("port handle 1 is used twice", said[0])
        self.assertEqual(said[-1], "read again: it is wrong, so nothing is taken over")
        self.assertEqual(self.does("show", "node")["name"], "test")
        self.first.module.write_text("vendor = 3\n")
        self.edit(('name = "test"', 'name = "other"'))
        self.assertIn(f"{self.first.module}:1: ", self.reload()[0])
        self.assertEqual(self.does("show", "node")["name"], "test")
        self.shelf.description.unlink()
        self.assertIn("cannot be read", self.reload()[0])
        self.assertEqual(self.port(self.first)["state"], "up")

    def test_the_names_that_http_may_be_asked_for(self):
        self.shelf.write_description()
        self.start("http_port = 0")
        self.text = self.shelf.description.read_text()
        port = int(self.driver.log.read_text().split("http://127.0.0.1:")[1].split("/")[0])

        def asked(host):
            connection = http.client.HTTPConnection("127.0.0.1", port, timeout=10)
            self.addCleanup(connection.close)
            connection.request("GET", "/v1/node", headers={"Host": host})
            return connection.getresponse().status

        self.assertEqual((asked("localhost"), asked("node7.example")), (200, 421))
        self.edit(("http_port = 0", 'http_port = 0\nhttp_names = ["Node7.example"]'))
        self.assertIn("taken over: http_names: none -> node7.example", self.reload())
        self.assertEqual((asked("localhost"), asked("node7.example")), (200, 200))
