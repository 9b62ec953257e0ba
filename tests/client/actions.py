"""Three ports on two slots, and commands that are to work or to be refused on them."""

import json

import support
from support import LUMCTL, run


class Actions(support.ShelfTest):
    def setUp(self):
        super().setUp()
        self.first = self.add_module("iivi-new-map")
        self.second = self.add_module("iivi-old-map")
        self.other = self.add_module("accelink-new-map", slot=2)

    def begin(self):
        self.start()
        self.wait_for_state(self.other, "up")
        self.wait_for_state(self.first, "up")

    def does(self, *arguments):
        """The reply to a command that must succeed."""
        done = run(LUMCTL, "--socket", self.shelf.socket, *arguments, "--json")
        self.assertEqual((done.returncode, done.stderr), (0, ""), arguments)
        return json.loads(done.stdout)

    def says(self, *arguments):
        done = run(LUMCTL, "--socket", self.shelf.socket, *arguments)
        self.assertEqual((done.returncode, done.stderr), (0, ""), arguments)
        return done.stdout

    def fails(self, status, *arguments):
        """The one line that a command says when it fails."""
        done = run(LUMCTL, "--socket", self.shelf.socket, *arguments)
        self.assertEqual(done.returncode, status, (arguments, done.stdout, done.stderr))
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        self.assertTrue(done.stderr.startswith("lumctl: "), done.stderr)
        return done.stderr

    def port(self, cage):
        return self.does("show", "port", cage.name)

    def handles(self, cage):
        return [sub["ifhandle"] for sub in self.port(cage)["sub_ports"]]

    def page(self, cage, number):
        return self.does("show", "module", cage.name, "--page", str(number))["page"]["bytes"]
