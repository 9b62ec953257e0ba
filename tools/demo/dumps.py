"""A shelf of module dumps: what is shown must be what the dumps themselves hold."""

import shutil

from shelf import cages
from shelf.driver import Driver
from steps import StepFailed

PORTS_PER_SLOT = 32
MAX_DUMPS = 16 * PORTS_PER_SLOT
LED_NORMAL, LED_FAULT = 1, 3


class Dump:
    """The bytes of a module's memory, read without the driver's help."""

    def __init__(self, memory):
        self.lower = memory[:128]
        self.page_0 = memory[128:256]

    def text(self, first, length):
        """A text of page 0, counted from 128: it ends at a NUL, at its length, or in blanks."""
        field = self.page_0[first - 128:first - 128 + length].split(b"\0")[0]
        return field.decode("utf-8", "replace").rstrip(" \t\r\n\v\f")

    def identity(self):
        oui = self.page_0[145 - 128:148 - 128]
        return {
            "name": self.text(129, 16),
            "oui": ".".join(f"{byte:02x}" for byte in oui),
            "part": self.text(148, 16),
            "revision": self.text(164, 2),
            "serial": self.text(166, 16),
            "date": self.text(182, 8),
        }

    def temperature(self):
        return int.from_bytes(self.lower[14:16], "big", signed=True) / 256

    def supply(self):
        return int.from_bytes(self.lower[16:18], "big") / 10000

    def firmware(self):
        return f"{self.lower[39]}.{self.lower[40]:02}"

    def led(self):
        flags = (self.lower[10] | self.lower[12]) & 0x22
        return LED_FAULT if flags or self.lower[13] else LED_NORMAL


def make_shelf(folder, directory):
    """A shelf of copies: a driver may write into its modules."""
    files = sorted(directory.glob("*.eeprom"))
    if not files:
        raise StepFailed(f"there is no *.eeprom in {directory}")
    if len(files) > MAX_DUMPS:
        raise StepFailed(f"{directory} holds {len(files)} dumps, a shelf {MAX_DUMPS} at most")
    shelf = cages.Shelf(folder, "dumps")
    contents = {}
    for number, file in enumerate(files):
        cage = shelf.add_cage(number // PORTS_PER_SLOT, f"{number}.eeprom")
        shutil.copyfile(file, cage.module)
        contents[cage.name] = (file.name, Dump(file.read_bytes()))
    shelf.write_description()
    return shelf, contents


def is_polled(view):
    return view.get("temperature_c") is not None


def why_unpolled(ports, contents):
    """Which modules have not been polled, and what the driver says of each."""
    return [f"{file} (port {name}): {ports[name]['reason'] or 'it is still being read'}"
            for name, (file, _) in contents.items() if not is_polled(ports[name])]


def same_text(shown, own):
    """Bytes that are no text are shown as replacement characters, however many."""
    return shown.replace("\ufffd", "") == own.replace("\ufffd", "")


def run(steps, build, folder, directory):
    shelf, contents = make_shelf(folder, directory)
    steps.say(f"A shelf of {len(contents)} module dumps from {directory}")
    with Driver(build, shelf) as driver:
        def all_judged(ports):
            return all(is_polled(ports[name]) or ports[name]["state"] == "failing"
                       for name in contents)

        ports = driver.wait_for(all_judged, 20) or driver.ports()
        unpolled = why_unpolled(ports, contents)
        steps.check(f"all {len(contents)} modules are polled", not unpolled, "; ".join(unpolled))
        steps.say("")
        steps.say(driver.lumctl("show", "ports"))
        for name, (file, dump) in contents.items():
            check_port(steps, file, ports[name], dump)
        steps.check("SIGTERM stops the driver", driver.stop(6) == 0)


def check_port(steps, file, view, dump):
    steps.say(f"{view['name']} is {file}")
    wanted = dump.identity()
    wrong = [f"{key} is shown as {view['vendor'][key]!r}, the dump has {own!r}"
             for key, own in wanted.items() if not same_text(view["vendor"][key], own)]
    named = ", ".join(wanted[key] for key in ("name", "part", "serial") if wanted[key])
    steps.check(f"its identity is shown: {named or 'empty'}", not wrong, "; ".join(wrong))
    steps.check(f"its temperature is shown: {dump.temperature():.3f} C",
                abs(view["temperature_c"] - dump.temperature()) < 0.001)
    steps.check(f"its supply is shown: {dump.supply():.4f} V",
                abs(view["supply_v"] - dump.supply()) < 0.00005)
    steps.check(f"its firmware is shown: {dump.firmware()}",
                view["firmware"]["text"] == dump.firmware())
    steps.check(f"its LED follows its flags: {dump.led()}", view["led"]["state"] == dump.led())
