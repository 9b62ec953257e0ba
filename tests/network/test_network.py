"""Five nodes, a real Prometheus and a real Alertmanager: what is broken is told and gone again, and
the dashboards' queries have an answer."""

import os
import pathlib
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path += [str(SOURCE / "tests"), str(SOURCE / "tools" / "demo_network")]

from shelf import engine as engines  # noqa: E402
from shelf.network import Network  # noqa: E402

import story  # noqa: E402

BUILD = pathlib.Path(os.environ["LUM_BUILD"])
NODES = 5
FACTOR = 75
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
        cls.story.run()

    def test_each_alert_was_told_of_each_fault_and_is_gone(self):
        for sight in self.story.sights:
            self.assertIsNotNone(sight.told, story.describe(sight.awaited))
            self.assertIsNotNone(sight.resolved, story.describe(sight.awaited))
        self.assertEqual(len({sight.awaited.alert for sight in self.story.sights}), 7)


if __name__ == "__main__":
    unittest.main()
