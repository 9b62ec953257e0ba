"""The counts of attacks in ctest's log."""

import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools"))

import attack_counts  # noqa: E402

LOG = """\
1/3 Testing: stress.one
memory: 12 tried, 12 survived, of which 1 ended as stated
reads: 1,200 tried, 1,199 survived
Test Passed.
2/3 Testing: unit.other
nothing was tried, nobody survived
3/3 Testing: client.third
ok: 3 tried, 3 survived
"""


class Counts(unittest.TestCase):
    def test_are_summed_test_by_test(self):
        self.assertEqual(attack_counts.sums(LOG),
                         {"stress.one": (1212, 1211), "client.third": (3, 3)})
