"""The commands of lumctl as its help tells them."""

import collections
import re

from support import LUMCTL, run

Help = collections.namedtuple("Help", "commands options values")


def help_of(*path):
    """What stands below a command: commands, options and, by argument or option, fixed values."""
    done = run(LUMCTL, *path, "--help")
    assert (done.returncode, done.stderr) == (0, ""), done
    found = Help([], [], {})
    section = ""
    for line in done.stdout.splitlines():
        if title := re.fullmatch(r"(\w+)[\w ]*:", line):
            section = title.group(1)
        elif entry := re.match(r"  (\S+)(.*)", line):
            name = re.sub(r"^-\w,", "", entry.group(1))
            if section == "Subcommands":
                found.commands.append(name)
            elif section == "Options":
                found.options.append(name)
            if values := re.search(r"TEXT:\{(.*?)\}", entry.group(2)):
                found.values[name] = values.group(1).split(",")
    return found


def every_help(*path):
    """Every command, by the words that lead to it, with what its help tells."""
    here = help_of(*path)
    yield path, here
    for command in here.commands:
        yield from every_help(*path, command)
