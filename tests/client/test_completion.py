"""What the shell may offer, and the shells that ask for it."""

import os
import shlex
import shutil
import socket
import tempfile
import unittest

import support
from actions import Actions
from helps import every_help
from support import LUMCTL, SOURCE, run
from terminal import Terminal, needs_a_terminal

FILES = SOURCE / "packaging" / "completion"
NOWHERE = {"LUMD_SOCKET": "/nowhere/socket"}
# With a sanitizer each question takes ten times as long, and the words run through the same lines.
EACH = 5 if os.environ.get("LUM_SANITIZE") else 1
EVERYWHERE = ["--socket", "--url", "--ca", "--cert", "--key", "--json", "--timeout", "--help"]


def offered(*words, **environment):
    """What lumctl offers for the last of the words."""
    done = run(LUMCTL, "__complete", "--", *words, **(environment or NOWHERE))
    assert (done.returncode, done.stderr) == (0, ""), done
    return done.stdout.splitlines()


class Offers(unittest.TestCase):
    def test_every_command_and_option_is_offered(self):
        seen = 0
        for path, known in every_help():
            words = offered(*path, "")
            self.assertLessEqual({*known.commands, *known.options}, set(words), path)
            self.assertEqual(len(words), len(set(words)), path)
            for word in (*known.commands, *known.options)[::EACH]:
                self.assertIn(word, offered(*path, word[:-1]))
                seen += 1
        self.assertGreater(seen, 150 // EACH)

    def test_every_fixed_value_is_offered(self):
        seen = 0
        for path, known in every_help():
            for name, values in known.values.items():
                before = [name] if name.startswith("--") else self.words_before(path)
                self.assertLessEqual(set(values), set(offered(*path, *before, "")), (path, name))
                seen += 1
        self.assertGreater(seen, 4)

    @staticmethod
    def words_before(path):
        """What stands before the fixed values of a command; they are its last argument."""
        return {"port": ["west"], "module": ["west"], "inject": ["west:0", "all"], "im": []}[path[0]]

    def test_only_what_begins_like_the_word(self):
        self.assertEqual(offered("sh"), ["show"])
        self.assertEqual(offered("show", "po"), ["ports", "port"])
        self.assertEqual(offered("show", "ports", "--a"), ["--all"])
        self.assertEqual(offered("show", "pm", "--bins="), ["--bins=15min", "--bins=24h"])
        self.assertEqual(offered("set", "west", "setting-"), ["setting-a=", "setting-b="])
        self.assertEqual(offered("module", "fault", "west", "hang", "no"), ["none"])
        self.assertEqual(offered("im", "malform", "3", ""),
                         ["garbage", "truncated", "missing-member", "absent", *EVERYWHERE])

    def test_nothing_where_nothing_is_known(self):
        for words in (["frobnicate", ""], ["show", "frobnicate", ""], ["im", "refuse", "1", "9"], ["show", "pm", "x", "y"],
                      ["--socket", ""], ["port", "create", "1", "--wait", ""], ["--bins="],
                      ["set", "west", "mode="], ["show", "ports", "--", "x"]):
            self.assertEqual(offered(*words), [], words)
        self.assertEqual(offered(), offered(""))

    def test_the_hidden_command_is_not_offered(self):
        self.assertEqual(offered("__"), [])
        self.assertNotIn("__complete", run(LUMCTL, "--help").stdout)

    def test_no_driver_is_no_error(self):
        self.assertEqual(offered("show", "port", ""), ["--verbose", *EVERYWHERE])
        self.assertEqual(offered("show", "port", "", LUMD_SOCKET="x" * 200), ["--verbose", *EVERYWHERE])

    def test_a_driver_that_never_answers_is_not_waited_for(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "socket")
            with socket.socket(socket.AF_UNIX) as silent:
                silent.bind(path)
                silent.listen()
                # Other commands wait for 30 seconds, which is as long as run() waits for this one.
                self.assertEqual(offered("show", "port", "", LUMD_SOCKET=path),
                                 ["--verbose", *EVERYWHERE])


class Names(Actions):
    """Names, and what the driver calls what lumctl has names for."""

    def offers(self, *words):
        return [word for word in offered("--socket", str(self.shelf.socket), *words, "")
                if not word.startswith("--")]

    def test_names_of_what_is_there(self):
        self.start()
        for cage in self.shelf.cages:
            self.wait_for_state(cage, "up")
        ports = [cage.name for cage in self.shelf.cages]
        sub_ports = [f"{name}:{number}" for name in ports for number in (0, 1)]
        for command in (("clear", "stats"), ("port", "update"), ("port", "delete"), ("port", "delete", ports[0]),
                        ("module", "insert"), ("module", "poke")):
            self.assertEqual(self.offers(*command), ports, command)
        for command in (("inject", "alarm"), ("inject", "readings"), ("ea", "create")):
            self.assertEqual(self.offers(*command), sub_ports, command)
        for command in (("set",), ("show", "port"), ("show", "config"), ("show", "module"), ("show", "pm")):
            self.assertEqual(set(self.offers(*command)), {*ports, *sub_ports}, command)
        self.assertEqual(self.offers("im", "fail-name")[:2], ["Ots0_1_0_1_0", "Ots0_1_0_1_1"])
        self.assertEqual(offered("port", "update", "", LUMD_SOCKET=str(self.shelf.socket))[:3], ports)
        for where in ((f"--socket={self.shelf.socket}", "port", "update"),
                      ("--json", "--timeout", "3", "--socket", str(self.shelf.socket), "port", "update"),
                      ("port", "--socket", str(self.shelf.socket), "update"),
                      ("port", "update", "--socket", str(self.shelf.socket), "--json")):
            self.assertEqual(offered(*where, "")[:3], ports, where)
        self.does("port", "delete", "--slot", "1")
        self.assertEqual(self.offers("port", "update"), [self.other.name])

    def test_settings_are_the_driver_s(self):
        self.begin()
        stored = self.port(self.first)["sub_ports"][0]["configuration"]
        named = [word.removesuffix("=").replace("-", "_")
                 for word in self.offers("set", self.first.name)]
        self.assertEqual(named, [key for key in stored if not key.startswith("changed")])

    def test_alarms_are_the_driver_s(self):
        self.begin()
        alarms = self.offers("inject", "alarm", "west:0")
        self.assertEqual(set(alarms), {kind["name"] for kind in self.does("show", "alarms")["kinds"]}
                         | {"all"})

    def test_the_driver_takes_every_reading_fault_and_malformation(self):
        self.begin()
        name = self.first.name
        readings = self.offers("inject", "readings", f"{name}:0")
        for reading in readings:
            self.does("inject", "readings", f"{name}:0", reading, "off")
        faults = self.offers("module", "fault", name)
        for fault in faults:
            word = fault + "1" if fault.endswith("=") else fault
            reply = self.does("module", "fault", name, word)
            self.assertTrue(reply["faults"], word)
        self.does("module", "fault", name, "none")
        kinds = self.offers("im", "malform", "1")
        for kind in kinds:
            self.assertEqual(self.does("im", "malform", "1", kind)["behaviour"]["malform"]["kind"],
                             kind)
        self.assertEqual((len(readings), len(faults), len(kinds)), (5, 15, 4))


class Shells(support.ShelfTest):
    """The shells themselves, on a driver with a port that has a name of its own."""

    def begin(self):
        self.add_module("iivi-old-map")
        self.add_module("iivi-old-map")
        write = self.shelf.write_description

        def write_with_a_name():
            write()
            text = self.shelf.description.read_text()
            self.shelf.description.write_text(
                text.replace("number = 2\n", 'number = 2\nname = "far west"\n', 1))

        self.shelf.write_description = write_with_a_name
        self.start()
        self.assertIsNotNone(self.driver.wait_for(
            lambda now: all(port["state"] == "up" for port in now.values()), 20))
        folder = self.shelf.folder / "bin"
        folder.mkdir()
        (folder / "lumctl").symlink_to(LUMCTL)
        self.environment = {"LUMD_SOCKET": str(self.shelf.socket),
                            "PATH": f"{folder}:{os.environ['PATH']}", "HOME": str(folder)}

    def run_shell(self, *command):
        done = run(*command, **self.environment)
        self.assertEqual((done.returncode, done.stderr), (0, ""), done)
        return done.stdout.splitlines()

    def bash(self, line, *words):
        """What bash completes the line's last word with; readline has parted the words."""
        script = f"""
            source {FILES / "lumctl.bash"}
            COMP_LINE={shlex.quote(line)}
            COMP_POINT=${{#COMP_LINE}}
            COMP_WORDS=({" ".join(shlex.quote(word) for word in words)})
            COMP_CWORD={len(words) - 1}
            _lumctl "${{COMP_WORDS[0]}}"
            printf '%s\\n' "${{COMPREPLY[@]}}" """
        return self.run_shell("bash", "-c", script)

    def test_bash(self):
        self.begin()
        self.assertEqual(self.bash("lumctl show po", "lumctl", "show", "po"), ["ports", "port"])
        self.assertEqual(self.bash("lumctl  port update 0", "lumctl", "port", "update", "0"),
                         ["0/1/0/1"])
        self.assertEqual(self.bash("lumctl port update far", "lumctl", "port", "update", "far"),
                         ["far\\ west"])
        self.assertEqual(self.bash("lumctl port update far\\ w", "lumctl", "port", "update",
                                   "far\\ w"), ["far\\ west"])
        self.assertEqual(self.bash("lumctl port update 'far w", "lumctl", "port", "update",
                                   "'far w"), ["far west"])
        self.assertEqual(self.bash("lumctl show port far", "lumctl", "show", "port", "far"),
                         ["far\\ west", "far\\ west:0", "far\\ west:1"])
        self.assertEqual(self.bash("lumctl show port far\\ west:", "lumctl", "show", "port",
                                   "far\\ west", ":"), ["0", "1"])
        for line, words in (("0/1/0/1:", ["0/1/0/1", ":"]), ("0/1/0/1:", ["0/1/0/1", ":", ""])):
            self.assertEqual(self.bash(f"lumctl inject alarm {line}", "lumctl", "inject", "alarm",
                                       *words), ["0", "1"])
        self.assertEqual(self.bash("lumctl inject alarm 0/1/0/1:0 flag-4", "lumctl", "inject",
                                   "alarm", "0/1/0/1", ":", "0", "flag-4"),
                         ["flag-49-a", "flag-49-b"])
        self.assertEqual(self.bash("lumctl set 0/1/0/1 mode=3 setting-", "lumctl", "set", "0/1/0/1",
                                   "mode", "=", "3", "setting-"), ["setting-a=", "setting-b="])
        self.assertEqual(self.bash("lumctl show pm --bins=1", "lumctl", "show", "pm", "--bins", "=",
                                   "1"), ["15min"])
        self.assertEqual(self.bash(f"{LUMCTL} sh", str(LUMCTL), "sh"), ["show"])

    def completes_what_is_typed(self, terminal, set_up):
        """The shell says when it is set up: what it echoes of the command does not look like that."""
        terminal.type(f"{set_up} && echo rea''dy\n")
        self.assertTrue(terminal.read_until(lambda seen: b"ready\r\n" in seen, 20))
        terminal.type("lumctl inj\tal\t0/1/0\t1 flag-13 on\n")
        self.assertTrue(terminal.read_until(
            lambda seen: b"0/1/0/1 sub-port 1: alarms forced on: flag-13" in seen, 20),
            terminal.output)
        terminal.type("lumctl show port far\t; exit\n")
        self.assertTrue(terminal.read_until(lambda seen: b"Port:          far west" in seen, 20),
                        terminal.output)
        terminal.end()

    @needs_a_terminal
    def test_bash_as_it_is_used(self):
        self.begin()
        terminal = Terminal("bash", "--norc", "--noprofile", "-i", **self.environment)
        self.completes_what_is_typed(terminal, f"PS1='$ '; source {FILES / 'lumctl.bash'}")

    @unittest.skipUnless(shutil.which("fish"), "fish is not installed")
    def test_fish(self):
        self.begin()
        for line, expected in (("lumctl show po", ["port", "ports"]),
                               ("lumctl port update fa", ["far west"]),
                               ("lumctl show port fa", ["far west", "far west:0", "far west:1"]),
                               ("lumctl --json show port far\\ west:", ["far west:0", "far west:1"]),
                               ("lumctl show alarms --", ["--all", "--ca", "--cert", "--help", "--json", "--key",
                                                          "--socket", "--timeout", "--url"]),
                               ("lumctl show ports --sort w", ["worst"]),
                               ("lumctl inject alarm 0/1/0/1:", ["0/1/0/1:0", "0/1/0/1:1"]),
                               ("lumctl set 0/1/0/1 mode=3 setting-", ["setting-a=", "setting-b="])):
            script = f"source {FILES / 'lumctl.fish'}; complete --do-complete '{line}'"
            self.assertEqual(sorted(self.run_shell("fish", "--no-config", "-c", script)), expected)

    @needs_a_terminal
    @unittest.skipUnless(shutil.which("zsh"), "zsh is not installed")
    def test_zsh(self):
        self.begin()
        terminal = Terminal("zsh", "-f", "-i", **self.environment)
        self.completes_what_is_typed(
            terminal, f"autoload -U compinit && compinit -u -D && source {FILES / 'lumctl.zsh'}")

    def test_lumctl_prints_the_files(self):
        for shell in ("bash", "zsh", "fish"):
            done = run(LUMCTL, "completion", shell)
            self.assertEqual((done.returncode, done.stdout),
                             (0, (FILES / f"lumctl.{shell}").read_text()))
