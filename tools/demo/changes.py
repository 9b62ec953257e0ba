"""What the driver is told to change, and what becomes of it in the modules and on disk."""

import json
import time

from shelf import cages

THRESHOLD = 17
THRESHOLD_WORDS = [270, 170]  # as the module stores it: the upper one first, ten times the value
THRESHOLD_POSITION = 128 * 2 + 144  # page 2, byte 144


def run(steps, driver, described, watched):
    update_port(steps, driver, watched)
    restart_interface_manager(steps, driver)
    delete_slot(steps, driver, described, watched)
    set_threshold(steps, driver, watched)
    kill_and_restart(steps, driver, watched)


def ask(driver, *arguments):
    return json.loads(driver.lumctl(*arguments, "--json"))


def controllers(driver):
    return ask(driver, "show", "controllers")["controllers"]


def update_port(steps, driver, watched):
    steps.say(f"An update of {watched.name}")
    driver.lumctl("port", "update", watched.name, "up")
    names = [sub["ifname"] for sub in driver.ports()[watched.name]["sub_ports"]]
    known = {one["name"]: one for one in controllers(driver)}
    steps.check("the interface manager has the new state of both controllers",
                all((known[name]["state"], known[name]["updates"]) == (1, 1) for name in names))
    steps.check("no other controller has been updated",
                all(one["updates"] == 0 for name, one in known.items() if name not in names))


def restart_interface_manager(steps, driver):
    steps.say("The interface manager restarts and has forgotten everything")
    before = {one["name"]: one["ifhandle"] for one in controllers(driver)}
    driver.lumctl("im", "restart")
    steps.check("it knows none of the controllers any more",
                all(one["ifhandle"] is None for one in controllers(driver)))
    replay = ask(driver, "replay")
    after = {one["name"]: one for one in controllers(driver)}
    steps.check(f"a replay brings all {len(before)} controllers back",
                replay["confirmed"] == len(before) and after.keys() == before.keys())
    steps.check("every controller has a new handle, and the library agrees",
                all(one["agrees"] for one in after.values())
                and not {one["ifhandle"] for one in after.values()} & set(before.values()))
    driver.lumctl("resync")


def transfers(driver, names):
    ports = driver.ports()
    return [ports[name]["module"]["transfers"] for name in names]


def delete_slot(steps, driver, described, watched):
    gone = [cage for cage in driver.shelf.cages if cage.slot == 2]
    steps.say(f"Slot 2 is deleted while slot {watched.slot} is being polled")
    polled = [name for name in described if name not in {cage.name for cage in gone}]
    before = transfers(driver, polled)
    # Wait for a polling cycle, so that the deletion falls into it.
    driver.wait_for(lambda ports: ports[polled[0]]["module"]["transfers"] > before[0], 7)
    driver.lumctl("port", "delete", "--slot", "2")
    before = transfers(driver, polled)

    names = {cage.name for cage in gone}
    listed = {view["name"] for view in ask(driver, "show", "ports")["ports"]}
    steps.check(f"its {len(gone)} ports are gone from the list, and nothing else is",
                listed == {cage.name for cage in driver.shelf.cages} - names)
    steps.check("each of them is absent, without controllers",
                all(view["state"] == "absent" and not view["sub_ports"]
                    for name, view in driver.ports().items() if name in names))
    steps.check("the interface manager has none of their controllers",
                not [one for one in controllers(driver) if one["name"].startswith("Ots0_2_")])
    steps.check("their LEDs are dark",
                not any(driver.shelf.led_is_lit(cage, led)
                        for cage in gone for led in ("green:status", "red:fault")))
    ports = driver.wait_for(
        lambda now: all(now[name]["module"]["transfers"] >= then + 2
                        for name, then in zip(polled, before)), 7)
    steps.check("the other slot is polled on", ports is not None
                and all(ports[name]["state"] == "up" for name in polled))
    driver.lumctl("port", "create", "2")
    steps.check("the slot can be created again",
                all(sub["created"] for cage in gone
                    for sub in driver.ports()[cage.name]["sub_ports"]))


def stored_threshold(driver, cage):
    return driver.ports()[cage.name]["sub_ports"][0]["configuration"]["threshold"]


def threshold_in(cage):
    """The threshold's two words in the module's memory, read without the driver."""
    place = cage.module.read_bytes()[THRESHOLD_POSITION:THRESHOLD_POSITION + 4]
    return [int.from_bytes(place[at:at + 2], "big", signed=True) for at in (0, 2)]


def set_threshold(steps, driver, watched):
    steps.say(f"A threshold for {watched.name}")
    steps.check("the module has another one before", threshold_in(watched) != THRESHOLD_WORDS)
    driver.lumctl("set", watched.name, f"threshold={THRESHOLD}")
    steps.check(f"threshold {THRESHOLD} is in the module's memory as {THRESHOLD_WORDS}",
                threshold_in(watched) == THRESHOLD_WORDS, str(threshold_in(watched)))


def kill_and_restart(steps, driver, watched):
    steps.say("The driver is killed with SIGKILL, and started again")
    driver.kill()
    for position in range(THRESHOLD_POSITION, THRESHOLD_POSITION + 4):
        cages.poke(watched.module, position, 0)
    asked = time.monotonic()
    driver.start()
    ports = driver.wait_for(
        lambda now: all(len(view["sub_ports"]) == 2 and view["sub_ports"][1]["created"]
                        for view in now.values()), 10)
    steps.check("every port comes up again", ports is not None,
                f"not within {time.monotonic() - asked:.0f} s")
    steps.check("it takes itself for restarted", ask(driver, "show", "node")["restart"])
    steps.check(f"threshold {THRESHOLD} is still there", stored_threshold(driver, watched) == THRESHOLD)
    driver.lumctl("port", "update", watched.name, "up")
    steps.check("an update writes it into the module, which had lost it",
                threshold_in(watched) == THRESHOLD_WORDS, str(threshold_in(watched)))
