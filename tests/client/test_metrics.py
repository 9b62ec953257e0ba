"""What is measured, as Prometheus reads it."""

import http.client
import json
import re
import socket
import subprocess
import time

import support
from actions import Actions

DOCS = support.SOURCE / "docs"
SAMPLE = re.compile(r'^(\w+)(?:\{(.*)\})? (\S+)$')
LABEL = re.compile(r'(\w+)="((?:[^"\\]|\\.)*)"')


class MetricsShelf(Actions):
    """On the shelf of the actions, with the metrics on both ways in."""

    def begin_with_http(self, second_ms=support.QUICK):
        self.start("http_port = 0", second_ms=second_ms)
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: "power_1" in now[self.first.name]["sub_ports"][0].get("pm", {})
            and now[self.first.name]["temperature_c"] is not None, 20))
        said = re.search(r"http://127\.0\.0\.1:(\d+)/", self.driver.log.read_text())
        self.tcp_port = int(said.group(1))

    def fetch(self, tcp=False, method="GET", accept=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.tcp_port, timeout=10)
        if not tcp:
            connection.sock = socket.socket(socket.AF_UNIX)
            connection.sock.settimeout(10)
            connection.sock.connect(str(self.shelf.socket))
        connection.request(method, "/metrics", headers={"Accept": accept} if accept else {})
        answer = connection.getresponse()
        body = answer.read()
        connection.close()
        return answer, body


