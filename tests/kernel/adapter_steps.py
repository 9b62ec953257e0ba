"""A driver on buses that are played outside the kernel, behind its CUSE driver: plain messages, banks,
block reads, modules that come and go, and whatever goes wrong on a bus."""

import tour
from nodes import PLAYED, PLAYED_PORT, PLAYED_SOCKET
from service_steps import SETTLED, described, lights

FOLDER = "/run/played"
KIND = "accelink-old-map"

# What the adapter does, and what is said of the module then.
FAILURES = [
    ("arbitration", "the adapter lost arbitration"),
    ("refuses", "the adapter refuses a transfer that it says it can make"),
    ("short", "the transfer was not completed"),
    ("keeps-page", "page 3 was not taken: byte 127 holds 9"),
    ("offers-nothing", "offers neither plain messages nor SMBus byte transfers"),
    ("offers-blocks short", "a block read brought 7 bytes"),
]


def run(steps, guest):
    start(steps, guest)
    read_by_each_way(steps, guest)
    light_leds(steps, guest)
    select_bank(steps, guest)
    come_and_go(steps, guest)
    go_wrong(steps, guest)
    follow_lines(steps, guest)
    hang(steps, guest)


def behave(guest, name, words=""):
    guest.does(f"echo '{words}' >{FOLDER}/{name}/behaviour")


def turn_page(guest, number):
    """Another page than the one that is asked for."""
    guest.does(f"printf '\\{number:03o}' | dd of={FOLDER}/plain/50.eeprom bs=1 seek=127"
               " conv=notrunc 2>/dev/null")


def start(steps, guest):
    steps.say("Buses that are played outside the kernel, behind CUSE")
    guest.does("modprobe cuse")
    for name, (bus, _) in PLAYED.items():
        guest.does(f"mkdir -p {FOLDER}/{name} && cp /root/{KIND}.eeprom {FOLDER}/{name}/50.eeprom")
        behave(guest, name)
        guest.does(f"setsid i2c_adapter i2c-{bus} {FOLDER}/{name} >{FOLDER}/{name}/said 2>&1 &")
    behave(guest, "blocks", "offers-blocks")
    guest.does(f"echo 0 >{FOLDER}/line/value; echo 0 >{FOLDER}/line/reset")
    # Another module's upper pages, so that a bank differs from what is in its place otherwise.
    guest.does(f"tail -c +129 /root/iivi-new-map.eeprom >{FOLDER}/banked/50.bank1")
    buses = " ".join(f"/dev/i2c-{bus}" for bus, _ in PLAYED.values())
    steps.check(f"{len(PLAYED)} buses are there",
                guest.wait_for(lambda: guest.run(f"ls {buses}")[0] == 0, SETTLED),
                guest.run(f"cat {FOLDER}/*/said")[1])
    guest.does(f"setsid lumd --config /etc/lumd/played.toml >{FOLDER}/lumd.log 2>&1 &")
    steps.check("a driver on them answers",
                guest.wait_for(lambda: port(guest, "plain"), SETTLED))


def port(guest, name):
    return guest.module(name, PLAYED_PORT)


def state(guest, name, wanted, reason=""):
    """Waits until a port's state is `wanted`, with that in its reason; the port, or None."""
    def seen():
        view = port(guest, name)
        return view if view.get("state") == wanted and reason in view["reason"] else None
    return guest.wait_for(seen, SETTLED)


def page(guest, name, number):
    """The page's upper half, or what is said instead."""
    view = guest.module(f"{name}?page={number}", PLAYED_PORT)
    if view:
        return bytes(view["page"]["bytes"][128:])
    return guest.run(f"lumctl --socket {PLAYED_SOCKET} show module {name} --page {number}")[1]


def page_of_file(guest, file, position):
    shown = guest.does(f"od -An -v -tu1 -j {position} -N 128 {file}")
    return bytes(map(int, shown.split()))


def read_by_each_way(steps, guest):
    wanted = described(KIND)
    for name, way in (("plain", "plain messages"), ("blocks", "I2C block reads of 32 bytes")):
        view = state(guest, name, "up")
        steps.check(f"{way}: a module is up, its identity right",
                    view and tour.is_as_described(view, wanted), str(port(guest, name)))
        for number in (1, 2, 3):
            own = page_of_file(guest, f"/root/{KIND}.eeprom", 128 * (number + 1))
            if (seen := page(guest, name, number)) != own:
                steps.check(f"{way}: page {number} as in the module", False, str(seen))
        seen = port(guest, name)["module"].get("way")
        steps.check(f"{way}: its pages as in the module", seen == way, str(seen))


