"""Settings made visible: saved, in force and in the module; changed with old and new; moved."""

import resource
import tomllib

from actions import Actions
from support import LUMCTL, run


class Settings(Actions):
    """What the tests here ask in common."""

    def shown(self, cage, sub_port=0):
        """The settings of a sub-port by name, as "show config" has them."""
        [port] = self.does("show", "config", f"{cage.name}:{sub_port}")["ports"]
        self.assertEqual(port["name"], cage.name)
        [shown] = port["sub_ports"]
        self.assertEqual(shown["sub_port"], sub_port)
        return {setting["name"]: setting for setting in shown["settings"]}

    def values(self, cage, name, sub_port=0):
        setting = self.shown(cage, sub_port)[name]
        return [setting[place]["value"] for place in ("saved", "in_force", "module")]

    def ends(self, status, *arguments):
        """Standard output and the lines of standard error of a command."""
        done = run(LUMCTL, "--socket", self.shelf.socket, *arguments)
        self.assertEqual(done.returncode, status, (arguments, done.stdout, done.stderr))
        return done.stdout, done.stderr.splitlines()

    def limit_files(self, size):
        """The driver's files may have so many bytes from now on; None is without a limit."""
        infinite = resource.RLIM_INFINITY
        resource.prlimit(self.driver.process.pid, resource.RLIMIT_FSIZE,
                         (infinite if size is None else size, infinite))


