"""The demo on a folder of module dumps."""

import contextlib
import io
import pathlib
import sys

import support
from support import BUILD, SOURCE

sys.path.append(str(SOURCE / "tools" / "demo"))

import dumps  # noqa: E402
from steps import StepFailed, Steps  # noqa: E402


class Dumps(support.ShelfTest):
    def setUp(self):
        super().setUp()
        self.memory = self.add_file().module.read_bytes()
        self.dumps = self.shelf.folder / "dumps"
        self.dumps.mkdir()
        (self.dumps / "good.eeprom").write_bytes(self.memory)
        self.work = self.shelf.folder / "work"
        self.work.mkdir()

    def tour(self):
        """What the demo printed."""
        printed = io.StringIO()
        with contextlib.redirect_stdout(printed):
            dumps.run(Steps(), BUILD, self.work, pathlib.Path(self.dumps))
        return printed.getvalue()

    def test_a_module_is_shown_as_its_dump_has_it(self):
        self.assertIn("ok     its identity is shown", self.tour())

    def test_a_dump_without_upper_pages_is_named_with_the_page(self):
        (self.dumps / "flat.eeprom").write_bytes(self.memory[:256])
        with self.assertRaisesRegex(StepFailed, r"all 2 modules are polled: flat\.eeprom \(port 0/0/0/1\)"
                                    r".*page [0-9]+ is not there: the file ends after 256 bytes"):
            self.tour()