class Metrics(MetricsShelf):
    def samples(self):
        """Every sample, by its name and its labels."""
        found = {}
        for line in self.fetch()[1].decode().splitlines():
            if line and not line.startswith("#"):
                name, labels, value = SAMPLE.match(line).groups()
                key = (name, *sorted(LABEL.findall(labels or "")))
                self.assertNotIn(key, found)
                found[key] = float(value)
        return found

    def lint(self):
        done = subprocess.run(["promtool", "check", "metrics"], input=self.fetch()[1],
                              capture_output=True, check=False, timeout=30)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, b"", b""))

    def test_promtool_finds_nothing_wrong(self):
        self.add_empty(slot=3)
        self.add_module("accelink-new-map", slot=3, faults="refuse-every=1,code=121")
        self.begin_with_http()
        self.lint()

    def test_both_ways_in(self):
        self.begin_with_http()
        for tcp in (False, True):
            answer, body = self.fetch(tcp)
            self.assertEqual(answer.status, 200)
            self.assertEqual(answer.getheader("Content-Type"),
                             "text/plain; version=0.0.4; charset=utf-8")
            self.assertIn(b'\nlum_build_info{node="test",version="', body)
            self.assertEqual(self.fetch(tcp, "POST")[0].status, 405)

    def test_what_a_module_says(self):
        self.begin_with_http()
        now = self.samples()
        name = ("port", self.first.name)
        self.assertEqual(now["lum_port_state", name, ("state", "up")], 1)
        self.assertEqual(now["lum_port_state", name, ("state", "failing")], 0)
        self.assertEqual(now["lum_module_temperature_celsius", name], 41.25)
        self.assertEqual(now["lum_module_supply_volts", name], 3.287)
        self.assertEqual(now["lum_port_led_state", name], 1)
        self.assertEqual(now["lum_port_dom_enabled", name], 1)
        self.assertEqual(now["lum_module_present", name], 1)
        self.assertLess(time.time() - now["lum_module_last_success_timestamp_seconds", name], 12)
        self.assertLess(time.time() - now["lum_readings_timestamp_seconds", name], 12)
        self.assertEqual(now["lum_module_failed_transfers_total", name], 0)
        self.assertGreater(now["lum_module_transfers_total", name], 1)
        powers = [now["lum_power_dbm", name, ("reading", f"power-{i}"), ("sub_port", "0")]
                  for i in range(3)]
        self.assertEqual(powers, [-2.85, 2.1, -19.4])
        self.assertEqual(now["lum_reading", name, ("reading", "reading-4"), ("sub_port", "1")], 190)
        info = next(key for key in now if key[0] == "lum_port_info" and name in key)
        self.assertIn(("vendor", "II-VI"), info)
        self.assertEqual(now["lum_controllers",], 6)
        self.assertEqual(now["lum_im_batches_total", ("operation", "create")], 2)
        self.assertEqual(now["lum_checkpoint_entries",], 3)
        self.assertEqual(now["lum_checkpoint_failures_total",], 0)
        self.assertGreater(now["lum_trace_lines_total", ("channel", "lum_info")], 0)

    def test_alarms_by_name(self):
        self.begin_with_http()
        alarm = ("lum_alarm", ("alarm", "flag-13"), ("port", self.first.name), ("sub_port", "1"))
        self.assertEqual(self.samples()[alarm], 0)
        self.does("inject", "alarm", f"{self.first.name}:1", "flag-13", "on")
        now = self.samples()
        self.assertEqual(now[alarm], 1)
        self.assertEqual(sum(value for key, value in now.items() if key[0] == "lum_alarm"), 1)
        self.assertNotIn(("lum_alarm", ("alarm", "flag-49-a"), ("port", self.first.name),
                          ("sub_port", "0")), now, "sub-port 0 cannot have it")

    def test_what_is_wrong_and_what_has_happened(self):
        self.begin_with_http()
        now = self.samples()
        kinds = {dict(key[1:])["kind"] for key in now if key[0] == "lum_findings"}
        self.assertLessEqual({"failing", "stale", "not-polled", "led-broken"}, kinds)
        self.assertEqual(sum(value for key, value in now.items() if key[0] == "lum_findings"), 0)
        self.assertEqual(now["lum_events_total", ("kind", "driver-started")], 1)
        self.assertEqual(now["lum_events_total", ("kind", "not-polled")], 0)
        self.driver.pause.touch()
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.samples()["lum_events_total", ("kind", "not-polled")] == 1, 20))
        self.assertEqual(self.samples()["lum_findings", ("kind", "not-polled")], 1)
        self.driver.pause.unlink()
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: self.samples()["lum_findings", ("kind", "not-polled")] == 0, 20))
        self.assertEqual(self.samples()["lum_events_total", ("kind", "not-polled")], 1)

    def test_a_moment_looks_the_same_in_each_scrape_and_so_does_the_order(self):
        self.begin_with_http()
        self.driver.hold_polling()
        self.driver.wait_for(lambda _: not self.driver.get("/v1/polling")["running"], 10)
        name = ("port", self.first.name)
        first, second = self.fetch()[1].decode(), self.fetch()[1].decode()
        names = [[line.split(" ")[0] for line in page.splitlines()] for page in (first, second)]
        self.assertEqual(names[0], names[1])
        moments = [[line for line in page.splitlines() if "timestamp_seconds" in line]
                   for page in (first, second)]
        self.assertGreater(len(moments[0]), 6)
        self.assertEqual(moments[0], moments[1])

    def test_polling_cycles(self):
        self.begin_with_http(support.REAL)
        self.driver.wait_for(lambda _: not self.driver.get("/v1/polling")["running"], 10)
        self.does("module", "fault", self.first.name, "delay-ms=400")
        cycles = self.samples()["lum_polling_cycles_total",]
        self.driver.wait_for(
            lambda _: self.samples()["lum_polling_cycles_total",] >= cycles + 2, 30)
        now = self.samples()
        self.assertEqual(now["lum_polling_cycle_ports",], 3)
        self.assertGreaterEqual(now["lum_polling_cycle_duration_seconds",], 0.8)
        self.assertLess(now["lum_polling_cycle_duration_seconds",], 3)
        self.assertGreaterEqual(now["lum_polling_cycle_lateness_seconds",], 0.8,
                                "the one before took as long")
        self.assertEqual(now["lum_polling_paused",], 0)

    def test_what_is_not_known_is_left_out(self):
        empty = self.add_empty(slot=3)
        self.begin_with_http()
        self.wait_for_state(empty, "empty")
        of_it = {key[0] for key in self.samples() if ("port", empty.name) in key}
        self.assertIn("lum_module_present", of_it)
        for name in ("lum_module_temperature_celsius", "lum_power_dbm", "lum_alarm"):
            self.assertNotIn(name, of_it)
        self.does("module", "remove", self.first.name)
        self.wait_for_state(self.first, "empty")
        of_it = {key[0] for key in self.samples() if ("port", self.first.name) in key}
        self.assertNotIn("lum_power_dbm", of_it)

    def test_a_module_with_bytes_that_are_no_text(self):
        odd = self.shelf.folder / "modules" / "2.toml"
        odd.write_text(odd.read_text() +
                       '\n[[raw]]\npage = 0\noffset = 148\nbytes = [255, 34, 92, 10, 123, 195]\n')
        self.begin_with_http()
        self.wait_for_state(self.other, "up")
        self.lint()
        info = next(key for key in self.samples()
                    if key[0] == "lum_port_info" and ("port", self.other.name) in key)
        self.assertIn('\\"', dict(info[1:])["part"])

    def test_every_metric_has_its_line_and_the_dashboards_show_nothing_else(self):
        self.begin_with_http()
        # Lateness is known from the second cycle on.
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: ("lum_polling_cycle_lateness_seconds",) in self.samples(), 15))
        there = {key[0] for key in self.samples()}
        described = set(re.findall(r"^\| `((?:lum|process)_\w+)`", (DOCS / "metrics.md").read_text(), re.M))
        self.assertEqual(there, described)
        for file in (DOCS / "grafana").glob("*.json"):
            dashboard = json.loads(file.read_text())
            asked = set(re.findall(r"\b(?:lum|process)_\w+", json.dumps([dashboard["panels"],
                                                                       dashboard["templating"]])))
            self.assertGreater(len(asked), 3)
            self.assertLessEqual(asked, there, file.name)
