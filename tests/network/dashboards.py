"""The queries of the dashboards, as Grafana would send them."""

import json
import pathlib
import re

FOLDER = pathlib.Path(__file__).resolve().parents[2] / "docs" / "grafana"
VALUES_OF = re.compile(r"label_values\((.*), (\w+)\)$")


def filled(expression, instance, interval_s):
    """With the variables as Grafana fills them in: one node or all, every port, a rate's range."""
    for name, value in (("$__rate_interval", f"{round(4 * interval_s * 1000)}ms"),
                        ("$instance", instance), ("$port", ".*")):
        expression = expression.replace(name, value)
    return expression


def queries(dashboard, instance, interval_s):
    """Of each panel's targets and each variable its title and its expression."""
    content = json.loads((FOLDER / dashboard).read_text())
    for variable in content["templating"]["list"]:
        if variable["type"] == "query":
            series, _ = VALUES_OF.match(variable["query"]["query"]).groups()
            yield f"variable {variable['name']}", filled(series, instance, interval_s)
    for panel in content["panels"]:
        for target in panel.get("targets", []):
            yield panel["title"], filled(target["expr"], instance, interval_s)
