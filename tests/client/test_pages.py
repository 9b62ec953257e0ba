"""Every command of our programs that README and docs show comes to a good end."""

import re
import shlex
import signal
import unittest

from certificates import Authority
from example_node import SOURCE, ExampleNode
from helps import every_help
from support import LUMCTL, run
from shelf.network import free_ports

PAGES = [SOURCE / "README.md", SOURCE / "CONTRIBUTING.md", *sorted((SOURCE / "docs").rglob("*.md"))]
BLOCK = re.compile(r"^ *```.*?\n(.*?)^ *```", re.MULTILINE | re.DOTALL)
PROGRAMS = ("lumd", "lumctl", "lum-module-image", "lum-trace")
COMMAND = re.compile(rf"(?:build/)?({'|'.join(PROGRAMS)}) (?=-{{0,2}}[a-zA-Z]|/)(.*)")
# Wherever it stands, that is no prose.
UNMISTAKABLE = r"(?<![\w.-])(?:lumd --\w|lum-(?:module-image|trace) (?:--?\w|\S*[./])|lumctl (?:--\w|(?:{})\b))"

# What is on the example node where a page speaks of something else.
HERE = {
    "NAME": "west", "[NAME]": "west", "SLOT": "1", "STATE": "failing", "KIND": "alarm-raised",
    "FILE.tar.gz": "node.tar.gz", "FOLDER": "run/traces", "/var/log/lumd": "run/traces",
    "DESCRIPTION": "modules/iivi-new-map.toml",
    "0/1/0/3:0": "west:0", "0/1/0/3:1": "west:1", "x#Ots0_1_0_3_1#1#11#1": "x#Ots0_1_0_0_1#1#11#1",
    "/etc/lumd/node.toml": "node.toml", "examples/run/lumd.sock": "run/lumd.sock",
    "examples/node.toml": "node.toml", "examples/modules/iivi-new-map.toml": "modules/iivi-new-map.toml",
}
FILES = {"lumd": "node.toml", "lumctl": "port3.eeprom", "lum-module-image": "port3.eeprom"}
# These come last, in this order, wherever they are shown.
LAST = ("", "module insert", "port delete", "port create")
# It tells what is wrong with the node, which may be something.
ENDS = {"check": (0, 1, 2)}


def command_in(line):
    return COMMAND.fullmatch(line.split(" #")[0].strip(" &$"))


def lines_of(page, helps):
    """The lines of blocks and the spans, each with the command that it is or None, and the prose between them."""
    text = page.read_text()
    for block in BLOCK.findall(text):
        for line in re.split(r"&&|\n", block):
            yield line, command_in(line)
    for number, part in enumerate(BLOCK.sub("", text).split("`")):
        words = part.split()
        if number % 2 == 0:
            yield " ".join(words), None
            continue
        named = tuple(words[:2]) in helps and len(words) > 2  # as in: `show port NAME` tells
        line = " ".join(["lumctl", *words] if named else words)
        yield line, command_in(line)


def shown(helps):
    """Each command, without its program's folder, and the page that shows it."""
    for page in PAGES:
        for _, found in lines_of(page, helps):
            if found:
                yield f"{found.group(1)} {found.group(2)}", page.name


def passed_over(pages, helps):
    """Lines with a command of ours that are none for shown()."""
    commands = "|".join(path[0] for path in helps if len(path) == 1)
    looks = re.compile(UNMISTAKABLE.format(commands))
    return [line for page in pages for line, found in lines_of(page, helps) if looks.search(line) and not found]


def turn(command):
    """Where it comes in the order of LAST."""
    return max(i for i, words in enumerate(LAST) if words in command.removeprefix("lumctl "))


