"""The built-in shelf: ten ports on two slots, modules of both vendors, an empty and a failing cage."""

import pathlib
import subprocess
import time
import tomllib

import changes
from shelf import cages
from shelf.driver import Driver

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples" / "modules"
KINDS = ["iivi-old-map", "accelink-old-map", "iivi-new-map", "accelink-new-map"]
CYCLE = 5.0  # seconds between polling cycles
FLAG_BYTE = 10  # of the lower page; these bits of it turn the LED to fault
FLAG_BITS = 0x02
TEMPERATURE_BYTE = 14  # whole degrees; 1/256 of a degree in the next
LED_NORMAL, LED_FAULT = 1, 3


def make_shelf(build, folder):
    """Returns the shelf, the description of each filled cage, and the three special cages."""
    shelf = cages.Shelf(folder, "demo")
    described = {}
    for slot in (1, 2):
        for number, kind in enumerate(KINDS, 1):
            cage = shelf.add_cage(slot, f"slot{slot}-{number}.eeprom")
            description = shelf.folder / "modules" / f"slot{slot}-{number}.toml"
            cages.copy_description(
                EXAMPLES / f"{kind}.toml", description, serial=f"DEMO{slot}{number:03}"
            )
            cages.make_image(build / "lum-module-image", description, cage.module)
            described[cage.name] = tomllib.loads(description.read_text())
    empty = shelf.add_cage(1, "nothing.eeprom")
    failing = shelf.add_cage(2, "failing.toml", backend="simulated")
    cages.copy_description(
        EXAMPLES / "accelink-new-map.toml", failing.module, faults="refuse-every=1,code=121"
    )
    shelf.write_description()
    return shelf, described, shelf.cages[0], empty, failing


def refuses_wrong_description(build, shelf):
    """Whether a misspelt key is refused with its line."""
    wrong = shelf.folder / "wrong.toml"
    wrong.write_text(shelf.description.read_text().replace("handle = 3\n", "handel = 3\n"))
    line = 1 + wrong.read_text().splitlines().index("handel = 3")
    done = subprocess.run(
        [build / "lumd", "--config", wrong], capture_output=True, text=True, check=False, timeout=10
    )
    return done.returncode == 2 and f"{wrong}:{line}: " in done.stderr


def is_as_described(view, described):
    vendor = view["vendor"]
    return all(
        vendor[shown] == described[key]
        for shown, key in [("name", "vendor"), ("part", "part"), ("serial", "serial"),
                           ("revision", "revision"), ("date", "date"), ("oui", "oui")]
    )


def reading_is_as_described(place, shown, wanted):
    if "dbm" not in shown:
        return abs(shown["value"] - wanted[f"reading_{place}"]) < 0.05
    dbm = wanted["powers_dbm"][place]
    microwatt = 1000 * 10 ** (dbm / 10)
    return (abs(shown["dbm"] - dbm) < 0.005
            and abs(shown["microwatt"] - microwatt) < 0.15 + microwatt / 10000)


def readings_are_as_described(view, described):
    good = abs(view["temperature_c"] - described["temperature"]) < 0.005
    good = good and abs(view["supply_v"] - described["supply"]) < 0.0005
    for number in (0, 1):
        shown = view["sub_ports"][number]["readings"]
        wanted = described[f"sub_port_{number}"]
        good = good and len(shown) > len(wanted["powers_dbm"])
        good = good and all(
            reading_is_as_described(place, reading, wanted) for place, reading in enumerate(shown))
    return good


def polls(ports, names):
    """How often each port has been asked for something, in the order of the names."""
    return [ports[name]["module"]["transfers"] for name in names]


def all_polled(names, before):
    """A condition: every port has been polled since `before`."""
    return lambda ports: all(
        now >= then + 2 for now, then in zip(polls(ports, names), before)
    ) and all(ports[name]["sub_ports"][0]["readings"] for name in names)


def run(steps, build, folder):
    steps.say("A simulated shelf: 10 ports on 2 slots")
    shelf, described, watched, empty, failing = make_shelf(build, folder)
    steps.check("a description with a misspelt key is refused with file and line",
                refuses_wrong_description(build, shelf))
    with Driver(build, shelf) as driver:
        come_up(steps, driver, described, empty)
        poll_twice(steps, driver, described, watched)
        raise_and_clear_alarm(steps, driver, watched, described)
        report_bad_cages(steps, driver, described, empty, failing)
        changes.run(steps, driver, described, watched)
        asked = time.monotonic()
        status = driver.stop(6)
        steps.check("SIGTERM stops the driver within 5 s, and its socket is gone",
                    status == 0 and time.monotonic() - asked < 5 and not shelf.socket.exists(),
                    f"exit status {status}")


