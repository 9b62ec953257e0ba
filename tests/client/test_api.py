"""The API, spoken to without lumctl: also by those who cannot speak it."""

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
            try:
                connection.sendall(data)
                connection.shutdown(socket.SHUT_WR)
                while part := connection.recv(65536):
                    answer += part
            except (BrokenPipeError, ConnectionResetError):
                pass
        return answer

    def ask(self, method, target, body="", tcp=False, host="localhost"):
        """Status, headers and JSON body of one request."""
        request = (f"{method} {target} HTTP/1.1\r\nHost: {host}\r\nConnection: close\r\n"
                   f"Content-Length: {len(body)}\r\n\r\n{body}")
        head, _, answer = self.say(request.encode(), tcp).partition(b"\r\n\r\n")
        document = json.loads(answer)
        self.assertEqual(next(iter(document.items())), ("schema", 1), (target, document))
        return int(head.split()[1]), head.decode(), document

    def test_a_setting_that_there_is_not_is_named(self):
        name = self.cage.name.replace("/", "%2F")
        for body, wrong in (('{"thresh": 2}', 'there is no "thresh" here, expected one of dry_run, enable, mode, '
                             'p2_setting, setting_a, setting_b, sub1, sub_port, threshold '
                             '(did you mean "threshold"?)'),
                            ('{"sub_port": 7}', '"sub_port" is 7, expected a whole number from 0 to 1'),
                            ('{"sub_port": 1}', "there is no setting in the body")):
            status, _, answer = self.ask("POST", f"/v1/ports/{name}/settings", body)
            self.assertEqual((status, answer["error"]), (400, wrong))

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
        for host in ("evil.example.net", "128.0.0.1", "localhost.example.net", "[::2]", "[", "x"):
            status, _, body = self.ask("GET", "/v1/ports", tcp=True, host=host)
            self.assertEqual(status, 421, host)
            self.assertIn("http_names", body["error"])
            self.assertEqual(self.ask("GET", "/v1/ports", host=host)[0], 200, "its own socket")

    def test_what_is_given_twice_is_refused(self):
        name = self.cage.name.replace("/", "%2F")
        status, _, answer = self.ask("POST", f"/v1/ports/{name}/settings",
                                     '{"threshold": 2, "mode": 1, "threshold": 3}')
        self.assertEqual(status, 400)
        self.assertIn('has "threshold" twice', answer["error"])
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
                          answer["error"])

    def test_head_is_a_get_without_a_body(self):
        for tcp in (False, True):
            answer = self.say(b"HEAD /v1/ports HTTP/1.1\r\nHost: localhost\r\n"
                              b"Connection: close\r\n\r\n", tcp)
            head, _, body = answer.partition(b"\r\n\r\n")
            self.assertTrue(head.startswith(b"HTTP/1.1 200"), head)
            self.assertEqual(body, b"")

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
            self.assertIn("32 arrays and objects in each other", answer["error"])
        self.assertEqual(self.ask("GET", "/v1/ports")[0], 200)

    def test_what_is_not_there(self):
        for target in ("/v2", "/v2/ports", "/v1/ports/", "/v1/ports/a/b/c", "*"):
            status, _, body = self.ask("GET", target)
            self.assertEqual(status, 404, target)
            self.assertIn("error", body)

    def test_methods_that_a_path_does_not_take(self):
        for tcp in (False, True):
            for method in ("POST", "DELETE", "PUT", "HACK"):
                status, head, _ = self.ask(method, "/v1/ports", tcp=tcp)
                self.assertEqual(status, 405)
                self.assertIn("Allow: GET", head)

    def test_wrong_encoding_and_bodies(self):
        for target in ("/v1/ports/%", "/v1/ports/%4", "/v1/ports/%zz", "/v1/node?a=%"):
            self.assertEqual(self.ask("GET", target)[0], 400, target)
        self.assertEqual(self.ask("GET", "/v1/ports", body="{")[0], 400)
        self.assertEqual(self.ask("GET", "/v1/modules/0%2F1%2F0%2F1?page=256")[0], 400)
        self.assertEqual(self.ask("GET", "/v1/modules/0%2F1%2F0%2F1?page=x")[0], 400)
        self.assertEqual(self.ask("GET", "/v1/modules/0%2F1%2F0%2F1?page=200")[0], 409)

    def test_too_much(self):
        for number, request in ((b" 431 ", b"GET / HTTP/1.1\r\nX: " + b"x" * 100_000),
                                (b" 413 ", b"POST / HTTP/1.1\r\nContent-Length: 999999999")):
            answer = self.say(request + b"\r\n\r\n")
            self.assertIn(number, answer[:20])
            document = json.loads(answer.partition(b"\r\n\r\n")[2])
            self.assertEqual(list(document), ["schema", "error"])
        deep = "[" * 200_000
        self.assertEqual(self.ask("GET", "/v1/ports", body=deep)[0], 400)

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
