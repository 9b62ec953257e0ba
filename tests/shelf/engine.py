"""A real Prometheus and a real Alertmanager on loopback, with the project's rules for them. All
durations that they go by, and none of the thresholds, are divided by one factor."""

import json
import pathlib
import re
import shutil
import subprocess
import time
import urllib.error
import urllib.parse
import urllib.request

from shelf.network import free_ports

PROMETHEUS_FILES = pathlib.Path(__file__).resolve().parents[2] / "docs" / "prometheus"
PROGRAMS = ("prometheus", "prometheus-alertmanager")
# As in the field; a rule is evaluated more often than it gets new samples.
SCRAPE_S = 60
EVALUATION_S = 15
LOOKBACK_S = 300
UNITS_S = {"ms": 0.001, "s": 1, "m": 60, "h": 3600, "d": 86400}
# Where a duration stands in a rule, in a range or an offset of its expression, or in the route.
DURATION = re.compile(
    r"(for: |\[|offset |group_wait: |group_interval: |repeat_interval: )(\d+)(ms|s|m|h|d)\b")


def missing():
    """The programs of the two that this machine does not have."""
    return [name for name in PROGRAMS if shutil.which(name) is None]


def seconds_of(number, unit):
    return int(number) * UNITS_S[unit]


def as_duration(seconds):
    return f"{max(1, round(seconds * 1000))}ms"


def shortened(text, factor):
    """A file of rules or routes with its durations divided."""
    return DURATION.sub(
        lambda found: found[1] + as_duration(seconds_of(found[2], found[3]) / factor), text)


def rule_of(alert):
    """The text of one alert's rule, as it is in the field."""
    text = (PROMETHEUS_FILES / "lum-alerts.yml").read_text()
    for rule in text.split("- alert: ")[1:]:
        if rule.startswith(f"{alert}\n"):
            return rule
    raise RuntimeError(f"lum-alerts.yml has no alert {alert}")


def for_of(alert):
    """How long the alert's expression must hold, in seconds in the field."""
    found = re.search(r"^ *for: (\d+)(\w+)$", rule_of(alert), re.M)
    return seconds_of(*found.groups()) if found else 0


def range_of(alert):
    """How far back the alert's expression looks for changes, in seconds in the field."""
    found = re.findall(r"\[(\d+)(\w+)\]", rule_of(alert))
    return max((seconds_of(*one) for one in found), default=0)


def ask(url):
    with urllib.request.urlopen(url, timeout=20) as answer:
        return json.loads(answer.read())


class Engine:
    """Both programs, for as long as the block lasts; both are ended with it."""

    def __init__(self, folder, targets, factor):
        self.folder = pathlib.Path(folder)
        self.factor = factor
        self.ports = dict(zip(PROGRAMS, free_ports(2)))
        self.running = {}
        for name in ("lum-alerts.yml", "lum-rules.yml", "alertmanager.yml"):
            text = (PROMETHEUS_FILES / name).read_text()
            (self.folder / name).write_text(shortened(text, factor))
        interval = as_duration(self.scrape_s)
        (self.folder / "prometheus.yml").write_text(f"""\
global:
  scrape_interval: {interval}
  scrape_timeout: {interval}
  evaluation_interval: {as_duration(EVALUATION_S / factor)}
rule_files: [lum-alerts.yml, lum-rules.yml]
alerting:
  alertmanagers:
    - static_configs: [{{targets: ["127.0.0.1:{self.ports['prometheus-alertmanager']}"]}}]
scrape_configs:
  - job_name: lum
    file_sd_configs: [{{files: [{targets}]}}]
""")

    @property
    def scrape_s(self):
        return SCRAPE_S / self.factor

    def __enter__(self):
        data, port = self.folder, self.ports
        try:
            self.start("prometheus-alertmanager", f"--config.file={data}/alertmanager.yml",
                       f"--storage.path={data}/alertmanager", "--cluster.listen-address=",
                       f"--web.listen-address=127.0.0.1:{port['prometheus-alertmanager']}")
            self.start("prometheus", f"--config.file={data}/prometheus.yml",
                       f"--storage.tsdb.path={data}/prometheus",
                       f"--query.lookback-delta={as_duration(LOOKBACK_S / self.factor)}",
                       f"--web.listen-address=127.0.0.1:{port['prometheus']}")
            for name in PROGRAMS:
                self.wait_until_ready(name)
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for process in self.running.values():
            process.kill()
            process.wait()

    def log(self, name):
        return self.folder / f"{name}.log"

    def start(self, name, *options):
        with open(self.log(name), "w") as log:
            self.running[name] = subprocess.Popen([name, *options], stdout=log, stderr=log,
                                                  cwd=self.folder)

    def wait_until_ready(self, name, seconds=60):
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline and self.running[name].poll() is None:
            try:
                with urllib.request.urlopen(self.url(name, "/-/ready"), timeout=5):
                    return
            except OSError:
                time.sleep(0.1)
        raise RuntimeError(f"{name} has not come up: {self.log(name).read_text()[-2000:]}")

    def url(self, name, path, **parameters):
        query = f"?{urllib.parse.urlencode(parameters)}" if parameters else ""
        return f"http://127.0.0.1:{self.ports[name]}{path}{query}"

    def query(self, expression):
        """The series that an expression has now; RuntimeError says why it is none."""
        try:
            answer = ask(self.url("prometheus", "/api/v1/query", query=expression))
        except urllib.error.HTTPError as refused:
            said = json.loads(refused.read())["error"]
            raise RuntimeError(f"Prometheus refuses {expression}: {said}") from None
        return answer["data"]["result"]

    def series(self, expression, seconds):
        """The series that an expression has had within the last seconds."""
        now = time.time()
        answer = ask(self.url("prometheus", "/api/v1/query_range", query=expression,
                              start=now - seconds, end=now, step=self.scrape_s))
        return answer["data"]["result"]

    def firing(self):
        """The labels of every alert that fires, by Prometheus."""
        answer = ask(self.url("prometheus", "/api/v1/alerts"))
        return [one["labels"] for one in answer["data"]["alerts"] if one["state"] == "firing"]

    def told(self):
        """The same by Alertmanager, which says besides whether another one's cause holds it back."""
        return [(one["labels"], one["status"]["state"])
                for one in ask(self.url("prometheus-alertmanager", "/api/v2/alerts"))]
