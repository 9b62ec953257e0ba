#!/usr/bin/env python3
"""Includes run one way: through lumd's folders, and down from the client over the platform to the library.

usage: tools/check_includes.py [FOLDER]     the project, this one unless given
"""

import pathlib
import re
import subprocess
import sys

LUMD = "client/lumd"
WORDS = "client/words"
LIBRARY = "platforms/common"
PLATFORM = "platforms/linux"

# What lumd and lumctl share, and the folders of both.
SHARED = (WORDS, "client/base", "client/json")
PROGRAMS = (LUMD, f"{LUMD}/records", f"{LUMD}/node", f"{LUMD}/views", f"{LUMD}/api", f"{LUMD}/metrics", "client/lumctl")

# Who must not include from where. A folder stands for everything below it; LUMD itself for the files
# right in it, which put the rest together.
FORBIDDEN = {
    f"{LUMD}/records": (f"{LUMD}/node", f"{LUMD}/views", f"{LUMD}/api", f"{LUMD}/metrics", LUMD),
    f"{LUMD}/node": (f"{LUMD}/views", f"{LUMD}/api", f"{LUMD}/metrics", LUMD),
    f"{LUMD}/views": (f"{LUMD}/api", f"{LUMD}/metrics", LUMD),
    f"{LUMD}/api": (f"{LUMD}/metrics", LUMD),
    f"{LUMD}/metrics": (f"{LUMD}/api", LUMD),
    **{folder: PROGRAMS + (LIBRARY, PLATFORM) for folder in SHARED},
    WORDS: SHARED[1:] + PROGRAMS + (LIBRARY, PLATFORM),
    LIBRARY: (PLATFORM, "client"),
    PLATFORM: ("client",),
}

# Headers that are slow to compile, and the only places in lumd that may have them.
HEAVY = {
    "boost/": f"{LUMD}/api/http_",
    "api/http_message.h": f"{LUMD}/api/http_session.h",
    "api/http_session.h": f"{LUMD}/api/http_server.cpp",
    "CLI/": f"{LUMD}/command_line.cpp",
}

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^">]+)[">]', re.MULTILINE)


def sources(project):
    listed = subprocess.run(
        ["git", "-C", project, "ls-files", "--cached", "--others", "--exclude-standard"],
        capture_output=True, text=True, check=True).stdout.splitlines()
    return [name for name in listed
            if name.endswith((".c", ".h", ".cpp", ".hpp")) and (project / name).exists()]


def is_in(name, folder):
    if folder == LUMD:
        return str(pathlib.PurePosixPath(name).parent) == LUMD
    return name.startswith(folder + "/")


def targets(includer, included, known, project):
    """The project's files that an include may mean: the one it says from where it stands, or else
    every one whose path ends so."""
    beside = (project / includer).parent / included
    try:
        near = str(beside.resolve().relative_to(project))
    except ValueError:
        near = None
    if near in known:
        return [near]
    return [name for name in known if name.endswith("/" + included)]


def problems(project):
    known = sources(project)
    for includer in known:
        text = (project / includer).read_text(errors="replace")
        rules = [folders for folder, folders in FORBIDDEN.items() if is_in(includer, folder)]
        for match in INCLUDE.finditer(text):
            included = match.group(2)
            line = text.count("\n", 0, match.start()) + 1
            for folders in rules:
                found = targets(includer, included, known, project)
                if found and all(any(is_in(name, folder) for folder in folders) for name in found):
                    yield f"{includer}:{line}: must not include {found[0]}"
            for prefix, place in HEAVY.items():
                if (included.startswith(prefix) and includer.startswith(LUMD + "/")
                        and not includer.startswith(place)):
                    yield f"{includer}:{line}: <{included}> belongs into {place} alone"


def main():
    project = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parents[1])
    found = list(problems(project.resolve()))
    for problem in found:
        print(problem, file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