class ShowConfig(Settings):
    def test_a_setting_is_shown_where_it_is_saved_in_force_and_in_the_module(self):
        self.begin()
        self.does("set", self.first.name, "threshold=-20", "setting-a=7", "mode=3")
        for name, value in (("threshold", -20), ("setting-a", 7), ("setting-b", 0), ("mode", 3),
                            ("enable", 0)):
            self.assertEqual(self.values(self.first, name), [value] * 3, name)
            setting = self.shown(self.first)[name]
            self.assertEqual((setting["differs"], setting["never_set"]), ([], False), name)
        self.assertEqual(self.shown(self.first)["threshold"]["module"]["register"], 2**16 - 200)
        screen = self.says("show", "config", self.first.name + ":0")
        self.assertRegex(screen, "\n  threshold +-20 +-20 +-20\n")
        self.assertIn("in tens of the module's own", screen)

    def test_what_was_never_set_has_only_the_module_s_value(self):
        self.begin()
        self.does("module", "poke", self.second.name, "2", "195", "31")
        setting = self.shown(self.second)["p2-setting"]
        self.assertEqual(setting["module"], {"value": (setting["module"]["register"]) / 10,
                                             "register": setting["module"]["register"]})
        self.assertEqual(setting["module"]["register"] & 255, 31)
        self.assertEqual(setting["in_force"], {"value": None, "reason": "never set"})
        self.assertEqual(setting["saved"], {"value": None, "reason": "nothing is saved"})
        self.assertEqual((setting["never_set"], setting["differs"]), (True, []))
        self.assertRegex(self.says("show", "config", self.second.name + ":0"),
                         "\n  p2-setting +- +- +[0-9.]+ +never set\n")

    def test_both_memory_maps_and_both_sub_ports_are_read_back(self):
        self.begin()
        for cage in (self.first, self.second):
            self.does("set", cage.name + ":1", "threshold=4", "p2-setting=5", "setting-a=6",
                      "setting-b=8", "enable=1", "sub1=1", "mode=1")
            for name, value in (("threshold", 4), ("p2-setting", 5), ("setting-a", 6),
                                ("setting-b", 8), ("enable", 1), ("sub1", 1)):
                self.assertEqual(self.values(cage, name, 1), [value] * 3, (cage.name, name))
            mode = self.shown(cage, 1)["mode"]
            self.assertEqual((mode["module"], mode["differs"]), ({"value": None, "register": 1}, []))
            self.assertEqual(self.shown(cage, 0)["sub1"]["module"],
                             {"value": None, "register": None, "exists": False,
                              "reason": "only sub-port 1 has it"})

    def test_a_module_that_holds_something_else_is_told(self):
        self.begin()
        self.does("set", self.first.name, "threshold=20", "mode=3")
        self.does("module", "poke", self.first.name, "2", "147", "205")
        self.does("module", "poke", self.first.name, "1", "197", "1")
        threshold = self.shown(self.first)["threshold"]
        self.assertEqual((threshold["module"]["value"], threshold["differs"]), (20.5, ["module"]))
        self.assertEqual(self.shown(self.first)["mode"]["differs"], ["module"])
        screen = self.says("show", "config", self.first.name)
        self.assertRegex(screen, "\n  threshold +20 +20 +20.5 +module differs")
        self.assertRegex(screen, "\n  mode +3 +3 +register 1 +module differs")
        # The second word of a threshold belongs to it.
        self.does("module", "poke", self.first.name, "2", "147", "200")
        self.assertEqual(self.shown(self.first)["threshold"]["differs"], [])
        self.does("module", "poke", self.first.name, "2", "145", "0")
        self.assertEqual(self.shown(self.first)["threshold"]["differs"], ["module"])

    def test_another_module_has_not_what_is_in_force(self):
        self.begin()
        self.does("set", self.first.name, "threshold=20")
        self.driver.process.kill()
        self.driver.process.wait(5)
        self.start()
        self.wait_for_state(self.first, "up")
        threshold = self.shown(self.first)["threshold"]
        self.assertEqual((threshold["saved"]["value"], threshold["in_force"]["value"]), (20, 20))
        self.assertEqual(threshold["differs"], ["module"])
        self.does("port", "update", self.first.name, "up")
        self.assertEqual(self.values(self.first, "threshold"), [20, 20, 20])

    def test_an_empty_cage_is_not_known(self):
        self.begin()
        self.does("set", self.first.name, "threshold=20")
        self.does("module", "remove", self.first.name)
        threshold = self.shown(self.first)["threshold"]
        self.assertEqual(threshold["module"],
                         {"value": None, "register": None, "reason": "the cage is empty"})
        self.assertEqual((threshold["in_force"]["value"], threshold["differs"]), (20, []))
        self.assertRegex(self.says("show", "config", self.first.name),
                         r"\n  In module: not known, asked at 20[^ ]+Z: the cage is empty\n")

    def test_a_module_that_hangs_leaves_the_others_shown(self):
        self.begin()
        self.does("set", self.first.name, "threshold=20")
        self.does("set", self.other.name, "threshold=30")
        self.does("module", "fault", self.first.name, "hang")
        self.wait_for_state(self.first, "failing", 12)
        self.assertEqual(self.values(self.first, "threshold"), [20, 20, None])
        self.assertIn("a transfer does not end",
                      self.shown(self.first)["threshold"]["module"]["reason"])
        ports = {port["name"]: port for port in self.does("show", "config")["ports"]}
        self.assertEqual(len(ports), 3)
        [threshold] = [one for one in ports[self.other.name]["sub_ports"][0]["settings"]
                       if one["name"] == "threshold"]
        self.assertEqual(threshold["module"]["value"], 30)

    def test_a_module_whose_bus_never_comes_back_is_waited_for_within_a_bound(self):
        cage = self.add_file()
        self.begin()
        self.wait_for_state(cage, "up")
        marker = self.hang(cage)
        self.addCleanup(lambda: marker.unlink(missing_ok=True))
        self.wait_for_state(cage, "failing", 12)
        module = self.shown(cage)["mode"]["module"]
        self.assertIsNone(module["register"])
        self.assertNotEqual(module["reason"], "")

    def test_what_is_saved_otherwise_and_what_is_not_known_to_be_saved(self):
        self.begin()
        self.does("set", self.first.name, "threshold=7")
        self.limit_files(1024)
        self.fails(1, "set", self.first.name, "threshold=8")
        threshold = self.shown(self.first)["threshold"]
        self.assertEqual((threshold["saved"]["value"], threshold["in_force"]["value"]), (7, 8))
        self.assertEqual(threshold["differs"], ["saved"])
        self.assertIn("saved differs", self.says("show", "config", self.first.name))
        self.limit_files(None)
        file = self.shelf.folder / "state" / "checkpoints.db"
        file.rename(file.with_name("taken"))
        saved = self.shown(self.first)["threshold"]["saved"]
        self.assertIsNone(saved["value"])
        self.assertIn("moved or removed", saved["reason"])
        self.assertRegex(self.says("show", "config", self.first.name),
                         "\n  Saved: not known, asked at .*moved or removed")

    def test_a_port_that_does_not_exist_has_nothing_in_force(self):
        self.begin()
        self.does("port", "delete", self.first.name)
        setting = self.shown(self.first)["mode"]
        self.assertEqual(setting["in_force"], {"value": None, "reason": "the port does not exist"})
        self.assertEqual(setting["saved"]["reason"], "nothing is saved")

    def test_units_are_the_description_s(self):
        self.start(edit=lambda text: text.replace(
            "[[slot]]", '[units]\nthreshold = "0.1 dBm"\n[[slot]]', 1))
        self.wait_for_state(self.first, "up")
        shown = self.shown(self.first)
        self.assertEqual((shown["threshold"]["unit"], shown["setting-a"]["unit"]),
                         ("0.1 dBm", None))
        self.assertRegex(self.says("show", "config", self.first.name), "\n  threshold .* 0.1 dBm")

    def test_only_who_wants_it_asks_the_module(self):
        self.begin()
        for target in ("/v1/settings", "/v1/settings?module=false"):
            for port in self.driver.get(target)["ports"]:
                self.assertNotIn("module", port["sub_ports"][0]["settings"][0])
        with self.assertRaisesRegex(RuntimeError, "expected true or false"):
            self.driver.get("/v1/settings?module=maybe")
        self.assertIn("nobody", self.fails(1, "show", "config", "nobody"))


