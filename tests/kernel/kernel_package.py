"""Debian's kernel, unpacked from its package without being installed."""

import os
import pathlib
import re
import shutil
import subprocess

META_PACKAGE = "linux-image-amd64"


class NoKernel(Exception):
    pass


class Kernel:
    """An unpacked kernel: its image, and its modules with what each of them needs."""

    def __init__(self, folder):
        self.folder = folder
        self.image = next((folder / "boot").glob("vmlinuz-*"))
        self.release = self.image.name.removeprefix("vmlinuz-")

    def files_of(self, *modules):
        """The files of modules and of those they need, in the order of loading; none of what is
        built in."""
        files = []
        for module in modules:
            shown = run("/sbin/modprobe", "--dirname", self.folder, "--set-version", self.release,
                        "--show-depends", module)
            found = re.findall(r"^insmod (\S+)", shown, re.MULTILINE)
            files += [file for file in map(pathlib.Path, found) if file not in files]
        return files


def run(*command, cwd=None):
    try:
        done = subprocess.run(command, cwd=cwd, capture_output=True, text=True, check=False)
    except OSError as failed:
        raise NoKernel(f"{command[0]} cannot be run: {failed}") from failed
    if done.returncode != 0:
        words = " ".join(map(str, command))
        raise NoKernel(f"'{words}' failed: {done.stderr.strip() or done.stdout.strip()}")
    return done.stdout


def fetch(cache):
    """The kernel that was fetched before, or the one that Debian offers now."""
    kept = sorted(cache.glob("linux-image-*"))
    if kept:
        return Kernel(kept[-1])
    package = find_package()
    if not package:
        update_lists()
        package = find_package()
    if not package:
        raise NoKernel(f"the package {META_PACKAGE} names no kernel among apt's packages")
    unpack(package, cache, cache / package)
    return Kernel(cache / package)


def find_package():
    """The kernel's own package, which carries its version in its name; None: no list names it."""
    try:
        depends = run("apt-cache", "depends", META_PACKAGE)
    except NoKernel:
        return None
    found = re.search(r"Depends: (linux-image-\S+)", depends)
    return found and found[1]


def update_lists():
    as_root = [] if os.geteuid() == 0 else ["sudo"]
    run(*as_root, "apt-get", "update", "-q")


def download(package, folder):
    """A list of packages that is old names files that are gone."""
    try:
        run("apt-get", "download", package, cwd=folder)
    except NoKernel:
        update_lists()
        run("apt-get", "download", package, cwd=folder)
    return next(folder.glob("*.deb"))


def unpack(package, cache, folder):
    making = cache / "making"
    shutil.rmtree(making, ignore_errors=True)
    making.mkdir(parents=True)
    archive = download(package, making)
    kernel = making / "kernel"
    kernel.mkdir()
    # The other modules drive hardware that the emulator does not have.
    wanted = ["./boot/vmlinuz-*", "./lib/modules/*/modules.*",
              *(f"./lib/modules/*/kernel/{part}/*"
                for part in ("drivers/i2c", "drivers/misc/eeprom", "fs/fuse", "drivers/base/regmap"))]
    run("bash", "-o", "pipefail", "-c",
        'dpkg-deb --fsys-tarfile "$1" | tar -x -C "$2" --wildcards "${@:3}"', "-",
        archive, kernel, *wanted)
    run("/sbin/depmod", "--basedir", kernel, Kernel(kernel).release)
    kernel.rename(folder)
    shutil.rmtree(making)
