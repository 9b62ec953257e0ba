"""A wrong node description is refused with its place, before anything starts."""

import support
from support import LUMD, run


class WrongDescription(support.ShelfTest):
    def refuse(self, replaced, by, line_of=None):
        """What lumd says of the shelf's description with one text replaced."""
        self.shelf.write_description()
        text = self.shelf.description.read_text()
        self.assertIn(replaced, text)
        self.shelf.description.write_text(text.replace(replaced, by, 1))
        done = run(LUMD, "--config", self.shelf.description)
        self.assertEqual(done.returncode, 2, done.stderr)
        lines = self.shelf.description.read_text().splitlines()
        number = 1 + lines.index(line_of or by)
        self.assertIn(f"{self.shelf.description}:{number}: ", done.stderr)
        self.assertFalse((self.shelf.folder / "state").exists(), "something has started")
        return done.stderr

    def setUp(self):
        super().setUp()
        self.first = self.add_module("iivi-old-map")
        self.second = self.add_module("iivi-new-map")

    def test_unknown_key(self):
        self.assertIn("handel", self.refuse("handle = 2", "handel = 2"))

    def test_port_named_twice(self):
        self.refuse("handle = 2", "handle = 1 # again", "handle = 1 # again")

    def test_number_out_of_range(self):
        self.assertIn("0 to 15", self.refuse("number = 1", "number = 16"))

    def test_folder_of_a_module_missing(self):
        wrong = 'module = "elsewhere/0.toml"'
        self.refuse('module = "modules/0.toml"', wrong)

    def test_not_toml(self):
        self.refuse('name = "test"', "name = = 3")

    def test_file_missing(self):
        done = run(LUMD, "--config", "/nowhere/node.toml")
        self.assertEqual(done.returncode, 2)
        self.assertIn("/nowhere/node.toml: ", done.stderr)

    def test_simulated_module_with_a_wrong_description(self):
        self.second.module.write_text("vendor = 3\n")
        self.shelf.write_description()
        for mode in ([], ["--check"]):
            done = run(LUMD, "--config", self.shelf.description, *mode)
            self.assertEqual(done.returncode, 2)
            self.assertIn(f"{self.second.module}:1: ", done.stderr)

    def test_check_only_checks(self):
        self.shelf.write_description()
        done = run(LUMD, "--config", self.shelf.description, "--check")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertFalse((self.shelf.folder / "state").exists())
