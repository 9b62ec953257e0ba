"""Where events are told beside the API: in the journal with fields, at a syslog receiver."""

import re
import socket
import struct

from support import BUILD, Driver, QUICK, ShelfTest

LINE = re.compile(r'<(\d+)>1 (\S+) (\S+) lumd (\d+) (\S+) \[lum@32473((?: \w+="(?:[^"\\\]]|\\.)*")*)\] (.*)',
                  re.DOTALL)
PARAMETER = re.compile(r' (\w+)="((?:[^"\\\]]|\\.)*)"')


class Outlets(ShelfTest):
    def setUp(self):
        super().setUp()
        self.cage = self.add_module("iivi-new-map")
        self.received = []

    def start_driver(self, *node_keys, **environment):
        self.shelf.write_description(*node_keys)
        self.driver = Driver(BUILD, self.shelf, ("--alarm-tests",), QUICK)
        self.driver.environment.update(environment)
        self.driver.__enter__()
        self.addCleanup(self.driver.__exit__)
        self.wait_for_state(self.cage, "up")

    def receive(self, played, found):
        """The first datagram since the start that is what `found` wants, once it is there."""
        played.settimeout(20)
        while not any(found(one) for one in self.received):
            self.received.append(played.recv(65536))
        return next(one for one in self.received if found(one))


