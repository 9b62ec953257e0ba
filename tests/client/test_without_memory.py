"""The driver while some of its allocations fail: at its start and its end, in each of its answers and
streams, when it reads its description again, and while it takes a connection; and what it does with
what answers have taken.
"""

import contextlib
import dataclasses
import json
import re
import signal
import socket
import threading
import time
import urllib.parse

from failing_memory import IN_A_ROW, NEVER, RESERVED, TRIALS, FailingMemory
from support import SOURCE, UnixConnection

FEW = 16  # blocks, and one for so many requests, which containers take as they grow
REQUESTS_OF_A_BLOCK = 32
BLOCKS_OF_AN_EVENT = 4  # what happened is kept
API = json.loads((SOURCE / "client/lumd/api/openapi.json").read_text())


class Restarted(FailingMemory):
    """Each time one setting is there that was saved before."""

    def setUp(self):
        super().setUp()
        self.start_undisturbed()
        self.driver.lumctl("set", self.cage.name, "threshold=7")
        self.kept = self.setting()
        self.assertEqual(self.kept, {"saved": {"value": 7}, "in_force": {"value": 7}})
        self.driver.kill()
        self.start_undisturbed()
        self.store = self.store_files()
        self.driver.kill()

    def store_files(self):
        return sorted(file.name for file in (self.shelf.folder / "state").glob("checkpoints*"))

    def setting(self):
        port, = self.driver.get("/v1/settings")["ports"]
        found = port["sub_ports"][0]["settings"][0]
        self.assertEqual(found["name"], "threshold")
        return {place: found[place] for place in ("saved", "in_force")}

    def expect_nothing_lost(self):
        """A start that nothing befalls has every port, its setting, and the store as it was."""
        self.start_undisturbed()
        self.assertEqual(self.setting(), self.kept)
        health = self.driver.get("/v1/health")
        self.assertEqual((health["status"], health["findings"]), ("ok", []))
        self.assertEqual(self.store_files(), self.store)
        self.driver.kill()

    def test_at_its_start(self):
        """It comes up, or ends with a word; then the next start comes up, with what was saved."""
        self.start_undisturbed(NEVER)
        count = self.asked()
        self.driver.kill()
        for in_a_row in IN_A_ROW:
            self.ended = 0
            for number in self.spread(count):
                with self.subTest(allocation=number, in_a_row=in_a_row):
                    self.start_without(number, in_a_row)
            self.tell(f"start, {in_a_row} in a row", count, f", {self.ended} of them ended with a word")

    def start_without(self, number, in_a_row):
        self.begin_anew()
        self.let_fail(number, in_a_row)
        self.driver.start()
        is_up = self.wait_until_up()
        was_met = self.met()
        if not is_up:
            self.assertTrue(was_met, self.driver.log.read_text())
            self.expect_a_stated_end()
            self.ended += 1
        self.driver.kill()
        self.expect_nothing_lost()
        self.survived += was_met

    def test_at_its_end(self):
        """It ends in order; then the next start comes up, with what was saved."""
        self.start_undisturbed()
        self.let_fail(NEVER)
        self.assertEqual(self.driver.stop(20), 0)
        count = self.asked()
        for in_a_row in IN_A_ROW:
            for number in self.spread(count):
                with self.subTest(allocation=number, in_a_row=in_a_row):
                    self.end_without(number, in_a_row)
            self.tell(f"end, {in_a_row} in a row", count)

    def end_without(self, number, in_a_row, before=lambda: None):
        self.start_undisturbed()
        before()
        self.let_fail(number, in_a_row)
        self.assertEqual(self.driver.stop(20), 0, self.driver.log.read_text())
        was_met = self.met()
        self.expect_nothing_lost()
        self.survived += was_met

    def test_at_its_end_after_a_while_without_any(self):
        """What was in reserve is gone by then, and taken back for the end."""
        count = 40
        for number in self.spread(count, min(TRIALS, 10)):
            with self.subTest(allocation=number):
                self.end_without(number, RESERVED, lambda: self.be_without(1))
        self.tell("end after a while without any", count)

    def test_a_change_that_is_acknowledged_is_kept(self):
        """Each time the driver is killed behind the answer."""
        name = urllib.parse.quote(self.cage.name, safe="")
        target = f"/v1/ports/{name}/settings"
        self.start_undisturbed(NEVER)
        self.let_fail(NEVER)
        self.assertEqual(self.ask("POST", target, {"threshold": 7}), 200)
        count = self.asked()
        self.driver.kill()
        value = acknowledged = 7
        for in_a_row in IN_A_ROW:
            for number in self.spread(count):
                with self.subTest(allocation=number, in_a_row=in_a_row):
                    self.start_undisturbed()
                    value = 1 + value % 60
                    self.let_fail(number, in_a_row)
                    status, said = self.answer("POST", target, {"threshold": value})
                    if status == 200 and json.loads(said)["result"]["code"] == 0:
                        acknowledged = value
                    was_met = self.met()
                    self.assertIsNone(self.driver.process.poll(), self.driver.log.read_text())
                    self.driver.kill()
                    self.start_undisturbed()
                    kept = self.setting()
                    self.assertIn(kept["saved"]["value"], (acknowledged, value))
                    self.assertEqual(kept["in_force"], kept["saved"])
                    acknowledged = kept["saved"]["value"]
                    self.assertEqual(self.store_files(), self.store)
                    self.driver.kill()
                    self.survived += was_met
            self.tell(f"a change, {in_a_row} in a row", count)


