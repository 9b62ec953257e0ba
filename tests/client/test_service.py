"""The driver as a service: what it tells the service manager, and what is left to it."""

import os
import re
import socket
import time

import support
from support import SOURCE

UNIT = SOURCE / "packaging" / "lumd.service.in"
WATCHDOG = 2_000_000  # microseconds; the driver feeds it four times in that


class Service(support.ShelfTest):
    def setUp(self):
        super().setUp()
        self.manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(self.manager.close)
        self.manager.bind(str(self.shelf.folder / "notify.sock"))

    def start_service(self):
        """With the unit's umask, and folders that only the driver's user can use."""
        self.shelf.write_description()
        umask = int(re.search(r"^UMask=(\d+)$", UNIT.read_text(), re.MULTILINE).group(1), 8)
        self.driver = support.Driver(support.BUILD, self.shelf, (), support.QUICK)
        self.driver.environment.update(NOTIFY_SOCKET=str(self.shelf.folder / "notify.sock"),
                                       WATCHDOG_USEC=str(WATCHDOG))
        before = os.umask(umask)
        try:
            self.driver.__enter__()
        finally:
            os.umask(before)
        self.addCleanup(self.driver.__exit__)

    def hear(self, wanted, seconds=20):
        """Waits for a notification, and returns whether it came."""
        deadline = time.monotonic() + seconds
        while (left := deadline - time.monotonic()) > 0:
            self.manager.settimeout(left)
            try:
                if wanted in self.manager.recv(4096).decode().splitlines():
                    return True
            except TimeoutError:
                break
        return False

    def forget(self):
        """Drops the notifications that have come until now."""
        self.manager.setblocking(False)
        try:
            while self.manager.recv(4096):
                pass
        except BlockingIOError:
            pass

    def test_it_is_ready_lives_and_stops(self):
        self.add_module("iivi-old-map")
        self.start_service()
        for wanted in ("READY=1", "WATCHDOG=1", "WATCHDOG=1"):
            self.assertTrue(self.hear(wanted), wanted)
        self.driver.ports()
        self.driver.process.terminate()
        self.assertTrue(self.hear("STOPPING=1"))
        self.assertEqual(self.driver.process.wait(6), 0)

    def test_a_module_never_ends_it(self):
        hung = self.add_file()
        simulated = self.add_module("iivi-old-map")
        self.start_service()
        self.assertTrue(self.hear("READY=1"))
        marker = self.hang(hung)
        self.addCleanup(lambda: marker.unlink(missing_ok=True))
        self.driver.lumctl("module", "fault", simulated.name, "hang")
        time.sleep(3)
        self.forget()
        for _ in range(3):
            self.assertTrue(self.hear("WATCHDOG=1"))

    def test_an_api_that_does_not_answer_does(self):
        self.add_module("iivi-old-map")
        self.start_service()
        self.assertTrue(self.hear("WATCHDOG=1"))
        self.shelf.socket.unlink()
        time.sleep(1)
        self.forget()
        self.assertFalse(self.hear("WATCHDOG=1", 2))
        self.assertIn("the API does not answer", self.driver.log.read_text())

    def test_it_writes_to_nothing_but_its_own(self):
        """Whatever a module's file has become: what lies elsewhere stays as it is."""
        cage = self.add_file()
        elsewhere = self.shelf.folder / "elsewhere"
        elsewhere.mkdir()
        precious = elsewhere / "precious"
        self.start_service()
        self.assertTrue(self.hear("READY=1"))
        if "is not confined" in self.driver.log.read_text():
            self.skipTest("the kernel has no Landlock")
        self.driver.lumctl("module", "poke", cage.name, "0", "10", "1")
        precious.write_bytes(cage.module.read_bytes())
        before = precious.read_bytes()
        cage.module.unlink()
        cage.module.symlink_to(precious)
        with self.assertRaises(RuntimeError) as refused:
            self.driver.lumctl("module", "poke", cage.name, "0", "10", "2")
        self.assertIn("denied", str(refused.exception))
        self.assertEqual(precious.read_bytes(), before)

    def test_the_unit_asks_for_what_is_tested(self):
        text = UNIT.read_text()
        for line in ("Type=notify", "WatchdogSec=90", "User=lumd", "UMask=0077"):
            self.assertIn(f"\n{line}\n", text)
