"""The API as others reach it: TLS, addresses, the socket's group, and lumctl from afar."""

import contextlib
import grp
import json
import os
import re
import signal
import socket
import ssl
import stat
import subprocess
import time
import unittest
from unittest import mock

import support
from certificates import Authority
from manager_bus import LOOPBACK, ManagerBus
from support import LUMCTL, LUMD, run

NAMES = "DNS:localhost,DNS:node7.example.net,IP:127.0.0.1"
REQUEST = "{} {} HTTP/1.1\r\nHost: {}\r\nConnection: {}\r\nContent-Length: 0\r\n\r\n"


class Secured(support.ShelfTest):
    """A node with a certificate of a CA of its own."""

    def setUp(self):
        super().setUp()
        self.cage = self.add_module("iivi-old-map")
        self.authority = Authority(self.shelf.folder, "ca")
        self.certificate, self.key = self.authority.sign("node", NAMES)

    def begin(self, more=""):
        self.start(f'http_port = 0\nhttp_certificate = "{self.certificate}"\n'
                   f'http_key = "{self.key}"\n{more}')
        said = re.search(r"read-only API on https://127\.0\.0\.1:(\d+)/", self.log_with("read-only API"))
        self.port = int(said.group(1))
        self.url = f"https://localhost:{self.port}"

    def context(self, certificate=None, key=None):
        made = ssl.create_default_context(cafile=self.authority.file)
        if certificate:
            made.load_cert_chain(certificate, key)
        return made

    @contextlib.contextmanager
    def connect(self, name="localhost", context=None):
        wire = socket.create_connection(("127.0.0.1", self.port), timeout=20)
        with wire, (context or self.context()).wrap_socket(wire, server_hostname=name) as secured:
            yield secured

    @staticmethod
    def read(connection):
        """One answer: its status and body."""
        text = b""
        while b"\r\n\r\n" not in text:
            part = connection.recv(65536)
            if not part:
                return 0, text
            text += part
        head, _, body = text.partition(b"\r\n\r\n")
        length = int(re.search(rb"Content-Length: (\d+)", head).group(1))
        while len(body) < length:
            body += connection.recv(65536)
        return int(head.split()[1]), body

    def ask(self, method="GET", target="/v1/node", host="localhost", name="localhost", context=None):
        with self.connect(name, context) as connection:
            connection.sendall(REQUEST.format(method, target, host, "close").encode())
            return self.read(connection)

    def read_until(self, connection, wanted):
        text = b""
        while wanted not in text:
            part = connection.recv(4096)
            self.assertTrue(part, text)
            text += part

    def number(self):
        """Of the certificate that is shown."""
        with self.connect() as connection:
            return connection.getpeercert()["serialNumber"]

    def wire(self):
        return socket.create_connection(("127.0.0.1", self.port), timeout=20)

    def reload(self, wanted):
        before = len(self.driver.log.read_text())
        self.driver.process.send_signal(signal.SIGHUP)
        self.assertIsNotNone(self.driver.wait_for(
            lambda _: wanted in self.driver.log.read_text()[before:], 20), self.driver.log.read_text())
        return self.driver.log.read_text()[before:]


