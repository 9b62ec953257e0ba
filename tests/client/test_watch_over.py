"""What monitoring systems ask: one line and a status, and what the names in it mean."""

import json
import re

from actions import Actions
from support import LUMCTL, SOURCE, UnixConnection, run


class WatchOver(Actions):
    def check(self, *more):
        done = run(LUMCTL, "--socket", self.shelf.socket, "check", *more)
        self.assertEqual(done.stderr, "")
        return done.returncode, done.stdout

    def wait_for_check(self, status):
        self.assertIsNotNone(self.driver.wait_for(lambda _: self.check()[0] == status, 20),
                             self.check())
        return self.check()[1]

    def test_nothing_is_wrong(self):
        empty = self.add_empty(slot=3)
        self.begin()
        self.wait_for_state(empty, "empty")
        self.assertEqual(self.wait_for_check(0),
                         "LUM OK - nothing is wrong | ports=4 'empty'=1 'up'=3\n")
        self.assertEqual(self.driver.get("/v1/health")["findings"], [])

    def test_the_worst_comes_first(self):
        self.begin()
        self.wait_for_check(0)
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: now[self.first.name]["temperature_c"] is not None, 20))
        self.does("inject", "alarm", f"{self.first.name}:0", "flag-12", "on")
        self.assertEqual(self.check(), (1, (
            f"LUM WARNING - port {self.first.name} alarm-raised: sub-port 0 has alarms: "
            "flag-12 (injected by a test) | ports=3 'up'=3\n")))
        self.does("module", "fault", self.other.name, "refuse-every=1", "code=121")
        line = self.wait_for_check(2)
        self.assertRegex(line, f"^LUM CRITICAL - port {self.other.name} failing: .*, and 1 more "
                               r"\| ports=3 'failing'=1 'up'=2\n$")
        every = self.check("--all")[1].splitlines()
        self.assertEqual([one.split(":")[0] for one in every[1:]], ["critical", "warning"])
        self.assertEqual(json.loads(self.check("--json")[1])["status"], "critical")

    def test_it_is_not_polled(self):
        self.begin()
        self.driver.pause.touch()
        self.assertIn("LUM CRITICAL - not-polled: polling is switched off: there is",
                      self.wait_for_check(2))

    def test_there_is_no_driver(self):
        done = run(LUMCTL, "--socket", self.shelf.folder / "none.sock", "check")
        self.assertEqual((done.returncode, done.stderr), (2, ""))
        self.assertRegex(done.stdout, "^LUM CRITICAL - no driver answers at .*none.sock: ")

    def ask(self, target):
        connection = UnixConnection(self.shelf.socket)
        connection.request("GET", target)
        answer = connection.getresponse()
        body = json.loads(answer.read())
        connection.close()
        return answer.status, body

    def test_probes(self):
        self.begin()
        for target, member in (("/healthz", "ok"), ("/readyz", "ready")):
            status, body = self.ask(target)
            self.assertEqual((status, body[member], body["reason"]), (200, True, None))

    def test_it_is_not_ready_while_a_module_keeps_the_creation_waiting(self):
        hanging = self.add_file(slot=4)
        marker = self.hang(hanging)
        self.addCleanup(lambda: marker.unlink(missing_ok=True))
        self.start()
        status, body = self.ask("/readyz")
        reason = "ports are still being created"
        self.assertEqual((status, body["ready"], body["reason"]), (503, False, reason))
        self.assertEqual((body["status"], body["detail"]), (503, reason))
        self.assertEqual(self.ask("/healthz")[0], 200)
        marker.unlink()
        self.assertIsNotNone(self.driver.wait_for(lambda _: self.ask("/readyz")[0] == 200, 20))


class Explanations(Actions):
    def test_every_name_is_explained(self):
        words = (SOURCE / "client" / "words" / "explanations.h").read_text()
        names = re.findall(r'^    \{"([a-z0-9 -]+)",', words, re.M)
        self.assertGreater(len(names), 20)
        for name in names:
            done = run(LUMCTL, "explain", *name.split())
            self.assertEqual((done.returncode, done.stderr), (0, ""), name)
            self.assertEqual([line.split(":")[0] for line in done.stdout.splitlines()],
                             ["Name", "Means", "Look at", "Do"])
        done = run(LUMCTL, "explain", "coming", "upp")
        self.assertEqual(done.returncode, 2)
        self.assertIn('did you mean "coming up"?', done.stderr)
