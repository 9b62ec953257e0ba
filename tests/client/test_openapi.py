"""What the API says of itself, held against what it answers, both ways."""

import json
import os
import re
import urllib.parse

from described import Description
from monitored import Monitored
from support import EXAMPLES, UnixConnection

# Described, and seen by the tests of what they belong to: it takes a disk that fails, a bus of its
# own, a driver that stands still or one that has lost events.
SEEN_ELSEWHERE = {
    "checkpoints/last_failure",
    "problem/ok", "problem/ready", "problem/reason",
    "event/left_out", "event_details/late_ms", "event_details/events",
    "line/problem",
    "missed/after", "missed/before",
    "module/problem", "module/way",
    "unknown_settings/port", "unknown_settings/reason",
}


def types_of(schema):
    types = schema.get("type", [])
    return [types] if isinstance(types, str) else list(types)


class OpenApi(Monitored):
    def setUp(self):
        super().setUp()
        self.empty = self.add_empty(3)
        self.lined = self.add_file(3)
        self.answered = set()

    def describe_lines(self, text):
        module = f'module = "modules/{self.lined.module.name}"'
        for line in ("reset", "low_power"):
            (self.shelf.folder / line).write_text("0\n")
            module += f'\n{line} = "{line}"'
        return text.replace(f'module = "modules/{self.lined.module.name}"', module)

    def start(self, *arguments, **options):
        super().start(*arguments, edit=self.describe_lines, **options)
        self.api = Description(self.driver.get("/v1/openapi.json"))
        return self.driver

    def request(self, method, target, body=None, accept="*/*"):
        """Status, kind and document of one answer."""
        connection = UnixConnection(self.shelf.socket)
        try:
            connection.request(method, target, None if body is None else json.dumps(body),
                               {"Accept": accept})
            answer = connection.getresponse()
            text = answer.read().decode()
            kind = answer.headers["Content-Type"].split(";")[0]
            return answer.status, kind, json.loads(text) if "json" in kind else text
        finally:
            connection.close()

    def ask(self, method, path, *, name=None, operation=None, query="", body=None, status=200,
            accept="*/*"):
        """The answer to a request, which is of the status and as it is described, as the request
        itself is."""
        known = self.api.document["paths"][path][method.lower()]
        at = f"#/paths/{path.replace('/', '~1')}/{method.lower()}"
        if body is not None:
            self.assertEqual(self.api.problems(
                body, f"{at}/requestBody/content/application~1json/schema"), [], (path, body))
        target = path
        for place, value in (("{name}", name), ("{operation}", operation)):
            target = target.replace(place, urllib.parse.quote(value or "", safe=""))
        given, kind, document = self.request(method, target + query, body, accept)
        self.assertEqual(given, status, (method, target, body, document))
        number = str(status) if str(status) in known["responses"] else "default"
        response = known["responses"][number]
        where = response.get("$ref", f"{at}/responses/{number}")
        self.assertIn(kind, self.api.at(where)["content"], target)
        self.assertEqual(self.api.problems(
            document, f"{where}/content/{kind.replace('/', '~1')}/schema"), [], (method, target))
        self.answered.add((method, path))
        return document

    def get(self, path, **given):
        return self.ask("GET", path, **given)

    def post(self, path, body=None, **given):
        return self.ask("POST", path, body=body, **given)

    def look_at_everything(self):
        for path in ("/v1", "/v1/", "/v1/openapi.json", "/v1/node", "/v1/health", "/v1/shelf",
                     "/v1/ports", "/v1/settings", "/v1/controllers", "/v1/polling", "/v1/pm", "/v1/alarms",
                     "/v1/events", "/v1/description", "/v1/im", "/healthz", "/readyz", "/metrics"):
            self.get(path)
        self.get("/v1/ports", query="?existing")
        for cage in self.shelf.cages:
            self.get("/v1/ports/{name}", name=cage.name)
            self.get("/v1/modules/{name}", name=cage.name)
        self.get("/v1/ports/{name}", name=self.first.name + ":1")
        self.get("/v1/ports/{name}/history", name=self.first.name)
        self.get("/v1/settings", query="?module=true")
        self.get("/v1/alarms", query="?all")
        for bins in ("15min", "24h"):
            self.get("/v1/pm", query=f"?bins={bins}&port=0%2F1%2F0%2F1:0")
        self.get("/v1/events", query="?since=1&limit=1&port=0%2F1%2F0%2F1")

    def follow_events(self):
        """The events of a stream are described as those of the document."""
        kinds = self.api.at("#/paths/~1v1~1events/get/responses/200/content")
        self.assertIn("text/event-stream", kinds)
        connection = UnixConnection(self.shelf.socket)
        self.addCleanup(connection.close)
        connection.connect()
        connection.sock.sendall(b"GET /v1/events?since=0 HTTP/1.1\r\nHost: lumd\r\n"
                                b"Accept: text/event-stream\r\n\r\n")
        last = self.driver.get("/v1/events")["last"]
        with connection.sock.makefile(encoding="utf-8") as stream:
            for line in stream:
                name, _, value = line.rstrip("\n").partition(": ")
                if name == "data":
                    self.assertEqual(
                        self.api.problems(json.loads(value), "#/components/schemas/event"), [])
                if (name, value) == ("id", str(last)):
                    return

    def change_modules(self):
        path = "/v1/modules/{name}/"
        another = str(EXAMPLES / "iivi-alarm.toml")
        for action, cage, body in (
                ("faults", self.first, {"script": "refuse-every=1"}),
                ("faults", self.first, {"script": "none"}), ("release", self.first, None),
                ("poke", self.first, {"page": 0, "offset": 13, "value": 1}),
                ("remove", self.second, None), ("insert", self.second, {"description": another}),
                ("reset", self.lined, {"on": True}), ("low-power", self.lined, {"on": True}),
                ("low-power", self.lined, {"on": False}), ("reset", self.lined, {"on": False})):
            self.post(path + action, body, name=cage.name)
        self.get("/v1/modules/{name}", name=self.second.name, query="?page=1")
        # What fails is seen with the next poll.
        self.post(path + "faults", {"script": "refuse-every=1"}, name=self.other.name)
        self.wait_for_state(self.other, "failing")
        self.get("/v1/modules/{name}", name=self.other.name)
        self.post(path + "faults", {"script": "none"}, name=self.other.name)
        os.truncate(self.lined.module, 256)
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: "reason" in now[self.lined.name]["module"].get("last_error", {}), 20))

    def change_settings(self):
        path = "/v1/ports/{name}/settings"
        everything = {"threshold": -20, "p2_setting": 3, "mode": 2, "setting_a": 1, "setting_b": 2,
                      "enable": 1, "sub1": 1}
        self.post(path, {"sub_port": 0, "dry_run": True, **everything}, name=self.first.name)
        self.post(path, everything, name=self.first.name)
        self.post(path, {"mode": 3}, name=self.first.name + ":0")

    def force_alarms(self):
        place = {"port": self.alarmed.name, "sub_port": 1, "on": True}
        self.post("/v1/inject/alarm", {**place, "alarm": "flag-13"})
        self.post("/v1/inject/readings", {**place, "readings": "power-1"})
        self.post("/v1/inject/text", {"text": "x#Ots0_2_0_2_1#1#12#1"})

    def misbehave(self):
        for action in ({"action": "refuse", "count": 1, "code": 11},
                       {"action": "fail-next", "count": 1, "code": 11},
                       {"action": "drop", "count": 1}, {"action": "empty", "count": 1},
                       {"action": "malform", "count": 1, "kind": "garbage"},
                       {"action": "fail-name", "name": "Ots0_1_0_1_1", "code": 11},
                       {"action": "fail-every", "nth": 2, "code": 11},
                       {"action": "delay", "min_ms": 1, "max_ms": 2, "seed": 1},
                       {"action": "out-of-order", "on": False, "window_ms": 20}):
            self.post("/v1/im", action)
        self.get("/v1/im")
        for action in ({"action": "behave"}, {"action": "hold", "on": True}):
            self.post("/v1/im", action)
        self.assertTrue(self.post("/v1/controllers/replay", {"wait_ms": 10})["pending"])
        self.post("/v1/im", {"action": "refuse", "count": 1, "code": 11})
        self.assertFalse(self.post("/v1/controllers/replay")["complete"])
        for action in ({"action": "hold", "on": False}, {"action": "behave"},
                       {"action": "restart", "drop": False}):
            self.post("/v1/im", action)
        self.post("/v1/controllers/replay", {"wait_ms": 10000})

    def ask_as_an_agent(self):
        path = "/v1/entity-agent/interfaces/{operation}"
        self.post("/v1/entity-agent/connect")
        self.post(path, {"port": self.first.name, "sub_port": 1, "admin": 1, "state_ready": 1},
                  operation="get-info")
        self.post(path, {"interface": "Ots0_1_0_1_1", "ifhandle": 1}, operation="get-info")
        self.post("/v1/entity-agent/resync-end")
        self.post("/v1/controllers/resync")

    def change_ports(self):
        self.post("/v1/ports/{name}/update", {"state": "up", "wait_ms": 10000}, name=self.first.name)
        self.post("/v1/ports/delete", {"ports": [self.first.name], "dry_run": True})
        self.post("/v1/ports/delete", {"slot": 1, "instance": 0, "wait_ms": 10000})
        self.get("/v1/ports/{name}", name=self.first.name)
        self.post("/v1/ports/create", {"slot": 1, "instance": 0, "wait_ms": 10000})
        self.post("/v1/statistics/clear", {"port": self.first.name})

    def let_things_go_wrong(self):
        led = self.shelf.folder / "leds" / f"{self.alarmed.led}:red:fault" / "brightness"
        led.unlink()
        led.mkdir()
        self.post("/v1/modules/{name}/remove", name=self.alarmed.name)
        self.driver.pause.touch()
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: "problem" in now[self.alarmed.name]["led"]
            and self.driver.get("/v1/ports")["halt"], 20))

    def test_every_answer_is_as_described_and_every_description_is_seen(self):
        state = self.shelf.folder / "state"
        self.begin()
        self.change_settings()
        self.assertEqual(self.driver.stop(6), 0)
        (state / "checkpoints.db").write_bytes(b"no store at all" * 100)
        self.begin()
        self.look_at_everything()
        self.change_settings()
        self.change_modules()
        self.force_alarms()
        self.driver.poll_once_more()
        self.look_at_everything()
        self.misbehave()
        self.ask_as_an_agent()
        self.change_ports()
        self.get("/v1/ports/{name}", name="none", status=404)
        self.let_things_go_wrong()
        self.look_at_everything()
        self.follow_events()
        self.post("/v1/modules/{name}/faults", {"script": "hang"}, name=self.other.name)
        self.driver.pause.unlink()
        self.wait_for_state(self.other, "failing")
        self.post("/v1/ports/{name}/settings", {"mode": 1}, name=self.other.name, status=202)
        self.assertEqual(self.answered, {(method, path) for method, path, _ in self.api.operations()})
        unseen = {place.removeprefix("#/components/schemas/").replace("/properties/", "/")
                  for place in set(self.api.member_places()) - self.api.seen}
        self.assertEqual(unseen, SEEN_ELSEWHERE)

    def test_what_is_described_is_what_is_routed(self):
        self.start()
        index = self.driver.get("/v1/")
        self.assertEqual(index["openapi"], "/v1/openapi.json")
        self.assertEqual(self.driver.get("/v1"), index)
        self.assertEqual(self.api.document["info"]["version"], str(index["schema"]))
        routed = {(one["method"], one["path"]): one for one in index["paths"]}
        self.assertEqual(len(routed), len(index["paths"]))
        self.assertEqual(routed.keys(), {(method, path) for method, path, _ in self.api.operations()})
        for method, path, operation in self.api.operations():
            route = routed[method, path]
            self.assertEqual(route["summary"], operation["summary"])
            self.assertEqual(route["query"], self.api.parameters(operation, "query"), path)
            self.assertEqual(re.findall(r"{(\w+)}", path), self.api.parameters(operation, "path"))

    def names_in(self, refusal):
        """The names that a refusal of one that there is not offers instead."""
        found = re.search(r"here, expected (no member|no query|one of (.+?))(?: \(did you.*)?$",
                          refusal["detail"])
        self.assertIsNotNone(found, refusal)
        return set() if found.group(2) is None else set(found.group(2).split(", "))

    def test_the_described_members_of_requests_are_those_that_are_taken(self):
        self.start()
        place = {"port": self.first.name, "sub_port": 1, "on": True}
        valid = {"create_body": {"slot": 1}, "delete_body": {"slot": 1}, "update_body": {"state": "up"},
                 "settings_body": {"mode": 1}, "faults_body": {"script": "none"},
                 "line_body": {"on": True}, "poke_body": {"page": 0, "offset": 0, "value": 0},
                 "alarm_body": {**place, "alarm": "all"}, "text_body": {"text": "x"},
                 "readings_body": {**place, "readings": "all"}, "im_body": {"action": "behave"},
                 "interface_body": {"interface": "Ots0_1_0_1_1"}}
        for method, path, operation in self.api.operations():
            target = path.replace("{name}", "0%2F1%2F0%2F1").replace("{operation}", "create")
            status, _, refusal = self.request(method, target + "?nothing=1")
            self.assertEqual(status, 400, target)
            self.assertEqual(self.names_in(refusal), set(self.api.parameters(operation, "query")))
            if method == "GET":
                continue
            schema = operation["requestBody"]["content"]["application/json"]["schema"]["$ref"]
            body = dict(valid.get(schema.rpartition("/")[2], {}), nothing=1)
            status, _, refusal = self.request(method, target, body)
            self.assertEqual(status, 400, (target, body))
            if "im_body" in schema:
                continue
            self.assertEqual(self.names_in(refusal), set(self.api.members(schema)[0]), target)
            for name in self.api.members(schema)[1]:
                status, _, _ = self.request(method, target, {**valid[schema.rpartition("/")[2]],
                                                             name: None})
                self.assertEqual(status, 400, (target, name))

    def test_the_interface_manager_s_actions_take_what_is_described(self):
        self.start()
        place = "#/components/schemas/im_body/oneOf"
        values = {"count": 1, "code": 1, "kind": "garbage", "name": "x", "nth": 1, "min_ms": 0,
                  "max_ms": 0, "on": False}
        for number, one in enumerate(self.api.at(place)):
            known, required, _ = self.api.members(f"{place}/{number}")
            action = one["properties"]["action"]["const"]
            body = {name: values.get(name, action) for name in required}
            status, _, refusal = self.request("POST", "/v1/im", {**body, "nothing": 1})
            self.assertEqual((status, self.names_in(refusal)), (400, set(known)), body)
        _, _, refusal = self.request("POST", "/v1/im", {"action": "nothing"})
        self.assertEqual(set(re.search("one of (.+)", refusal["detail"]).group(1).split(", ")),
                         {one["properties"]["action"]["const"] for one in self.api.at(place)})

    def test_every_number_has_a_unit_and_what_may_be_missing_says_when(self):
        self.start()
        for place in self.api.member_places():
            schema = self.api.at(place)
            types = types_of(schema)
            if "array" in types:
                schema = self.api.at(f"{place}/items")
                types += types_of(schema)
            if {"integer", "number"} & set(types):
                self.assertIn("x-unit", schema, place)
            holder, _, name = place.rpartition("/properties/")
            if name and "_body" not in place and name not in self.api.at(holder).get("required", []):
                self.assertIn("description", self.api.at(place), place)

    def test_the_words_are_those_of_the_driver(self):
        self.start()
        for schema, folder in (("port_state_name", "port_states"), ("reading_name", "readings"),
                               ("setting_name", "settings"), ("severity_name", "severities"),
                               ("bin_name", "bins"), ("led_name", "leds")):
            text = (EXAMPLES.parents[1] / "client" / "words" / f"{folder}.h").read_text()
            words = re.findall(r'[{=] ?(?:\w+::\w+, )?"([^"]+)"', text)
            self.assertEqual(self.api.at(f"#/components/schemas/{schema}/enum"), words)
