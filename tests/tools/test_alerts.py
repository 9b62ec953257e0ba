"""The alerts and rules for Prometheus: each alert fires when it must, and is silent when it must not."""

import pathlib
import re
import subprocess
import tempfile
import unittest

DOCS = pathlib.Path(__file__).resolve().parents[2] / "docs"
ALERTS = DOCS / "prometheus" / "lum-alerts.yml"
RULES = DOCS / "prometheus" / "lum-rules.yml"
ALERTMANAGER = DOCS / "prometheus" / "alertmanager.yml"

# Nodes "bad" and "good" have one port and one sub-port each. Of each alert: its series with what the
# bad node's and the good one's are from minute to minute, and what else its labels are.
PORT = 'port="west"'
SUB = f'{PORT},sub_port="1"'
CASES = {
    "LumNodeDown": [("up", "", "1x5 0x60", "1x65")],
    "LumRestarts": [("process_start_time_seconds", "", "100x60 200 300 400 400", "100x64")],
    "LumNotPolled": [("lum_polling_stopped", "", "0x55 1x9", "0x60 1 0x3")],
    "LumDriverStands": [("lum_findings", 'kind="driver-stands"', "0x55 1x9", "0x64"),
                        ("lum_findings", 'kind="not-polled"', "1x64", "1x64")],
    "LumPollingSlow": [("lum_polling_cycle_duration_seconds", "", "40x64", "12x64")],
    "LumStoreUnusable": [("lum_store_usable", "", "1x60 0x4", "1x64")],
    "LumSettingsAtRisk": [("lum_store_records", 'trouble="lost"', "0x60 2x4", "0x64")],
    "LumEventsNotKept": [("lum_events_kept", "", "1x50 0x14", "1x60 0x2 1x2")],
    "LumTraceLost": [("lum_trace_usable", 'channel="lum_info"', "1x50 0x14", "1x64")],
    "LumBatchesRefused": [("lum_im_refused_batches_total", "", "3x58 4x6", "3x64"),
                          ("lum_im_failed_elements_total", "", "0x64", "0x64")],
    "LumBatchesUnanswered": [("lum_im_pending_batches", "", "0x55 1x9", "0x61 2 0x2")],
    "LumControllersDrift": [("lum_controllers", "", "4x64", "1x64"),
                            ("lum_controller_created", SUB, "1x64", "1x64")],
    "LumPortFailing": [("lum_port_state", f'{PORT},state="failing"', "0x55 1x9", "0x64"),
                       ("lum_port_state", f'{PORT},state="up"', "1x55 0x9", "1x64")],
    "LumPortStale": [("lum_port_state", f'{PORT},state="stale"', "0x55 1x9", "0x64")],
    "LumModuleHung": [("lum_module_busy_seconds", PORT, "0x59 8 68 128 188 248", "0x60 12 0x3")],
    "LumModuleFlapping": [("lum_module_present", PORT, "1x58 0 1 0 1 0 1", "1x60 0 1 1 1")],
    "LumTransfersFail": [("lum_module_failed_transfers_total", PORT, "0+10x64", "0+1x64"),
                         ("lum_module_transfers_total", PORT, "0+24x64", "0+24x64")],
    "LumAlarmRaised": [("lum_alarm", f'{SUB},alarm="flag-12"', "0x60 1x4", "0x64")],
    "LumLedFailing": [("lum_port_trouble", f'{PORT},kind="led"', "0x50 1x14", "0x64"),
                      ("lum_port_trouble", f'{PORT},kind="place"', "0x64", "1x64")],
    "LumPlaceMissing": [("lum_port_trouble", f'{PORT},kind="place"', "0x50 1x14", "0x64"),
                        ("lum_port_trouble", f'{PORT},kind="led"', "0x64", "1x64")],
    "LumPowerFell": [("lum_power_dbm", f'{SUB},reading="power-1"', "-2.85x60 -5.85x4",
                      "-2.85x60 -5.84x4")],
    "LumModuleHot": [("lum_module_temperature_celsius", PORT, "40x50 80x14", "40x60 80 40x3")],
    "LumImplausible": [("lum_implausible_readings", PORT, "0x50 1x14", "0x64")],
}


def labels_of(series):
    return dict(re.findall(r'(\w+)="([^"]*)"', series))


def tested(name, cases):
    """A promtool test of one alert: the bad node has it firing, the good one has none."""
    lines = ["  - interval: 1m", "    input_series:"]
    for metric, labels, bad, good in cases:
        for node, values in (("bad", bad), ("good", good)):
            all_labels = ",".join(filter(None, ['job="lum"', f'instance="{node}"', labels]))
            lines += [f"      - series: '{metric}{{{all_labels}}}'", f"        values: '{values}'"]
    _, labels, *_ = cases[0]
    wanted = {"instance": "bad", "job": "lum", **labels_of(labels)}
    matchers = ",".join(f'{key}="{value}"' for key, value in wanted.items())
    firing = f'ALERTS{{alertname="{name}",alertstate="firing"'
    lines += ["    promql_expr_test:"]
    # Whose labels do not say what it is about is not counted.
    for matched, number in ((f"{firing},{matchers}}}", 1), (f"{firing}}}", 1)):
        if name in ("LumControllersDrift", "LumSettingsAtRisk") and matched != f"{firing}}}":
            matched = f'{firing},instance="bad",job="lum"}}'
        lines += [f"      - expr: 'count({matched})'", "        eval_time: 64m",
                  f"        exp_samples: [{{labels: '{{}}', value: {number}}}]"]
    return lines


class Alerts(unittest.TestCase):
    def test_each_has_its_case(self):
        self.assertEqual(re.findall(r"- alert: (\w+)", ALERTS.read_text()), list(CASES))

    def test_each_fires_when_it_must_and_only_then(self):
        lines = [f"rule_files: ['{ALERTS}', '{RULES}']", "evaluation_interval: 1m", "tests:"]
        for name, cases in CASES.items():
            lines += tested(name, cases)
        with tempfile.NamedTemporaryFile("w", suffix=".yml") as file:
            file.write("\n".join(lines) + "\n")
            file.flush()
            done = subprocess.run(["promtool", "test", "rules", file.name], capture_output=True,
                                  text=True, check=False, timeout=120)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_they_ask_for_metrics_that_there_are(self):
        known = set(re.findall(r"^\| `((?:lum|process)_\w+)`", (DOCS / "metrics.md").read_text(),
                               re.M))
        for file in (ALERTS, RULES):
            asked = set(re.findall(r"\b((?:lum|process)_\w+)", file.read_text()))
            self.assertGreater(len(asked), 4)
            self.assertLessEqual(asked, known, file.name)

    def test_each_says_what_is_wrong_and_what_to_do(self):
        for alert in ALERTS.read_text().split("- alert: ")[1:]:
            self.assertRegex(alert, r'severity: (critical|warning|info)')
            self.assertRegex(alert, r'summary: ".*\$labels\.instance.*"')
            self.assertRegex(alert, r'description: ".*(lumctl|journalctl|Its seat|The air).*"')

    def test_the_inhibitions_are_of_alerts_that_there_are(self):
        named = set(re.findall(r"Lum[A-Z]\w+", ALERTMANAGER.read_text()))
        self.assertLessEqual(named, set(CASES))


if __name__ == "__main__":
    unittest.main()
