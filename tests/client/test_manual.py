"""The examples of the manual pages are commands that do what is said: each is run."""

import re
import unittest

from example_node import SOURCE, ExampleNode


def examples(page):
    """The commands between .nf and .fi of the section EXAMPLES."""
    section = re.search(r"^\.SH EXAMPLES\n((?:.|\n)*?)^\.SH ", (SOURCE / "docs/man" / page).read_text(), re.MULTILINE)
    blocks = re.findall(r"^\.nf\n((?:.|\n)*?)^\.fi", section.group(1), re.MULTILINE)
    return [line.replace("\\-", "-") for block in blocks for line in block.splitlines()]


class Manual(ExampleNode):
    """On the example node, whose port west the pages name."""

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

    def test_the_trace_tools(self):
        self.start_driver("lumd --config node.toml")
        for command in examples("lum-trace.1"):
            run = self.shell(command.replace("/var/log/lumd", "run/traces"))
            self.assertEqual(run.returncode, 0, f"{command}\n{run.stdout}")
            self.assertTrue("--unwritten" in command or "lum_error" in command or "LUM_API: entry" in run.stdout, command)

    def test_every_page_has_examples_that_are_run(self):
        """A page that comes needs a test here."""
        pages = {page.name for page in (SOURCE / "docs/man").iterdir()}
        self.assertEqual(pages, {"lumd.8", "lumctl.1", "lum-module-image.1", "lum-trace.1"})


if __name__ == "__main__":
    unittest.main()
