"""Each promise on the page of reliability has its attack: a row whose test is gone is named."""

import pathlib
import re
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
PAGE = "docs/reliability.md"
NAMED = re.compile(r"`(tests/[\w./]+)::(\w+)`")


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


def complaints(page, source=SOURCE):
    for promise, tests in rows(page):
        if not tests:
            yield f"{promise}: no test"
        for file, name in tests:
            path = source / file
            if not path.is_file():
                yield f"{promise}: there is no {file}"
            elif not re.search(rf"\b{name}\b", path.read_text()):
                yield f"{promise}: {file} has no {name}"


class Reliability(unittest.TestCase):
    def test_every_promise_has_its_attack(self):
        page = (SOURCE / PAGE).read_text()
        self.assertGreater(len(list(rows(page))), 20)
        self.assertEqual(list(complaints(page)), [])

    def test_what_is_gone_is_named(self):
        missing = "no" + "_such"
        head = "| promise | where | attacked by | figures |\n|---|---|---|---|\n"
        for cell, complaint in (("`tests/tools/gone.py::x`", "there is no tests/tools/gone.py"),
                                (f"`tests/tools/test_reliability.py::{missing}`", f"has no {missing}"),
                                ("", "no test")):
            found = list(complaints(f"{head}| it holds | here | {cell} | |\n"))
            self.assertEqual(len(found), 1)
            self.assertIn(complaint, found[0])
