"""A fresh root of Debian, in which commands run as on a machine of its own."""

import contextlib
import re
import shutil
import subprocess

MIRROR = "http://deb.debian.org/debian"
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C.UTF-8", "HOME": "/root",
               "DEBIAN_FRONTEND": "noninteractive"}


# Not the middle of another word, such as a volume.
OURS = re.compile(r"(?<![A-Za-z])(lib)?lum")


class CommandFailed(Exception):
    pass


class Root:
    def __init__(self, path, packages):
        self.path = path
        self.packages = packages

    def __truediv__(self, name):
        return self.path / name

    def has(self, name):
        return (self.path / name).exists() or (self.path / name).is_symlink()

    def run(self, *command, check=True):
        """What a command prints; without `check`, whatever it ends with."""
        ended = subprocess.run(["chroot", self.path, *command], env=ENVIRONMENT, text=True, errors="replace",
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if check and ended.returncode != 0:
            raise CommandFailed(f"{' '.join(command)} ended with {ended.returncode}:\n{ended.stdout[-6000:]}")
        return ended.stdout

    def apt(self, *arguments):
        return self.run("apt-get", "-y", "-q", "--no-install-recommends", *arguments)

    def names(self):
        """Everything in the root that is called after this project, but for what is only mounted there."""
        listed = subprocess.run(["find", self.path, "-xdev", "-printf", "%P\\n"], capture_output=True, text=True,
                                errors="replace").stdout.splitlines()
        return {name for name in listed if OURS.search(name)}


def make_base(folder, suite):
    """Debian's least, once; deleting it makes it anew."""
    base = folder / f"base-{suite}"
    if base.exists():
        return base
    coming = folder / f"base-{suite}.new"
    shutil.rmtree(coming, ignore_errors=True)
    print(f"debootstrap makes a root of {suite}, once", flush=True)
    made = subprocess.run(["debootstrap", "--variant=minbase", suite, coming, MIRROR],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if made.returncode != 0:
        raise CommandFailed(f"debootstrap ended with {made.returncode}:\n{made.stdout[-3000:]}")
    coming.rename(base)
    return base


def mount(*arguments):
    subprocess.run(["mount", *arguments], check=True)


@contextlib.contextmanager
def fresh_root(packages, suite):
    path = packages / "root"
    subprocess.run(["rm", "-rf", "--one-file-system", path], check=True)
    subprocess.run(["cp", "-a", make_base(packages, suite), path], check=True)
    downloads = packages / f"downloads-{suite}"
    downloads.mkdir(exist_ok=True)
    mount("--bind", downloads, path / "var/cache/apt/archives")
    (downloads / "partial").mkdir(exist_ok=True)
    mount("-t", "proc", "proc", path / "proc")
    mount("--rbind", "/dev", path / "dev")
    mount("-t", "tmpfs", "tmpfs", path / "run")
    shutil.copy("/etc/resolv.conf", path / "etc/resolv.conf")
    # What came once is not fetched again.
    (path / "etc/apt/apt.conf.d/99keep").write_text('APT::Keep-Downloaded-Packages "true";\n')
    root = Root(path, packages)
    root.run("apt-get", "-q", "update")
    yield root
    subprocess.run(["umount", "-l", path / "run", path / "dev", path / "proc"])
    subprocess.run(["umount", "-l", path / "var/cache/apt/archives"])
    subprocess.run(["rm", "-rf", "--one-file-system", path])