class Change(Settings):
    def test_what_does_not_fit_the_module_is_refused(self):
        self.begin()
        name = self.first.name
        for wrong in ("threshold=-3277", "threshold=3267", "p2-setting=6554", "setting-a=6554",
                      "setting-b=4294967295", "setting-b=-1"):
            said = self.fails(1, "set", name, wrong)
            self.assertIn("in 16 bits", said)
            self.assertRegex(said, "from (0 to 6553|-3276 to 3266)")
        self.assertEqual(self.port(self.first)["sub_ports"][0]["configuration"]["changed"], [])
        for value in (-3276, 3266):
            self.does("set", name, f"threshold={value}")
            self.assertEqual(self.values(self.first, "threshold"), [value] * 3)
        self.does("set", name, "p2-setting=6553", "setting-a=6553", "setting-b=6553",
                  "mode=4294967295")
        self.assertEqual(self.values(self.first, "setting-b"), [6553] * 3)

    def test_old_and_new_are_shown(self):
        self.begin()
        name = self.first.name
        self.assertEqual(self.says("set", name, "threshold=20"),
                         f"{name}:0 threshold never set -> 20\n")
        self.assertEqual(self.says("set", name, "threshold=30"), f"{name}:0 threshold 20 -> 30\n")
        self.assertEqual(self.says("set", name, "threshold=30"), f"{name}:0 threshold 30 -> 30\n")
        self.assertEqual(self.says("set", name, "setting-a=7"),
                         f"{name}:0 setting-a never set -> 7, "
                         "setting-b never set -> 0 (comes along), "
                         "enable never set -> 0 (comes along), sub1 never set -> 0 (comes along)\n")
        self.assertEqual(self.does("set", name, "setting-b=8")["changes"],
                         [{"name": "setting-b", "old": 0, "new": 8, "asked": True}])

    def test_a_dry_run_writes_nothing_and_refuses_what_a_change_refuses(self):
        self.begin()
        name = self.first.name
        self.does("set", name, "threshold=20")
        before = self.shown(self.first)
        reply = self.does("set", name, "--dry-run", "threshold=30", "mode=3")
        self.assertEqual(reply["changes"],
                         [{"name": "threshold", "old": 20, "new": 30, "asked": True},
                          {"name": "mode", "old": None, "new": 3, "asked": True}])
        self.assertIn("nothing has been written", self.says("set", name, "mode=3", "--dry-run"))
        self.assertEqual(self.shown(self.first), before)
        for wrong in ((name, "threshold=3267"), ("nobody", "mode=3"), (name + ":7", "mode=3")):
            self.assertEqual(self.fails(1, "set", *wrong, "--dry-run"), self.fails(1, "set", *wrong))
        self.does("port", "delete", self.other.name)
        self.assertIn("does not exist", self.fails(1, "set", self.other.name, "mode=3", "--dry-run"))

    def test_a_change_that_does_not_reach_the_module_fails(self):
        self.begin()
        self.does("module", "fault", self.first.name, "refuse-every=1", "code=5")
        said = self.fails(1, "set", self.first.name, "threshold=9")
        self.assertIn("have not reached the module", said)
        self.assertIn(f"port update {self.first.name} up", said)
        self.assertEqual(self.values(self.first, "threshold")[:2], [9, 9])
        self.assertEqual(self.shown(self.first)["threshold"]["differs"], ["module"])
        self.does("module", "fault", self.first.name, "none")
        self.does("port", "update", self.first.name, "up")
        self.assertEqual(self.values(self.first, "threshold"), [9, 9, 9])

    def test_a_transfer_that_is_repeated_with_success_is_no_failure(self):
        self.begin()
        self.does("module", "fault", self.first.name, "refuse-every=2", "code=5")
        failed = self.port(self.first)["module"]["failed_transfers"]
        self.assertTrue(self.does("set", self.first.name, "setting-a=9")["module_written"])
        self.assertGreater(self.port(self.first)["module"]["failed_transfers"], failed)
        self.assertEqual(self.values(self.first, "setting-a"), [9, 9, 9])

    def test_a_change_that_reaches_neither_store_nor_module_says_both(self):
        self.begin()
        self.does("module", "remove", self.first.name)
        self.wait_for_state(self.first, "empty", 5)
        self.limit_files(1024)
        said = self.fails(1, "set", self.first.name, "threshold=9")
        self.assertIn("not saved", said)
        self.assertIn("not reached the module", said)


