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

    def test_a_key_that_would_steer_a_terminal(self):
        said = self.refuse("handle = 2", '"\\u001b[2J\\u009b" = 1')
        self.assertIn("unknown key '?[2J?'", said)

    def test_port_named_twice(self):
        self.refuse("handle = 2", "handle = 1 # again", "handle = 1 # again")

    def test_a_name_that_means_another_port_too(self):
        name = 'name = "0/1/0/1"'
        text = "number = 2\nhandle = 2"
        self.assertIn("used twice", self.refuse(text, f"{name}\n{text}", name))
        called = self.shelf.write_description

        def write_with_a_name():
            called()
            found = self.shelf.description.read_text()
            self.shelf.description.write_text(
                found.replace("number = 1\nhandle", 'number = 1\nname = "west"\nhandle'))

        self.shelf.write_description = write_with_a_name
        for wrong, why in (("0/1/0/1", "the position of"), ("west:0", "sub-port 0 of"),
                           ("0/1/0/1:1", "sub-port 1 of")):
            name = f'name = "{wrong}"'
            self.assertIn(f"port name '{wrong}' is also {why} port 'west'",
                          self.refuse(text, f"{name}\n{text}", name))

    def test_number_out_of_range(self):
        self.assertIn("0 to 15", self.refuse("number = 1", "number = 16"))

    def test_folder_of_a_module_missing(self):
        wrong = 'module = "elsewhere/0.toml"'
        self.refuse('module = "modules/0.toml"', wrong)

    def test_not_toml(self):
        self.refuse('name = "test"', "name = = 3")

    def test_every_problem_is_told_at_its_line(self):
        wrong = ("number = 16", "lde = 2", "handel = 2")
        said = self.refuse("handle = 2", "\n".join(wrong[1:]), wrong[2])
        text = self.shelf.description.read_text().replace("number = 1", wrong[0], 1)
        self.shelf.description.write_text(text)
        done = run(LUMD, "--config", self.shelf.description)
        self.assertEqual(done.returncode, 2, done.stderr)
        for problem in wrong:
            number = 1 + text.splitlines().index(problem)
            self.assertIn(f"{self.shelf.description}:{number}: ", done.stderr)

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

    def test_a_socket_without_a_name(self):
        self.shelf.write_description()
        done = run(LUMD, "--config", self.shelf.description, "--socket", "")
        self.assertEqual(done.returncode, 2)
        self.assertIn("--socket: is empty", done.stderr)

    def test_check_only_checks(self):
        self.shelf.write_description()
        done = run(LUMD, "--config", self.shelf.description, "--check")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertFalse((self.shelf.folder / "state").exists())

    def test_a_rack_other_than_0_is_warned_of_and_taken(self):
        self.shelf.write_description()
        text = self.shelf.description.read_text()
        self.shelf.description.write_text("rack = 3\n" + text)
        warning = f"{self.shelf.description}: warning: 'rack' is 3"
        done = run(LUMD, "--config", self.shelf.description, "--check")
        self.assertEqual((done.returncode, done.stderr.count("\n")), (0, 1))
        self.assertIn(warning, done.stderr)
        driver = self.start("rack = 3")
        self.assertEqual(set(driver.ports()), {"3/1/0/1", "3/1/0/2"})
        self.assertIn(warning, driver.log.read_text())
        # As it warns: for longer than a polling cycle no module is asked for anything.
        self.assertIsNone(driver.wait_for(
            lambda now: any(port["module"]["transfers"] for port in now.values()), 2.5))


class Folders(support.ShelfTest):
    def setUp(self):
        super().setUp()
        self.add_empty()

    def test_the_folder_of_the_socket_is_made(self):
        self.shelf.socket = self.shelf.folder / "run" / "deep" / "api.sock"
        self.start('api_socket = "run/deep/api.sock"')
        self.assertTrue(self.shelf.socket.is_socket())

    def test_also_of_the_socket_given_on_the_command_line(self):
        self.shelf.socket = self.shelf.folder / "elsewhere" / "api.sock"
        self.start(options=("--socket", str(self.shelf.socket)))
        self.assertTrue(self.shelf.socket.is_socket())

    def test_a_folder_that_cannot_be_made_is_named(self):
        self.shelf.write_description()
        file = self.shelf.folder / "file"
        file.write_text("")
        done = run(LUMD, "--config", self.shelf.description, "--socket", file / "a" / "api.sock")
        self.assertEqual(done.returncode, 1)
        self.assertIn(f"lumd: {file / 'a'}: ", done.stderr)
