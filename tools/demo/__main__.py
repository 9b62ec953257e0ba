"""A tour of the driver on a simulated shelf, every step of it checked.

usage: python3 tools/demo --build DIR [--modules DIR | --stay]
"""

import argparse
import pathlib
import signal
import subprocess
import sys
import tempfile

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "tests"))

import dumps  # noqa: E402
import living  # noqa: E402
import tour  # noqa: E402
from steps import StepFailed, Steps, report_failure  # noqa: E402


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True, help="where lumd was built")
    parser.add_argument("--modules", type=pathlib.Path, help="show the dumps of this folder instead")
    parser.add_argument("--stay", action="store_true",
                        help="a shelf whose readings move, until it is stopped")
    arguments = parser.parse_args()
    build = arguments.build.resolve()
    # Ended from outside, the tour still takes its driver and its folder with it.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))

    steps = Steps()
    with tempfile.TemporaryDirectory(prefix="lum-demo-") as folder:
        try:
            if arguments.stay:
                return living.run(build, folder)
            if arguments.modules:
                dumps.run(steps, build, folder, arguments.modules)
            else:
                tour.run(steps, build, folder)
        except StepFailed as failure:
            report_failure(failure, folder)
            return 1
        except (RuntimeError, OSError, subprocess.SubprocessError) as failure:
            report_failure(f"{type(failure).__name__}: {failure}", folder)
            return 1
    steps.finish()
    return 0


if __name__ == "__main__":
    sys.exit(main())
