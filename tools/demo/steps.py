"""The steps of a tour: each is told, checked, and ends the tour when it does not hold."""

import pathlib
import sys
import time


class StepFailed(Exception):
    pass


class Steps:
    def __init__(self):
        self.held = 0
        self.started = time.monotonic()

    def check(self, title, holds, why_not=""):
        seconds = time.monotonic() - self.started
        print(f"  [{seconds:5.1f} s] {'ok    ' if holds else 'FAILED'} {title}", flush=True)
        if not holds:
            raise StepFailed(f"{title}{': ' if why_not else ''}{why_not}")
        self.held += 1

    def say(self, text):
        print(text, flush=True)

    def finish(self):
        seconds = time.monotonic() - self.started
        print(f"Every one of {self.held} steps held, in {seconds:.0f} s.")


def report_failure(failure, folder):
    """Says why the tour ended, and what the driver had to say."""
    print(f"\nThe tour failed: {failure}", file=sys.stderr)
    log = pathlib.Path(folder) / "lumd.log"
    if log.exists():
        print(f"What the driver said:\n{log.read_text()}", file=sys.stderr)
