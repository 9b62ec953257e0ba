"""What the driver may find where it starts: too few threads, closed descriptors, pipes."""

import os
import pathlib
import subprocess
import unittest

from actions import Actions
from support import BUILD, LUMD, Driver, QUICK, full_pipe

NOBODY = 65534


class Surroundings(Actions):
    def process(self):
        return pathlib.Path("/proc") / str(self.driver.process.pid)

    def log(self):
        log = open(self.driver.log, "a")
        self.addCleanup(log.close)
        return log

    def threads(self):
        return {(task / "comm").read_text().strip() for task in (self.process() / "task").iterdir()}

    def test_its_threads_have_their_names(self):
        self.begin()
        for name in ("lumd-look", "lum-store", "lum_dom_thread"):
            self.assertIn(name, self.threads())

    @unittest.skipIf(os.environ.get("LUM_SANITIZE") == "thread",
                     "ThreadSanitizer needs processes of its own to know what is to be passed over")
    @unittest.skipUnless(os.geteuid() == 0, "it takes root to be another user without threads")
    def test_it_has_every_thread_or_says_that_it_needs_more(self):
        for threads in range(1, 20):
            self.shelf.write_description()
            for place in (self.shelf.folder, *self.shelf.folder.rglob("*")):
                os.chown(place, NOBODY, NOBODY)
            self.driver = Driver(BUILD, self.shelf, (), QUICK)
            self.driver.log.write_text("")
            self.driver.process = subprocess.Popen(
                ["prlimit", f"--nproc={threads}", LUMD, "--config", self.shelf.description],
                user=NOBODY, group=NOBODY, stderr=self.log())
            self.addCleanup(self.driver.kill)
            try:
                self.wait_for_state(self.other, "up")
            except RuntimeError as ended:
                if "no thread or memory for this request" in str(ended):
                    self.driver.kill()  # it has every thread of its own, and none for who asks
                    continue
                self.assertEqual(self.driver.process.wait(5), 1)
                self.assertIn("ulimit -u", str(ended))
                continue
            self.assertIn("lum-store", self.threads())
            return
        self.fail("it never started")

    def test_standard_descriptors_that_are_closed(self):
        self.shelf.write_description()
        self.driver = Driver(BUILD, self.shelf, (), QUICK)
        self.driver.log.write_text("")
        self.driver.process = subprocess.Popen(
            ["sh", "-c", 'exec "$0" --config "$1" 0<&- 1>&- 2>&-', LUMD, self.shelf.description])
        self.addCleanup(self.driver.kill)
        self.wait_for_state(self.other, "up")
        self.assertEqual({os.readlink(self.process() / "fd" / str(number)) for number in range(3)},
                         {"/dev/null"})

    def test_a_pipe_in_the_place_of_the_store_s_journal(self):
        for name in ("checkpoints.db-changes", "checkpoints.db-changes.new"):
            with self.subTest(name):
                (self.shelf.folder / "state").mkdir(exist_ok=True)
                os.mkfifo(self.shelf.folder / "state" / name)
                self.begin()
                store = self.does("show", "node")["store"]
                self.assertEqual((store["usable"], store["doubt"]), (True, None))
                self.assertEqual(self.driver.stop(6), 0)
                for left in (self.shelf.folder / "state").glob("checkpoints*"):
                    left.unlink()

    def test_a_store_that_fails_while_nobody_reads_what_is_said(self):
        (self.shelf.folder / "state" / "checkpoints.db").mkdir(parents=True)
        self.shelf.write_description()
        self.driver = Driver(BUILD, self.shelf, (), QUICK)
        self.driver.log.write_text("")
        self.driver.process = subprocess.Popen([LUMD, "--config", self.shelf.description],
                                               stderr=full_pipe(self))
        self.addCleanup(self.driver.kill)
        self.wait_for_state(self.other, "up")
        self.assertFalse(self.does("show", "node")["store"]["usable"])
        self.assertEqual(self.driver.stop(6), 0)