class Deletion(Settings):
    def test_it_says_before_which_settings_it_drops(self):
        self.begin()
        name = self.first.name
        self.does("set", name + ":1", "threshold=20", "mode=3")
        stdout, said = self.ends(0, "port", "delete", name)
        self.assertEqual(said, [f"lumctl: the deletion drops the settings of {name}:1: "
                                "threshold 20, mode 3"])
        self.assertIn(f"{name}: absent", stdout)
        self.does("port", "create", "1")
        self.assertTrue(self.shown(self.first, 1)["threshold"]["never_set"])

    def test_without_settings_it_says_nothing(self):
        self.begin()
        self.assertEqual(self.ends(0, "port", "delete", self.first.name)[1], [])

    def test_a_dry_run_deletes_nothing(self):
        self.begin()
        name = self.first.name
        self.does("set", name, "threshold=20")
        plan = self.does("port", "delete", "--slot", "1", "--dry-run")
        self.assertEqual(plan["ports"], [name, self.second.name])
        self.assertEqual(plan["drops"],
                         [{"port": name, "sub_port": 0, "settings": {"threshold": 20}}])
        self.assertEqual(self.says("port", "delete", name, "--dry-run"),
                         f"would delete port {name}\n"
                         f"would drop the settings of {name}:0: threshold 20\n")
        self.assertEqual(self.values(self.first, "threshold"), [20, 20, 20])
        for wrong in (("nobody",), ("--slot", "9")):
            self.assertEqual(self.fails(1, "port", "delete", *wrong, "--dry-run"),
                             self.fails(1, "port", "delete", *wrong))


