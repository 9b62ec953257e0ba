"""The node's service on the kernel's I2C stub: a chip of several pages at each of some addresses,
behind an adapter that has byte and block transfers."""

import tomllib

import nodes
import tour
from nodes import EMPTY, FLAT, PRESENCE, RESET, STUB_BUS, STUB_MODULES, TAKEN

LED_CLASS = "/sys/class/leds"
SETTLED = 90  # seconds that a change may take to show, on a slow machine


def run(steps, guest):
    load_stub(steps, guest)
    start_service(steps, guest)
    read_modules(steps, guest)
    name_what_is_wrong(steps, guest)
    follow_lines(steps, guest)
    light_leds(steps, guest)
    write_threshold(steps, guest)
    share_the_bus(steps, guest)
    take_the_group_away(steps, guest)
    stand_still(steps, guest)
    stop_service(steps, guest)


def load_stub(steps, guest):
    steps.say("The kernel's I2C stub")
    addresses = [*STUB_MODULES, TAKEN, FLAT]
    paged = ",".join(["1"] * len(STUB_MODULES))
    guest.does("modprobe i2c-dev && modprobe i2c-stub"
               f" chip_addr={','.join(map(hex, addresses))} bank_reg={paged.replace('1', '0x7f')}"
               f" bank_mask={paged.replace('1', '0xff')} bank_start={paged.replace('1', '0x80')}"
               f" bank_end={paged.replace('1', '0xff')}")
    for address, kind in STUB_MODULES.items():
        guest.does(f"stub_fill {STUB_BUS} {address:#x} /root/{kind}.eeprom")
    guest.does(f"head -c 256 /root/iivi-old-map.eeprom >/run/flat"
               f" && stub_fill {STUB_BUS} {FLAT:#x} /run/flat && modprobe at24")
    for address in (TAKEN, FLAT):
        guest.does(f"echo 24c02 {address:#x} >/sys/bus/i2c/devices/i2c-0/new_device")
    guest.does("udevadm settle")
    shown = guest.does("i2cdetect -y 0")
    steps.check("i2cdetect finds its chips, and UU where a driver of the kernel's is",
                " 50 51 52 -- UU UU -- -- " in shown, shown)


def start_service(steps, guest):
    steps.say("The service")
    light = f"{LED_CLASS}/input0::numlock/brightness"
    # Which are the node's.
    steps.check("the keyboard's LEDs are there",
                guest.wait_for(lambda: guest.run(f"test -e {light}")[0] == 0, SETTLED),
                guest.does(f"ls {LED_CLASS} /sys/class/input"))
    group = guest.does(f"stat -c '%G %a' {STUB_BUS} {light}"
                       f" /sys/bus/i2c/devices/0-{FLAT:04x}/eeprom").split("\n")
    steps.check("udev gives buses to the group i2c, LEDs and eeprom files to the group lumd",
                group[0] == "i2c 660" and group[1] == "lumd 664" and group[2] == "lumd 660",
                str(group))
    guest.does(f"chgrp lumd {RESET} && chmod g+w {RESET}")
    guest.does("systemctl start lumd")
    user = guest.does("ps -o user,args | grep '[s]bin/lumd'")
    steps.check("systemd starts it as the user lumd, and is told that it is ready",
                user.startswith("lumd"), user)
    log = guest.does("journalctl --no-pager -o cat -u lumd")
    steps.check("it confines what it writes to its files", "not confined" not in log, log)


def port(guest, name):
    return guest.module(name, nodes.SERVICE_PORT)


def state(guest, name, wanted):
    """Waits for a port's state; the port, or None."""
    def seen():
        view = port(guest, name)
        return view if view.get("state") == wanted else None
    return guest.wait_for(seen, SETTLED)


def described(kind):
    return tomllib.loads((tour.EXAMPLES / f"{kind}.toml").read_text())


def read_modules(steps, guest):
    for name, address in (("west", 0x50), ("east", 0x51)):
        view = read_module(steps, guest, name, described(STUB_MODULES[address]))
    way = view["module"].get("way")
    steps.check(f"the stub's block reads, which do not heed the page, are found out: {way}",
                way == "byte transfers, as the adapter's block reads cannot be relied on")
    log = guest.does("journalctl --no-pager -o cat -u lumd")
    steps.check("the journal says once by which way each module is read",
                log.count(f"port east: {STUB_BUS} is read by {way}") == 1, log)


def read_module(steps, guest, name, wanted):
    """Everything of a module as its chip has it; its view."""
    steps.check(f"{name} is up", state(guest, name, "up"), str(port(guest, name)))

    def polled():
        view = port(guest, name)
        return view if view.get("sub_ports", [{}])[0].get("readings") else None
    view = guest.wait_for(polled, SETTLED)
    steps.check(f"{name}: identity as on the chip, {wanted['part']} {wanted['serial']}",
                view and tour.is_as_described(view, wanted), str(view))
    steps.check(f"{name}: readings as on the chip", tour.readings_are_as_described(view, wanted),
                str(view))
    flags = [wanted.get("flags", {}).get(str(byte), 0) for byte in view["flag_bytes"]]
    steps.check(f"{name}: flags as on the chip, {sum(map(bool, flags))} raised",
                view["flags"] == flags, str(view))
    return view


def name_what_is_wrong(steps, guest):
    steps.check(f"an address that nobody answers, {EMPTY:#x}, is an empty cage",
                state(guest, "cold", "empty") is not None)
    taken = state(guest, "taken", "failing")
    steps.check(f"a driver bound to an address is named: {taken and taken['reason']}",
                taken and "the kernel's driver at24 has address 0x54 of /dev/i2c-0 (UU in i2cdetect)"
                in taken["reason"], str(port(guest, "taken")))
    flat = state(guest, "flat", "failing")
    steps.check(f"a flat module in the kernel's eeprom file: {flat and flat['reason']}",
                flat and "is not there: the file ends after 256 bytes" in flat["reason"],
                str(port(guest, "flat")))
    steps.check("its identity is shown", tour.is_as_described(
        flat, described("iivi-old-map")), str(flat["vendor"]))


