"""The guest's file system: what the tests need of this machine, packed for the kernel to unpack."""

import os
import pathlib
import re
import shutil
import subprocess

import guest
import kernel_package
import nodes

PACKAGES = ("systemd", "udev", "i2c-tools")
KERNEL_MODULES = ("i2c-dev", "i2c-stub", "at24", "cuse")
UNUSED = re.compile(r"/usr/share/|/hwdb\.d/|/usr/lib/systemd/(boot|catalog|user)|/locale/"
                    r"|/etc/(init\.d|xdg|dbus-1|pam\.d|systemd/user)")


class Image:
    """A folder that becomes the guest's root."""

    def __init__(self, folder):
        self.root = folder
        shutil.rmtree(folder, ignore_errors=True)
        # Debian's merged /usr.
        for name in ("bin", "sbin", "lib", "lib64"):
            (folder / "usr" / name).mkdir(parents=True)
            (folder / name).symlink_to(f"usr/{name}")
        for name in ("dev", "etc", "proc", "run", "sys", "tmp", "var"):
            (folder / name).mkdir()
        self.programs = []

    def place(self, path):
        """Where a path of the guest's stands on this machine, links of the guest's followed."""
        parts = pathlib.PurePath(path).parts[1:]
        if parts[0] in ("bin", "sbin", "lib", "lib64"):
            parts = ("usr", *parts)
        place = self.root.joinpath(*parts)
        place.parent.mkdir(parents=True, exist_ok=True)
        return place

    def add(self, source, path=None):
        """A file of this machine, at its own place or another."""
        place = self.place(path or source)
        if not os.path.lexists(place):
            shutil.copy2(source, place, follow_symlinks=path is not None)
            if place.is_file() and os.access(place, os.X_OK) and not place.is_symlink():
                self.programs.append(source)
        return place

    def write(self, path, text, mode=0o644):
        place = self.place(path)
        place.unlink(missing_ok=True)
        place.write_text(text)
        place.chmod(mode)

    def link(self, path, target):
        place = self.place(path)
        if not os.path.lexists(place):
            place.symlink_to(target)

    def add_package(self, name):
        listed = subprocess.run(["dpkg-query", "-L", name], capture_output=True, text=True,
                                check=True).stdout
        for file in map(pathlib.Path, listed.splitlines()):
            if not UNUSED.search(str(file)) and (file.is_file() or file.is_symlink()):
                self.add(file)

    def add_libraries(self):
        """The shared objects that its programs are linked with."""
        seen = set()
        for program in self.programs:
            shown = subprocess.run(["ldd", program], capture_output=True, text=True, check=False)
            for library in re.findall(r"\s(/(?:usr/)?lib\S+) \(0x", shown.stdout):
                if library not in seen:
                    seen.add(library)
                    self.add(pathlib.Path(library).resolve(), library)

    def add_busybox(self):
        """What no package brings. Its own shell would take its own tools before any other."""
        self.add("/bin/dash", "/bin/sh")
        self.add("/bin/busybox")
        for name in subprocess.run(["/bin/busybox", "--list"], capture_output=True, text=True,
                                   check=True).stdout.split():
            if not os.path.lexists(self.place(f"/sbin/{name}")):
                self.link(f"/bin/{name}", "/bin/busybox")

    def pack(self, archive):
        """For the kernel, everything belongs to root."""
        with open(archive, "wb") as out:
            names = subprocess.Popen(["find", ".", "-print0"], cwd=self.root, stdout=subprocess.PIPE)
            subprocess.run(["cpio", "--null", "--create", "--format=newc", "--owner=+0:+0", "--quiet"],
                           cwd=self.root, stdin=names.stdout, stdout=out, check=True)


# What the guest's first process starts: the agent, once the system is up.
AGENT_UNIT = """\
[Unit]
Description=Carries out what the test says
After=multi-user.target systemd-udev-settle.service
[Service]
ExecStart=/bin/sh /root/agent
"""


def make_image(source, build, kernel, cache):
    image = Image(cache / "root")
    for package in PACKAGES:
        image.add_package(package)
    image.add_busybox()
    add_system(image)
    add_kernel_modules(image, kernel)
    add_driver(image, build)
    add_nodes(image, source, build)
    image.add_libraries()
    archive = cache / "initramfs"
    image.pack(archive)
    return archive


def add_system(image):
    # Nobody but root may make the linker's cache of another root.
    image.write("/init", "#!/bin/sh\n/sbin/ldconfig\nexec /lib/systemd/systemd\n", 0o755)
    image.add("/sbin/ldconfig")
    image.write("/etc/os-release", "ID=guest\n")
    image.write("/etc/machine-id", "0123456789abcdef0123456789abcdef\n")
    image.write("/etc/hostname", "guest\n")
    for name in ("passwd", "group"):
        image.add(f"/usr/share/base-passwd/{name}.master", f"/etc/{name}")
    image.write("/etc/ld.so.conf", "/usr/local/lib\n/usr/local/lib/x86_64-linux-gnu\n"
                                   "/lib/x86_64-linux-gnu\n/usr/lib/x86_64-linux-gnu\n")
    image.write("/root/agent", guest.AGENT)
    units = "/etc/systemd/system"
    image.write(f"{units}/agent.service", AGENT_UNIT)
    image.link(f"{units}/multi-user.target.wants/agent.service", "../agent.service")
    image.link(f"{units}/default.target", "/lib/systemd/system/multi-user.target")
    # Terminals, disks and clocks that the guest does not have.
    for unit in ("getty.target", "systemd-logind.service", "systemd-update-utmp.service",
                 "systemd-random-seed.service", "systemd-remount-fs.service",
                 "systemd-user-sessions.service", "systemd-journal-flush.service",
                 "systemd-timesyncd.service", "systemd-networkd.service", "remote-fs.target",
                 "timers.target", "dev-hugepages.mount", "systemd-pstore.service",
                 "kmod-static-nodes.service"):
        image.link(f"{units}/{unit}", "/dev/null")


def add_kernel_modules(image, kernel):
    for file in kernel.files_of(*KERNEL_MODULES):
        image.add(file, f"/{file.relative_to(kernel.folder)}")
    modules = image.place(f"/lib/modules/{kernel.release}")
    for name in ("modules.order", "modules.builtin", "modules.builtin.modinfo"):
        shutil.copy(kernel.folder / "lib" / "modules" / kernel.release / name, modules)
    kernel_package.run("/sbin/depmod", "--basedir", image.root, kernel.release)


def add_driver(image, build):
    """The driver as it is installed, with its unit, its udev rules and its user."""
    environment = dict(os.environ, DESTDIR=str(image.root))
    subprocess.run(["cmake", "--install", build, "--component", "driver", "--strip"],
                   env=environment, check=True, stdout=subprocess.DEVNULL)
    image.programs += [build / "lumd", build / "lumctl"]
    for program in ("i2c_adapter", "stub_fill"):
        image.add(build / program, f"/usr/local/bin/{program}")


def add_nodes(image, source, build):
    for kind in nodes.MODULES:
        subprocess.run([build / "lum-module-image", source / "examples" / "modules" / f"{kind}.toml",
                        image.place(f"/root/{kind}.eeprom")], check=True)
    image.write("/etc/lumd/node.toml", nodes.service_node())
    image.write("/etc/lumd/played.toml", nodes.played_node())
    for folder, led in nodes.LED_OF.items():
        for which, light in nodes.LIGHTS.items():
            image.link(f"{folder}/{led}:{which}", f"/sys/class/leds/{light}")
