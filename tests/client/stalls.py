"""Ports on a shelf of which calls can be kept from returning, and the calls that are."""

import contextlib
import dataclasses
import functools
import os
import pathlib
import tempfile
import typing

import support
from shelf import cages

STALLS = support.BUILD / "lum_test_stalls.so"
BUS = support.BUILD / "lum_test_bus.so"


def marker_of(path, call):
    """The file for as long as which that call on that file or socket does not come back."""
    return path.with_name(f"{path.name}.{call}.stalls")


def under_way(process, path, call):
    """Threads of the process that are in such a call."""
    marker = str(marker_of(path, call))
    inside = 0
    for descriptor in pathlib.Path(f"/proc/{process.pid}/fd").iterdir():
        with contextlib.suppress(FileNotFoundError):
            inside += os.readlink(descriptor) == marker
    return inside


@functools.cache
def module_image():
    """The memory of a module, as bytes."""
    with tempfile.TemporaryDirectory(prefix="lum-test-") as folder:
        image = pathlib.Path(folder) / "image"
        cages.make_image(support.BUILD / "lum-module-image",
                         support.EXAMPLES / "iivi-new-map.toml", image)
        return image.read_bytes()


@dataclasses.dataclass
class StallingCage(cages.Cage):
    """A cage with files for its lines, or on a bus of its own."""

    lines: typing.Sequence[str] = ()
    bus: pathlib.Path | None = None

    def line(self, name):
        return self.module.with_suffix(f".{name}")


class StallingShelf(cages.Shelf):
    def add(self, **parts):
        """A port with a module in its cage."""
        number = len(self.cages) + 1
        cage = StallingCage(1, number, number, self.folder / "modules" / f"{number}.eeprom",
                            **parts)
        self.cages.append(cage)
        cage.module.write_bytes(module_image())
        return cage

    def add_on_bus(self):
        cage = self.add()
        cage.bus = cage.module.with_suffix(".i2c")
        cage.module.rename(cage.bus)
        return cage

    def add_with_lines(self):
        cage = self.add(lines=("presence", "reset", "low_power"))
        for line, holds in (("presence", "1"), ("reset", "0"), ("low_power", "0")):
            cage.line(line).write_text(f"{holds}\n")
        return cage

    def add_with_trigger(self):
        """On its green LED; nothing has to be taken from it."""
        cage = self.add()
        trigger = self.led_file(cage, "green:status", "trigger")
        trigger.parent.mkdir(parents=True)
        trigger.write_text("[none] timer\n")
        return cage

    def led_file(self, cage, which, file):
        return self.folder / "leds" / f"{cage.led}:{which}" / file

    def port_lines(self, cage):
        lines = super().port_lines(cage)
        lines += [f'{line} = "modules/{cage.line(line).name}"' for line in cage.lines]
        if cage.bus is None:
            return lines
        changed = {'backend = "file"': 'backend = "i2c-dev"',
                   f'module = "modules/{cage.module.name}"': f'bus = "modules/{cage.bus.name}"'}
        return [changed.get(line, line) for line in lines]


class Driver(support.Driver):
    """One whose calls can stall."""

    def __init__(self, shelf, **environment):
        super().__init__(support.BUILD, shelf, ("--alarm-tests",), support.QUICK)
        self.environment.update(
            LD_PRELOAD=f"{support.BUILD / 'lum_test_journal.so'} {support.CLOCK} {STALLS} {BUS}",
            **environment)