@dataclasses.dataclass
class Request:
    """One, and those that make it possible each time."""

    method: str
    target: str
    body: dict | None = None
    before: tuple = ()

    def __str__(self):
        body = "" if self.body is None else f" {json.dumps(self.body)}"
        return f"{self.method} {self.target}{body}"


class WhileItServes(FailingMemory):
    def setUp(self):
        super().setUp()
        self.lined = self.add_file(slot=2)
        self.describe(self.describe_lines)

    def describe_lines(self, text):
        module = f'module = "modules/{self.lined.module.name}"'
        lines = module
        for line in ("reset", "low_power"):
            (self.shelf.folder / line).write_text("0\n")
            lines += f'\n{line} = "{line}"'
        return text.replace(module, lines)

    def requests(self):
        """Every request of the API, some of them in several ways, and what stands beside it."""
        name, lined = (urllib.parse.quote(cage.name, safe="") for cage in (self.cage, self.lined))
        slot = {"slot": 2, "wait_ms": 5000}
        create = Request("POST", "/v1/ports/create", slot)
        delete = Request("POST", "/v1/ports/delete", slot)
        place = {"port": self.cage.name, "sub_port": 1, "on": True}
        interface = {"interface": "Ots0_1_0_1_1", "ifhandle": 1}
        looks = ("/", "/v1", "/v1/", "/v1/openapi.json", "/v1/node", "/v1/health", "/v1/ports",
                 "/v1/shelf", f"/v1/ports/{name}", f"/v1/ports/{name}/history", "/v1/settings",
                 "/v1/settings?module=true", "/v1/controllers", f"/v1/modules/{name}?page=1",
                 "/v1/polling", "/v1/pm?bins=15min", "/v1/alarms?all", "/v1/events?since=1",
                 "/v1/description", "/v1/im", "/healthz", "/readyz", "/metrics")
        changes = (
            (f"/v1/ports/{name}/settings", {"threshold": 3, "dry_run": True}),
            (f"/v1/ports/{name}/settings", {"threshold": 3}),
            (f"/v1/ports/{name}/update", {"state": "up", "wait_ms": 5000}),
            ("/v1/controllers/replay", {"wait_ms": 5000}),
            ("/v1/controllers/resync", None),
            (f"/v1/modules/{name}/faults", {"script": "refuse-every=1000"}),
            (f"/v1/modules/{name}/faults", {"script": "none"}),
            (f"/v1/modules/{name}/release", None),
            (f"/v1/modules/{name}/poke", {"page": 0, "offset": 13, "value": 1}),
            (f"/v1/modules/{name}/remove", None),
            (f"/v1/modules/{name}/insert", None),
            (f"/v1/modules/{lined}/reset", {"on": True}),
            (f"/v1/modules/{lined}/reset", {"on": False}),
            (f"/v1/modules/{lined}/low-power", {"on": True}),
            (f"/v1/modules/{lined}/low-power", {"on": False}),
            ("/v1/statistics/clear", {"port": self.cage.name}),
            ("/v1/im", {"action": "behave"}),
            ("/v1/inject/alarm", {**place, "alarm": "flag-13"}),
            ("/v1/inject/readings", {**place, "readings": "power-1"}),
            ("/v1/inject/text", {"text": "x#Ots0_1_0_1_1#1#12#0"}),
            ("/v1/entity-agent/connect", None),
            ("/v1/entity-agent/interfaces/get-info", interface),
            ("/v1/entity-agent/resync-end", None))
        return [*(Request("GET", target) for target in looks),
                *(Request("POST", target, body) for target, body in changes),
                dataclasses.replace(delete, before=(create,)),
                dataclasses.replace(create, before=(delete,))]

    def test_that_is_every_request(self):
        """There is none in the API that the test below does not make."""
        made = {(request.method, request.target.partition("?")[0]) for request in self.requests()}
        for path, ways in API["paths"].items():
            place = re.sub(r"{\w+}", "[^/]+", path)
            for method in ways.keys() & {"get", "post"}:
                self.assertTrue(any(way == method.upper() and re.fullmatch(place, target)
                                    for way, target in made), (method, path))

    def make_possible(self, request):
        for one in request.before:
            self.assertIn(self.ask(one.method, one.target, one.body), (200, 409), one)

    def make(self, request):
        return self.ask(request.method, request.target, request.body)

    def test_while_it_serves(self):
        """An answer may fail; the driver stays, and answers the next time."""
        self.begin()
        for request in self.requests():
            count = NEVER
            for _ in range(4):  # what the node does beside it is not counted, as far as may be
                self.make_possible(request)
                self.let_fail(NEVER)
                self.assertEqual(self.make(request), 200, request)
                count = min(count, self.asked())
            blocks, events = self.blocks(), self.events()
            for in_a_row in IN_A_ROW:
                for number in self.spread(count):
                    with self.subTest(request=str(request), allocation=number, in_a_row=in_a_row):
                        self.make_possible(request)
                        self.make_without(request, number, in_a_row)
            left, told = self.blocks() - blocks, self.events() - events
            allowed = FEW + self.tried // REQUESTS_OF_A_BLOCK + BLOCKS_OF_AN_EVENT * told
            self.tell(request, count, f", {left} blocks left and {told} events")
            self.assertLess(left, allowed, request)
        for cage in (self.cage, self.lined):
            self.wait_for_state(cage, "up")

    def events(self):
        return self.driver.get("/v1/events")["last"]

    def make_without(self, request, number, in_a_row):
        self.let_fail(number, in_a_row)
        self.make(request)
        was_met = self.met()
        self.let_fail(0)
        self.assertIsNone(self.driver.process.poll(), self.driver.log.read_text())
        # What could be done only once may have been done.
        self.assertIn(self.make(request), (200, 409) if request.before else (200,))
        if request.before:
            self.put_right()
        self.survived += was_met

    def put_right(self):
        """A port whose controllers could not be made says what to do, and that helps."""
        asks = "a replay asks again"
        ports = self.driver.wait_for(
            lambda now: now[self.lined.name]["state"] in ("up", "absent")
            or asks in now[self.lined.name]["reason"], 20)
        self.assertIsNotNone(ports, self.driver.ports()[self.lined.name])
        if asks in ports[self.lined.name]["reason"]:
            self.assertEqual(self.ask("POST", "/v1/controllers/replay", {"wait_ms": 5000}), 200)
            self.wait_for_state(self.lined, "up")

    def test_a_while_without_any(self):
        """Whoever is at work just then does it once there is memory again."""
        self.begin()
        name = urllib.parse.quote(self.cage.name, safe="")
        change = Request("POST", f"/v1/ports/{name}/settings", {"threshold": 5})
        count = 600  # allocations of the rest of the node's while nobody asks
        for number in self.spread(count):
            with self.subTest(allocation=number):
                self.assertEqual(self.make(change), 200)
                self.let_fail(number, NEVER)
                time.sleep(0.05)
                was_met = self.met()
                self.let_fail(0)
                self.assertIsNone(self.driver.process.poll(), self.driver.log.read_text())
                self.survived += was_met
        self.assertEqual(self.driver.get("/v1/health")["findings"], [])
        self.tell("a while without any", count)

    def test_a_stream_of_events(self):
        """One may end, or bring nothing; the next one brings what has happened."""
        self.begin()
        self.try_without("a stream", self.follow)

    def test_a_description_that_is_read_again(self):
        """It may not be; the next time it is."""
        self.begin()
        self.try_without("a description read again", self.read_again)

    def try_without(self, what, is_done):
        """Tries what is to be done within so many seconds, and then again with memory."""
        self.let_fail(NEVER)
        self.assertTrue(is_done(20))
        count = self.asked()
        for in_a_row in IN_A_ROW:
            for number in self.spread(count):
                with self.subTest(allocation=number, in_a_row=in_a_row):
                    self.let_fail(number, in_a_row)
                    is_done(0.5)
                    was_met = self.met()
                    self.let_fail(0)
                    self.assertIsNone(self.driver.process.poll(), self.driver.log.read_text())
                    self.assertTrue(is_done(20), self.driver.log.read_text())
                    self.survived += was_met
        self.tell(what, count)

    def follow(self, patience):
        """Whether the first event has come."""
        connection = UnixConnection(self.shelf.socket)
        with contextlib.closing(connection):
            try:
                connection.connect()
                connection.sock.settimeout(patience)
                connection.sock.sendall(b"GET /v1/events?since=0 HTTP/1.1\r\nHost: lumd\r\n"
                                        b"Accept: text/event-stream\r\n\r\n")
                with connection.sock.makefile("rb") as stream:
                    return any(line.startswith(b"id: 1") for line in stream)
            except OSError:
                return False

    def read_again(self, patience):
        """Whether the driver says so."""
        self.driver.log.write_text("")
        self.driver.process.send_signal(signal.SIGHUP)
        end = time.monotonic() + patience
        while time.monotonic() < end:
            if "read again" in self.driver.log.read_text():
                return True
            time.sleep(0.01)
        return False

    def test_what_several_answers_at_once_have_taken_is_given_back(self):
        self.begin()
        for _ in range(20):
            self.assertEqual(self.ask("GET", "/metrics"), 200)
        self.assertEqual(self.given_back(), 0, "one after the other")
        end = time.monotonic() + 60
        while self.given_back() == 0 and time.monotonic() < end:
            readers = [threading.Thread(target=self.ask, args=("GET", "/metrics")) for _ in range(8)]
            for reader in readers:
                reader.start()
            for reader in readers:
                reader.join()
        self.assertGreater(self.given_back(), 0)


