"""Ports, controllers and the interface manager: each command as it should go, and what it refuses."""

import json
import re
import socket
import threading
import time

from actions import Actions
from support import LUMCTL, run


class Lifecycle(Actions):
    def test_a_slot_is_deleted_and_created_again(self):
        self.begin()
        before = self.handles(self.first)
        gone = self.does("port", "delete", "--slot", "1")
        self.assertEqual([port["state"] for port in gone["ports"]], ["absent", "absent"])

        names = [port["name"] for port in self.does("show", "ports")["ports"]]
        self.assertEqual(names, [self.other.name])
        every = self.does("show", "ports", "--all")["ports"]
        self.assertEqual([port["state"] for port in every], ["absent", "absent", "up"])
        self.assertEqual(self.port(self.first)["sub_ports"], [])
        self.assertEqual(len(self.does("show", "controllers")["controllers"]), 2)
        self.assertEqual(self.does("show", "node")["port_states"], {"absent": 2, "up": 1})
        self.assertFalse(self.shelf.led_is_lit(self.first, "red:fault"))

        created = self.does("port", "create", "1/0")
        self.assertEqual([port["name"] for port in created["ports"]],
                         [self.first.name, self.second.name])
        self.assertFalse(set(self.handles(self.first)) & set(before))
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: now[self.second.name].get("temperature_c") == 38.5, 12))

    def test_one_port_is_deleted_and_created_again(self):
        self.begin()
        self.assertEqual(self.says("port", "delete", self.second.name),
                         f"{self.second.name}: absent\n")
        self.assertEqual(self.port(self.first)["state"], "up")
        created = self.does("port", "create", "1")
        self.assertEqual([port["name"] for port in created["ports"]], [self.second.name])

    def test_refusals(self):
        self.begin()
        self.assertIn("all ports of slot 1 exist", self.fails(1, "port", "create", "1"))
        self.assertIn("no slot 9", self.fails(1, "port", "create", "9"))
        self.assertIn("no instance 3", self.fails(1, "port", "create", "1/3"))
        self.fails(1, "port", "create", "16")
        self.assertIn("nobody", self.fails(1, "port", "delete", "nobody"))
        self.assertIn("nobody", self.fails(1, "port", "update", "nobody", "up"))
        for wrong in ("x", "1/", "1/x", "1/0/0", "-1", ""):
            self.fails(2, "port", "create", wrong)
        self.fails(2, "port", "delete")
        self.fails(2, "port", "delete", self.first.name, "--slot", "1")
        self.fails(2, "port", "update", self.first.name, "sideways")
        self.fails(2, "port", "create", "1", "--wait", "21")
        self.does("port", "delete", "--slot", "1")
        self.assertIn("no ports", self.fails(1, "port", "delete", "--slot", "1"))
        self.assertIn("does not exist", self.fails(1, "port", "delete", self.first.name))
        self.assertIn("does not exist", self.fails(1, "port", "update", self.first.name, "up"))
        self.assertIn("does not exist", self.fails(1, "set", self.first.name, "mode=3"))

    def test_a_refused_deletion_is_told_and_can_be_asked_for_again(self):
        self.begin()
        self.does("im", "refuse", "1", "11")
        self.assertIn("refused", self.fails(1, "port", "delete", self.first.name))
        view = self.port(self.first)
        self.assertEqual((view["state"], view["mutex_kept"]), ("deleting", True))
        self.assertIn("is being deleted", self.fails(1, "port", "update", self.first.name, "up"))
        self.assertIn("is being deleted", self.fails(1, "set", self.first.name, "mode=3"))
        self.assertIn("still being deleted", self.fails(1, "port", "create", "1"))
        self.does("port", "delete", self.first.name)
        self.does("port", "create", "1")

    def test_a_deletion_is_repeated_only_while_every_controller_has_a_handle(self):
        """The library would take a port without handles for the one that has gone meanwhile."""
        self.begin()
        self.does("port", "delete", "--slot", "2")
        self.does("im", "drop", "2")
        self.assertIn("dropped the creation", self.fails(1, "port", "create", "2"))
        self.assertIn("dropped the deletion",
                      self.fails(1, "port", "delete", self.first.name))
        for again in ((self.first.name,), (self.second.name, self.first.name), ("--slot", "1")):
            said = self.fails(1, "port", "delete", *again)
            self.assertIn(f"controllers of port {self.other.name} have no handles yet", said)
            self.assertIn(f"port {self.first.name} cannot be repeated", said)
        self.assertEqual(self.port(self.second)["state"], "up")
        self.does("port", "delete", self.second.name)
        self.does("replay")
        self.does("port", "delete", self.first.name)
        self.assertEqual(self.port(self.other)["state"], "up")

    def test_an_unanswered_creation_is_told_and_replayed(self):
        self.begin()
        self.does("port", "delete", "--slot", "1")
        self.does("im", "drop", "1")
        self.assertIn("dropped the creation", self.fails(1, "port", "create", "1"))
        self.assertEqual(self.port(self.first)["state"], "coming up")
        self.assertIn("a replay asks again", self.port(self.first)["reason"])
        self.assertIn("replay", self.fails(1, "port", "delete", self.first.name))
        self.does("replay")
        self.assertEqual(self.port(self.first)["state"], "up")

    def test_the_wait_is_bounded(self):
        self.begin()
        self.does("im", "hold", "on")
        asked = time.monotonic()
        self.fails(1, "port", "update", self.first.name, "up", "--wait", "0.5")
        self.assertLess(time.monotonic() - asked, 3)
        self.assertFalse(self.does("port", "update", self.first.name, "up", "--wait", "0")["complete"])
        self.does("im", "behave")

    def test_an_update_reaches_both_controllers(self):
        self.begin()
        for state, number in (("up", 1), ("down", 0)):
            self.assertEqual(self.does("port", "update", self.first.name, state)["state"], number)
            known = self.does("show", "controllers")["controllers"][:2]
            self.assertEqual([one["state"] for one in known], [number, number])

    def test_a_restarted_interface_manager_gets_its_controllers_back(self):
        self.begin()
        before = self.handles(self.first)
        self.does("im", "restart")
        self.assertFalse(any(one["agrees"] or one["ifhandle"]
                             for one in self.does("show", "controllers")["controllers"]))
        self.assertIn("failed the update", self.fails(1, "port", "update", self.first.name, "up"))
        reply = self.does("replay")
        self.assertEqual((reply["controllers"], reply["confirmed"]), (6, 6))
        self.assertTrue(self.does("show", "node")["resync"])
        self.assertFalse(set(self.handles(self.first)) & set(before))
        self.assertTrue(all(one["agrees"]
                            for one in self.does("show", "controllers")["controllers"]))
        self.does("resync")
        self.assertFalse(self.does("show", "node")["resync"])
        self.does("port", "update", self.first.name, "up")

    def test_creations_and_deletions_from_many_sides(self):
        """Whoever has to stand back says so; at the end everything can be had again."""
        self.begin()
        statuses = set()

        def storm(slot):
            for _ in range(8):
                for words in (("delete", "--slot", slot), ("create", slot)):
                    done = run(LUMCTL, "--socket", self.shelf.socket, "port", *words)
                    statuses.add(done.returncode)

        threads = [threading.Thread(target=storm, args=(slot,)) for slot in "1122"]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertLessEqual(statuses, {0, 1})
        for slot in "12":
            run(LUMCTL, "--socket", self.shelf.socket, "port", "create", slot)
        for cage in self.shelf.cages:
            self.wait_for_state(cage, "up")
        self.assertTrue(all(one["agrees"]
                            for one in self.does("show", "controllers")["controllers"]))


