"""The driver as a process, asked through its socket and through its command line."""

import http.client
import json
import os
import pathlib
import signal
import socket
import subprocess
import time


class UnixConnection(http.client.HTTPConnection):
    """HTTP through the driver's socket."""

    def __init__(self, path):
        super().__init__("lumd", timeout=20)
        self.path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(self.timeout)
        # Through its folder: a socket's address holds 107 bytes only.
        folder = os.open(self.path.parent, os.O_PATH | os.O_DIRECTORY)
        try:
            self.sock.connect(f"/proc/self/fd/{folder}/{self.path.name}")
        finally:
            os.close(folder)


class Driver:
    """Runs lumd on a shelf for as long as the block lasts; it is always ended with it."""

    def __init__(self, build, shelf, options=("--alarm-tests",), **environment):
        self.build = build
        self.shelf = shelf
        self.options = options
        self.environment = dict(os.environ, **environment)
        self.log = shelf.folder / "lumd.log"
        self.process = None

    def __enter__(self):
        self.log.write_text("")
        self.start()
        return self

    def __exit__(self, *_):
        self.kill()

    def start(self):
        with open(self.log, "a") as log:
            self.process = subprocess.Popen(
                [self.build / "lumd", "--config", self.shelf.description, *self.options],
                stdout=log, stderr=log, env=self.environment,
            )

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()

    def processor_seconds(self):
        """Of all its threads, those that have ended too."""
        return time.clock_gettime(~self.process.pid << 3 | 2)  # of another process: clock(3)

    def private_kilobytes(self):
        for line in pathlib.Path(f"/proc/{self.process.pid}/status").read_text().splitlines():
            if line.startswith("RssAnon:"):
                return int(line.split()[1])
        return None

    def lumctl(self, *arguments):
        """What a command prints; an error when it fails."""
        environment = dict(os.environ, LUMD_SOCKET=str(self.shelf.socket), COLUMNS="130")
        done = subprocess.run(
            [self.build / "lumctl", *arguments],
            env=environment, capture_output=True, text=True, check=False, timeout=20,
        )
        if done.returncode != 0:
            raise RuntimeError(done.stderr.strip() or f"lumctl ended with {done.returncode}")
        return done.stdout

    def get(self, target):
        """The driver's answer to one question."""
        connection = UnixConnection(self.shelf.socket)
        try:
            connection.request("GET", target)
            answer = connection.getresponse()
            if answer.status != 200:
                raise RuntimeError(f"lumd refuses: {answer.read()}")
            return json.loads(answer.read())
        except (OSError, http.client.HTTPException, ValueError) as failed:
            raise RuntimeError(f"lumd does not answer: {failed}") from failed
        finally:
            connection.close()

    def ports(self):
        """The view of every port of the description, by its name."""
        return {view["name"]: view for view in self.get("/v1/ports")["ports"]}

    def wait_for(self, condition, seconds):
        """Looks at the ports until the condition holds; returns them, or None when it never did."""
        deadline = time.monotonic() + seconds
        while True:
            try:
                ports = self.ports()
                if condition(ports):
                    return ports
            except RuntimeError:
                if self.process.poll() is not None:
                    raise RuntimeError(f"lumd ended: {self.log.read_text().strip()}") from None
            if time.monotonic() > deadline:
                return None
            time.sleep(0.03)

    def stop(self, seconds):
        """Asks the driver to stop; returns its exit status, or None when it did not."""
        self.process.send_signal(signal.SIGTERM)
        try:
            return self.process.wait(seconds)
        except subprocess.TimeoutExpired:
            return None
