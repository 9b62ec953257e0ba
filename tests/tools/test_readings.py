"""The readings of a sub-port stand on pages and in examples too: each place that lacks one is named."""

import pathlib
import re
import tomllib
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
ROW = re.compile(r'^ +\{"([\w-]+)", "([^"]+)", reading_unit::(\w+)(?:, (\d+))?\},$', re.MULTILINE)


def readings():
    """Name, title, unit and number of its test, "" without one, as lumd and lumctl have them."""
    return ROW.findall((SOURCE / "client/words/readings.h").read_text())


def places(unit):
    return [place for place, (*_, one, _) in enumerate(readings()) if one == unit]


def span(numbers):
    return f"{numbers[0]} {'to' if len(numbers) > 2 else 'and'} {numbers[-1]}"


def listed(words):
    return f"{', '.join(words[:-1])} and {words[-1]}"


def listed_in_bold(words):
    """As a manual page has it."""
    return '.BR ' + ' ", " '.join(words[:-1]) + ' " and " ' + words[-1]


class Readings(unittest.TestCase):
    """POWERS and OTHERS are places among the readings: those in dBm, and those in the module's unit."""

    @classmethod
    def setUpClass(cls):
        cls.titles = [title.split()[0] for _, title, _, _ in readings()]
        cls.powers, cls.others = places("dbm"), places("module")

    def says(self, page, *wanted):
        text = " ".join((SOURCE / page).read_text().replace("\n *", "\n").split())
        missing = [words for words in wanted if words not in text]
        self.assertFalse(missing, f"{page} does not say so")

    def test_the_table_of_words_is_read_whole(self):
        text = (SOURCE / "client/words/readings.h").read_text()
        self.assertEqual(len(readings()), text.count(", reading_unit::"))
        self.assertEqual(len(self.powers) + len(self.others), len(readings()))

    def test_the_librarys_header(self):
        self.says("platforms/common/optics/ots/include/lum/port_records.h",
                  f"{span(self.powers)} are powers", f"{span(self.others)} are in tenths")

    def test_the_output_that_the_readme_shows(self):
        self.says("README.md", " ".join(title for _, title, _, _ in readings()))

    def test_the_page_of_metrics(self):
        names = [f"`{name}`" for name, *_ in readings()]
        self.says("docs/metrics.md", f"{listed(names[:len(self.powers)])}, as ",
                  f"{listed(names[len(self.powers):])}, in the module's units")

    def test_the_manual_page(self):
        powers = listed(self.titles[:len(self.powers)])
        others = listed(self.titles[len(self.powers):])
        self.says("docs/man/lumctl.1", f"{powers} are powers in dBm, {others} further readings",
                  listed_in_bold([name for name, *_ in readings()]),
                  *(name for name, *_, test in readings() if test))

    def test_the_page_of_alarm_tests(self):
        self.says("docs/alarms.md",
                  *(f"| `{name}` | {test} |" for name, *_, test in readings() if test))

    def test_the_page_of_module_images(self):
        self.says("docs/module-images.md", f"readings {span(self.powers + self.others)} as ",
                  f"readings {listed([str(place) for place in self.powers])} in dBm",
                  ", ".join(f"`reading_{place}`" for place in self.others) + " | in their unit")
        row = re.search(r"^\| `readings` \|[^|]*\|([^|]*)\|([^|]*)\|$",
                        (SOURCE / "docs/module-images.md").read_text(), re.MULTILINE)
        for places_in_memory in row.groups():
            self.assertEqual(len(re.findall(r"\d+", places_in_memory)), len(readings()),
                             "docs/module-images.md does not say where each reading is")

    def test_the_dashboard(self):
        names = [name for name, *_ in readings()]
        self.says("docs/grafana/lum-node.json",
                  f'"{listed(names[len(self.powers):])}"',
                  *(f'"{name}"' for name in names[:len(self.powers)]),
                  *('reading=\\"' + name for name in names[:len(self.powers)]))

    def test_the_examples_of_modules(self):
        keys = {f"reading_{place}" for place in self.others}
        for file in sorted((SOURCE / "examples/modules").glob("*.toml")):
            module = tomllib.loads(file.read_text())
            for sub_port in ("sub_port_0", "sub_port_1"):
                with self.subTest(file=file.name, sub_port=sub_port):
                    self.assertFalse(keys - set(module[sub_port]))
                    self.assertEqual(len(module[sub_port]["powers_dbm"]), len(self.powers))