class InterfaceManager(Actions):
    def test_its_behaviour_is_shown_and_taken_back(self):
        self.begin()
        self.does("im", "refuse", "2", "0x809A4200")
        self.does("im", "drop", "3")
        self.does("im", "fail-next", "4", "5")
        self.does("im", "empty", "5")
        self.does("im", "malform", "6", "missing-member")
        self.does("im", "fail-name", "Ots0_9_0_0_0", "22")
        self.does("im", "fail-every", "7", "12")
        self.does("im", "delay", "10", "20", "--seed", "3")
        self.does("im", "out-of-order", "on", "--window", "5")
        now = self.does("im", "hold", "on")["behaviour"]
        self.assertEqual(now, {
            "refuse": {"batches": 2, "code": 0x809A4200}, "drop": {"batches": 3},
            "fail": {"batches": 4, "code": 5}, "empty": {"batches": 5},
            "malform": {"batches": 6, "kind": "missing-member"},
            "fail_names": [{"name": "Ots0_9_0_0_0", "code": 22}],
            "fail_every": {"nth": 7, "code": 12}, "delay_ms": {"min": 10, "max": 20},
            "out_of_order": True, "held": True})
        self.assertIn("0x809a4200", self.says("im", "show"))
        self.does("im", "behave")
        now = self.does("im", "show")
        self.assertEqual(now["controllers"], 6)
        self.assertEqual(now["behaviour"]["refuse"]["batches"], 0)
        self.assertEqual(now["behaviour"]["fail_names"], [])
        self.assertFalse(now["behaviour"]["held"])
        self.assertEqual(self.does("im", "restart", "--drop")["complete"], True)

    def test_refusals(self):
        self.begin()
        self.fails(1, "im", "refuse", "1", "0")
        self.fails(1, "im", "refuse", "1000001", "1")
        self.fails(1, "im", "malform", "1", "bent")
        self.fails(1, "im", "delay", "20", "10")
        for wrong in ((), ("frobnicate",), ("refuse",), ("refuse", "1"), ("refuse", "x", "1"),
                      ("refuse", "-1", "1"), ("hold",), ("hold", "maybe"), ("restart", "now")):
            self.fails(2, "im", *wrong)


