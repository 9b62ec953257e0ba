"""The dashboards and their provisioning, as far as their form tells; their queries are run by the test
of the network."""

import json
import pathlib
import re
import unittest

DOCS = pathlib.Path(__file__).resolve().parents[2] / "docs"
GRAFANA = DOCS / "grafana"
DASHBOARDS = {file.name: json.loads(file.read_text()) for file in GRAFANA.glob("*.json")}
SOURCE = {"type": "prometheus", "uid": "${datasource}"}


def overlap(one, other):
    return all(one[at] < other[at] + other[size] and other[at] < one[at] + one[size]
               for at, size in (("x", "w"), ("y", "h")))


class Dashboards(unittest.TestCase):
    def test_there_is_one_for_a_network_and_one_for_a_node(self):
        self.assertEqual({one["uid"] for one in DASHBOARDS.values()}, {"lum-network", "lum-node"})

    def test_panels_have_numbers_and_places_of_their_own(self):
        for name, dashboard in DASHBOARDS.items():
            panels = dashboard["panels"]
            self.assertEqual(len({panel["id"] for panel in panels}), len(panels), name)
            for i, panel in enumerate(panels):
                place = panel["gridPos"]
                self.assertLessEqual(place["x"] + place["w"], 24, panel["title"])
                for other in panels[i + 1:]:
                    self.assertFalse(overlap(place, other["gridPos"]),
                                     (name, panel["title"], other["title"]))

    def test_every_query_asks_the_source_that_is_chosen(self):
        """A name of a source that only an import resolves would be none to a provisioned one."""
        for name, dashboard in DASHBOARDS.items():
            chosen, *others = dashboard["templating"]["list"]
            self.assertEqual((chosen["name"], chosen["type"], chosen["query"]),
                             ("datasource", "datasource", "prometheus"), name)
            askers = [*others, *(panel for panel in dashboard["panels"] if panel["type"] != "row")]
            askers += [target for panel in dashboard["panels"] for target in panel.get("targets", [])]
            for asker in askers:
                self.assertEqual(asker["datasource"], SOURCE, (name, asker))
            self.assertNotIn("__inputs", dashboard)

    def test_what_they_use_is_declared(self):
        own = {"datasource", "__rate_interval", "__field"}
        for name, dashboard in DASHBOARDS.items():
            declared = {one["name"] for one in dashboard["templating"]["list"]}
            used = set(re.findall(r"\$\{?(\w+)", json.dumps(dashboard["panels"])))
            self.assertLessEqual(used - own, declared, name)

    def test_links_lead_to_dashboards_that_there_are(self):
        for name, dashboard in DASHBOARDS.items():
            for uid in re.findall(r"/d/([\w-]+)", json.dumps(dashboard)):
                self.assertIn(uid, {one["uid"] for one in DASHBOARDS.values()}, name)

    def test_rates_go_by_the_scrape_interval(self):
        for name, dashboard in DASHBOARDS.items():
            for asked in re.findall(r"rate\([^[]*\[([^]]*)\]", json.dumps(dashboard)):
                self.assertEqual(asked, "$__rate_interval", name)


class Provisioning(unittest.TestCase):
    """Of two short files whose keys Grafana documents: each line is one that is known."""

    def keys(self, name):
        text = (GRAFANA / "provisioning" / name / "lum.yml").read_text()
        lines = [re.sub(r" +#.*", "", line) for line in text.splitlines() if line[:1] != "#"]
        for line in lines:
            self.assertRegex(line, r"^(  )*(- )?\w+:( \S+)?$")
        return dict(re.match(r" *(?:- )?(\w+): ?(.*)", line).groups() for line in lines)

    def test_the_source(self):
        keys = self.keys("datasources")
        self.assertEqual((keys["apiVersion"], keys["type"], keys["access"]),
                         ("1", "prometheus", "proxy"))
        self.assertRegex(keys["url"], r"^http://[\d.]+:9090$")
        self.assertIn("datasources", keys)

    def test_the_dashboards(self):
        keys = self.keys("dashboards")
        self.assertEqual((keys["apiVersion"], keys["type"], keys["allowUiUpdates"]),
                         ("1", "file", "false"))
        self.assertTrue(keys["path"].startswith("/"))
        self.assertIn("providers", keys)


if __name__ == "__main__":
    unittest.main()
