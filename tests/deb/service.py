"""The service as its unit says, without a service manager: its user, groups, umask, limits, privileges and
what it may write to. What systemd alone can do, its filters of calls and addresses, is tried on a real
kernel by tests/kernel."""

import configparser
import os
import signal
import socket
import subprocess

UNIT = "lib/systemd/system/lumd.service"
FOLDERS = {"StateDirectory": "/var/lib", "LogsDirectory": "/var/log", "RuntimeDirectory": "/run"}

# ProtectSystem=strict: everything read-only but the service's folders and what the unit leaves open.
START = """
set -e
mount --rbind "$root" "$root"
mount -o remount,bind,ro "$root"
for folder in $writable; do
  mount --bind "$root$folder" "$root$folder"
  mount -o remount,bind,rw "$root$folder"
done
"""


class Service:
    def __init__(self, root):
        self.root = root
        unit = configparser.RawConfigParser(strict=False, comment_prefixes="#")
        unit.optionxform = str
        unit.read_string((root / UNIT).read_text())
        self.unit = unit["Service"]
        self.process = None

    def folders(self):
        return [f"{place}/{self.unit[key]}" for key, place in FOLDERS.items()]

    def make_folders(self):
        owner = f"{self.unit['User']}:{self.unit['Group']}"
        for folder in self.folders():
            self.root.run("install", "-d", "-m", "0755", "-o", owner.split(":")[0], "-g", owner.split(":")[1], folder)

    def start(self, patience=60):
        """Whether the driver says in time that it is ready."""
        self.make_folders()
        address = self.root / "run/notify"
        address.unlink(missing_ok=True)
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as notified:
            notified.bind(os.fspath(address))
            address.chmod(0o666)
            notified.settimeout(1)
            with open(self.log_file(), "w") as log:
                self.process = subprocess.Popen(
                    ["unshare", "--mount", "sh", "-c", f'{START}\nexec chroot "$root" "$@"', "sh", *self.command()],
                    env={**os.environ, "root": os.fspath(self.root.path), "writable": " ".join(self.folders())},
                    stdin=subprocess.DEVNULL, stdout=log, stderr=log)
            for _ in range(patience):
                try:
                    return b"READY=1" in notified.recv(4096)
                except TimeoutError:
                    if self.process.poll() is not None:
                        break
            return False

    def command(self):
        """Limits as systemd sets them, no privileges, the unit's user and groups, its umask."""
        unit = self.unit
        return ["prlimit", "--nofile=1024:", "--core=0:", "setpriv", f"--reuid={unit['User']}",
                f"--regid={unit['Group']}", f"--groups={unit['Group']},{unit['SupplementaryGroups']}",
                "--bounding-set=-all", "--inh-caps=-all", "--no-new-privs",
                "env", "-i", "PATH=/usr/sbin:/usr/bin", "NOTIFY_SOCKET=/run/notify",
                "sh", "-c", f"umask {unit['UMask']}; exec {unit['ExecStart']}"]

    def stop(self):
        """What the driver ends with, within the time that the unit gives it."""
        self.process.send_signal(signal.SIGTERM)
        try:
            return self.process.wait(int(self.unit["TimeoutStopSec"]))
        except subprocess.TimeoutExpired:
            self.process.kill()
            return None

    def log_file(self):
        return self.root.packages / "service.log"

    def said(self):
        return self.log_file().read_text(errors="replace")[-3000:]
