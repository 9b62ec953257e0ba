"""Connections to others that have stopped to read: whoever connects or sends would not come back."""

import socket
import threading
import time

import support


def full_queue(test, family, place):
    """A listener that takes no further connection and does not look at those that it has."""
    listener = socket.socket(family)
    test.addCleanup(listener.close)
    listener.bind(place)
    listener.listen(0)
    while True:
        waiting = socket.socket(family)
        test.addCleanup(waiting.close)
        waiting.settimeout(0.3)
        try:
            waiting.connect(listener.getsockname())
        except (BlockingIOError, TimeoutError):
            return listener


def full_mailbox(test, place):
    """A socket for datagrams that holds as many as it takes and that nobody reads."""
    reader = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    test.addCleanup(reader.close)
    reader.bind(str(place))
    fill_mailbox(place)
    return reader


def fill_mailbox(place):
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as filling:
        filling.setblocking(False)
        try:
            while True:
                filling.sendto(b"another's", str(place))
        except BlockingIOError:
            pass


def received(reader):
    """The first datagram that the driver has sent."""
    reader.settimeout(20)
    while True:
        datagram = reader.recv(4096)
        if datagram != b"another's":
            return datagram


class BlockedConnections(support.ShelfTest):
    """Others on the machine, and others elsewhere, that have stopped to read: whoever connects or
    sends would not come back."""

    def setUp(self):
        super().setUp()
        self.cage = self.add_module("iivi-new-map")
        self.other = self.shelf.folder / "other.sock"

    def begin(self, **environment):
        self.shelf.write_description()
        self.driver = support.Driver(support.BUILD, self.shelf, (), support.QUICK)
        self.driver.environment.update(
            LD_PRELOAD=f"{support.CLOCK} {support.BUILD / 'lum_test_journal.so'}", **environment)
        self.driver.__enter__()
        self.addCleanup(self.driver.__exit__)

    def end(self):
        self.assertEqual(self.driver.stop(20), 0, self.driver.log.read_text())
        self.assertNotIn("does not end", self.driver.log.read_text())

    def asks(self, *words, **environment):
        """What lumctl says of it when it is asked with half a second's patience."""
        done = support.run(support.LUMCTL, "--timeout", "0.5", *words, **environment)
        self.assertEqual((done.returncode, done.stdout), (3, ""), done.stderr)
        return done.stderr

    def test_a_service_manager_that_does_not_read(self):
        full_mailbox(self, self.other)
        self.begin(NOTIFY_SOCKET=str(self.other))
        self.wait_for_state(self.cage, "up")
        self.end()

    def test_a_service_manager_that_reads_late(self):
        """That the driver is ready is told as soon as somebody reads it."""
        manager = full_mailbox(self, self.other)
        self.begin(NOTIFY_SOCKET=str(self.other))
        self.wait_for_state(self.cage, "up")
        time.sleep(0.5)
        self.assertEqual(received(manager), b"READY=1")

    def test_a_service_manager_that_stops_to_read(self):
        """Neither what keeps the watchdog quiet nor that it stops holds the driver up."""
        manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(manager.close)
        manager.bind(str(self.other))
        self.begin(NOTIFY_SOCKET=str(self.other), WATCHDOG_USEC="400000")
        self.wait_for_state(self.cage, "up")
        self.assertEqual(received(manager), b"READY=1")
        fill_mailbox(self.other)
        self.end()

    def test_a_service_manager_whose_queue_of_connections_is_full(self):
        """One that speaks in streams, which none does: it is told nothing, and holds nobody up."""
        full_queue(self, socket.AF_UNIX, str(self.other))
        self.begin(NOTIFY_SOCKET=str(self.other))
        self.wait_for_state(self.cage, "up")
        self.end()

    def damage_store(self):
        (self.shelf.folder / "state").mkdir(exist_ok=True)
        (self.shelf.folder / "state" / "checkpoints.db").write_bytes(b"no store" * 1000)

    def test_a_system_log_that_does_not_read(self):
        self.damage_store()
        log = full_mailbox(self, self.other)
        self.begin(LUM_TEST_SYSLOG=str(self.other))
        self.wait_for_state(self.cage, "up")
        self.end()
        log.close()

    def test_a_system_log_that_reads(self):
        """It gets what the others do not hold up anybody with."""
        self.damage_store()
        log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(log.close)
        log.bind(str(self.other))
        self.begin(LUM_TEST_SYSLOG=str(self.other))
        self.wait_for_state(self.cage, "up")
        self.assertRegex(received(log).decode(),
                         r"^<11>[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d lumd: .*checkpoints\.db")

    def test_a_driver_that_takes_no_connection(self):
        full_queue(self, socket.AF_UNIX, str(self.other))
        said = self.asks("--socket", str(self.other), "show", "ports")
        self.assertIn(f"the driver at {self.other} has not answered within 0.5 s", said)

    def test_a_driver_that_takes_connections_again(self):
        """The wait was worth it."""
        listener = full_queue(self, socket.AF_UNIX, str(self.other))

        def answer_the_last():
            time.sleep(0.5)
            listener.settimeout(20)
            for asked in iter(lambda: self.question(listener), None):
                if asked:
                    return

        thread = threading.Thread(target=answer_the_last)
        thread.start()
        done = support.run(support.LUMCTL, "--socket", str(self.other), "show", "node")
        thread.join()
        self.assertIn("here I am", done.stderr)

    @staticmethod
    def question(listener):
        """Takes a connection and answers what is asked on it; those that fill the queue ask
        nothing."""
        connection, _ = listener.accept()
        with connection:
            connection.settimeout(0.2)
            try:
                asked = connection.recv(65536)
            except TimeoutError:
                return b""
            connection.sendall(b"HTTP/1.1 500 No\r\nContent-Length: 22\r\n\r\n"
                               b'{"detail":"here I am"}')
            return asked

    def test_another_driver_that_takes_no_connection_is_not_compared_with(self):
        full_queue(self, socket.AF_UNIX, str(self.other))
        self.shelf.write_description()
        done = support.run(support.LUMD, "--config", self.shelf.description, "--check",
                           "--socket", str(self.other))
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("has not answered within 5 s", done.stdout)

    def test_another_driver_that_takes_no_connection_keeps_its_socket(self):
        full_queue(self, socket.AF_UNIX, str(self.other))
        self.shelf.write_description()
        done = support.run(support.LUMD, "--config", self.shelf.description,
                           "--socket", str(self.other))
        self.assertEqual(done.returncode, 1, done.stderr)
        self.assertIn("another driver answers on this socket", done.stderr)

    def test_a_node_elsewhere_that_lets_nothing_through(self):
        listener = full_queue(self, socket.AF_INET, ("127.0.0.1", 0))
        place = f"http://127.0.0.1:{listener.getsockname()[1]}"
        self.assertIn(f"{place} has not answered within 0.5 s", self.asks("--url", place, "show", "node"))

    def test_a_name_server_that_does_not_answer(self):
        said = self.asks("--url", "http://node7.example.net:9464", "show", "node",
                         LD_PRELOAD=str(support.BUILD / "lum_test_names.so"),
                         LUM_TEST_DEAD_NAME="node7.example.net")
        self.assertIn("nobody has said within 0.5 s which address", said)
