"""The conformance test for platforms holds on those of this project, and names what is broken on one
that is broken on purpose."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("LUM_BUILD", SOURCE / "build"))

NODE = """
name = "conformance"
rack = 0
state_directory = "state"
trace_directory = "traces"
led_directory = "leds"

[[slot]]
number = 1

[[slot.instance]]
number = 0

[[slot.instance.port]]
number = 0
handle = 0x1100
name = "west"
backend = "simulated"
module = "iivi-new-map.toml"
led = "west"

[[slot.instance.port]]
number = 1
handle = 0x1101
name = "east"
module = "east.eeprom"
led = "east"
"""

# What is broken on purpose, and the check that says so.
FAULTS = {
    "copies_without_end": "texts.copies_are_terminated",
    "no_text_for_unknown_results": "texts.every_result_has_one",
    "every_name_has_a_sub_port": "names.may_lack_their_sub_port",
    "lines_need_an_open_channel": "traces.need_no_channel",
    "walks_end_at_removed_nodes": "trees.go_on_behind_a_removed_node",
    "walks_hold_their_lock": "trees.hold_no_lock_over_a_walks_function",
    "pulses_run_where_they_are_sent": "pulses.of_the_handler_come_later",
    "settings_stay_in_memory": "checkpoints.survive_their_process",
    "records_of_any_size_are_given": "checkpoints.refuse_another_size",
    "alarms_go_to_sub_port_0": "alarms.are_kept_for_each_interface",
    "names_are_not_copied": "interface_manager.copies_what_is_sent",
    "empty_elements_fail": "interface_manager.passes_over_empty_elements",
    "controllers_share_a_handle": "interface_manager.gives_each_a_handle",
    "answers_come_twice": "interface_manager.answers_a_creation_once",
    "answers_come_on_the_senders_thread": "interface_manager.answers_a_deletion_once",
    "empty_cages_read_as_zeros": "modules.fail_where_there_is_none",
    "pages_are_selected_without_a_lock": "modules.serve_two_pages_at_once",
    "leds_are_always_normal": "leds.show_what_was_set",
}


class Conformance(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)

    def run_test(self, program, *arguments, **environment):
        return subprocess.run(
            [BUILD / program, *arguments], cwd=self.folder, env={**os.environ, **environment},
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, errors="replace")

    def assert_held(self, run, skipped=()):
        lines = run.stdout.splitlines()
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr[-3000:])
        self.assertEqual([line for line in lines if line.startswith("not ok")], [])
        self.assertEqual(
            [line.split()[3] for line in lines if " # SKIP " in line], list(skipped), run.stdout)


class Platforms(Conformance):
    def test_the_linux_platform_holds(self):
        shutil.copy(SOURCE / "examples/modules/iivi-new-map.toml", self.folder)
        (self.folder / "node.toml").write_text(NODE)
        self.assert_held(self.run_test("conformance_linux", "node.toml"))

    def test_the_example_platform_holds(self):
        self.assert_held(self.run_test("conformance_own"),
                         ["entity_agent.takes_a_server", "modules.keep_what_is_written",
                          "interfaces.unknown_have_no_name"])

    def test_every_check_can_be_named(self):
        names = self.run_test("conformance_own", "--list").stdout.split()
        self.assertEqual(len(names), len(set(names)))
        run = self.run_test("conformance_own", "texts", names[-1])
        self.assert_held(run)
        self.assertEqual(run.stdout.splitlines()[0], f"1..{1 + sum(n.startswith('texts.') for n in names)}")

    def test_an_unknown_check_is_refused(self):
        run = self.run_test("conformance_own", "tree")
        self.assertEqual(run.returncode, 2)
        self.assertIn("no check is called tree; --list names all", run.stderr)


class BrokenPlatform(Conformance):
    def test_nothing_of_it_is_broken_by_itself(self):
        self.assert_held(self.run_test("conformance_broken", *sorted(set(FAULTS.values()))))

    def test_what_is_broken_is_named(self):
        for fault, check in FAULTS.items():
            with self.subTest(fault=fault):
                run = self.run_test("conformance_broken", check, LUM_BROKEN=fault, LUM_CONFORMANCE_PATIENCE="2")
                self.assertEqual(run.returncode, 1, run.stdout + run.stderr[-3000:])
                self.assertIn(f"not ok 1 - {check}\n# ", run.stdout)
                print(f"{fault}: {run.stdout.splitlines()[2][2:]}")


if __name__ == "__main__":
    unittest.main()
