#!/usr/bin/python3
"""How long a browser takes to draw the shelf, beside a plain table of as many elements.

usage: bench/drawing.py --build BUILD
"""

import argparse
import pathlib
import sys
import tempfile

SOURCE = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(SOURCE / "tests"), str(SOURCE / "tests" / "panel"),
                str(SOURCE / "tools" / "demo")]

import browser  # noqa: E402
import drawing  # noqa: E402
import living  # noqa: E402
from shelf import cages, driver  # noqa: E402

SIZES = (2, 60, 240)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True)
    build = parser.parse_args().build.resolve()
    looking = browser.Browser()
    try:
        for ports in SIZES:
            print(drawing.told(ports, draw(build, looking, ports)), flush=True)
    finally:
        looking.close()


def draw(build, looking, ports):
    with tempfile.TemporaryDirectory(prefix="lum-bench-") as folder:
        shelf = cages.Shelf(folder, "bench")
        for number in range(ports):
            cage = shelf.add_cage(number // 15, f"{number}.toml", "simulated")
            cages.copy_description(SOURCE / "examples" / "modules" / "iivi-new-map.toml",
                                   cage.module)
        shelf.write_description()
        shelf.description.write_text(f"http_port = 0\n{shelf.description.read_text()}")
        with driver.Driver(build, shelf) as node:
            assert node.wait_for(lambda seen: all(port.get("temperature_c") is not None
                                                  for port in seen.values()), 60)
            looking.open(living.address(node))
            assert looking.wait(lambda: len(looking.all(".cage")) == ports)
            return drawing.measured(looking)


if __name__ == "__main__":
    main()