class Tls(Secured):
    def test_it_is_served_by_every_name_of_the_certificate(self):
        self.begin()
        for host, status in (("localhost", 200), ("127.0.0.1:1", 200), ("node7.example.net", 200),
                             ("NODE7.example.net:9", 200), ("node8.example.net", 421), ("localhost:evil@x", 400)):
            self.assertEqual(self.ask(host=host)[0], status, host)
        self.assertEqual(self.ask(name="node7.example.net", host="node7.example.net")[0], 200)
        with self.connect() as connection:
            self.assertIn(connection.version(), ("TLSv1.2", "TLSv1.3"))

    def test_nothing_older_than_tls_1_2_is_spoken(self):
        self.begin()
        for version, is_spoken in (("-tls1_1", False), ("-tls1_2", True)):
            done = run("openssl", "s_client", "-connect", f"127.0.0.1:{self.port}", version, "-cipher",
                       "ALL:@SECLEVEL=0", "-CAfile", str(self.authority.file))
            self.assertEqual("Verify return code: 0 (ok)" in done.stdout and "Cipher is (NONE)" not in done.stdout,
                             is_spoken, done.stdout + done.stderr)

    def test_nothing_is_changed(self):
        self.begin()
        for target in support.changes(self.cage.name):
            status, body = self.ask("POST", target)
            self.assertEqual(status, 403, (target, body))
            self.assertIn("only the driver's own socket", json.loads(body)["detail"])

    def test_several_requests_on_one_connection(self):
        self.begin()
        with self.connect() as connection:
            for _ in range(3):
                connection.sendall(REQUEST.format("GET", "/v1/node", "localhost", "keep-alive").encode())
                self.assertEqual(self.read(connection)[0], 200)

    def test_events_are_streamed(self):
        self.begin()
        with self.connect() as connection:
            connection.sendall(b"GET /v1/events HTTP/1.1\r\nHost: localhost\r\nAccept: text/event-stream\r\n\r\n")
            self.read_until(connection, b"retry:")
            self.driver.lumctl("set", f"{self.cage.name}:0", "threshold=20")
            self.read_until(connection, b"event: setting-changed")

    def test_plain_http_is_told_to_come_back_with_tls(self):
        self.begin()
        for _ in range(3):
            with self.wire() as connection:
                connection.sendall(b"GET /v1/node HTTP/1.1\r\nHost: localhost\r\n\r\n")
                status, body = self.read(connection)
                self.assertEqual(status, 400)
                self.assertIn("https://", json.loads(body)["detail"])
                self.assertEqual(connection.recv(10), b"")
        done = self.lumctl("--url", self.url.replace("https", "http"), "show", "node")
        self.assertEqual(done.returncode, 1)
        self.assertIn("this port speaks TLS", done.stderr)

    def test_nonsense_ends_the_connection_alone(self):
        self.begin()
        hello = self.hello()
        for data in (b"\0" * 500, b"\x16\x03\x01\xff\xff" + b"x" * 3000, hello[:60] + b"\xff" * 400,
                     hello + hello, hello + b"\x17\x03\x03\x00\x05hello", b"\x80\x2e\x01\0\x02" + b"y" * 60):
            with self.wire() as connection, contextlib.suppress(ConnectionError):
                connection.sendall(data)
                connection.shutdown(socket.SHUT_WR)
                while connection.recv(65536):
                    pass
        self.assertEqual(self.ask()[0], 200)
        self.assertIsNone(self.driver.process.poll())

    def hello(self):
        """How a client begins."""
        incoming, outgoing = ssl.MemoryBIO(), ssl.MemoryBIO()
        client = self.context().wrap_bio(incoming, outgoing, server_hostname="localhost")
        with contextlib.suppress(ssl.SSLWantReadError):
            client.do_handshake()
        return outgoing.read()

    def test_handshakes_that_never_end_keep_nobody_out(self):
        self.begin()
        hello = self.hello()
        held = []
        try:
            for turn in range(160):
                held.append(self.wire())
                if turn % 2:
                    held[-1].sendall(hello[:turn])
            for _ in range(5):
                self.assertEqual(self.ask()[0], 200)
            self.driver.lumctl("show", "node")
        finally:
            for connection in held:
                connection.close()

    def lumctl(self, *arguments, **environment):
        return run(LUMCTL, *arguments, **environment)

    def test_lumctl_looks_from_afar(self):
        self.begin()
        there = ("--url", self.url, "--ca", str(self.authority.file))
        done = self.lumctl(*there, "show", "node", "--json")
        self.assertEqual(json.loads(done.stdout)["name"], "test", done.stderr)
        self.assertIn(self.cage.name, self.lumctl("show", "ports", *there).stdout)
        self.assertIn(self.cage.name, self.lumctl("__complete", "--", *there, "show", "port", "").stdout.split())
        self.assertEqual(self.lumctl("check", *there, "--url", self.url).returncode, 2, "given twice")

    def test_lumctl_changes_nothing_from_afar(self):
        self.begin()
        there = ("--url", self.url, "--ca", str(self.authority.file))
        for words in (("set", f"{self.cage.name}:0", "threshold=20"), ("replay",), ("im", "hold", "on"),
                      ("port", "delete", self.cage.name)):
            done = self.lumctl(*words, *there)
            self.assertEqual(done.returncode, 1, (words, done.stderr))
            self.assertIn("changes are made on the node itself", done.stderr)
        for words in (("trace",), ("support", "x.tar.gz")):
            done = self.lumctl(*words, *there)
            self.assertEqual(done.returncode, 2, done.stderr)
            self.assertIn("use it on the node", done.stderr)

    def test_lumctl_says_why_it_trusts_nobody(self):
        self.begin()
        other = Authority(self.shelf.folder, "other")
        for url, ca, wanted in (
                (self.url, other.file, "comes from nobody who is trusted here"),
                (self.url, None, "--ca FILE"),
                (f"https://127.0.0.2:{self.port}", self.authority.file, "no driver answers"),
                (self.url, self.shelf.folder / "none.pem", "none.pem: No such file"),
                (self.url, self.key, "there is no certificate in PEM in it"),
                ("https://no-such-node.invalid:1", self.authority.file, "there is no address for"),
                (f"https://localhost:{self.free_port()}", self.authority.file, "Connection refused")):
            done = self.lumctl("--url", url, *(("--ca", str(ca)) if ca else ()), "show", "node")
            self.assertIn(done.returncode, (1, 3), done.stderr)
            self.assertIn(wanted, done.stderr)
            self.assertEqual(done.stderr.count("\n"), 1, done.stderr)

    def test_lumctl_wants_the_node_that_was_meant(self):
        self.authority.sign("node", "DNS:node7.example.net,DNS:*.node8.example.net,IP:192.0.2.7,IP:2001:db8::7")
        self.begin()
        for host in ("localhost", "127.0.0.1"):
            done = self.lumctl("--url", f"https://{host}:{self.port}", "--ca", str(self.authority.file), "show", "node")
            self.assertEqual(done.returncode, 3)
            self.assertIn("is for node7.example.net, *.node8.example.net, 192.0.2.7, 2001:db8::7: ask", done.stderr)

    @staticmethod
    def free_port():
        with socket.socket() as one:
            one.bind(("127.0.0.1", 0))
            return one.getsockname()[1]

    def test_lumctl_says_that_a_server_speaks_no_tls(self):
        self.begin()
        with socket.create_server(("127.0.0.1", 0)) as plain:
            asking = subprocess.Popen([LUMCTL, "--url", f"https://localhost:{plain.getsockname()[1]}", "show", "node"],
                                      stderr=subprocess.PIPE, text=True)
            connection, _ = plain.accept()
            connection.sendall(b"HTTP/1.1 400 Bad Request\r\n\r\n")
            said = asking.communicate(timeout=20)[1]
            connection.close()
        self.assertIn("speaks no TLS", said)

    def test_what_is_no_url_is_refused(self):
        for words, wanted in (
                (("--url", "node7"), '"node7" is no address of a node, expected https://NODE:PORT'),
                (("--url", "ftp://node7"), "is no address"), (("--url", "https://"), "is no address"),
                (("--url", "https://me@node7"), "is no address"), (("--url", "https://node7/x"), "is no address"),
                (("--url", "https://node7:0"), "is no address"), (("--url", "https://node7:65536"), "is no address"),
                (("--url", "https://[::1"), "is no address"), (("--url", "https://[1.2.3.4]"), "is no address"),
                (("--url", ""), "--url is empty"), (("--ca", "x"), "--ca, --cert and --key go with --url"),
                (("--url", "http://node7", "--ca", "x"), "go with --url https://"),
                (("--url", "https://node7", "--key", "x"), "--key goes with --cert"),
                (("--url", "https://node7", "--socket", "x"), "--socket and --url")):
            done = self.lumctl(*words, "show", "node")
            self.assertEqual(done.returncode, 2, words)
            self.assertIn(wanted, done.stderr)