class Moved(Settings):
    def write(self, text):
        file = self.shelf.folder / "settings.toml"
        file.write_text(text)
        return str(file)

    def test_settings_come_back_as_they_were_exported(self):
        self.begin()
        self.does("set", self.first.name, "threshold=-20", "setting-a=7", "mode=3")
        self.does("set", self.second.name + ":1", "sub1=1")
        exported = self.says("config", "export")
        self.assertEqual(tomllib.loads(exported), {"settings": [
            {"port": self.first.name, "sub_port": 0, "threshold": -20, "mode": 3, "setting_a": 7,
             "setting_b": 0, "enable": 0, "sub1": 0},
            {"port": self.second.name, "sub_port": 1, "setting_a": 0, "setting_b": 0, "enable": 0,
             "sub1": 1}]})
        self.ends(0, "port", "delete", "--slot", "1")
        self.does("port", "create", "1")
        for cage in (self.first, self.second):
            self.wait_for_state(cage, "up")
        self.assertEqual(tomllib.loads(self.says("config", "export")), {})
        file = self.write(exported)
        checked = self.says("config", "import", file, "--dry-run")
        self.assertIn(f"{self.first.name}:0 threshold never set -> -20", checked)
        self.assertEqual(tomllib.loads(self.says("config", "export")), {})
        done = self.does("config", "import", file)
        self.assertEqual((done["complete"], len(done["settings"])), (True, 2))
        again = self.says("config", "export")
        self.assertEqual(tomllib.loads(again), tomllib.loads(exported))
        self.assertEqual(self.values(self.first, "threshold"), [-20] * 3)
        self.assertEqual(self.values(self.second, "sub1", 1), [1] * 3)

    def test_an_import_is_checked_whole_before_the_first_is_applied(self):
        self.begin()
        name = self.first.name
        file = self.write(f'[[settings]]\nport = "{name}"\nthreshold = 5\n'
                          f'[[settings]]\nport = "{self.second.name}"\nthreshold = 3267\n'
                          '[[settings]]\nport = "nobody"\nmode = 3\n'
                          f'[[settings]]\nport = "{name}:0"\nmode = 3\n')
        stdout, said = self.ends(1, "config", "import", file)
        self.assertEqual(stdout, "")
        for line, (number, why) in zip(said, ((4, "-3276 to 3266"), (7, "nobody"),
                                              (10, f"{name}:0 stands twice, first in line 1"))):
            self.assertIn(f"{file}:{number}: ", line)
            self.assertIn(why, line)
        self.assertEqual(said[3:], ["lumctl: nothing has been changed"])
        self.assertTrue(self.shown(self.first)["threshold"]["never_set"])

    def test_a_wrong_file_is_refused_with_its_lines(self):
        self.begin()
        for text, why in (("settings = 3\n", "1: 'settings' is no array"),
                          ("[[settings]\n", "1: "), ("[[setting]]\nmode = 3\n", "1: unknown key"),
                          ("settings = [3]\n", "1: not a table"),
                          ("[[settings]]\nmode = 3\n", "1: missing key 'port'"),
                          ("[[settings]]\nport = 'x'\n", "1: no setting"),
                          ("[[settings]]\nport = 3\nmode = 3\n", "2: 'port' is no text"),
                          ("[[settings]]\nport = 'x'\nsub_port = 2\nmode = 3\n", "3: 'sub_port'"),
                          ("[[settings]]\nport = 'x'\nmood = 3\n", "3: there is no setting 'mood'"),
                          ("[[settings]]\nport = 'x'\nmode = 1.5\n", "3: 'mode' is not a whole"),
                          ("[[settings]]\nport = 'x'\nmode = 4294967296\n", "3: 'mode' is not"),
                          (".".join("a" * 100000) + " = 1\n", "1: a key with more than")):
            file = self.write(text)
            said = self.ends(2, "config", "import", file)[1]
            self.assertIn(f"lumctl: {file}:{why}", said[0])
        self.assertIn("/nowhere.toml: cannot be read", self.fails(2, "config", "import",
                                                                  "/nowhere.toml"))
        self.assertIn("Is a directory", self.fails(2, "config", "import", "/"))

    def test_what_does_not_reach_a_module_is_told_and_the_rest_goes_on(self):
        self.begin()
        self.does("module", "remove", self.first.name)
        self.wait_for_state(self.first, "empty", 5)
        file = self.write(f'[[settings]]\nport = "{self.first.name}"\nthreshold = 5\n'
                          f'[[settings]]\nport = "{self.second.name}"\nthreshold = 6\n')
        stdout, said = self.ends(1, "config", "import", file)
        self.assertEqual(len(said), 1, said)
        self.assertIn(f"{file}:1: port {self.first.name}: the settings have not reached", said[0])
        self.assertIn(f"{self.second.name}:0 threshold never set -> 6", stdout)
        self.assertEqual(self.values(self.second, "threshold"), [6] * 3)

    def test_an_export_says_what_is_not_saved_so_and_what_it_lacks(self):
        self.begin()
        self.does("set", self.first.name, "threshold=7")
        self.limit_files(1024)
        self.fails(1, "set", self.first.name, "threshold=8")
        stdout, said = self.ends(0, "config", "export")
        self.assertIn("threshold = 8", stdout)
        self.assertEqual(said, [f"lumctl: {self.first.name}:0: what is saved is not what is in "
                                "force"])
        self.limit_files(None)
        file = self.shelf.folder / "state" / "checkpoints.db"
        file.rename(file.with_name("taken"))
        stdout, said = self.ends(1, "config", "export")
        self.assertIn("threshold = 8", stdout)
        self.assertIn(f"what is saved of {self.second.name}:0 is not known", "\n".join(said))

    def test_names_that_toml_has_to_quote(self):
        name = 'a "west" \\ port'
        quoted = name.replace("\\", "\\\\").replace('"', '\\"')
        self.start(edit=lambda text: text.replace("number = 1\nhandle",
                                                  f'name = "{quoted}"\nnumber = 1\nhandle', 1))
        self.assertIsNotNone(self.driver.wait_for(lambda now: now[name]["state"] == "up", 20))
        self.does("set", name, "threshold=3")
        exported = self.says("config", "export")
        self.assertEqual(tomllib.loads(exported)["settings"][0]["port"], name)
        self.assertIn("threshold 3 -> 3", self.says("config", "import", self.write(exported)))