class Connections(FailingMemory):
    def connect_owner(self):
        connection = UnixConnection(self.shelf.socket)
        connection.connect()
        return connection.sock

    def connect_stranger(self):
        port = re.search(r"http://127\.0\.0\.1:(\d+)/", self.driver.log.read_text()).group(1)
        return socket.create_connection(("127.0.0.1", int(port)), timeout=20)

    @staticmethod
    def says_nothing(connection):
        """Waits until the driver has closed a connection on which nothing comes."""
        with connection:
            with contextlib.suppress(OSError):  # it has closed it already
                connection.shutdown(socket.SHUT_WR)
            with contextlib.suppress(ConnectionError):
                while connection.recv(4096):
                    pass

    def test_a_connection_that_finds_no_memory_is_closed_and_the_next_one_is_served(self):
        """So many allocations fail in a row that the driver's reserve does not help."""
        self.begin()
        for connect in (self.connect_owner, self.connect_stranger):
            self.says_nothing(connect())
            self.let_fail(NEVER)
            self.says_nothing(connect())
            count = self.asked()
            for in_a_row in (RESERVED + 1, 2 * RESERVED):
                for number in range(1, count + 1):
                    with self.subTest(connect=connect.__name__, allocation=number,
                                      in_a_row=in_a_row):
                        self.let_fail(number, in_a_row)
                        self.says_nothing(connect())
                        was_met = self.met()
                        self.let_fail(0)
                        self.assertIsNone(self.driver.process.poll(), self.driver.log.read_text())
                        self.says_nothing(connect())
                        self.assertEqual(self.ask("GET", "/healthz"), 200)
                        self.survived += was_met
            self.tell(connect.__name__, count)