def follow_lines(steps, guest):
    empty = state(guest, "north", "empty")
    steps.check("a presence line that says no: an empty cage, which nothing is read of",
                empty is not None and empty["module"]["bytes_read"] == 0)
    guest.does(f"echo 1 >{PRESENCE}")
    read_module(steps, guest, "north", described(STUB_MODULES[0x52]))
    steps.check("its reset line was left alone", guest.does(f"cat {RESET}").strip() == "Y")
    guest.does("lumctl module reset north on")
    held = port(guest, "north")["module"]["reset"]["on"]
    line = guest.does(f"cat {RESET}").strip()
    guest.does("lumctl module reset north off")
    steps.check("it is steered: on and off",
                (held, line, guest.does(f"cat {RESET}").strip()) == (True, "N", "Y"))
    status, printed = guest.run("lumctl module low-power north on")
    steps.check("a line that is not described is refused by its key",
                status != 0 and "its description has no 'low_power'" in printed, printed)


def lights(guest):
    """The brightness of the green and of the red LED."""
    return tuple(int(guest.does(f"cat {LED_CLASS}/{light}/brightness"))
                 for light in nodes.LIGHTS.values())


def light_leds(steps, guest):
    steps.say("LEDs, flags and settings")
    steps.check("the LED class: green is lit and red is dark",
                guest.wait_for(lambda: lights(guest) == (1, 0), SETTLED), str(lights(guest)))
    guest.does(f"i2cset -y 0 0x50 {tour.FLAG_BYTE:#x} {tour.FLAG_BITS:#x}")
    steps.check("a flag raised on the chip: red is lit and green is dark",
                guest.wait_for(lambda: lights(guest) == (0, 1), SETTLED), str(lights(guest)))
    steps.check("the flag has its name in the view", port(guest, "west").get("raised"),
                str(port(guest, "west")))
    guest.does(f"i2cset -y 0 0x50 {tour.FLAG_BYTE:#x} 0x00")
    steps.check("the flag cleared: green again",
                guest.wait_for(lambda: lights(guest) == (1, 0), SETTLED), str(lights(guest)))


def write_threshold(steps, guest):
    guest.does("lumctl set west threshold=20")
    shown = guest.does("i2cset -y 0 0x50 0x7f 0x02 && i2cget -y 0 0x50 0x92 && i2cget -y 0 0x50 0x93")
    steps.check("a threshold of 20 stands on the chip, page 2, as 200", shown.split() == [
        "0x00", "0xc8"], shown)


def share_the_bus(steps, guest):
    steps.say("A second user of the bus, who turns the page of the same chip all the time")
    wanted = guest.module("east?page=3", nodes.SERVICE_PORT)["page"]["bytes"]
    guest.does("setsid sh -c 'while [ ! -e /run/enough ]; do i2cset -y 0 0x51 0x7f 0x01; done'"
               " >/dev/null 2>&1 &")
    right = refused = 0
    for _ in range(5):
        shown = guest.module("east?page=3", nodes.SERVICE_PORT)
        if not shown:
            refused += 1
            continue
        # The second user's page stands in byte 127 of the lower page.
        if shown["page"]["bytes"][128:] != wanted[128:]:
            steps.check("every page read is the page asked for", False, str(shown["page"]))
        right += 1
    guest.does("touch /run/enough")
    steps.check(f"every page read is the page asked for: {right} right, {refused} refused", right > 0)


def take_the_group_away(steps, guest):
    steps.say("Permissions and the end")
    guest.does(f"chgrp root {STUB_BUS}")
    view = state(guest, "west", "failing")
    steps.check(f"without the group: {view and view['reason']}",
                view and f"{STUB_BUS} cannot be reached: Permission denied" in view["reason"],
                str(port(guest, "west")))
    guest.does(f"chgrp i2c {STUB_BUS}")
    steps.check("with it the port is up again", state(guest, "west", "up") is not None)


def stand_still(steps, guest):
    """A driver that does nothing any more feeds no watchdog; its time is shortened here."""
    folder = "/run/systemd/system/lumd.service.d"
    guest.does(f"mkdir -p {folder} && printf '[Service]\\nWatchdogSec=8\\nTimeoutAbortSec=2\\n'"
               f" >{folder}/watchdog.conf && systemctl daemon-reload && systemctl restart lumd")
    steps.check("it is up with a watchdog of 8 s", state(guest, "west", "up") is not None)
    before = main_process(guest)
    guest.does(f"kill -STOP {before}")

    def another():
        now = main_process(guest)
        return now if now not in ("0", before) else None
    steps.check("systemd ends one that stands still and starts another",
                guest.wait_for(another, SETTLED) is not None,
                guest.does("journalctl --no-pager -o cat -u lumd | tail -20"))
    steps.check("which has the modules up", state(guest, "west", "up") is not None)


def main_process(guest):
    return guest.does("systemctl show --value -p MainPID lumd").strip()


def stop_service(steps, guest):
    spent = guest.does("a=$(cut -d. -f1 /proc/uptime); systemctl stop lumd;"
                       " b=$(cut -d. -f1 /proc/uptime); echo $((b - a))")
    result = guest.does("systemctl show --value -p Result -p ExecMainStatus lumd").split()
    steps.check(f"systemd stops it in {spent.strip()} s",
                sorted(result) == ["0", "success"], str(result))
