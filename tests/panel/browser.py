"""A headless Chromium that looks at the page of a driver."""

import fcntl
import json
import os
import pathlib
import shutil
import socket
import subprocess
import tempfile
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys  # noqa: F401

HERE = pathlib.Path(__file__).resolve().parent
LAPTOP = (1366, 768)
PHONE = (390, 844)


def free_port():
    """A TCP port that nobody has at the moment."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


NOT_AGAIN_FOR = 900  # seconds: longer than the tests of one run take


def axe_source(build):
    """The accessibility checker, of the version in the lock file, fetched once into the build; None
    where npm cannot fetch it, which is not tried again for a quarter of an hour."""
    folder = build / "panel-axe"
    lock = (HERE / "package-lock.json").read_text()
    script = folder / "node_modules" / "axe-core" / "axe.min.js"
    with open(build / "panel-axe.lock", "w") as others:
        fcntl.flock(others, fcntl.LOCK_EX)
        missing = folder / "cannot-be-fetched"
        if missing.exists() and time.time() - missing.stat().st_mtime < NOT_AGAIN_FOR:
            return None
        try:
            fetch_axe(folder, lock, script)
        except (subprocess.SubprocessError, OSError) as why:
            missing.write_text(str(why))
            return None
    return script.read_text()


def fetch_axe(folder, lock, script):
    if not script.exists() or (folder / "package-lock.json").read_text() != lock:
        folder.mkdir(exist_ok=True)
        for name in ("package.json", "package-lock.json"):
            shutil.copy(HERE / name, folder / name)
        subprocess.run(["npm", "ci", "--no-audit", "--no-fund", "--ignore-scripts"], cwd=folder,
                       check=True, capture_output=True, timeout=120)


class Browser:
    """Everything it asks for, and everything it complains of, is on record."""

    def __init__(self):
        self.profile = tempfile.TemporaryDirectory(prefix="lum-browser-")
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for word in ("--headless=new", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update",
                     "--force-color-profile=srgb", "--lang=en-GB",
                     f"--user-data-dir={self.profile.name}"):
            options.add_argument(word)
        if os.geteuid() == 0:
            options.add_argument("--no-sandbox")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.driver = webdriver.Chrome(
            service=Service("/usr/bin/chromedriver", log_path=os.devnull), options=options)
        self.driver.set_script_timeout(120)
        self.look()

    def close(self):
        self.driver.quit()
        self.profile.cleanup()

    def look(self, size=LAPTOP, dark=False, still=True):
        """How large the window is, and what the viewer prefers."""
        width, height = size
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [
            {"name": "prefers-color-scheme", "value": "dark" if dark else "light"},
            {"name": "prefers-reduced-motion", "value": "reduce" if still else "no-preference"}]})

    def open(self, address):
        self.driver.get("about:blank")
        self.forget()
        self.driver.get(address)

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def one(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def text(self, selector):
        """What it says, in one go: the page may put another in its place meanwhile."""
        return self.run("return document.querySelector(arguments[0])?.innerText ?? null", selector)

    def says(self, selector, what):
        """Whether it is there and has this among what it says."""
        return what in (self.text(selector) or "")

    def attribute(self, selector, name):
        return self.run("return document.querySelector(arguments[0])?.getAttribute(arguments[1])",
                        selector, name)

    def wait(self, condition, seconds=20):
        """Whether the condition has come to hold."""
        deadline = time.monotonic() + seconds
        while not condition():
            if time.monotonic() > deadline:
                return False
            time.sleep(0.05)
        return True

    def forget(self):
        self.driver.get_log("browser")
        self.driver.get_log("performance")

    def complaints(self):
        """What the console has said since the last time it was asked."""
        return [line["message"] for line in self.driver.get_log("browser")
                if line["level"] in ("SEVERE", "WARNING")]

    def requests(self):
        """The addresses that the page has asked for since the last time."""
        messages = (json.loads(line["message"])["message"]
                    for line in self.driver.get_log("performance"))
        return [message["params"]["request"]["url"] for message in messages
                if message["method"] == "Network.requestWillBeSent"]

    def picture(self, file):
        self.driver.save_screenshot(str(file))