class Bodies(Actions):
    """The API itself is as strict as the command line."""

    def post(self, target, body):
        text = body if isinstance(body, str) else json.dumps(body)
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(20)
            connection.connect(str(self.shelf.socket))
            connection.sendall(f"POST {target} HTTP/1.1\r\nHost: x\r\nConnection: close\r\n"
                               f"Content-Length: {len(text)}\r\n\r\n{text}".encode())
            answer = b""
            while part := connection.recv(65536):
                answer += part
        head, _, rest = answer.partition(b"\r\n\r\n")
        return int(head.split()[1]), json.loads(rest)

    def test_wrong_bodies(self):
        self.begin()
        port = "/v1/ports/" + self.first.name.replace("/", "%2F")
        module = "/v1/modules/" + self.first.name.replace("/", "%2F")
        for target, body in (
                ("/v1/ports/create", []), ("/v1/ports/create", {}),
                ("/v1/ports/create", {"slot": "1"}), ("/v1/ports/create", {"slot": 1, "x": 1}),
                ("/v1/ports/create", {"slot": 1.5}), ("/v1/ports/create", {"slot": -1}),
                ("/v1/ports/create", {"slot": 1, "wait_ms": 20001}),
                ("/v1/ports/delete", {"instance": 0}), ("/v1/ports/delete", {"ports": []}),
                ("/v1/ports/delete", {"ports": [3]}), ("/v1/ports/delete", {"ports": 3}),
                ("/v1/ports/delete", {"ports": [self.first.name], "slot": 1}),
                (port + "/update", {"state": 1}), (port + "/update", ""),
                (port + "/settings", {}), (port + "/settings", {"sub_port": 0}),
                (port + "/settings", {"threshold": "20"}), (port + "/settings", {"mode": 2**32}),
                (port + "/settings", {"mode": 2**64}), (port + "/settings", {"mode": -1}),
                (port + "/settings", {"threshold": -2**31 - 1}), (port + "/settings", {"mod": 1}),
                (module + "/insert", {"description": "relative.toml"}),
                (module + "/insert", {"description": 3}), (module + "/faults", {}),
                (module + "/poke", {"page": 0, "offset": 0}), ("/v1/im", {}),
                ("/v1/im", {"action": "x"}), ("/v1/im", {"action": "hold", "on": 1}),
                ("/v1/im", {"action": "drop", "count": 1, "code": 1}),
                ("/v1/controllers/replay", {"wait_ms": True}), ("/v1/controllers/resync", [1])):
            status, reply = self.post(target, body)
            self.assertEqual((status, reply.get("status")), (400, 400), (target, body, reply))
        self.assertEqual(self.post("/v1/ports/create", "{")[0], 400)
        self.assertEqual(len(self.driver.ports()), 3)

    def test_nothing_is_changed_over_tcp(self):
        self.start("http_port = 0")
        port = int(re.search(r"http://127\.0\.0\.1:(\d+)/", self.driver.log.read_text()).group(1))
        with socket.create_connection(("127.0.0.1", port), timeout=10) as connection:
            connection.sendall(b"POST /v1/controllers/replay HTTP/1.1\r\nHost: localhost\r\n"
                               b"Connection: close\r\nContent-Length: 0\r\n\r\n")
            self.assertIn(b" 403 ", connection.recv(4096)[:20])