def light_leds(steps, guest):
    log = guest.does(f"cat {FOLDER}/lumd.log")
    steps.check("LEDs that are links are lit, though the driver is confined to its files",
                guest.wait_for(lambda: lights(guest) == (1, 0), SETTLED)
                and "not confined" not in log, log)


def select_bank(steps, guest):
    own = page_of_file(guest, f"{FOLDER}/banked/50.bank1", 128)
    seen = page(guest, "banked", 1)
    steps.check("a bank that a description asks for is selected: page 1 of bank 1", seen == own,
                str(seen))
    steps.check("nobody selects a bank elsewhere",
                guest.run(f"grep 'write 50 126' {FOLDER}/plain/log")[0] != 0)


def come_and_go(steps, guest):
    memory = f"{FOLDER}/plain/50.eeprom"
    guest.does(f"mv {memory} {memory}.out")
    steps.check("a module that is taken out leaves an empty cage",
                state(guest, "plain", "empty") is not None, str(port(guest, "plain")))
    guest.does(f"mv {memory}.out {memory}")
    steps.check("and comes up when it is put back", state(guest, "plain", "up") is not None)


def go_wrong(steps, guest):
    steps.say("What goes wrong on a bus")
    own = page(guest, "plain", 3)
    for behaviour, reason in FAILURES:
        behave(guest, "plain", behaviour)
        turn_page(guest, 9)
        said = page(guest, "plain", 3)
        steps.check(f"{behaviour}: {str(said).strip()}", isinstance(said, str) and reason in said)
    behave(guest, "plain", "slow")
    steps.check("slow: the page comes", page(guest, "plain", 3) == own)
    behave(guest, "plain", "arbitration")
    steps.check("a module whose polls fail is failing, with that reason",
                state(guest, "plain", "failing", "lost arbitration"), str(port(guest, "plain")))
    memory = f"{FOLDER}/plain/50.eeprom"
    behave(guest, "plain")
    guest.does(f"mv {memory} {memory}.out")
    state(guest, "plain", "empty")
    behave(guest, "plain", "everywhere")
    view = state(guest, "plain", "failing", "answered at 0x7f too")
    steps.check(f"everywhere: {view and view['reason']}", view, str(port(guest, "plain")))
    behave(guest, "plain")
    guest.does(f"mv {memory}.out {memory}")
    steps.check("in order again, it is up", state(guest, "plain", "up") is not None)


def follow_lines(steps, guest):
    steps.check("an empty cage with a presence line costs no access to its bus",
                state(guest, "line", "empty") is not None
                and guest.run(f"test -e {FOLDER}/line/log")[0] != 0)
    guest.does(f"echo 1 >{FOLDER}/line/value")
    steps.check("its module comes up with the line", state(guest, "line", "up") is not None)
    guest.does(f"lumctl --socket {PLAYED_SOCKET} module reset line on"
               f" && mv {FOLDER}/line/50.eeprom {FOLDER}/line/held")
    steps.check("a module that is silent in reset is failing, and not taken for absent",
                state(guest, "line", "failing", "the module is held in reset"),
                str(port(guest, "line")))
    guest.does(f"mv {FOLDER}/line/held {FOLDER}/line/50.eeprom"
               f" && lumctl --socket {PLAYED_SOCKET} module reset line off")
    steps.check("let go, it is up", state(guest, "line", "up") is not None)


def hang(steps, guest):
    steps.say("A bus that hangs, and that no signal ends")
    state(guest, "hung", "up")
    behave(guest, "hung", "hang")
    pid = guest.does("pidof lumd").strip()
    view = state(guest, "hung", "failing", "a transfer has not ended")
    steps.check(f"its port says so: {view and view['reason']}", view, str(port(guest, "hung")))
    steps.check("the other ports go on",
                all(state(guest, name, "up") for name in ("plain", "blocks", "line")))
    guest.does(f"kill {pid}")
    steps.check("SIGTERM ends the driver's service all the same",
                guest.wait_for(lambda: guest.run(f"test -e {PLAYED_SOCKET}")[0] != 0, SETTLED))
    threads = guest.run(f"cut -d' ' -f2,3 /proc/{pid}/task/*/stat")[1]
    steps.check("its process waits in the kernel, beyond the reach of signals", ") D" in threads,
                threads)
    behave(guest, "hung")
    steps.check("and is gone once the bus answers", guest.wait_for(
        lambda: guest.run(f"test -e /proc/{pid}/task")[0] != 0, SETTLED))
