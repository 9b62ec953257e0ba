"""The demo's shelf of modules whose readings move, to be looked at until somebody stops it."""

import re
import time

import tour
from shelf import cages
from shelf.driver import Driver

# Of the first power of both sub-ports; cages differ by their seed and by which one steps.
MOTIONS = (
    ("power-0", 0, "noise = 0.05\nswing = 0.4\nperiod_s = 240"),
    ("power-0", 1, "noise = 0.05\nswing = 0.3\nperiod_s = 300"),
    ("power-1", 0, "noise = 0.04\ndrift_per_hour = -0.3"),
    ("power-1", 1, "noise = 0.04\nswing = 0.2\nperiod_s = 400"),
    ("power-2", 0, "noise = 0.1"),
    ("power-2", 1, "noise = 0.1"),
    ("reading-3", 0, "noise = 0.1\nswing = 0.6\nperiod_s = 600"),
    ("reading-3", 1, "noise = 0.1\nswing = 0.5\nperiod_s = 500"),
    ("temperature", None, "noise = 0.1\nswing = 1.5\nperiod_s = 900"),
    ("supply", None, "noise = 0.002"),
)
STEPPING = 3  # of the cages: this one loses light every other minute
STEP = "step = -6\nstep_after_s = 30\nstep_for_s = 40\nstep_every_s = 120"


def make_shelf(folder):
    """The shelf and its alarmed cage: four modules a slot, an empty cage and a failing one."""
    shelf = cages.Shelf(folder, "demo")
    for slot in (1, 2):
        for number, kind in enumerate(tour.KINDS, 1):
            cage = shelf.add_cage(slot, f"slot{slot}-{number}.toml", backend="simulated")
            cages.copy_description(tour.EXAMPLES / f"{kind}.toml", cage.module,
                                   serial=f"DEMO{slot}{number:03}")
            move(cage)
    shelf.add_cage(1, "nothing.toml", backend="simulated")
    alarmed = shelf.add_cage(2, "alarmed.toml", backend="simulated")
    cages.copy_description(tour.EXAMPLES / "iivi-alarm.toml", alarmed.module)
    move(alarmed)
    failing = shelf.add_cage(2, "failing.toml", backend="simulated")
    cages.copy_description(tour.EXAMPLES / "accelink-new-map.toml", failing.module,
                           faults="refuse-every=1,code=121")
    shelf.write_description("http_port = 0")
    return shelf, alarmed


def move(cage):
    """Gives the readings of the cage's module motions of its own."""
    with open(cage.module, "a") as description:
        description.write(motions(cage.handle))


def motions(seed):
    tables = []
    for reading, sub_port, keys in MOTIONS:
        place = "" if sub_port is None else f"sub_port = {sub_port}\n"
        steps = seed == STEPPING and (reading, sub_port) == ("power-0", 0)
        tables.append(f'\n[[motion]]\nreading = "{reading}"\n{place}seed = {seed}\n{keys}\n'
                      + (f"{STEP}\n" if steps else ""))
    return "".join(tables)


def address(driver):
    """Where the page is, once the driver has said so."""
    for _ in range(200):
        found = re.search(r"http://127\.0\.0\.1:\d+/", driver.log.read_text())
        if found:
            return found[0]
        if driver.process.poll() is not None:
            break
        time.sleep(0.05)
    raise RuntimeError(f"lumd has not come up: {driver.log.read_text().strip()}")


def run(build, folder):
    """Until it is interrupted, or the driver ends by itself."""
    shelf, _ = make_shelf(folder)
    with Driver(build, shelf) as driver:
        print(f"The shelf: {address(driver)}")
        print(f"lumctl:    {build / 'lumctl'} --socket {shelf.socket} watch")
        print("Ctrl-C ends it.", flush=True)
        try:
            status = driver.process.wait()
        except KeyboardInterrupt:
            driver.stop(6)
            print()
            return 0
    print(f"lumd has ended with {status}: {driver.log.read_text().strip()}")
    return 1
