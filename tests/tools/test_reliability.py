"""Each promise on the page of reliability has its attack: a row whose test is gone, or is not run, is
named."""

import os
import pathlib
import re
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILD = os.environ.get("LUM_BUILD")
PAGE = "docs/reliability.md"
NAMED = re.compile(r"`(tests/[\w./]+)::(\w+)`")
# What defines a test of that name, or a whole suite, or a fuzzer; not what only speaks of it.
DEFINITIONS = {
    ".py": r"(?m)^(?:    )?def {name}\(",
    ".cpp": r"(?m)^TEST(?:_F|_P)?\((?:\w+, *{name}\)|{name},)|^extern \"C\" int {name}\(",
}
# These are run by commands of their own, whose main program calls them.
CALLED = {"tests/deb": "__main__.py", "tests/kernel": "__main__.py", "tests/fuzz": "CMakeLists.txt"}


def rows(page):
    """Promise and tests of each row below a heading of `attacked by`."""
    attacks = False
    for line in page.splitlines():
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if not line.startswith("|"):
            attacks = False
        elif len(cells) > 2 and cells[2] == "attacked by":
            attacks = True
        elif attacks and not set(line) <= set("|- "):
            yield cells[0], NAMED.findall(cells[2])


def is_defined(path, name):
    return bool(re.search(DEFINITIONS[path.suffix].format(name=name), path.read_text()))


def class_of(path, name):
    """The class of a test in Python."""
    return re.findall(r"(?m)^class (\w+)", path.read_text().partition(f"    def {name}(")[0])[-1]


def is_run(path, name, entries):
    """Whether it is among the entries of the tests, or called by what runs its folder."""
    called = CALLED.get(str(path.parent.relative_to(SOURCE)))
    if called:
        calls = (path.parent / called).read_text()
        if path.suffix == ".cpp":
            return bool(re.search(rf"\b{path.stem.removeprefix('fuzz_')}\b", calls))
        calls += path.read_text().replace(f"def {name}(", "")
        return bool(re.search(rf"\b{name}\b", calls))
    if path.suffix == ".py":
        return f"client.{path.stem.removeprefix('test_')}.{class_of(path, name)}" in entries
    return any(re.search(rf"(^|[./]){name}([./]|$)", entry) for entry in entries)


def complaints(page, entries=None):
    for promise, tests in rows(page):
        if not tests:
            yield f"{promise}: no test"
        for file, name in tests:
            path = SOURCE / file
            if not path.is_file():
                yield f"{promise}: there is no {file}"
            elif not is_defined(path, name):
                yield f"{promise}: {file} has no {name}"
            elif entries is not None and not is_run(path, name, entries):
                yield f"{promise}: {name} of {file} is not run"


class Reliability(unittest.TestCase):
    def test_every_promise_has_its_attack(self):
        page = (SOURCE / PAGE).read_text()
        self.assertGreater(len(list(rows(page))), 20)
        self.assertEqual(list(complaints(page)), [])

    @unittest.skipIf(BUILD is None or os.environ.get("LUM_SANITIZE"), "these run some of them only")
    def test_every_attack_is_run(self):
        entries = set()
        for pattern in ("CTestTestfile.cmake", "*_tests.cmake"):
            for file in pathlib.Path(BUILD, "tests").rglob(pattern):
                entries |= set(re.findall(r"(?m)^add_test\(\[=\[(.+?)\]=\]", file.read_text()))
        self.assertGreater(len(entries), 1000)
        self.assertEqual(list(complaints((SOURCE / PAGE).read_text(), entries)), [])
        found = list(complaints((SOURCE / PAGE).read_text(), entries=set()))
        self.assertGreater(len(found), 100)
        self.assertIn("is not run", found[0])

    def test_what_is_gone_is_named(self):
        head = "| promise | where | attacked by | figures |\n|---|---|---|---|\n"
        for cell, complaint in (
                ("`tests/tools/gone.py::x`", "there is no tests/tools/gone.py"),
                # Spoken of in that file, and no test.
                ("`tests/tools/test_reliability.py::complaint`", "has no complaint"),
                ("`tests/attacks/attacks_test.cpp::outlives_each`", "has no outlives_each"),
                ("", "no test")):
            found = list(complaints(f"{head}| it holds | here | {cell} | |\n"))
            self.assertEqual(len(found), 1)
            self.assertIn(complaint, found[0])
