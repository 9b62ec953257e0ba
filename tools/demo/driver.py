"""The driver as a process, and its command line."""

import json
import os
import signal
import subprocess
import time


class Driver:
    """Runs lumd on a shelf for as long as the block lasts; it is always ended with it."""

    def __init__(self, build, shelf, options=("--alarm-tests",)):
        self.build = build
        self.shelf = shelf
        self.options = options
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
                stdout=log, stderr=log,
            )

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()

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

    def ports(self):
        """The view of every port of the description, by its name."""
        views = json.loads(self.lumctl("show", "ports", "--all", "--json"))["ports"]
        return {view["name"]: view for view in views}

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
            time.sleep(0.2)

    def stop(self, seconds):
        """Asks the driver to stop; returns its exit status, or None when it did not."""
        self.process.send_signal(signal.SIGTERM)
        try:
            return self.process.wait(seconds)
        except subprocess.TimeoutExpired:
            return None
