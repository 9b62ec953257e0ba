"""What stays as it is while the page is written anew, and what others make of what it shows."""

import json
import subprocess
import time
import urllib.parse

from test_panel import FLAG_BITS, FLAG_BYTE, POWER_0, Panel, cage_of, cages, support

ODD_NAMES = ("-x", "it's `id` $(id) \"a\" \\ *", "ñ ! ~ ; & | <b>")
AHEAD_S = 7200  # of the viewer's clock


class Keeping(Panel):
    def test_focus_and_scrolling_survive_updates(self):
        cage = self.add_file()
        self.browser.look((200, 500))  # narrower than the table
        self.open("#/port/0%2F1%2F0%2F1")
        table = "[data-part=readings] .wide"
        self.shows(lambda: self.browser.all(f"{table} tr:nth-child(3)"))
        self.browser.run(
            "const table = document.querySelector(arguments[0]);"
            "table.focus({ preventScroll: true }); table.scrollLeft = 30; scrollTo(0, 90);", table)
        where = ("const table = document.querySelector(arguments[0]);"
                 "return [document.activeElement === table, table.scrollLeft, scrollY]")
        self.assertEqual(self.browser.run(where, table), [True, 30, 90])
        for tenth in (0x50, 0x20):
            self.browser.run("window.before = document.querySelector(arguments[0])", table)
            cages.poke(cage.module, POWER_0 + 1, tenth)
            self.shows(lambda: self.browser.run(
                "return document.querySelector(arguments[0]) !== window.before", table))
            self.assertEqual(self.browser.run(where, table), [True, 30, 90])

    def test_focus_stays_with_its_event(self):
        for _ in range(12):
            self.add_module("iivi-alarm")
        pushing = self.add_file()
        self.open("#/node")
        self.shows(lambda: len(self.browser.all(".events a")) >= 24)
        number = self.browser.run(
            "const list = document.querySelector('.events');"
            "const link = list.querySelectorAll('a')[18];"
            "link.focus(); list.scrollTop = 120;"
            "return link.closest('li').dataset.number")
        cages.poke(pushing.module, FLAG_BYTE, FLAG_BITS)
        self.shows(lambda: self.browser.says(".events", f"{pushing.name}:0"))
        self.assertEqual(self.browser.run(
            "return [document.activeElement.closest('li').dataset.number,"
            "        document.querySelector('.events').scrollTop]"), [number, 120])

    def test_the_plot_goes_by_the_drivers_clock(self):
        self.add_module("iivi-new-map")
        script = self.browser.driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {
            "source": "const own = Date.now; Date.now = () => own() + " f"{1000 * AHEAD_S};"})
        self.addCleanup(self.browser.driver.execute_cdp_cmd,
                        "Page.removeScriptToEvaluateOnNewDocument", script)
        self.open("#/port/0%2F1%2F0%2F1")
        self.assertGreater(self.browser.run("return Date.now()") / 1000, time.time() + AHEAD_S - 60)
        self.shows(lambda: self.browser.says(".history", "the last 5 min"), 90)
        # The frame is there before what draws in it has come.
        self.shows(lambda: self.browser.run(
            "return typeof Chart !== 'undefined' && "
            "Chart.getChart(document.querySelector('.plot canvas'))?.data.datasets[0].data.length > 0"), 90)
        last = ("const set = Chart.getChart(document.querySelector('.plot canvas'));"
                "return [set.scales.x.max, set.data.datasets[0].data.at(-1).x]")
        first = self.browser.run(last)[1]
        self.shows(lambda: self.browser.run(last)[1] > first)
        for moment in self.browser.run(last):
            self.assertLess(abs(moment - time.time()), 60)

    def test_one_stream_is_left_of_many(self):
        cage = self.add_file()
        self.open()
        self.becomes(cage, "up", "normal")
        for state in ("hidden", "visible") * 4:
            self.browser.run(
                "Object.defineProperty(document, 'visibilityState',"
                " {configurable: true, value: arguments[0]});"
                "document.dispatchEvent(new Event('visibilitychange'))", state)
        self.driver.kill()
        self.shows(lambda: self.browser.text("#head .live") == "not live")
        self.driver.start()
        self.shows(lambda: self.browser.text("#head .live") == "live")
        cages.poke(cage.module, FLAG_BYTE, FLAG_BITS)
        self.shows(lambda: self.browser.says(".events", "alarm flag-10 raised"))
        numbers = self.browser.run("return [...document.querySelectorAll('.events li')]"
                                   ".map((one) => one.dataset.number)")
        self.assertEqual(sorted(numbers), sorted(set(numbers)))
        self.assertEqual(self.open_streams(), 1)

    def open_streams(self):
        """How many the page has asked for and neither given up nor seen the end of."""
        streams = set()
        for line in self.browser.driver.get_log("performance"):
            message = json.loads(line["message"])["message"]
            about = message["params"].get("requestId")
            if message["method"] == "Network.requestWillBeSent":
                if "v1/events?since" in message["params"]["request"]["url"]:
                    streams.add(about)
            elif message["method"] in ("Network.loadingFinished", "Network.loadingFailed"):
                streams.discard(about)
        return len(streams)

    def test_commands_are_quoted_for_a_shell(self):
        """What is copied means this port, whatever it is called, and nothing is carried out."""
        for _ in ODD_NAMES:
            self.add_module("iivi-new-map")

        def named(text):
            for number, name in enumerate(ODD_NAMES, 1):
                text = text.replace(f"handle = {number}\n",
                                    f"handle = {number}\nname = {json.dumps(name)}\n")
            return text

        self.start(extra=f"http_port = {self.port}", edit=named)
        for name in ODD_NAMES:
            self.browser.open(f"{self.origin()}/#/port/{urllib.parse.quote(name, safe='')}")
            self.shows(lambda: len(self.browser.all("td .command")) > 0)
            self.assertEqual(self.browser.text("h1"), name)
            commands = self.browser.run("return [...document.querySelectorAll('.command code')]"
                                        ".map((one) => one.textContent)")
            for command in commands:
                said = subprocess.run(
                    ["sh", "-c", f"lumctl() {{ printf '%s\\0' \"$@\"; }}\n{command}"],
                    capture_output=True, text=True, check=True, timeout=10).stdout.split("\0")
                self.assertTrue({name, f"{name}:0", f"{name}:1"} & set(said), command)
            shown = next(one for one in commands if one.startswith("lumctl show port"))
            answer = subprocess.run(
                ["sh", "-c", f"lumctl() {{ '{support.LUMCTL}' \"$@\"; }}\n{shown}"],
                env={"LUMD_SOCKET": str(self.shelf.socket), "PATH": "/usr/bin:/bin"},
                capture_output=True, text=True, check=False, timeout=20)
            self.assertEqual((answer.returncode, answer.stderr), (0, ""), shown)