class Pages(ExampleNode):
    """On the example node with what some boards have besides, asked from near and from afar."""

    def setUp(self):
        super().setUp()
        self.helps = dict(every_help())
        self.authority = Authority(self.folder, "ca")
        certificate, key = self.authority.sign("node")
        (self.folder / "line").write_text("0")
        node = self.folder / "node.toml"
        text = node.read_text() + 'reset = "line"\nlow_power = "line"\n'
        [self.port] = free_ports(1)
        node.write_text(f'http_port = {self.port}\nhttp_certificate = "{certificate}"\nhttp_key = "{key}"\n{text}')

    def as_here(self, command):
        """Its words behind the program's name."""
        program, *words = shlex.split(command)
        here = {**HERE, "FILE": FILES.get(program, "FILE")}
        if words[1:2] in (["reset"], ["low-power"]):
            here["NAME"] = "south"  # the cage with lines
        if words[0] == "explain":
            here["NAME"] = "led-broken"
        words = [here.get(word, word) for word in words]
        return [re.sub(r"https://[\w.]+:\w+", f"https://localhost:{self.port}", word) for word in words]

    def is_only_named(self, words):
        """A command without the words that it needs: not to be run as it stands."""
        path = tuple(words)
        return path in self.helps and (
            path == ("port", "delete") or bool(self.helps[path].commands)
            or "REQUIRED" in run(LUMCTL, *path, "--help").stdout)

    def lumctl(self, words):
        if all(word.startswith("--") for word in words):
            return self.shell(f"lumctl show node --help | grep -e {words[0]}")
        if tuple(words) == ("watch",) or self.is_only_named(words):
            return self.shell(shlex.join(["lumctl", *words, "--help"]))
        if "--url" in words and "--ca" not in words:
            words += ["--ca", "ca.pem", "show", "node"]
        return self.shell("lumctl " + " ".join(word if word.startswith(">") else shlex.quote(word) for word in words))

    def lumd(self, words):
        if "--config" not in words:
            words += ["--check", "--config", "node.toml"]
        if "--check" in words:
            return self.shell(shlex.join(["lumd", *words])).returncode
        driver = self.start_driver(shlex.join(["lumd", *words]))
        driver.send_signal(signal.SIGTERM)
        return driver.wait(30)

    def of(self, program):
        """Its commands with the pages that show them, in the order of LAST."""
        found = {}
        for command, page in shown(self.helps):
            if command.startswith(program + " "):
                found.setdefault(command, page)
        return sorted(found.items(), key=lambda each: turn(each[0]))

    def test_lumds(self):
        commands = self.of("lumd")
        self.assertGreater(len(commands), 4)
        for command, page in commands:
            self.assertEqual(self.lumd(self.as_here(command)), 0, (command, page))

    def test_lumctls(self):
        self.make_images()
        self.start_driver("lumd --config node.toml --alarm-tests")
        commands = self.of("lumctl")
        self.assertGreater(len(commands), 40)
        for command, page in commands:
            words = self.as_here(command)
            done = self.lumctl(words)
            self.assertIn(done.returncode, ENDS.get(words[0], (0,)), f"{command} in {page}\n{done.stdout}")

    def test_the_trace_tools(self):
        self.start_driver("lumd --config node.toml")
        commands = self.of("lum-trace")
        self.assertGreater(len(commands), 1)
        for command, page in commands:
            done = self.shell(shlex.join(["lum-trace", *self.as_here(command)]))
            self.assertEqual(done.returncode, 0, f"{command} in {page}\n{done.stdout}")
            self.assertIn("LUM_API: entry", done.stdout, command)

    def test_none_is_passed_over(self):
        self.assertEqual(passed_over(PAGES, self.helps), [])
        page = self.folder / "page.md"
        for hidden in ("sudo lumctl show ports", "`cd build; lumd --check`", "say lumctl trace west", "x | lum-trace -n 1 y"):
            page.write_text(f"```\n{hidden}\n```\n" if "`" not in hidden else hidden)
            self.assertEqual(len(passed_over([page], self.helps)), 1, hidden)

    def test_the_image_tools(self):
        self.assertGreater(self.make_images(), 2)

    def make_images(self):
        commands = self.of("lum-module-image")
        for command, page in commands:
            done = self.shell(shlex.join(["lum-module-image", *self.as_here(command)]))
            self.assertEqual(done.returncode, 0, f"{command} in {page}\n{done.stdout}")
        return len(commands)