class Clients(Secured):
    """A node that wants to know who asks."""

    def setUp(self):
        super().setUp()
        self.clients = Authority(self.shelf.folder, "clients")
        self.begin(f'http_client_ca = "{self.clients.file}"')

    def lumctl(self, *files):
        there = ("--url", self.url, "--ca", str(self.authority.file))
        return run(LUMCTL, *there, *map(str, files), "show", "node", "--json")

    def test_who_has_a_certificate_is_answered(self):
        known = self.clients.sign("reader")
        self.assertEqual(self.ask(context=self.context(*known))[0], 200)
        self.assertEqual(json.loads(self.lumctl("--cert", known[0], "--key", known[1]).stdout)["name"], "test")
        both = self.shelf.folder / "both.pem"
        both.write_text(known[1].read_text() + known[0].read_text())
        self.assertEqual(self.lumctl("--cert", both).returncode, 0)

    def test_who_has_none_is_not(self):
        with self.assertRaises((ssl.SSLError, ConnectionError)):
            self.assertNotEqual(self.ask()[0], 0)
            raise ConnectionError("nothing came")
        for _ in range(5):
            done = self.lumctl()
            self.assertEqual(done.returncode, 3)
            self.assertIn("wants a certificate of whoever asks: --cert FILE", done.stderr)

    def test_who_has_one_of_another_ca_is_not(self):
        stranger = self.authority.sign("stranger")
        done = self.lumctl("--cert", stranger[0], "--key", stranger[1])
        self.assertEqual(done.returncode, 3)
        self.assertIn("does not take the certificate", done.stderr)
        self.assertIn("http_client_ca", done.stderr)


