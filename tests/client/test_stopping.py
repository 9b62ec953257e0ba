"""The driver stops within its bound, and two never run one node."""

import os
import pathlib
import signal
import subprocess
import tempfile
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

    def test_of_two_drivers_that_take_over_a_socket_one_is_refused(self):
        """One stands still as it is about to take the dead driver's socket away."""
        self.add_module("iivi-old-map")
        self.start()
        self.driver.kill()
        marker = self.shelf.socket.with_name(self.shelf.socket.name + ".hangs")
        marker.touch()
        slow = support.Driver(support.BUILD, self.shelf, (), support.QUICK)
        slow.__enter__()
        self.addCleanup(slow.kill)
        time.sleep(1)
        text = self.shelf.description.read_text()
        other = self.shelf.description.with_name("other.toml")
        other.write_text(text.replace('"state"', '"other-state"'))
        self.assertNotEqual(other.read_text(), text)
        second = run("timeout", "5", LUMD, "--config", other, "--socket", self.shelf.socket)
        marker.unlink()
        self.assertEqual(second.returncode, 1, second.stderr)
        self.assertIn("another driver is just taking this socket", second.stderr)
        self.assertTrue(slow.wait_for(lambda _: True, 20))
        self.assertEqual(list(self.shelf.socket.parent.glob("*.lock")), [])

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

    def stop_of(self, process):
        asked = time.monotonic()
        process.send_signal(signal.SIGTERM)
        status = process.wait(10)
        self.assertLess(time.monotonic() - asked, 5.0)
        return status

    def test_while_a_bus_hangs_during_the_start(self):
        cage = self.add_file()
        self.hang(cage)
        self.shelf.write_description()
        self.driver = support.Driver(support.BUILD, self.shelf, (), support.QUICK)
        self.driver.__enter__()
        self.addCleanup(self.driver.__exit__)
        for _ in range(20):
            time.sleep(0.02)
            self.assertIsNone(self.driver.process.poll())
        self.stop_of(self.driver.process)

    def test_at_any_moment_of_the_start(self):
        """Also while it creates ports in cages that are empty, and in one whose bus hangs."""
        for number in range(11):
            self.shelf.add_cage(1, f"nothing-{number}.eeprom")
        self.hang(self.add_file())
        self.shelf.write_description()
        tried = 0
        for moment in range(0, 600, 20):
            driver = support.Driver(support.BUILD, self.shelf, (), support.QUICK)
            self.addCleanup(driver.__exit__)
            driver.__enter__()
            time.sleep(moment / 1000)
            # In its loader's moments it does not take the signal for itself yet.
            self.assertIn(self.stop_of(driver.process), (0, -signal.SIGTERM), driver.log.read_text())
            tried += 1
        print(f"stops while it starts: {tried} tried, {tried} survived")

    def test_with_a_standard_error_that_nobody_reads(self):
        self.add_module("iivi-old-map")
        self.shelf.write_description()
        driver = subprocess.Popen([LUMD, "--config", self.shelf.description],
                                  stderr=support.full_pipe(self))
        self.addCleanup(driver.kill)
        time.sleep(1)
        self.assertEqual(self.stop_of(driver), 0)

    def test_with_a_trace_file_that_is_a_pipe(self):
        self.add_module("iivi-old-map")
        (self.shelf.folder / "traces").mkdir()
        os.mkfifo(self.shelf.folder / "traces" / "lum_info.log")
        self.shelf.write_description()
        driver = subprocess.Popen([LUMD, "--config", self.shelf.description],
                                  stderr=subprocess.PIPE, text=True)
        self.addCleanup(driver.kill)
        time.sleep(1)
        if driver.poll() is None:
            self.stop_of(driver)
        driver.communicate()

    def test_behind_a_driver_that_stands_still(self):
        self.add_module("iivi-old-map")
        self.start()
        self.driver.process.send_signal(signal.SIGSTOP)
        second = run(LUMD, "--config", self.shelf.description)
        self.driver.process.send_signal(signal.SIGCONT)
        self.assertEqual(second.returncode, 1)
        self.assertIn("another driver", second.stderr)

    def test_a_terminal_that_goes_does_not_end_it(self):
        self.add_module("iivi-old-map")
        self.start()
        for number in (signal.SIGHUP, signal.SIGPIPE, signal.SIGXFSZ):
            self.driver.process.send_signal(number)
        self.driver.ports()
        self.assertEqual(self.stop(), 0)

    def test_in_a_folder_of_two_hundred_characters(self):
        with tempfile.TemporaryDirectory(prefix="lum-") as folder:
            deep = pathlib.Path(folder) / ("d" * 100) / ("e" * 100)
            deep.mkdir(parents=True)
            self.shelf = support.cages.Shelf(deep, "test")
            cage = self.add_module("iivi-old-map")
            self.start()
            self.wait_for_state(cage, "up")
            self.assertIn(cage.name, self.driver.lumctl("show", "ports"))
            self.assertEqual(self.stop(), 0)
            self.assertFalse(self.shelf.socket.exists())

    def test_its_files_are_its_own(self):
        self.add_module("iivi-old-map")
        self.start()
        for place in ("state", "traces"):
            top = self.shelf.folder / place
            for found in (top, *top.rglob("*")):
                self.assertEqual(found.stat().st_mode & 0o077, 0, found)