def come_up(steps, driver, described, empty):
    steps.say("The ports come up")

    def all_created(ports):
        return all(sub["created"] for port in ports.values() for sub in port["sub_ports"]) and all(
            len(port["sub_ports"]) == 2 for port in ports.values())

    ports = driver.wait_for(all_created, 10)
    steps.check("the interface manager confirms two controllers for each of 10 ports",
                ports is not None and len(ports) == 10)
    handles = {sub["ifhandle"] for port in ports.values() for sub in port["sub_ports"]}
    steps.check("all 20 controllers have handles of their own", len(handles - {0}) == 20)
    steps.check("all 8 modules tell who they are: vendor, part, serial, revision, date, OUI",
                all(is_as_described(ports[name], described[name]) for name in described))
    steps.check("the empty cage is found empty",
                driver.wait_for(lambda now: now[empty.name]["state"] == "empty", 3) is not None)


def poll_twice(steps, driver, described, watched):
    steps.say("Polling, a cycle every 5 s")
    names = list(described)
    first = driver.wait_for(all_polled(names, [0] * len(names)), 2 * CYCLE)
    steps.check("the first cycle brings every module's readings",
                first is not None and all(
                    readings_are_as_described(first[name], described[name]) for name in names))
    first_seen = time.monotonic()
    steps.check("a module without a flag raised has its LED at normal",
                all(first[name]["led"]["state"] == LED_NORMAL for name in names))
    steps.say("")
    steps.say(driver.lumctl("show", "ports"))

    warmer = int(described[watched.name]["temperature"]) + 7
    cages.poke(watched.module, TEMPERATURE_BYTE, warmer)
    second = driver.wait_for(all_polled(names, polls(first, names)), 2 * CYCLE)
    between = time.monotonic() - first_seen
    steps.check("the second cycle comes 5 s after the first",
                second is not None and abs(between - CYCLE) < 2, f"{between:.1f} s")
    steps.check(f"what has changed in a module is shown: {watched.name} is at {warmer} C now",
                int(second[watched.name]["temperature_c"]) == warmer)


def raise_and_clear_alarm(steps, driver, watched, described):
    steps.say(f"An alarm in the module of {watched.name}")
    others = [name for name in described if name != watched.name]

    def led_is(state):
        return lambda ports: ports[watched.name]["led"]["state"] == state

    cages.poke(watched.module, FLAG_BYTE, FLAG_BITS)
    ports = driver.wait_for(led_is(LED_FAULT), 2 * CYCLE)
    steps.check("the flag is raised: the LED turns to fault (3)",
                ports is not None and driver.shelf.led_is_lit(watched, "red:fault"))
    steps.check("no other LED has changed",
                all(ports[name]["led"]["state"] == LED_NORMAL for name in others))
    cages.poke(watched.module, FLAG_BYTE, 0)
    ports = driver.wait_for(led_is(LED_NORMAL), 2 * CYCLE)
    steps.check("the flag is cleared: the LED is back at normal (1)",
                ports is not None and driver.shelf.led_is_lit(watched, "green:status")
                and not driver.shelf.led_is_lit(watched, "red:fault"))


def report_bad_cages(steps, driver, described, empty, failing):
    steps.say("The cages with something wrong")
    before = driver.ports()
    time.sleep(CYCLE + 1)
    after = driver.ports()
    for cage in (empty, failing):
        steps.say(f"    {cage.name}: {after[cage.name]['state']}, {after[cage.name]['reason']}")
    steps.check("the empty cage is empty, its LED at fault, and is not polled",
                after[empty.name]["state"] == "empty"
                and after[empty.name]["led"]["state"] == LED_FAULT
                and polls(after, [empty.name]) == polls(before, [empty.name]))
    steps.check("the failing module is failing, its LED at fault, and is tried in every cycle",
                after[failing.name]["state"] == "failing"
                and after[failing.name]["led"]["state"] == LED_FAULT
                and after[failing.name]["module"]["failed_transfers"]
                > before[failing.name]["module"]["failed_transfers"])
    steps.check("all other ports are up",
                all(after[name]["state"] == "up" for name in described))
