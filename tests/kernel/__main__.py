"""The driver on a real Linux kernel: its modules on the kernel's I2C stub and on a bus that is played
outside the kernel, its LEDs in the LED class, its service under systemd. Every step is checked.

usage: python3 tests/kernel --build DIR [--shell]
"""

import argparse
import pathlib
import signal
import subprocess
import sys

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path += [str(SOURCE / "tools" / "demo"), str(SOURCE / "tests")]

import adapter_steps  # noqa: E402
import service_steps  # noqa: E402
from guest import Guest, GuestFailed  # noqa: E402
from guest_image import make_image  # noqa: E402
from kernel_package import NoKernel, fetch  # noqa: E402
from steps import StepFailed, Steps  # noqa: E402


def talk(guest):
    """What a person types, carried out in the guest."""
    print("The guest carries out what you type; an empty line ends it.")
    while command := input("guest# "):
        status, printed = guest.run(command)
        print(printed, end="" if printed.endswith("\n") or not printed else "\n")
        if status:
            print(f"({status})")


def run(build, shell):
    steps = Steps()
    cache = build / "kernel"
    cache.mkdir(exist_ok=True)
    kernel = fetch(cache)
    steps.check(f"Debian's kernel {kernel.release} is unpacked", kernel.image.exists())
    initramfs = make_image(SOURCE, build, kernel, cache)
    steps.check(f"an initramfs of {initramfs.stat().st_size >> 20} MiB is packed", True)
    with Guest(kernel, initramfs, cache) as guest:
        release = guest.does("uname -r").strip()
        steps.check(f"QEMU boots it: Linux {release}", release == kernel.release)
        if shell:
            return talk(guest)
        try:
            service_steps.run(steps, guest)
            adapter_steps.run(steps, guest)
        except (StepFailed, GuestFailed):
            report(guest)
            raise
    steps.finish()


def report(guest):
    """What the driver had to say."""
    for command in ("journalctl --no-pager -o cat -u lumd | tail -n 40", "tail -n 40 /run/*/lumd.log",
                    "dmesg | tail -n 10"):
        try:
            print(guest.run(command)[1], file=sys.stderr)
        except (GuestFailed, OSError):
            return


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True, help="where lumd was built")
    parser.add_argument("--shell", action="store_true",
                        help="boot the guest and carry out what is typed instead")
    arguments = parser.parse_args()
    # Ended from outside, the test still takes its guest with it.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    try:
        run(arguments.build.resolve(), arguments.shell)
    except (StepFailed, NoKernel, GuestFailed, OSError, subprocess.SubprocessError) as failure:
        print(f"\nThe test on a real kernel failed: {failure}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
