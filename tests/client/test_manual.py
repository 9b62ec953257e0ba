"""The examples of the manual pages are commands that do what is said: each is run."""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import time
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("LUM_BUILD", SOURCE / "build"))


def examples(page):
    """The commands between .nf and .fi of the section EXAMPLES."""
    section = re.search(r"^\.SH EXAMPLES\n((?:.|\n)*?)^\.SH ", (SOURCE / "docs/man" / page).read_text(), re.MULTILINE)
    blocks = re.findall(r"^\.nf\n((?:.|\n)*?)^\.fi", section.group(1), re.MULTILINE)
    return [line.replace("\\-", "-") for block in blocks for line in block.splitlines()]


class Manual(unittest.TestCase):
    """On the example node, whose port west the pages name."""

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)
        shutil.copytree(SOURCE / "examples", self.folder, dirs_exist_ok=True)
        self.environment = {**os.environ, "PATH": f"{BUILD}:{os.environ['PATH']}", "LUMD_SOCKET": "run/lumd.sock"}

    def shell(self, command):
        return subprocess.run(command, shell=True, cwd=self.folder, env=self.environment, text=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def start_driver(self, command):
        driver = subprocess.Popen(command.split(), cwd=self.folder, env=self.environment,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(driver.wait)
        self.addCleanup(driver.terminate)
        for _ in range(600):
            if self.shell("lumctl show port west --json").stdout.count('"up"'):
                return
            time.sleep(0.1)
        self.fail(f"{command} does not bring up the port west")

    def test_the_drivers(self):
        commands = examples("lumd.8")
        check = self.shell(commands[0])
        self.assertEqual(check.returncode, 0, check.stdout)
        socket = commands[1].split()[-1]
        self.environment["LUMD_SOCKET"] = str(self.folder / "other.sock")
        self.start_driver(commands[1].replace(socket, self.environment["LUMD_SOCKET"]))
        self.assertEqual(commands[2:], ["systemctl reload lumd"])

    def test_lumctls(self):
        self.start_driver("lumd --config node.toml")
        for command in examples("lumctl.1"):
            # A simulated node may be worse than ok, which is no failure of the command.
            allowed = (0, 1, 2) if command == "lumctl check" else (0,)
            run = self.shell(command)
            self.assertIn(run.returncode, allowed, f"{command}\n{run.stdout}")

    def test_the_image_tools(self):
        lines = examples("lum-module-image.1")
        commands = [line for line in lines if line.startswith("lum-module-image ")]
        (self.folder / "module.toml").write_text("\n".join(line for line in lines if line not in commands))
        for command in commands:
            run = self.shell(command)
            self.assertEqual(run.returncode, 0, f"{command}\n{run.stdout}")
        self.assertEqual((self.folder / "port3.eeprom").read_bytes()[10], 2)


if __name__ == "__main__":
    unittest.main()
