"""A machine under QEMU, without KVM, a disk or a network, that carries out what it is told through
its second serial line."""

import base64
import json
import pathlib
import socket
import subprocess
import time

# Nobody has to be kept from this guest, and keeping them out costs the emulator time.
KERNEL_WORDS = ("console=ttyS0 quiet panic=-1 mitigations=off audit=0 lsm=landlock"
                " random.trust_cpu=on systemd.show_status=0")
BOOT_SECONDS = 400
STEP_SECONDS = 120

# Reads commands from the second serial line, one a line, and answers each with its status, the size
# of what it printed, and that. The line is said to be ready over and over until somebody hears it.
AGENT = """\
exec </dev/ttyS1 >/dev/ttyS1
stty raw -echo
echo ready
while read -r line; do
  echo "$line" | base64 -d >/run/agent.command
  sh /run/agent.command >/run/agent.output 2>&1 </dev/null
  echo "$? $(stat -c %s /run/agent.output)"
  cat /run/agent.output
done
"""


class GuestFailed(Exception):
    pass


class Guest:
    def __init__(self, kernel, initramfs, folder):
        self.console = pathlib.Path(folder) / "console.log"
        self.socket = pathlib.Path(folder) / "agent.sock"
        self.socket.unlink(missing_ok=True)
        self.command = [
            "qemu-system-x86_64", "-accel", "tcg,thread=multi", "-cpu", "max", "-smp", "2",
            "-m", "512", "-nodefaults", "-display", "none", "-no-reboot",
            "-kernel", kernel.image, "-initrd", initramfs,
            "-append", KERNEL_WORDS,
            "-serial", f"file:{self.console}", "-serial", f"unix:{self.socket},server=on,wait=on",
        ]
        self.process = None
        self.line = None
        self.received = b""

    def __enter__(self):
        self.process = subprocess.Popen(self.command, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        try:
            self.connect()
            self.line.settimeout(BOOT_SECONDS)
            while self.read_line() != "ready":
                pass
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        if self.line:
            self.line.close()
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        self.process.stderr.close()

    def connect(self):
        deadline = time.monotonic() + 20
        while True:
            self.line = socket.socket(socket.AF_UNIX)
            try:
                return self.line.connect(str(self.socket))
            except OSError as failed:
                self.line.close()
                if self.process.poll() is not None:
                    error = self.process.stderr.read().decode(errors="replace").strip()
                    raise GuestFailed(f"QEMU has ended: {error}") from None
                if time.monotonic() > deadline:
                    raise GuestFailed(f"QEMU gives no serial line: {failed}") from None
                time.sleep(0.05)

    def receive(self):
        try:
            got = self.line.recv(65536)
        except TimeoutError:
            raise GuestFailed(f"the guest does not answer; its console is {self.console}") from None
        if not got:
            raise GuestFailed(f"the guest has ended; its console is {self.console}")
        self.received += got

    def read_line(self):
        while b"\n" not in self.received:
            self.receive()
        line, self.received = self.received.split(b"\n", 1)
        return line.decode().strip()

    def read_bytes(self, count):
        while len(self.received) < count:
            self.receive()
        wanted, self.received = self.received[:count], self.received[count:]
        return wanted

    def run(self, command, seconds=STEP_SECONDS):
        """The status of a command of the guest's shell, and what it printed."""
        self.line.settimeout(seconds)
        self.line.sendall(base64.b64encode(command.encode()) + b"\n")
        status, size = self.read_line().split()
        return int(status), self.read_bytes(int(size)).decode(errors="replace")

    def does(self, command):
        """What a command printed that must succeed."""
        status, printed = self.run(command)
        if status != 0:
            raise GuestFailed(f"'{command}' ended with {status}: {printed.strip()}")
        return printed

    def wait_for(self, condition, seconds):
        """What the condition gives once that is true, or None when it never was."""
        deadline = time.monotonic() + seconds
        while True:
            if held := condition():
                return held
            if time.monotonic() > deadline:
                return None
            time.sleep(0.2)

    def module(self, name, port):
        """The driver's view of a module, asked over its read-only port; {} while it does not
        answer. A program of the driver's own would take the emulator a second to load."""
        status, printed = self.run(f"wget -q -O - http://127.0.0.1:{port}/v1/modules/{name}")
        return json.loads(printed) if status == 0 else {}