class Reload(Secured):
    def test_another_certificate_is_taken_over(self):
        self.begin()
        first = self.number()
        self.authority.sign("node", NAMES)
        self.assertEqual(self.number(), first)
        said = self.reload("taken over: the files of TLS, whose certificate is good until 20")
        self.assertNotIn("nothing has changed", said)
        second = self.number()
        self.assertNotEqual(second, first)
        self.reload("read again: nothing has changed")
        self.assertEqual(self.number(), second)

    def test_a_wrong_file_changes_nothing(self):
        self.begin()
        first = self.number()
        good = self.certificate.read_bytes(), self.key.read_bytes()
        other = self.authority.sign("another", NAMES)
        for certificate, key, wanted in (
                (b"", good[1], "there is no certificate in PEM in it"),
                (good[0] + good[0][:200], good[1], "a certificate behind the first cannot be read"),
                (good[0], b"nonsense", "there is no private key in PEM in it"),
                (good[0], other[1].read_bytes(), "the key is not the certificate's"),
                (good[0], self.with_passphrase(), "the key has a passphrase"),
                (good[0] * 4000, good[1], "longer than 1 MiB"),
                (None, good[1], "No such file")):
            self.certificate.unlink(missing_ok=True)
            if certificate is not None:
                self.certificate.write_bytes(certificate)
            self.key.write_bytes(key)
            said = self.reload("nothing is taken over")
            self.assertIn(wanted, said)
            self.assertEqual(self.number(), first)
        os.mkfifo(self.certificate)
        self.assertIn("this is no file", self.reload("nothing is taken over"))
        self.assertEqual(self.number(), first)
        check = run(LUMD, "--check", "--config", str(self.shelf.description))
        self.assertEqual(check.returncode, 2)
        self.assertIn("node.pem: this is no file (http_certificate", check.stderr)

    def with_passphrase(self):
        return subprocess.run(["openssl", "ec", "-aes256", "-passout", "pass:secret", "-in", self.key],
                              check=True, capture_output=True, timeout=30).stdout

    def test_connections_end_with_what_they_are_at(self):
        self.begin()
        with self.connect() as asking, self.connect() as streaming:
            streaming.sendall(b"GET /v1/events HTTP/1.1\r\nHost: localhost\r\nAccept: text/event-stream\r\n\r\n")
            streaming.recv(4096)
            asking.sendall(REQUEST.format("GET", "/v1/node", "localhost", "keep-alive").encode())
            self.assertEqual(self.read(asking)[0], 200)
            self.authority.sign("node", NAMES)
            self.reload("taken over: the files of TLS")
            asking.sendall(REQUEST.format("GET", "/v1/node", "localhost", "keep-alive").encode())
            self.assertEqual(self.read(asking)[0], 200)
            self.assertEqual(asking.recv(100), b"")
            with contextlib.suppress(ssl.SSLError, ConnectionError):
                while streaming.recv(4096):
                    pass

    def test_tls_comes_and_goes(self):
        self.start("http_port = 0")
        said = re.search(r"http://127\.0\.0\.1:(\d+)/", self.log_with("read-only API"))
        self.port = int(said.group(1))
        text = self.shelf.description.read_text()
        self.shelf.description.write_text(
            f'http_certificate = "{self.certificate}"\nhttp_key = "{self.key}"\n{text}')
        self.reload(f"taken over: http_certificate: none -> {self.certificate}")
        self.assertEqual(self.ask()[0], 200)
        self.shelf.description.write_text(text)
        self.reload("-> none")
        with self.wire() as connection:
            connection.sendall(REQUEST.format("GET", "/v1/node", "localhost", "close").encode())
            self.assertEqual(self.read(connection)[0], 200)


