"""The example node, with the programs on the path: what a reader of the pages has."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import time
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("LUM_BUILD", SOURCE / "build"))


class ExampleNode(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)
        shutil.copytree(SOURCE / "examples", self.folder, dirs_exist_ok=True)
        self.environment = {**os.environ, "PATH": f"{BUILD}:{os.environ['PATH']}", "LUMD_SOCKET": "run/lumd.sock"}

    def shell(self, command):
        return subprocess.run(command, shell=True, cwd=self.folder, env=self.environment, text=True, timeout=60,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def start_driver(self, command):
        """Waits until it has brought the port west up; ends with the test."""
        driver = subprocess.Popen(command.split(), cwd=self.folder, env=self.environment,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(driver.wait)
        self.addCleanup(driver.terminate)
        for _ in range(600):
            if self.shell("lumctl show port west --json").stdout.count('"up"'):
                return driver
            time.sleep(0.1)
        self.fail(f"{command} does not bring up the port west")
