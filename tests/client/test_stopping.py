"""The driver stops within its bound, and two never run one node."""

import signal
import time

import support
from support import LUMD, run


class Stopping(support.ShelfTest):
    def stop(self, number=signal.SIGTERM):
        asked = time.monotonic()
        self.driver.process.send_signal(number)
        status = self.driver.process.wait(10)
        self.assertLess(time.monotonic() - asked, 5.0)
        return status

    def test_sigterm_and_sigint(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            self.shelf.cages.clear()
            cage = self.add_module("iivi-old-map")
            self.start()
            self.wait_for_state(cage, "up")
            self.assertEqual(self.stop(number), 0)
            self.assertFalse(self.shelf.socket.exists())
            info = (self.shelf.folder / "traces" / "lum_info.log").read_text()
            self.assertIn("DOM thread created", info)

    def test_a_bus_that_hangs_from_the_start(self):
        cage = self.add_module("iivi-old-map", faults="hang")
        self.start()
        self.wait_for_state(cage, "coming up")
        self.assertEqual(self.stop(), 0)

    def test_killed_drivers_socket_is_taken_over(self):
        self.add_module("iivi-old-map")
        self.start()
        self.driver.process.kill()
        self.driver.process.wait(5)
        self.assertTrue(self.shelf.socket.exists())
        self.start()
        self.assertEqual(self.stop(), 0)

    def test_a_second_driver_is_refused(self):
        self.add_module("iivi-old-map")
        self.start()
        second = run(LUMD, "--config", self.shelf.description)
        self.assertEqual(second.returncode, 1)
        self.assertIn("another driver", second.stderr)
        elsewhere = run(LUMD, "--config", self.shelf.description,
                        "--socket", self.shelf.folder / "other.sock")
        self.assertEqual(elsewhere.returncode, 1)
        self.assertTrue(self.shelf.socket.exists(), "the first driver's socket is left alone")
        self.driver.ports()

    def test_what_is_in_the_way_of_the_socket_is_left_alone(self):
        self.add_module("iivi-old-map")
        self.shelf.write_description()
        precious = self.shelf.folder / "precious"
        precious.write_text("text")
        done = run(LUMD, "--config", self.shelf.description, "--socket", precious)
        self.assertEqual(done.returncode, 1)
        self.assertEqual(precious.read_text(), "text")