class Journal(Outlets):
    def setUp(self):
        super().setUp()
        self.played = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(self.played.close)
        self.place = self.shelf.folder / "journal"
        self.played.bind(str(self.place))

    def begin(self, stream=None):
        self.driver_log = self.shelf.folder / "lumd.log"
        self.driver_log.touch()
        at = self.driver_log.stat()
        preloaded = f"{BUILD / 'lum_test_clock.so'} {BUILD / 'lum_test_journal.so'}"
        self.start_driver(LD_PRELOAD=preloaded, LUM_TEST_JOURNAL=str(self.place),
                          JOURNAL_STREAM=stream or f"{at.st_dev}:{at.st_ino}")

    @staticmethod
    def fields(entry):
        """Of journald's own protocol: NAME=value, or the name, its length and whatever bytes."""
        fields = {}
        while entry:
            line, _, entry = entry.partition(b"\n")
            name, is_text, value = line.partition(b"=")
            if not is_text:
                (length,) = struct.unpack("<Q", entry[:8])
                value, entry = entry[8:8 + length], entry[9 + length:]
            fields[name.decode()] = value.decode()
        return fields

    def entry(self, kind):
        return self.fields(self.receive(
            self.played, lambda entry: self.fields(entry).get("LUM_EVENT") == kind))

    def test_an_event_is_an_entry_with_fields_and_no_line(self):
        self.begin()
        self.entry("ports-settled")  # from when on a change is one from up
        self.driver.lumctl("module", "remove", self.cage.name)
        out = self.entry("module-out")
        self.assertEqual(out["LUM_PORT"], self.cage.name)
        self.assertEqual(out["LUM_NODE"], "test")
        self.assertEqual((out["PRIORITY"], out["LUM_SEVERITY"]), ("6", "ok"))
        self.assertEqual(out["SYSLOG_IDENTIFIER"], "lumd")
        self.assertRegex(out["MESSAGE"], f"^port {self.cage.name}: the module has gone")
        self.assertNotIn("LUM_SUB_PORT", out)
        self.assertGreater(int(out["LUM_NUMBER"]), 0)
        state = self.entry("port-state")
        self.assertEqual(state["LUM_STATE"], "empty")
        self.assertIn("was up", state["MESSAGE"])
        self.assertEqual(state["LUM_WAS"], "up")
        self.assertNotIn("the module has gone", self.driver_log.read_text())

    def test_of_a_sub_port(self):
        self.begin()
        self.driver.lumctl("inject", "alarm", f"{self.cage.name}:1", "flag-13", "on")
        raised = self.entry("alarm-raised")
        self.assertEqual((raised["LUM_SUB_PORT"], raised["LUM_ALARM"], raised["PRIORITY"]),
                         ("1", "flag-13", "4"))

    def test_another_stream_gets_lines(self):
        self.begin(stream="1:2")
        self.driver.lumctl("module", "remove", self.cage.name)
        self.log_with("<6>lumd: port 0/1/0/1: the module has gone")
        self.played.setblocking(False)
        self.assertRaises(BlockingIOError, self.played.recv, 1)

    def test_a_journal_that_reads_nothing_holds_nobody_up(self):
        """Its queue is full: events become lines again."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as filling:
            filling.setblocking(False)
            filling.connect(str(self.place))
            with self.assertRaises(BlockingIOError):
                while True:
                    filling.send(b"MESSAGE=another's\n")
        self.begin()
        self.driver.lumctl("module", "remove", self.cage.name)
        self.log_with("<6>lumd: port 0/1/0/1: the module has gone")


class SyslogReceiver(Outlets):
    def setUp(self):
        super().setUp()
        self.played = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(self.played.close)
        self.played.bind(("127.0.0.1", 0))

    @property
    def key(self):
        return f'syslog_receiver = "127.0.0.1:{self.played.getsockname()[1]}"'

    @staticmethod
    def line(datagram):
        priority, when, host, process, kind, data, text = LINE.fullmatch(datagram.decode()).groups()
        facts = {name: re.sub(r"\\(.)", r"\1", value) for name, value in PARAMETER.findall(data)}
        return int(priority), when, host, int(process), kind, facts, text

    def of_kind(self, kind):
        return self.line(self.receive(self.played, lambda one: self.line(one)[4] == kind))

    def test_an_event_is_a_line(self):
        self.start_driver(self.key)
        self.driver.lumctl("module", "remove", self.cage.name)
        priority, when, host, process, kind, facts, text = self.of_kind("module-out")
        self.assertEqual(priority, 3 * 8 + 6)
        self.assertRegex(when, r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$")
        self.assertEqual(host, socket.gethostname())
        self.assertEqual(process, self.driver.process.pid)
        self.assertEqual((facts["node"], facts["event"], facts["port"], facts["severity"]),
                         ("test", kind, self.cage.name, "ok"))
        self.assertRegex(text, f"^port {self.cage.name}: the module has gone")
        self.log_with("the module has gone")  # told on standard error all the same

    def test_what_strangers_have_written_is_harmless(self):
        """Names and modules with quotes, brackets, ends of lines and bytes that are no characters."""
        self.cage.module.write_text(self.cage.module.read_text() + (
            '\n[[raw]]\npage = 0\noffset = 148\nbytes = [93, 34, 92, 10, 195, 40, 27, 255]\n'))
        self.shelf.name = r'a\"] [x@1 y=\"ü'
        self.start_driver(self.key)
        self.of_kind("ports-settled")  # from when on the module has been read
        self.driver.lumctl("module", "remove", self.cage.name)
        *_, facts, text = self.of_kind("module-out")
        self.assertEqual(facts["node"], 'a"] [x@1 y="ü')
        self.assertIn(']"\\??(??', text)
        for datagram in self.received:
            self.line(datagram)
            self.assertNotRegex(datagram.decode(), r"[\x00-\x1f\x7f-\x9f]")

    def test_without_a_receiver_the_node_goes_on(self):
        self.played.close()
        self.start_driver('syslog_receiver = "127.0.0.1:1"')
        self.driver.lumctl("module", "remove", self.cage.name)
        self.wait_for_state(self.cage, "empty")
        self.driver.lumctl("module", "insert", self.cage.name)
        self.wait_for_state(self.cage, "up")

    def test_what_cannot_be_sent_is_told_once(self):
        self.start_driver('syslog_receiver = "255.255.255.255:514"')  # not without SO_BROADCAST
        self.driver.lumctl("module", "remove", self.cage.name)
        self.wait_for_state(self.cage, "empty")
        said = self.log_with("the module has gone")
        self.assertEqual(len(re.findall(r"events cannot be sent to the syslog receiver "
                                        r"255\.255\.255\.255:514: [A-Z].*IPAddressAllow", said)), 1)
