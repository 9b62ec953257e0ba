"""The API, spoken to without lumctl: also by those who cannot speak it."""

import contextlib
import json
import random
import re
import socket
import stat

import support


class Api(support.ShelfTest):
    def setUp(self):
        super().setUp()
        self.cage = self.add_module("iivi-old-map")
        self.start('http_port = 0\nhttp_names = ["node7.example.net"]')
        said = re.search(r"http://127\.0\.0\.1:(\d+)/", self.driver.log.read_text())
        self.port = int(said.group(1))

    def connect(self, tcp=False):
        if tcp:
            return socket.create_connection(("127.0.0.1", self.port), timeout=10)
        connection = socket.socket(socket.AF_UNIX)
        connection.settimeout(10)
        connection.connect(str(self.shelf.socket))
        return connection

    def say(self, data, tcp=False):
        """What comes back for some bytes, after which this side says no more."""
        with self.connect(tcp) as connection:
            answer = b""
            with contextlib.suppress(OSError):  # it may be refused before all of it is out
                connection.sendall(data)
                connection.shutdown(socket.SHUT_WR)
            with contextlib.suppress(ConnectionResetError):
                while part := connection.recv(65536):
                    answer += part
        return answer

    def ask(self, method, target, body="", tcp=False, host="localhost"):
        """Status, headers and JSON body of one request; a problem document where it is refused."""
        request = (f"{method} {target} HTTP/1.1\r\nHost: {host}\r\nConnection: close\r\n"
                   f"Content-Length: {len(body)}\r\n\r\n{body}")
        head, _, answer = self.say(request.encode(), tcp).partition(b"\r\n\r\n")
        document = json.loads(answer)
        self.assertEqual(next(iter(document.items())), ("schema", 1), (target, document))
        self.assertIn(b"X-Content-Type-Options: nosniff\r\n", head + b"\r\n")
        status = int(head.split()[1])
        self.assertEqual(b"application/problem+json" in head, status >= 400, head)
        if status >= 400:
            self.assert_problem(head.decode(), document)
        return status, head.decode(), document

    def assert_problem(self, head, document):
        """An error is told in the one form that errors have."""
        self.assertEqual(list(document)[:6], ["schema", "type", "title", "status", "detail", "error"])
        self.assertEqual(document["type"], "about:blank")
        self.assertEqual(document["status"], int(head.split()[1]))
        self.assertNotIn(document["title"], ("", "Error"))
        self.assertEqual(document["error"], document["detail"])
        self.assertTrue(document["detail"])

    def test_a_setting_that_there_is_not_is_named(self):
        name = self.cage.name.replace("/", "%2F")
        for body, wrong in (('{"thresh": 2}', 'there is no "thresh" here, expected one of dry_run, enable, mode, '
                             'p2_setting, setting_a, setting_b, sub1, sub_port, threshold '
                             '(did you mean "threshold"?)'),
                            ('{"sub_port": 7}', '"sub_port" is 7, expected a whole number from 0 to 1'),
                            ('{"sub_port": 1}', "there is no setting in the body")):
            status, _, answer = self.ask("POST", f"/v1/ports/{name}/settings", body)
            self.assertEqual((status, answer["detail"]), (400, wrong))

    def test_both_ways_in(self):
        for tcp in (False, True):
            status, head, body = self.ask("GET", "/v1/ports", tcp=tcp)
            self.assertEqual((status, len(body["ports"])), (200, 1))
            self.assertIn("application/json", head)
        mode = stat.S_IMODE(self.shelf.socket.stat().st_mode)
        self.assertEqual(mode, 0o600)

    def test_on_tcp_the_node_is_asked_by_a_name_of_its_own(self):
        for host in ("localhost", "LOCALHOST:80", f"127.0.0.1:{self.port}", "127.1.2.3", "[::1]:9",
                     "node7.example.net", "Node7.Example.NET:80"):
            self.assertEqual(self.ask("GET", "/v1/ports", tcp=True, host=host)[0], 200, host)
        for host in ("[::1", "[", "[]", "[::1]x", "[::1]:x", "[localhost]", "[127.0.0.1]", "localhost:evil@x",
                     "localhost:80:80", "localhost@evil", "localhost/", "user@localhost", ":80", "local host"):
            status, _, body = self.ask("GET", "/v1/ports", tcp=True, host=host)
            self.assertEqual(status, 400, host)
            self.assertIn("Host is none", body["detail"])
        for host in ("evil.example.net", "128.0.0.1", "localhost.example.net", "[::2]", "x", "1", "0:0"):
            status, _, body = self.ask("GET", "/v1/ports", tcp=True, host=host)
            self.assertEqual(status, 421, host)
            self.assertIn("http_names", body["detail"])
            self.assertEqual(self.ask("GET", "/v1/ports", host=host)[0], 200, "its own socket")

    def test_what_is_given_twice_is_refused(self):
        name = self.cage.name.replace("/", "%2F")
        status, _, answer = self.ask("POST", f"/v1/ports/{name}/settings",
                                     '{"threshold": 2, "mode": 1, "threshold": 3}')
        self.assertEqual(status, 400)
        self.assertIn('has "threshold" twice', answer["detail"])
        for tcp in (False, True):
            said = self.say(b"GET /v1/ports HTTP/1.1\r\nHost: localhost\r\nHost: evil.example\r\n"
                            b"Connection: close\r\n\r\n", tcp=tcp)
            self.assertIn(b" 400 ", said.split(b"\r\n")[0])
            self.assertIn(b"more than one Host", said)

    def test_a_body_that_is_coded_is_refused_once(self):
        for header, status in (("Content-Encoding: gzip", 415),
                               ("Content-Encoding: identity\r\nContent-Encoding: br", 415),
                               ("Transfer-Encoding: gzip", 501),
                               ("Transfer-Encoding: gzip, chunked", 501),
                               ("Transfer-Encoding: chunked, gzip", 501)):
            body = '{"slot": 1}' if status == 415 else "b\r\n{\"slot\": 1}\r\n0\r\n\r\n"
            length = f"Content-Length: {len(body)}\r\n" if status == 415 else ""
            answer = self.say(f"POST /v1/ports/create HTTP/1.1\r\nHost: localhost\r\n{length}"
                              f"{header}\r\n\r\n{body}".encode()).decode()
            self.assertTrue(answer.startswith(f"HTTP/1.1 {status} "), (header, answer))
            self.assertEqual(answer.count("HTTP/1.1 "), 1, answer)
            self.assertIn(header.split(":")[0], answer.partition("\r\n\r\n")[2])
        for header in ("Content-Encoding: identity", "content-encoding: Identity"):
            answer = self.say(f"GET /v1/ports HTTP/1.1\r\nHost: localhost\r\n{header}\r\n"
                              "Connection: close\r\n\r\n".encode())
            self.assertTrue(answer.startswith(b"HTTP/1.1 200"), answer)

    def test_a_whole_number_may_be_written_in_any_way(self):
        for wait in ("10", "10.0", "1e1"):
            status, _, answer = self.ask("POST", "/v1/controllers/replay", f'{{"wait_ms": {wait}}}')
            self.assertEqual(status, 200, answer)
        for wait, shown in (("10.5", "10.5"), ("-1", "-1"), ("1e9", "1000000000.0"), ('"1"', '"1"'),
                            ("true", "true"), ("-1e1", "-10.0")):
            status, _, answer = self.ask("POST", "/v1/controllers/replay", f'{{"wait_ms": {wait}}}')
            self.assertEqual(status, 400)
            self.assertIn(f'"wait_ms" is {shown}, expected a whole number from 0 to 20000',
                          answer["detail"])

    def test_head_is_a_get_without_a_body(self):
        for tcp in (False, True):
            answer = self.say(b"HEAD /v1/ports HTTP/1.1\r\nHost: localhost\r\n"
                              b"Connection: close\r\n\r\n", tcp)
            head, _, body = answer.partition(b"\r\n\r\n")
            self.assertTrue(head.startswith(b"HTTP/1.1 200"), head)
            self.assertEqual(body, b"")

    def ask_again(self, target, tag, method="GET", tcp=False):
        """Status, tag and body for who has an answer with a tag already."""
        said = self.say(f"{method} {target} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n"
                        f"If-None-Match: {tag}\r\n\r\n".encode(), tcp)
        head, _, body = said.decode().partition("\r\n\r\n")
        found = re.search(r"^ETag: (.*)\r$", head + "\r", re.MULTILINE)
        return int(head.split()[1]), found and found.group(1), body

    def test_what_the_peer_has_is_not_sent_again(self):
        self.wait_for_state(self.cage, "up")
        for target in ("/v1/description", "/v1", "/v1/openapi.json", "/v1/im"):
            for tcp in (False, True):
                status, tag, body = self.ask_again(target, '"another"', tcp=tcp)
                self.assertEqual((status, body != ""), (200, True), target)
                for given in (tag, f"W/{tag}", f'"x", {tag}', f'"x",{tag} , "y"', "*",
                              f'"x"\r\nIf-None-Match: {tag}'):
                    for method in ("GET", "HEAD"):
                        self.assertEqual(self.ask_again(target, given, method, tcp), (304, tag, ""),
                                         (target, given))
                for given in (tag[:-2] + '"', tag.strip('"'), "", '""', f'"x{tag[1:]}'):
                    self.assertEqual(self.ask_again(target, given, tcp=tcp), (200, tag, body), given)
        _, head, _ = self.ask("GET", "/v1/description")
        self.assertIn("Cache-Control: no-cache\r\n", head)

    def test_no_tag_outlives_a_change(self):
        target = "/v1/settings?port=0%2F1%2F0%2F1"
        self.wait_for_state(self.cage, "up")
        _, tag, _ = self.ask_again("/v1/im", '"x"')
        self.assertEqual(self.ask("POST", "/v1/im", '{"action": "drop", "count": 3}')[0], 200)
        status, changed, body = self.ask_again("/v1/im", tag)
        self.assertEqual((status, json.loads(body)["behaviour"]["drop"]["batches"]), (200, 3))
        self.assertNotEqual(changed, tag)
        self.assertEqual(self.ask("POST", "/v1/im", '{"action": "behave"}')[0], 200)
        self.assertEqual(self.ask_again("/v1/im", tag), (304, tag, ""))
        for method, path in (("POST", "/v1/im"), ("GET", "/v1/none"), ("GET", target + "&x")):
            status, tag, _ = self.ask_again(path, "*", method)
            self.assertEqual((status >= 400, tag), (True, None), path)

    def test_several_of_a_known_answer_on_one_connection(self):
        request = b"GET /v1/im HTTP/1.1\r\nHost: x\r\nIf-None-Match: *\r\n\r\n"
        said = self.say(request * 3)
        self.assertEqual((said.count(b"HTTP/1.1 304"), said.count(b"Content-Length")), (3, 0))

    def test_idle_strangers_keep_nobody_out(self):
        idle = [self.connect(tcp=True) for _ in range(80)]
        owners = [self.connect() for _ in range(80)]
        try:
            for tcp in (False, True):
                self.assertEqual(self.ask("GET", "/v1/ports", tcp=tcp)[0], 200)
        finally:
            for connection in idle + owners:
                connection.close()

    def test_names_are_decoded(self):
        self.assertEqual(self.ask("GET", "/v1/ports/0%2F1%2F0%2f1")[2]["name"], "0/1/0/1")
        self.assertEqual(self.ask("GET", "/v1/ports/0%2F1%2F0%2F9")[0], 404)

    def test_deeply_nested_bodies_are_refused(self):
        for body in ("[" * 52000 + "]" * 52000, '{"a":' * 20000 + "1" + "}" * 20000, "[" * 200000):
            status, _, answer = self.ask("POST", "/v1/ports/create", body)
            self.assertEqual(status, 400)
            self.assertIn("32 arrays and objects in each other", answer["detail"])
        self.assertEqual(self.ask("GET", "/v1/ports")[0], 200)

    def test_what_is_not_there(self):
        for target in ("/v2", "/v2/ports", "/v1/ports/", "/v1/ports/a/b/c", "*"):
            status, _, body = self.ask("GET", target)
            self.assertEqual(status, 404, target)
            self.assertEqual(body["detail"], "there is nothing at this path")

    def test_methods_that_a_path_does_not_take(self):
        for tcp in (False, True):
            for method in ("POST", "DELETE", "PUT", "HACK"):
                status, head, _ = self.ask(method, "/v1/ports", tcp=tcp)
                self.assertEqual(status, 405)
                self.assertIn("Allow: GET, HEAD\r\n", head)

    def test_wrong_encoding_and_bodies(self):
        for target in ("/v1/ports/%", "/v1/ports/%4", "/v1/ports/%zz", "/v1/node?a=%"):
            self.assertEqual(self.ask("GET", target)[0], 400, target)
        self.assertEqual(self.ask("GET", "/v1/ports", body="{")[0], 400)
        self.assertEqual(self.ask("GET", "/v1/modules/0%2F1%2F0%2F1?page=256")[0], 400)
        self.assertEqual(self.ask("GET", "/v1/modules/0%2F1%2F0%2F1?page=x")[0], 400)
        self.assertEqual(self.ask("GET", "/v1/modules/0%2F1%2F0%2F1?page=200")[0], 409)

    def test_queries_are_read_strictly(self):
        port = "/v1/ports/0%2F1%2F0%2F1"
        for target, wrong in (
                (port + "?existing", 'there is no "existing" here, expected no query'),
                ("/v1/ports?exsting", 'there is no "exsting" in the query here, expected one of existing '
                 '(did you mean "existing"?)'),
                ("/v1/ports?existing&existing", 'the query has "existing" twice'),
                ("/v1/ports?existing&exist%69ng=true", 'the query has "existing" twice'),
                ("/v1/ports?existing=maybe", '"existing" is "maybe", expected true or false'),
                ("/v1/alarms?all=1", '"all" is "1", expected true or false'),
                ("/v1/settings?module=TRUE", '"module" is "TRUE", expected true or false'),
                ("/v1/pm?=15min", 'there is no "" in the query here, expected one of port, bins'),
                ("/v1/pm?bins%3D15min", 'there is no "bins=15min" in the query here'),
                ("/v1/pm?bins=15min?port=x", 'the bins are "15min?port=x", expected one of 15min, 24h'),
                ("/v1/pm?bins=%00", "the bins are \"\x00\", expected one of 15min, 24h"),
                ("/v1/pm?po%rt=x", "the query is not properly encoded"),
                ("/v1/pm?port=%C3%28", 'no port "'),
                ("/v1/node?" + "x" * 7000, "expected no query"),
                ("/v1/node?" + "&".join(f"a{n}=1" for n in range(900)), 'no "a0" here'),
                ("/v1/events?since=-1", '"since" is "-1", expected a number'),
                ("/v1/events?since=99999999999999999999", "expected a number"),
                ("/v1/events?limit=", '"limit" is "", expected a number'),
                ("/healthz?x", 'there is no "x" here, expected no query'),
                ("/metrics?x", 'there is no "x" here, expected no query')):
            status, _, answer = self.ask("GET", target)
            self.assertIn(status, (400, 404), target)
            self.assertIn(wrong, answer["detail"], target)
        for target in ("/v1/ports?", "/v1/ports?&", "/v1/ports?existing=", "/v1/ports?existing=false",
                       "/v1/pm?bins=15min&&port=0%2f1%2f0%2f1"):
            self.assertEqual(self.ask("GET", target)[0], 200, target)
        for method in ("POST", "HEAD"):
            said = self.say(f"{method} /v1/im?x HTTP/1.1\r\nHost: localhost\r\n"
                            "Connection: close\r\n\r\n".encode())
            self.assertIn(b" 400 ", said.split(b"\r\n")[0])

    def test_too_much(self):
        for number, request in ((b" 431 ", b"GET / HTTP/1.1\r\nX: " + b"x" * 100_000),
                                (b" 413 ", b"POST / HTTP/1.1\r\nContent-Length: 999999999")):
            answer = self.say(request + b"\r\n\r\n")
            self.assertIn(number, answer[:20])
            document = json.loads(answer.partition(b"\r\n\r\n")[2])
            self.assertEqual(document["status"], int(number))
        deep = "[" * 200_000
        self.assertEqual(self.ask("GET", "/v1/ports", body=deep)[0], 400)

    def test_every_refusal_is_a_problem_document(self):
        many = "GET /v1/node HTTP/1.1\r\nHost: localhost\r\nHost: localhost\r\n"
        coded = "POST /v1/im HTTP/1.1\r\nHost: localhost\r\n{}Content-Length: 2\r\n\r\n{{}}"
        for tcp in (False, True):
            for status, request in (
                    (400, "nonsense\r\n\r\n"), (400, many + "\r\n"),
                    (400, "GET /v1/node?x=1 HTTP/1.1\r\nHost: localhost\r\n\r\n"),
                    (404, "GET /v1/ports/none HTTP/1.1\r\nHost: localhost\r\n\r\n"),
                    (405, "PUT /v1/node HTTP/1.1\r\nHost: localhost\r\n\r\n"),
                    (413, "POST /v1/im HTTP/1.1\r\nContent-Length: 999999999\r\n\r\n"),
                    (415, coded.format("Content-Encoding: gzip\r\n")),
                    (421 if tcp else 200, "GET /v1/im HTTP/1.1\r\nHost: evil.example\r\n\r\n"),
                    (403 if tcp else 400, coded.format("")),
                    (431, "GET / HTTP/1.1\r\nX: " + "x" * 100_000 + "\r\n\r\n"),
                    (431, "GET /v1/events?port=" + "x" * 20_000 + " HTTP/1.1\r\n\r\n"),
                    (501, "POST /v1/im HTTP/1.1\r\nTransfer-Encoding: gzip\r\n\r\n")):
                head, _, body = self.say(request.encode(), tcp).decode().partition("\r\n\r\n")
                self.assertTrue(head.startswith(f"HTTP/1.1 {status} "), (request[:50], head))
                if status != 200:
                    self.assertIn("Content-Type: application/problem+json\r\n", head)
                    self.assertIn("Cache-Control: no-store", head)
                    self.assert_problem(head, json.loads(body))

    def test_several_requests_on_one_connection(self):
        request = b"GET /v1/node HTTP/1.1\r\nHost: x\r\n\r\n"
        self.assertEqual(self.say(request * 3).count(b"HTTP/1.1 200"), 3)

    def test_nonsense_is_refused_and_survived(self):
        self.assertIn(b" 400 ", self.say(b"\x16\x03\x01\x02\x00\x01\x00\r\n\r\n")[:20])
        self.assertIn(b" 400 ", self.say(b"GET / HTTP/9\r\n\r\n")[:20])
        self.assertEqual(self.say(b""), b"")
        draw = random.Random(1)
        good = bytearray(b"GET /v1/ports/0%2F1%2F0%2F1?a=b HTTP/1.1\r\nHost: x\r\n"
                         b"Content-Length: 2\r\nTransfer-Encoding: chunked\r\n\r\n{}")
        for turn in range(300):
            bad = bytearray(good)
            for _ in range(draw.randint(1, 6)):
                bad[draw.randrange(len(bad))] = draw.randrange(256)
            self.say(bytes(bad[:draw.randint(1, len(bad))]), tcp=turn % 2 == 0)
        self.assertEqual(self.ask("GET", "/v1/ports")[0], 200)

    def test_those_who_say_nothing_are_many_and_do_not_block(self):
        silent = [self.connect() for _ in range(100)]
        for connection in silent:
            connection.close()
        self.assertIsNotNone(self.driver.wait_for(lambda ports: True, 5))
