"""The metrics in the OpenMetrics text format, for those who ask for it."""

import re
import subprocess
import time

from test_metrics import LABEL, SAMPLE
import test_metrics

OPENMETRICS = "application/openmetrics-text"
PROMETHEUS_2_42 = (
    "application/openmetrics-text;version=1.0.0,application/openmetrics-text;version=0.0.1;q=0.75,"
    "text/plain;version=0.0.4;q=0.5,*/*;q=0.1")
FAMILY = re.compile(r"# TYPE (\w+) (counter|gauge|info)")
SUFFIX = {"counter": "_total", "gauge": "", "info": "_info"}


class OpenMetrics(test_metrics.MetricsShelf):
    def page(self):
        return self.fetch(accept=OPENMETRICS)[1].decode()

    def test_who_gets_which(self):
        self.begin_with_http()
        openmetrics = "application/openmetrics-text; version=1.0.0; charset=utf-8"
        text = "text/plain; version=0.0.4; charset=utf-8"
        for accept, expected in (
                (None, text), ("*/*", text), ("text/plain", text), ("text/html, */*;q=0.8", text),
                (OPENMETRICS, openmetrics), (PROMETHEUS_2_42, openmetrics),
                (f"{OPENMETRICS}, */*", openmetrics), (f"*/*;q=0.1 , {OPENMETRICS}", openmetrics),
                (f"{OPENMETRICS}; version=1.0.0", openmetrics),
                ('Application/OpenMetrics-Text;Version="1.0.0";charset=utf-8', openmetrics),
                (f"{OPENMETRICS};version=0.0.1", text), (f"{OPENMETRICS};version=2.0.0", text),
                (f"{OPENMETRICS};q=0", text), (f"{OPENMETRICS};q=0.4, text/plain", text),
                (f"{OPENMETRICS};q=0.4, text/plain;q=0.3, */*", openmetrics),
                (f"{OPENMETRICS};q=2", text), (f"{OPENMETRICS};q=x", text),
                (";;,,=;q", text), (f"x{OPENMETRICS}", text)):
            for tcp in (False, True):
                answer, body = self.fetch(tcp, accept=accept)
                self.assertEqual((answer.status, answer.getheader("Content-Type")),
                                 (200, expected), accept)
                self.assertEqual(body.endswith(b"\n# EOF\n"), expected == openmetrics, accept)

    def test_every_family_stands_once_before_its_samples(self):
        self.begin_with_http()
        *lines, end = self.page().splitlines()
        self.assertEqual(end, "# EOF")
        seen = {}
        family = None
        while lines:
            line = lines.pop(0)
            if line.startswith("#"):
                family, kind = FAMILY.fullmatch(line).groups()
                self.assertNotIn(family, seen)
                self.assertFalse(family.endswith(("_total", "_info")))
                seen[family] = kind
                self.assertRegex(lines.pop(0), rf"# HELP {family} \S.*")
                continue
            self.assertEqual(SAMPLE.match(line)[1], family + SUFFIX[seen[family]])
        self.assertEqual(seen["lum_build"], "info")
        self.assertEqual(seen["lum_port"], "info")
        self.assertEqual(seen["lum_polling_cycles"], "counter")
        self.assertEqual(seen["lum_controllers"], "gauge")

    def test_the_samples_are_the_same(self):
        self.begin_with_http()

        def labelled(page):
            return {(SAMPLE.match(line)[1], *sorted(LABEL.findall(SAMPLE.match(line)[2] or "")))
                    for line in page.splitlines() if line and not line.startswith("#")}

        self.assertEqual(labelled(self.page()), labelled(self.fetch()[1].decode()))
        self.assertRegex(self.page(), rf'lum_power_dbm{{port="{self.first.name}",'
                                      r'reading="power-2",sub_port="0"} -19.4\n')

    def test_prometheus_reads_it(self):
        odd = self.shelf.folder / "modules" / "2.toml"
        odd.write_text(odd.read_text() +
                       '\n[[raw]]\npage = 0\noffset = 148\nbytes = [255, 34, 92, 10, 123, 195]\n')
        self.add_module("accelink-new-map", slot=3, faults="refuse-every=1,code=121")
        self.begin_with_http()
        self.wait_for_state(self.other, "up")
        # promtool reads OpenMetrics only where every sample has a time.
        page = self.shelf.folder / "page.txt"
        now = int(time.time())
        page.write_text("".join(
            f"{line}\n" if line.startswith("#") else f"{line} {now}\n"
            for line in self.page().splitlines()))
        blocks = self.shelf.folder / "blocks"
        done = subprocess.run(
            ["promtool", "tsdb", "create-blocks-from", "openmetrics", page, blocks],
            capture_output=True, text=True, check=False, timeout=60)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
