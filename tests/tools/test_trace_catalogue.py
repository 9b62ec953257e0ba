"""What the catalogue of trace points refuses, and which numbers it offers instead."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

TOOL = pathlib.Path(__file__).resolve().parents[2] / "tools" / "trace_catalogue.py"
GOOD = {"lum_a/one.cpp": (1, 2, 5), "lum_a/two.cpp": (6, 9), "lum_b.cpp": (12, 13, 17),
        "lum_c.cpp": (20, 22)}


def source_of(area, numbers):
    calls = "".join(f'  LUM_INFO({number}, "text\\n");\n' for number in numbers)
    return f'static constexpr char trace_area[] = "{area}";\n{calls}'


def refusals(**changed):
    """Of the good files, some of them changed: the refusals, without the folder they stand in."""
    with tempfile.TemporaryDirectory() as folder:
        for name, numbers in {**GOOD, **changed}.items():
            path = pathlib.Path(folder) / name
            path.parent.mkdir(exist_ok=True)
            path.write_text(source_of(name.split("/")[0].removesuffix(".cpp"), numbers))
        done = subprocess.run([sys.executable, TOOL, "--source", folder], check=False,
                              capture_output=True, text=True)
        lines = done.stderr.replace(folder + "/", "").splitlines()
        assert (done.returncode == 1) == bool(lines), done
        return lines


class Refusals(unittest.TestCase):
    def refused(self, file, numbers, *expected):
        self.assertEqual(refusals(**{file: numbers}), list(expected))

    def test_numbers_that_ascend_in_one_block_each_are_good(self):
        self.assertEqual(refusals(), [])
        self.assertEqual(refusals(**{"lum_new.cpp": (10, 11)}), [])

    def test_a_new_module_is_offered_what_is_between_the_blocks(self):
        self.refused("lum_new.cpp", (14,),
                     "lum_new.cpp:2: point 14 is outside of lum_new's block; free at this place: 10, "
                     "11, 18, 19, 23 to 278")

    def test_one_out_of_range_is_offered_what_is_free_between_its_neighbours(self):
        self.refused("lum_a/one.cpp", (1, 2, 300, 5),
                     "lum_a/one.cpp:4: point 300 is not within 1 to 278; free at this place: 3, 4")
        self.refused("lum_a/two.cpp", (0, 6, 9),
                     "lum_a/two.cpp:2: point 0 is not within 1 to 278; free at this place: 3, 4")

    def test_one_that_another_module_has_is_offered_its_own_modules(self):
        self.refused("lum_a/two.cpp", (6, 9, 13),
                     "lum_a/two.cpp:4: point 13 is taken by lum_b.cpp:3; free at this place: 10, 11")
        self.refused("lum_b.cpp", (12, 13, 17, 23),
                     "lum_b.cpp:5: point 23 is outside of lum_b's block; free at this place: 18, 19")

    def test_one_that_stands_in_anothers_block_does_not_divide_that(self):
        self.refused("lum_c.cpp", (3, 20, 22),
                     "lum_c.cpp:2: point 3 is outside of lum_c's block; free at this place: 18, 19")

    def test_both_calls_with_a_number_are_told_what_is_free_for_them(self):
        self.refused("lum_b.cpp", (12, 13, 13, 17),
                     "lum_b.cpp:3: point 13 is taken by lum_b.cpp:4; free at this place: none, "
                     "elsewhere in lum_b: 10, 11, 14 to 16, 18, 19",
                     "lum_b.cpp:4: point 13 is taken by lum_b.cpp:3; free at this place: 14 to 16")

    def test_of_many_calls_the_one_out_of_order_is_named(self):
        self.refused("lum_b.cpp", (12, 16, 13, 14, 17),
                     "lum_b.cpp:3: point 16 does not ascend; free at this place: none, elsewhere in "
                     "lum_b: 10, 11, 15, 18, 19")
        self.refused("lum_b.cpp", (12, 13, 17, 11),
                     "lum_b.cpp:5: point 11 does not ascend; free at this place: 18, 19")

    def test_where_either_of_two_may_be_out_of_order_both_are_named(self):
        self.refused("lum_c.cpp", (20, 25, 22),
                     "lum_c.cpp:3: point 25 does not ascend; free at this place: 21",
                     "lum_c.cpp:4: point 22 does not ascend; free at this place: 26 to 278")
