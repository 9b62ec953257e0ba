"""What has happened: kept, shown, streamed, and told once on standard error."""

import contextlib
import json
import os
import pwd
import socket
import sqlite3
import subprocess
import time

from actions import Actions
from support import LUMCTL, UnixConnection

ROOM_FOR_OTHERS = 512 * 1024  # bytes of the disk, which the record leaves to the settings


class Watched(Actions):
    def events(self, query=""):
        return self.driver.get(f"/v1/events{query}")["events"]

    def kinds(self, port=None):
        return [one["kind"] for one in self.events() if port in (None, one["port"])]

    def wait_for_event(self, kind, port=None, seconds=20):
        self.assertIsNotNone(
            self.driver.wait_for(lambda _: kind in self.kinds(port), seconds), self.events())
        return [one for one in self.events()
                if one["kind"] == kind and port in (None, one["port"])][-1]

    def restart(self, kill=False):
        if kill:
            self.driver.kill()
        else:
            self.driver.process.terminate()
            self.driver.process.wait(10)
        self.driver.start()
        self.assertIsNotNone(self.driver.wait_for(
            lambda ports: all(port["state"] != "absent" for port in ports.values()), 30))


class Events(Watched):
    def test_a_start_is_told_in_two_events(self):
        self.add_empty(slot=3)
        self.begin()
        settled = self.wait_for_event("ports-settled")
        self.assertEqual(settled["text"], "4 ports: 1 empty, 3 up")
        self.assertEqual(self.kinds(), ["driver-started", "ports-settled"])
        self.assertEqual(self.events()[0]["text"], 'node "test": 4 ports, cold start')
        lines = [line for line in self.driver.log.read_text().splitlines() if line[0] == "<"]
        self.assertEqual(lines, ['<6>lumd: node "test": 4 ports, cold start',
                                 "<6>lumd: 4 ports: 1 empty, 3 up"])

    def test_a_module_goes_and_comes(self):
        self.begin()
        self.wait_for_event("ports-settled")
        name = self.first.name
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: now[name]["temperature_c"] is not None, 20))
        self.does("module", "remove", name)
        gone = self.wait_for_event("module-out", name)
        self.assertRegex(gone["text"], "^the module has gone: .+")
        state = self.wait_for_event("port-state", name)
        self.assertEqual(state["details"], {"state": "empty", "was": "up"})
        self.does("module", "insert", name)
        self.wait_for_event("module-in", name)
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.kinds(name).count("port-state") == 2, 20))
        self.assertEqual(self.events(f"?port={name}")[-1]["text"], "up, was empty")
        self.assertEqual(self.kinds(self.other.name), [])
        numbers = [one["number"] for one in self.events()]
        self.assertEqual(numbers, sorted(set(numbers)))
        # Each once on standard error, with the priority of an error or of a notice.
        log = self.driver.log.read_text()
        self.assertEqual(log.count(f"<6>lumd: port {name}: {gone['text']}\n"), 1)

    def test_a_failing_module_an_alarm_and_their_end(self):
        self.begin()
        self.wait_for_event("ports-settled")
        name = self.first.name
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: now[name]["temperature_c"] is not None, 20))
        self.does("inject", "alarm", f"{name}:1", "flag-12", "on")
        raised = self.wait_for_event("alarm-raised", name)
        self.assertEqual((raised["sub_port"], raised["severity"], raised["text"]),
                         (1, "warning", "alarm flag-12 raised"))
        self.does("inject", "alarm", f"{name}:1", "flag-12", "off")
        self.wait_for_event("alarm-cleared", name)
        self.does("module", "fault", self.other.name, "refuse-every=1", "code=121")
        failing = self.wait_for_event("port-state", self.other.name)
        self.assertEqual(failing["severity"], "critical")
        self.assertIn("failing, was up: the module's last transfer failed", failing["text"])
        self.assertIn(f"<3>lumd: port {self.other.name}: failing", self.driver.log.read_text())

    def test_polling_stops_and_goes_on(self):
        self.begin()
        self.wait_for_event("ports-settled")
        self.driver.pause.touch()
        self.wait_for_event("not-polled")
        self.driver.pause.unlink()
        over = self.wait_for_event("over")
        self.assertEqual(over["details"], {"finding": "not-polled"})

    def test_a_setting_is_changed(self):
        self.begin()
        self.wait_for_event("ports-settled")
        user = pwd.getpwuid(os.getuid()).pw_name
        place = f"{self.first.name}:1"
        self.does("set", place, "threshold=20")
        told = self.wait_for_event("setting-changed", self.first.name)
        self.assertEqual((told["sub_port"], told["text"]),
                         (1, f"threshold 20, was never set, by {user}"))
        self.does("set", place, "threshold=-30")
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.kinds().count("setting-changed") == 2, 20))
        told = self.events()[-1]
        self.assertEqual(told["text"], f"threshold -30, was 20, by {user}")
        self.assertEqual(told["details"], {
            "setting": "threshold", "new": -30, "by": user, "saved": True,
            "module_written": True, "old": 20})

    def test_a_batch_is_refused(self):
        self.begin()
        self.wait_for_event("ports-settled")
        self.does("im", "refuse", "1", "11")
        self.assertIn("refused", self.fails(1, "replay"))
        refused = self.wait_for_event("batch-refused")
        self.assertEqual(refused["text"], "the interface manager has refused 1 batch")

    def test_they_are_kept_over_a_restart_and_a_kill(self):
        self.begin()
        self.wait_for_event("ports-settled")
        before = self.events()
        self.restart()
        self.wait_for_event("driver-stopped")
        self.assertEqual(self.events()[:len(before)], before)
        kinds = self.kinds()
        self.assertEqual(kinds[len(before):len(before) + 2], ["driver-stopped", "driver-started"])
        self.assertIn("warm start", self.events()[len(before) + 1]["text"])
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.kinds().count("ports-settled") == 2, 20))
        time.sleep(2.5)  # once a second they are written
        before = self.events()
        self.restart(kill=True)
        now = self.events()
        self.assertEqual(now[:len(before)], before)
        self.assertEqual(now[len(before)]["kind"], "driver-started")
        self.assertGreater(now[len(before)]["number"], before[-1]["number"])

    def test_a_damaged_record_is_put_aside(self):
        self.begin()
        self.wait_for_event("ports-settled")
        self.driver.process.terminate()
        self.driver.process.wait(10)
        record = self.shelf.folder / "state" / "records.db"
        record.write_bytes(b"no database at all" * 1000)
        self.driver.start()
        self.wait_for_event("ports-settled")
        self.assertEqual(self.kinds(), ["events-lost", "driver-started", "ports-settled"])
        self.assertIn(f"it is now {record}.damaged", self.events()[0]["text"])
        self.assertTrue(self.driver.get("/v1/events")["kept"])
        self.assertTrue(record.with_name("records.db.damaged").exists())

    def test_a_record_that_is_removed_is_begun_anew(self):
        self.begin()
        self.wait_for_event("ports-settled")
        before = self.events()
        (self.shelf.folder / "state" / "records.db").unlink()
        self.does("module", "remove", self.first.name)
        self.wait_for_event("module-out")
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.driver.get("/v1/events")["kept"], 20))
        self.assertEqual(self.events()[:len(before)], before)
        time.sleep(2.5)
        kinds = self.kinds()
        self.restart(kill=True)
        self.assertEqual(self.kinds()[0], kinds[0])
        self.assertIn("module-out", self.kinds())

    def test_what_a_disk_has_left_is_left_to_the_settings(self):
        self.begin()
        self.wait_for_event("ports-settled")
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.driver.get("/v1/events")["kept"], 20))
        full = self.shelf.folder / "state.full"
        full.touch()
        os.truncate(full, ROOM_FOR_OTHERS - 1)
        self.does("module", "remove", self.first.name)
        gone = self.wait_for_event("module-out")
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: not self.driver.get("/v1/events")["kept"], 20))
        self.log_with("which are left to the settings")
        self.does("set", self.second.name, "threshold=5")
        self.assertTrue(self.driver.get("/v1/node")["store"]["usable"])
        os.truncate(full, ROOM_FOR_OTHERS)
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.driver.get("/v1/events")["kept"], 20))
        self.restart(kill=True)
        self.assertIn(gone, self.events())

    def test_the_query(self):
        self.begin()
        self.wait_for_event("ports-settled")
        first, last = self.events()
        self.assertEqual(self.events(f"?since={first['number']}"), [last])
        answer = self.driver.get("/v1/events?limit=1")
        self.assertEqual((answer["events"], answer["earlier"]), ([last], 1))
        for query, complaint in (("since=x", '"since" is "x", expected a number'),
                                 ("port=none", 'no port "none"')):
            connection = UnixConnection(self.shelf.socket)
            connection.request("GET", f"/v1/events?{query}")
            self.assertIn(complaint, json.loads(connection.getresponse().read())["detail"])
            connection.close()


