#!/usr/bin/python3
"""Takes the pictures of the page that README.md shows, from the shelf of `make shelf`.

usage: tools/take_pictures.py --build build
"""

import argparse
import pathlib
import sys
import tempfile
import time

SOURCE = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(SOURCE / "tests"), str(SOURCE / "tests" / "panel"), str(SOURCE / "tools" / "demo")]

import browser  # noqa: E402
import living  # noqa: E402
from shelf.driver import Driver  # noqa: E402

MOST_BYTES = 200 * 1024  # of all together
MOVING_S = 75  # how long the readings have moved before


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True)
    build = parser.parse_args().build.resolve()
    with tempfile.TemporaryDirectory(prefix="lum-pictures-") as folder:
        shelf, alarmed = living.make_shelf(pathlib.Path(folder))
        with Driver(build, shelf) as driver:
            page = living.address(driver)
            time.sleep(MOVING_S)
            take(page, alarmed)
    size = sum(file.stat().st_size for file in (SOURCE / "docs").glob("panel-*.png"))
    print(f"{size // 1024} KB together")
    if size > MOST_BYTES:
        sys.exit(f"they may have {MOST_BYTES // 1024} KB")


def take(page, alarmed):
    looking = browser.Browser()
    try:
        path = alarmed.name.replace("/", "%2F")
        for name, view, shown, size, dark in (
                ("shelf", "", '.cage[data-look="failing"]', (1110, 500), False),
                ("port", f"#/port/{path}", "[data-part=alarms] dd", (1110, 570), True)):
            looking.look(size, dark)
            looking.open(page + view)
            if not looking.wait(lambda: looking.all(shown)):
                sys.exit(f"the page does not show {shown}: {looking.text('body')}")
            time.sleep(2)
            looking.picture(SOURCE / "docs" / f"panel-{name}.png")
    finally:
        looking.close()


if __name__ == "__main__":
    main()
