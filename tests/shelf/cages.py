"""A shelf on disk: module memories, LEDs and the node description that names them."""

import dataclasses
import pathlib
import re
import subprocess


@dataclasses.dataclass
class Cage:
    """One port's cage and what is in it."""

    slot: int
    port: int
    handle: int
    module: pathlib.Path
    backend: str = "file"
    instance: int = 0

    @property
    def name(self):
        return f"0/{self.slot}/{self.instance}/{self.port}"

    @property
    def led(self):
        instance = f"-instance{self.instance}" if self.instance else ""
        return f"slot{self.slot}{instance}-port{self.port}"


class Shelf:
    """A folder with everything that one node needs; nothing outside it is touched."""

    def __init__(self, folder, name):
        self.folder = pathlib.Path(folder)
        self.name = name
        self.cages = []
        self.description = self.folder / "node.toml"
        self.socket = self.folder / "state" / "lumd.sock"
        (self.folder / "modules").mkdir()

    def add_cage(self, slot, file_name, backend="file", instance=0):
        port = 1 + sum((cage.slot, cage.instance) == (slot, instance) for cage in self.cages)
        handle = 1 + len(self.cages)
        cage = Cage(slot, port, handle, self.folder / "modules" / file_name, backend, instance)
        self.cages.append(cage)
        return cage

    def write_description(self, *node_keys):
        """With these lines of keys of the node besides."""
        lines = [
            *node_keys,
            f'name = "{self.name}"',
            'state_directory = "state"',
            'trace_directory = "traces"',
            'led_directory = "leds"',
        ]
        for slot in sorted({cage.slot for cage in self.cages}):
            lines += ["", "[[slot]]", f"number = {slot}"]
            for instance in sorted({cage.instance for cage in self.cages if cage.slot == slot}):
                lines += ["", "[[slot.instance]]", f"number = {instance}"]
                for cage in self.cages:
                    if (cage.slot, cage.instance) == (slot, instance):
                        lines += self.port_lines(cage)
        self.description.write_text("\n".join(lines) + "\n")

    @staticmethod
    def port_lines(cage):
        return [
            "",
            "[[slot.instance.port]]",
            f"number = {cage.port}",
            f"handle = {cage.handle}",
            f'backend = "{cage.backend}"',
            f'module = "modules/{cage.module.name}"',
            f'led = "{cage.led}"',
        ]

    def led_is_lit(self, cage, which):
        """Whether the LED `which`, "green:status" or "red:fault", is lit."""
        brightness = self.folder / "leds" / f"{cage.led}:{which}" / "brightness"
        return int(brightness.read_text()) > 0


def copy_description(source, target, **changes):
    """Copies a module's description with other values for some of its top-level keys."""
    text = source.read_text()
    for key, value in changes.items():
        line = f'{key} = "{value}"'
        text, found = re.subn(rf"^{key} = .*$", line, text, count=1, flags=re.MULTILINE)
        if not found:
            text = line + "\n" + text
    target.write_text(text)


def make_image(tool, description, image):
    subprocess.run([tool, description, image], check=True)


def poke(image, position, value):
    """Writes one byte of a module's memory in place, as somebody else on its bus would."""
    with open(image, "r+b") as memory:
        memory.seek(position)
        memory.write(bytes([value]))
