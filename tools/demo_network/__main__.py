"""A network of nodes on this machine, looked after by a real Prometheus and a real Alertmanager: what
is broken on purpose has to be told, and to be gone once it is healed.

usage: python3 tools/demo_network --build DIR [--nodes N] [--factor N] [--grace SECONDS]
"""

import argparse
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "tests"))

from shelf import engine as engines  # noqa: E402
from shelf.network import Network  # noqa: E402

import story  # noqa: E402


def whole_number(least):
    def read(text):
        if not text.isdecimal() or int(text) < least:
            raise argparse.ArgumentTypeError(f"{text!r} is no number from {least}")
        return int(text)
    return read


def run(arguments, folder):
    started = time.monotonic()

    def say(text):
        print(f"  [{time.monotonic() - started:5.1f} s] {text}", flush=True)

    targets = pathlib.Path(folder) / "nodes.json"
    with Network(arguments.build.resolve(), folder, arguments.nodes) as network:
        network.wait_until_up(60 + 4 * arguments.nodes)
        say(f"{arguments.nodes} nodes are up")
        network.write_targets(targets)
        with engines.Engine(folder, targets, arguments.factor) as engine:
            say(f"Prometheus and Alertmanager are ready, all durations divided by {engine.factor}")
            told = story.Story(network, engine, arguments.grace, say)
            try:
                told.run()
            finally:
                print(f"\n{told.table()}\n", flush=True)
    print(f"Every step held, in {time.monotonic() - started:.0f} s. Times are in seconds; told is "
          "after the node\nshows it, by Prometheus and Alertmanager; gone after it shows no more.")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True, help="where lumd was built")
    parser.add_argument("--nodes", type=whole_number(5), default=30, help="5 or more")
    parser.add_argument("--factor", type=whole_number(1), default=60,
                        help="what every duration of the field is divided by")
    parser.add_argument("--grace", type=float, default=15,
                        help="how many seconds later than its bound a step may be on a busy machine")
    arguments = parser.parse_args()
    if lacking := engines.missing():
        print(f"{' and '.join(lacking)}: not on this machine; tools/setup test installs them",
              file=sys.stderr)
        return 1
    # Ended from outside, the demo still takes its processes and its folder with it.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    with tempfile.TemporaryDirectory(prefix="lum-network-") as folder:
        try:
            run(arguments, folder)
        except (story.NotSeen, RuntimeError, OSError, subprocess.SubprocessError) as failure:
            print(f"The demo failed: {failure}", file=sys.stderr)
            return 1
        except KeyboardInterrupt:
            print("Stopped; nothing is left running.", file=sys.stderr)
            return 130
    return 0


if __name__ == "__main__":
    sys.exit(main())
