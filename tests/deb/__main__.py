"""The Debian packages in a fresh Debian: they are installed over an earlier build, their service is run
as its unit says, drivers are built from them, and they are removed and purged. Every step is checked.

usage: python3 tests/deb --packages DIR [--suite NAME]      as root; DIR is build/deb
"""

import argparse
import os
import pathlib
import sys

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path += [str(SOURCE / "tools" / "demo")]

import driver_steps  # noqa: E402
import package_steps  # noqa: E402
from root import CommandFailed, fresh_root  # noqa: E402
from steps import StepFailed, Steps  # noqa: E402

APART = "LUM_TEST_DEB_APART"


def stand_apart():
    """Mounts and processes of the test end with it."""
    if APART in os.environ:
        return
    os.execvpe("unshare", ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc",
                           sys.executable, *sys.argv], {**os.environ, APART: "1"})


def run(packages, suite):
    steps = Steps()
    with fresh_root(packages, suite) as root:
        steps.check(f"a root of Debian's {suite} is there, as bare as it can be", root.has("usr/bin/dpkg"))
        package_steps.install_earlier_build(steps, root)
        package_steps.run_service(steps, root)
        package_steps.upgrade(steps, root)
        driver_steps.run(steps, root)
        package_steps.remove_and_purge(steps, root)
    steps.finish()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--packages", type=pathlib.Path, required=True)
    parser.add_argument("--suite", default="bookworm")
    options = parser.parse_args()
    if os.geteuid() != 0:
        print("A root of its own takes root: run this as root.", file=sys.stderr)
        return 1
    stand_apart()
    try:
        run(options.packages.resolve(), options.suite)
    except (StepFailed, CommandFailed) as failure:
        print(f"\nThe test failed: {failure}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