class EventStreams(Watched):
    def open_stream(self, target="/v1/events", **headers):
        connection = UnixConnection(self.shelf.socket)
        connection.connect()
        headers = {"Accept": "text/event-stream", **headers}
        lines = "".join(f"{name}: {value}\r\n" for name, value in headers.items())
        connection.sock.sendall(
            f"GET {target} HTTP/1.1\r\nHost: lumd\r\n{lines}\r\n".encode())
        self.addCleanup(connection.close)
        return connection.sock

    def read_until(self, stream, text, seconds=20):
        stream.settimeout(1)
        got = b""
        end = time.monotonic() + seconds
        while text.encode() not in got:
            self.assertLess(time.monotonic(), end, got)
            try:
                more = stream.recv(65536)
            except socket.timeout:
                continue
            if not more:
                break
            got += more
        return got.decode()

    def test_what_happens_comes_as_it_happens(self):
        self.begin()
        self.wait_for_event("ports-settled")
        last = self.events()[-1]["number"]
        stream = self.open_stream()
        head = self.read_until(stream, "\r\n\r\n")
        self.assertIn("Content-Type: text/event-stream\r\n", head)
        self.does("module", "remove", self.first.name)
        text = self.read_until(stream, "event: module-out\ndata: ") + self.read_until(stream, "\n\n")
        self.assertIn(f"id: {last + 1}\n", text)
        # And again from the beginning for who has seen the first.
        first = self.events()[0]["number"]
        again = self.read_until(self.open_stream(**{"Last-Event-ID": str(first)}),
                                "event: module-out")
        self.assertIn("event: ports-settled", again)
        self.assertNotIn("event: driver-started", again)

    def test_who_gets_a_stream_and_from_where(self):
        self.begin()
        self.wait_for_event("ports-settled")
        for accept in ("text/event-stream", "text/html, TEXT/Event-Stream;q=0.5",
                       "text/html\r\nAccept: text/event-stream"):
            text = self.read_until(self.open_stream(Accept=accept), "retry: 2000\n\n")
            self.assertIn("Content-Type: text/event-stream\r\n", text)
            self.assertIn("\r\nX-Content-Type-Options: nosniff\r\n", text)
            self.assertIn("\r\n\r\nretry: ", text)
        for accept in ("text/event-streams", "x-text/event-stream", "text/event-stream; q=0",
                       "text/event-stream;q=0.000", "text/*", "*/*", ",;,", ""):
            text = self.read_until(self.open_stream(Accept=accept, Connection="close"), "never")
            self.assertIn("Content-Type: application/json\r\n", text, accept)
        last = self.events()[-1]["number"]
        for given in ("x", "-1", "1.0", "99999999999999999999", f"{last}\r\nLast-Event-ID: {last}"):
            text = self.read_until(self.open_stream(**{"Last-Event-ID": given, "Connection": "close"}),
                                   "never")
            self.assertTrue(text.startswith("HTTP/1.1 400 "), text)
            self.assertIn("Last-Event-ID", text.partition("\r\n\r\n")[2])
        # A number from another record begins anew.
        self.assertIn("event: driver-started", self.read_until(
            self.open_stream(**{"Last-Event-ID": str(last + 1000)}), "event: ports-settled"))

    def test_who_comes_back_too_late_learns_what_is_missed(self):
        self.begin()
        self.wait_for_event("ports-settled")
        self.does("module", "remove", self.first.name)
        kept = self.wait_for_event("module-out")["number"]
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.driver.get("/v1/events")["kept"], 20))
        self.driver.process.terminate()
        self.driver.process.wait(10)
        record = self.shelf.folder / "state" / "records.db"
        with contextlib.closing(sqlite3.connect(record, isolation_level=None)) as database:
            database.execute("DELETE FROM events WHERE number<?", (kept,))
        self.driver.start()
        self.wait_for_event("ports-settled")
        text = self.read_until(self.open_stream(**{"Last-Event-ID": "1"}), f"id: {kept}\n")
        told = text[text.index("event: missed"):].split("\n")[1]
        self.assertEqual(json.loads(told.removeprefix("data: ")), {"after": 1, "before": kept})
        text = self.read_until(self.open_stream(**{"Last-Event-ID": str(kept - 1)}), f"id: {kept}\n")
        self.assertNotIn("missed", text)

    def test_streams_have_a_budget_of_their_own(self):
        self.begin()
        streams = [self.open_stream() for _ in range(64)]
        for stream in streams:
            self.read_until(stream, "\r\n\r\n")
        refused = self.read_until(self.open_stream(), "too many streams")
        self.assertIn("HTTP/1.1 503 ", refused)
        self.assertIn("application/problem+json", refused)
        self.assertEqual(len(self.driver.ports()), 3)
        streams.pop().shutdown(socket.SHUT_RDWR)
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: "200" in self.read_until(self.open_stream(), "\r\n"), 20))


