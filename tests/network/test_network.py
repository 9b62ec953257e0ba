"""Five nodes, a real Prometheus and a real Alertmanager: what is broken is told and gone again, and
the dashboards' queries have an answer."""

import os
import pathlib
import sys
import tempfile
import time
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path += [str(SOURCE / "tests"), str(SOURCE / "tools" / "demo_network")]

import dashboards  # noqa: E402
from shelf import engine as engines  # noqa: E402
from shelf.network import Network  # noqa: E402

import story  # noqa: E402

BUILD = pathlib.Path(os.environ["LUM_BUILD"])
NODES = 5
FACTOR = 75
# What this network has none of: a day before, and what nothing was done to bring about.
WITHOUT_DATA = {"Top movers in power over a day", "Alarms", "Troubles of LEDs, buses and folders"}
GRACE_S = 40  # beyond a step's bound: other tests run beside this one


@unittest.skipIf(engines.missing(), f"{' and '.join(engines.missing())}: not installed")
class BrokenAndHealed(unittest.TestCase):
    """All steps are held by the story itself, which fails with the first that does not hold."""

    @classmethod
    def setUpClass(cls):
        folder = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="lum-network-"))
        targets = pathlib.Path(folder) / "nodes.json"
        network = cls.enterClassContext(Network(BUILD, folder, NODES))
        network.wait_until_up(60)
        network.write_targets(targets)
        cls.engine = cls.enterClassContext(engines.Engine(folder, targets, FACTOR))
        cls.story = story.Story(network, cls.engine, GRACE_S, say=lambda _: None)
        began = time.monotonic()
        cls.story.run()
        cls.story_s = time.monotonic() - began

    def test_each_alert_was_told_of_each_fault_and_is_gone(self):
        for sight in self.story.sights:
            self.assertIsNotNone(sight.told, story.describe(sight.awaited))
            self.assertIsNotNone(sight.resolved, story.describe(sight.awaited))
        self.assertEqual(len({sight.awaited.alert for sight in self.story.sights}), 7)

    def has_data(self, dashboard, instance):
        for title, expression in dashboards.queries(dashboard, instance, self.engine.scrape_s):
            with self.subTest(panel=title, expression=expression):
                self.engine.query(expression)  # refused with its reason where it is none
                found = self.engine.series(expression, self.story_s)
                self.assertEqual(bool(found), title not in WITHOUT_DATA)

    def test_every_query_of_the_networks_dashboard_has_an_answer(self):
        self.has_data("lum-network.json", ".*")

    def test_every_query_of_a_nodes_dashboard_has_an_answer(self):
        self.has_data("lum-node.json", "node-02")

    def test_nodes_are_as_bad_as_what_was_done_to_them(self):
        """The killed driver's is the worst, then those that were not polled."""
        worst = {one["metric"]["instance"]: max(int(value) for _, value in one["values"])
                 for one in self.engine.series("lum:node_severity:max", self.story_s)}
        self.assertEqual((worst["node-02"], worst["node-04"]), (2, 3))


if __name__ == "__main__":
    unittest.main()