class Addresses(Secured):
    """Where the port is, and what is said of it."""

    def check(self, keys):
        self.shelf.write_description()
        text = self.shelf.description.read_text()
        self.shelf.description.write_text(f"{keys}\n{text}")
        return run(LUMD, "--check", "--config", str(self.shelf.description))

    def test_what_is_no_address_is_refused(self):
        for value in ("localhost", "1.2.3", "1.2.3.4.5", "::1%lo", "[::1]", "127.0.0.1:80", "fe80:::1", " ::1"):
            done = self.check(f'http_port = 0\nhttp_address = "{value}"')
            self.assertEqual(done.returncode, 2, value)
            self.assertIn(f'2: \'http_address\' is "{value}", expected an address of this machine', done.stderr)

    def test_what_goes_together_has_to(self):
        tls = f'http_certificate = "{self.certificate}"\nhttp_key = "{self.key}"\n'
        for keys, wanted in (
                ('http_address = "::1"', "there is 'http_address' without 'http_port'"),
                (tls, "there is 'http_certificate' without 'http_port'"),
                (f'http_port = 0\nhttp_certificate = "{self.certificate}"', "'http_certificate' without 'http_key'"),
                (f'http_port = 0\nhttp_key = "{self.key}"', "'http_key' without 'http_certificate'"),
                (f'http_port = 0\nhttp_client_ca = "{self.key}"', "'http_client_ca' without 'http_certificate'"),
                (f'http_port = 0\n{tls}http_client_ca = "{self.key}"', "there is no certificate in PEM in it"),
                ('socket_group = "no-such-group"', "expected a group of /etc/group"),
                ('socket_group = ""', "'socket_group' is 0 bytes long")):
            done = self.check(keys)
            self.assertEqual(done.returncode, 2, keys)
            self.assertIn(wanted, done.stderr)

    def test_others_without_tls_are_warned_of(self):
        tls = f'http_certificate = "{self.certificate}"\nhttp_key = "{self.key}"\n'
        for keys, is_warned in (('http_address = "0.0.0.0"', True), ('http_address = "::"', True),
                                ('http_address = "192.0.2.7"', True), ('http_address = "127.1.2.3"', False),
                                ('http_address = "::1"', False), ("", False),
                                (tls + 'http_address = "0.0.0.0"', False)):
            done = self.check(f"http_port = 0\n{keys}")
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assertEqual("is open to others without TLS" in done.stderr, is_warned, keys)
        self.start('http_port = 0\nhttp_address = "0.0.0.0"')
        self.assertIn("is open to others without TLS", self.driver.log.read_text())

    def test_a_certificate_that_has_run_out_is_warned_of(self):
        self.certificate, self.key = self.authority.run_out()
        done = self.check(f'http_port = 0\nhttp_certificate = "{self.certificate}"\nhttp_key = "{self.key}"')
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("has run out on 20", done.stderr)
        self.begin()
        done = run(LUMCTL, "--url", self.url, "--ca", str(self.certificate), "show", "node")
        self.assertIn("is not valid now (certificate has expired)", done.stderr)

    def test_an_address_to_come_holds_up_no_start(self):
        self.start('http_port = 0\nhttp_address = "192.0.2.7"')
        self.assertIn("does not have the address 192.0.2.7 (http_address in the description) now",
                      self.log_with("read-only API on http://192.0.2.7:"))
        self.assertEqual(self.driver.get("/v1/node")["name"], "test")

    def test_every_address_is_every_one(self):
        self.start('http_port = 0\nhttp_address = "::"')
        port = int(re.search(r"http://\[::\]:(\d+)/", self.log_with("read-only API")).group(1))
        for address, host in (("127.0.0.1", "127.0.0.1"), ("::1", "[::1]"), ("127.0.0.1", "localhost")):
            with socket.create_connection((address, port), timeout=20) as connection:
                connection.sendall(REQUEST.format("GET", "/v1/node", host, "close").encode())
                self.assertEqual(self.read(connection)[0], 200)
            done = run(LUMCTL, "--url", f"http://{host}:{port}", "show", "node", "--json")
            self.assertEqual(json.loads(done.stdout)["name"], "test", done.stderr)

    def test_it_is_asked_by_the_address_that_it_is_reached_at(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as look:
            try:
                look.connect(("192.0.2.1", 9))
            except OSError:
                self.skipTest("this machine has no address but loopback")
            own = look.getsockname()[0]
        self.start('http_port = 0\nhttp_address = "0.0.0.0"')
        port = int(re.search(r"http://0\.0\.0\.0:(\d+)/", self.log_with("read-only API")).group(1))
        for host, status in ((own, 200), (f"{own}:{port}", 200), ("192.0.2.99", 421), ("evil.example", 421)):
            with socket.create_connection((own, port), timeout=20) as connection:
                connection.sendall(REQUEST.format("GET", "/v1/node", host, "close").encode())
                self.assertEqual(self.read(connection)[0], status, host)


@unittest.skipUnless(os.geteuid() == 0, "it takes root to be somebody else")
class SocketGroup(support.ShelfTest):
    GROUP = "games"
    NOBODY = 65534

    def setUp(self):
        super().setUp()
        self.cage = self.add_module("iivi-old-map")
        self.group = grp.getgrnam(self.GROUP).gr_gid
        self.shelf.folder.chmod(0o755)

    def begin(self, **options):
        self.start(f'socket_group = "{self.GROUP}"', **options)
        self.shelf.socket.parent.chmod(0o755)

    def lumctl(self, *words, groups):
        return subprocess.run([LUMCTL, "--socket", self.shelf.socket, *words], user=self.NOBODY, group=self.NOBODY,
                              extra_groups=groups, capture_output=True, text=True, check=False, timeout=30)

    def test_its_members_may_look_and_change_nothing(self):
        self.begin()
        found = self.shelf.socket.stat()
        self.assertEqual((stat.S_IMODE(found.st_mode), found.st_gid), (0o660, self.group))
        self.assertIn(self.cage.name, self.lumctl("show", "ports", groups=[self.group]).stdout)
        name = self.cage.name
        change = ("set", f"{name}:0", "threshold=20")
        for words in (change, ("replay",), ("resync",), ("port", "delete", name),
                      ("port", "update", name, "up"), ("module", "remove", name),
                      ("module", "poke", name, "0", "13", "1"), ("clear", "stats"), ("im", "behave"),
                      ("inject", "alarm", f"{name}:0", "all", "on"), ("ea", "connect")):
            done = self.lumctl(*words, groups=[self.group])
            self.assertEqual(done.returncode, 1, (words, done.stderr))
            self.assertIn("nobody may only look: changes are for root and root", done.stderr)
        self.assertEqual(run(LUMCTL, "--socket", str(self.shelf.socket), *change).returncode, 0)
        done = self.lumctl("show", "ports", groups=[])
        self.assertEqual(done.returncode, 3)
        self.assertIn(f"the group {self.GROUP} and the mode 0660. Use the account that lumd runs as, or root, "
                      "or to look be in that group", done.stderr)

    def test_by_its_number(self):
        self.start(f'socket_group = "{self.group}"')
        self.assertEqual(self.shelf.socket.stat().st_gid, self.group)

    def test_whom_it_is_opened_for_otherwise_may_only_look_too(self):
        self.start()
        self.shelf.socket.parent.chmod(0o755)
        self.shelf.socket.chmod(0o666)
        self.assertEqual(self.lumctl("show", "ports", groups=[]).returncode, 0)
        self.assertEqual(self.lumctl("replay", groups=[]).returncode, 1)

    def test_a_driver_outside_of_it_does_without(self):
        self.shelf.write_description()
        text = self.shelf.description.read_text()
        self.shelf.description.write_text(f'socket_group = "{self.GROUP}"\n{text}')
        for path in [self.shelf.folder, *self.shelf.folder.rglob("*")]:
            os.chown(path, self.NOBODY, self.NOBODY)
        log = self.shelf.folder / "lumd.log"
        with open(log, "w") as said:
            driver = subprocess.Popen([LUMD, "--config", self.shelf.description], stdout=said, stderr=said,
                                      user=self.NOBODY, group=self.NOBODY, extra_groups=[])
        self.addCleanup(driver.wait)
        self.addCleanup(driver.terminate)
        deadline = time.monotonic() + 20
        while "is not for its socket_group: Operation not permitted" not in log.read_text():
            self.assertLess(time.monotonic(), deadline, log.read_text())
            time.sleep(0.05)
        self.assertEqual(stat.S_IMODE(self.shelf.socket.stat().st_mode), 0o600)
        replay = [LUMCTL, "--socket", self.shelf.socket, "replay"]
        self.assertEqual(subprocess.run(replay, user=self.NOBODY, capture_output=True, timeout=30).returncode, 0,
                         "its own user may change things")


class UnitFilters(support.ShelfTest):
    """What the service manager has in force for the driver's unit, and what the driver says of it."""

    NOBODY = "the unit lets nobody but this machine reach it; IPAddressAllow= in a drop-in opens it"

    def said(self, allowed, address, wanted, denied=None):
        """What the driver has said once `wanted` is among it."""
        self.add_module("iivi-old-map")
        bus = ManagerBus(self.shelf.folder / "bus", allowed, denied)
        self.addCleanup(bus.close)
        with mock.patch.dict(os.environ, INVOCATION_ID="0" * 32, DBUS_SYSTEM_BUS_ADDRESS=bus.address):
            self.start(f'http_port = 0\nhttp_address = "{address}"')
        return self.log_with(wanted)

    def test_nobody_let_in_is_said(self):
        self.said(LOOPBACK, "0.0.0.0", self.NOBODY)

    def test_of_both_families(self):
        self.said(LOOPBACK, "::", "the API is on ::, and " + self.NOBODY)

    def test_those_of_another_family_reach_nothing(self):
        self.said([*LOOPBACK, (socket.AF_INET6, bytes(16), 64)], "0.0.0.0", self.NOBODY)

    def test_that_it_is_not_known_is_said(self):
        self.said(None, "0.0.0.0", "whether the unit lets others reach 0.0.0.0 is not known")

    def quiet(self, *arguments, **options):
        log = self.said(*arguments, "read-only API", **options)
        time.sleep(1)
        log = self.driver.log.read_text()
        self.assertNotIn("lets nobody", log)
        self.assertNotIn("is not known", log)

    def test_whom_it_lets_in_needs_no_word(self):
        self.quiet([*LOOPBACK, (socket.AF_INET, bytes([192, 0, 2, 0]), 24)], "0.0.0.0")

    def test_nor_does_a_unit_without_filters(self):
        self.quiet([], "0.0.0.0", denied=[])

    def test_nor_does_the_loopback_address(self):
        self.quiet(LOOPBACK, "127.0.0.1")
