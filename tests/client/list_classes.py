"""Prints the classes of tests in this folder as a CMake list: "test_api.Api;..."."""

import pathlib
import unittest


def tests_of(suite):
    for part in suite:
        if isinstance(part, unittest.TestSuite):
            yield from tests_of(part)
        else:
            yield part


here = pathlib.Path(__file__).parent
found = unittest.TestLoader().discover(str(here))
print(";".join(sorted({test.id().rsplit(".", 1)[0] for test in tests_of(found)})), end="")