class EventsCommand(Watched):
    def test_a_line_each(self):
        self.begin()
        self.wait_for_event("ports-settled")
        self.does("module", "remove", self.first.name)
        self.wait_for_event("port-state", self.first.name)
        lines = self.says("events").splitlines()
        self.assertRegex(lines[0], r"^\d{4}-\d\d-\d\dT[\d:.]+Z +node \"test\": 3 ports, cold start$")
        self.assertRegex(lines[-1], f"Z +{self.first.name}: empty, was up: there is no module")
        self.assertEqual(len(self.says("events", self.first.name).splitlines()), 2)
        self.assertEqual(self.says("events", "--since", "2099-01-01"), "nothing has happened\n")
        self.assertEqual(self.says("events", "--since", "10m").splitlines(), lines)
        document = self.does("events")
        self.assertEqual([one["kind"] for one in document["events"]], self.kinds())
        self.assertIn('"yesterdai" is no time', self.fails(2, "events", "--since", "yesterdai"))

    def test_follow_goes_on_over_a_restart(self):
        self.begin()
        self.wait_for_event("ports-settled")
        out = self.shelf.folder / "followed"
        with open(out, "w") as file:
            follower = subprocess.Popen(
                [LUMCTL, "--socket", self.shelf.socket, "events", "--follow", "--json"],
                stdout=file, stderr=subprocess.STDOUT)
        self.addCleanup(follower.wait)
        self.addCleanup(follower.kill)
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: "ports-settled" in out.read_text(), 20))
        self.driver.process.terminate()
        self.driver.process.wait(10)
        end = time.monotonic() + 20
        while "waiting for it" not in out.read_text() and time.monotonic() < end:
            time.sleep(0.1)
        self.driver.start()
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: out.read_text().count("ports-settled") == 2, 20), out.read_text())
        lines = out.read_text().splitlines()
        events = [json.loads(line) for line in lines if line.startswith("{")]
        self.assertEqual(events, self.events())
        said = [line for line in lines if not line.startswith("{")]
        self.assertRegex(said[0], "no driver answers .*; waiting for it$")
        self.assertEqual(said[1:], ["lumctl: the driver answers again"])

    def test_show_node_says_whether_they_are_kept(self):
        self.begin()
        self.wait_for_event("ports-settled")
        self.assertRegex(self.says("show", "node"), r"(?m)^Events: +number \d+ is the latest$")
