"""The page in a browser, on a driver of its own for each test."""

import pathlib
import re
import signal
import subprocess
import sys
import time
import unittest

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent / "client")]

import browser  # noqa: E402
import drawing  # noqa: E402
import support  # noqa: E402
from shelf import cages  # noqa: E402

FLAG_BYTE = 10  # of the lower page; these bits of it turn the LED to fault
FLAG_BITS = 0x02
POWER_0 = 18  # the word of sub-port 0's first power
KINDS = ("iivi-old-map", "accelink-old-map", "iivi-new-map", "accelink-new-map")
LAPTOPS = ((1366, 768), (1280, 800), (1280, 720))
FAINT_POWER = (0xFB, 0x51)  # -12 dBm


def cage_of(cage):
    """Where the shelf shows it."""
    return f'.cage[href="#/port/{cage.name.replace("/", "%2F")}"]'


class Panel(support.ShelfTest):
    """One browser for all tests of a class; what it complained of fails the test."""

    @classmethod
    def setUpClass(cls):
        cls.browser = browser.Browser()
        cls.addClassCleanup(cls.browser.close)

    def setUp(self):
        super().setUp()
        self.port = browser.free_port()
        self.browser.look()

    def tearDown(self):
        self.browser.driver.get("about:blank")
        super().tearDown()

    def open(self, view="", **options):
        """The page on a driver that has been started on the shelf."""
        self.start(extra=f"http_port = {self.port}", **options)
        self.browser.open(f"{self.origin()}/{view}")

    def origin(self):
        return f"http://127.0.0.1:{self.port}"

    def shows(self, condition, seconds=20):
        self.assertTrue(self.browser.wait(condition, seconds), self.browser.text("body")[-600:])

    def look_of(self, cage):
        return self.browser.attribute(cage_of(cage), "data-look")

    def led_of(self, cage):
        return self.browser.attribute(f"{cage_of(cage)} .led", "data-led")

    def becomes(self, cage, look, led=None):
        self.shows(lambda: self.look_of(cage) == look
                   and (led is None or self.led_of(cage) == led))

    def assert_clean(self):
        """Nothing was complained of, and nothing was asked of anybody else."""
        self.assertEqual(self.browser.complaints(), [])
        foreign = [address for address in self.browser.requests()
                   if not address.startswith((self.origin() + "/", "about:"))]
        self.assertEqual(foreign, [])

    def assert_accessible(self, within="html"):
        checker = browser.axe_source(support.BUILD)
        if checker is None:
            print("accessibility was not looked at: npm cannot fetch axe-core", flush=True)
            return
        self.browser.run(checker)
        found = self.browser.driver.execute_async_script(
            "const [within, done] = arguments;"
            "axe.run(within).then((all) => done(all.violations.map((one) =>"
            "  [one.id, one.help, one.nodes.map((node) => node.html.slice(0, 200))])))", within)
        self.assertEqual(found, [])


class Shelf(Panel):
    def test_comes_up_on_a_shelf_of_all_kinds(self):
        """Modules of every kind, an empty and a failing cage: accessible, light, dark and narrow."""
        filled = [self.add_module(kind, slot) for slot in (1, 2) for kind in KINDS]
        empty = self.add_empty()
        failing = self.add_module("accelink-new-map", slot=2, faults="refuse-every=1,code=121")
        self.open()
        for cage in filled:
            self.becomes(cage, "up", "normal")
        self.becomes(empty, "empty", "fault")
        self.becomes(failing, "failing", "fault")
        self.shows(lambda: self.browser.attribute(".health", "data-status") == "critical")
        self.assertIn("LUM CRITICAL - port 0/2/0/5 failing", self.browser.text(".health"))
        self.assertEqual(self.browser.text("#head .live"), "live")
        order = [cage.get_attribute("href").split("#")[1] for cage in self.browser.all(".cage")]
        self.assertEqual(order, [f"/port/0%2F{slot}%2F0%2F{port}"
                                 for slot in (1, 2) for port in range(1, 6)])
        self.assertIn("-3.20", self.browser.text(cage_of(filled[0])))
        self.assertIn("OAP-2B-AA1", self.browser.text(cage_of(filled[0])))
        self.assert_accessible()
        self.browser.look(browser.PHONE, dark=True)
        self.assert_accessible()
        self.assertLessEqual(self.browser.run("return document.body.scrollWidth"), 390)
        self.assert_clean()

    def test_an_alarm_turns_the_led_red_and_back(self):
        quiet, alarmed = self.add_file(), self.add_file()
        self.open()
        self.becomes(alarmed, "up", "normal")
        cages.poke(alarmed.module, FLAG_BYTE, FLAG_BITS)
        self.becomes(alarmed, "up", "fault")
        self.assertEqual(self.led_of(quiet), "normal")
        red = 'return getComputedStyle(document.querySelector(arguments[0])).backgroundColor'
        self.assertEqual(self.browser.run(red, f"{cage_of(alarmed)} .led"), "rgb(224, 37, 31)")
        self.shows(lambda: self.browser.says(".events", "alarm flag-10 raised"))
        self.assertIn("alarms: flag-10", self.browser.attribute(cage_of(alarmed), "aria-label"))
        cages.poke(alarmed.module, FLAG_BYTE, 0)
        self.becomes(alarmed, "up", "normal")
        self.shows(lambda: self.browser.says(".events", "flag-10 cleared"))
        self.assert_clean()

    def test_states_look_different_without_their_colours(self):
        well, empty = self.add_module("iivi-new-map"), self.add_empty()
        failing = self.add_module("iivi-new-map", faults="refuse-every=1,code=121")
        hung = self.add_file(slot=3)
        self.open()
        self.becomes(well, "up")
        self.becomes(hung, "up")
        self.addCleanup(self.hang(hung).unlink)
        self.becomes(empty, "empty")
        self.becomes(failing, "failing")
        self.becomes(hung, "hung")
        drawn = {self.browser.run(
            "const cage = document.querySelector(arguments[0]);"
            "const style = getComputedStyle(cage);"
            "return [style.borderStyle, cage.querySelector('.sign').innerHTML,"
            "        cage.querySelector('.state').textContent].join()", cage_of(cage))
            for cage in (well, empty, failing, hung)}
        self.assertEqual(len(drawn), 4, drawn)
        self.assertIn("a transfer has not ended", self.browser.attribute(cage_of(hung), "title"))
        self.assert_accessible()
        self.assert_clean()

    def test_a_node_that_is_not_polled(self):
        """What was never read is a dash; what stands still says so, and why."""
        cage = self.add_module("iivi-new-map")
        self.open(held=True)
        self.becomes(cage, "unpolled")
        self.assertIn("–", self.browser.text(f"{cage_of(cage)} .bars"))
        self.driver.go_on_polling()
        self.becomes(cage, "up")
        self.assertEqual(self.browser.text("#notice"), "")
        self.driver.pause.touch()
        self.shows(lambda: self.browser.says("#notice", "No module is polled"), 40)
        self.assertIn("switched off", self.browser.text("#notice"))
        self.assert_clean()

    def test_the_driver_goes_and_comes_back(self):
        cage = self.add_module("iivi-new-map")
        self.open()
        self.becomes(cage, "up", "normal")
        self.driver.kill()
        self.shows(lambda: self.browser.text("#head .live") == "not live")
        self.assertIn("Not live since", self.browser.text("#notice"))
        self.assertEqual(self.look_of(cage), "up")
        self.driver.start()
        self.shows(lambda: self.browser.text("#head .live") == "live")
        self.assertEqual(self.browser.text("#notice"), "")
        self.shows(lambda: (self.browser.text(".events") or "").count("start") == 2)
        self.becomes(cage, "up", "normal")

    def test_nothing_is_asked_while_nobody_looks(self):
        cage = self.add_module("iivi-new-map")
        self.open()
        self.becomes(cage, "up", "normal")
        self.browser.run("Object.defineProperty(document, 'visibilityState',"
                         " {configurable: true, value: 'hidden'});"
                         "document.dispatchEvent(new Event('visibilitychange'))")
        time.sleep(1)
        self.browser.forget()
        self.driver.poll_once_more()
        self.driver.poll_once_more()
        time.sleep(6)
        self.assertEqual(self.browser.requests(), [])
        self.browser.run("delete document.visibilityState;"
                         "document.dispatchEvent(new Event('visibilitychange'))")
        self.shows(lambda: any("v1/shelf" in one for one in self.browser.requests()))

    def test_a_power_off_what_is_usual_is_marked(self):
        """What is usual is not claimed before there are samples enough to tell."""
        cage = self.add_file()
        self.open()
        bar = f"{cage_of(cage)} .bars .row:not(.heads) .bar"
        self.shows(lambda: self.browser.attribute(bar, "data-is") == "alone")
        self.shows(lambda: self.browser.says(".legend", "not known yet what is usual"))
        self.assertIn("what is usual is not known yet of 4",
                      self.browser.attribute(cage_of(cage), "aria-label"))
        self.shows(lambda: self.browser.attribute(bar, "data-is") == "usual", 90)
        self.assertNotIn("not known yet", self.browser.text(".legend"))
        for place, value in enumerate(FAINT_POWER):
            cages.poke(cage.module, POWER_0 + place, value)
        self.shows(lambda: self.browser.attribute(bar, "data-is") == "low")
        self.assertEqual(self.browser.text(f"{bar} .value"), "-12.00")
        self.assert_clean()

    def test_ports_on_their_way(self):
        cage = self.add_module("iivi-new-map")
        self.open()
        self.becomes(cage, "up")
        self.driver.lumctl("im", "hold", "on")
        self.ask("port", "delete", cage.name)
        self.becomes(cage, "deleting")
        self.driver.lumctl("im", "hold", "off")
        self.becomes(cage, "absent")
        self.driver.lumctl("im", "hold", "on")
        self.ask("port", "create", "1")
        self.becomes(cage, "coming-up")
        self.assert_accessible()
        self.driver.lumctl("im", "hold", "off")
        self.becomes(cage, "up")
        self.assert_clean()

    def ask(self, *words):
        """Asks for something that waits, and goes on."""
        asking = subprocess.Popen(
            [support.LUMCTL, "--socket", self.shelf.socket, *words],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(asking.wait)
        self.addCleanup(asking.kill)


class Crowd(Panel):
    def test_240_ports_fit_a_screen(self):
        for number in range(240):
            self.add_module(KINDS[number % 4], slot=number // 15)
        self.fits_a_laptop()
        print(drawing.told(240, drawing.measured(self.browser)))

    def test_240_ports_of_two_instances_a_slot_fit_a_screen(self):
        for number in range(240):
            cage = self.shelf.add_cage(number // 20, f"{number}.toml", "simulated",
                                       instance=number // 10 % 2)
            support.cages.copy_description(
                support.EXAMPLES / f"{KINDS[number % 4]}.toml", cage.module)
        self.fits_a_laptop()

    def fits_a_laptop(self):
        self.start(extra=f"http_port = {self.port}")
        self.assertIsNotNone(self.driver.wait_for(lambda ports: all(
            port["state"] == "up" and port["sub_ports"][0]["readings"]
            for port in ports.values()), 60))
        begun = time.monotonic()
        self.browser.open(self.origin())
        self.shows(lambda: len(self.browser.all('.cage[data-look="up"]')) == 240)
        print(f"240 ports were drawn {time.monotonic() - begun:.2f} s after they were asked for")
        for size in LAPTOPS:
            self.browser.look(size)
            self.shows(lambda: self.browser.run(
                "const rack = document.querySelector('.rack');"
                "const within = rack.getBoundingClientRect();"
                "return document.documentElement.scrollHeight <= innerHeight"
                "  && [...document.querySelectorAll('.cage')].every((cage) => {"
                "    const box = cage.getBoundingClientRect();"
                "    const last = cage.querySelector('.bars').getBoundingClientRect();"
                "    return box.right <= within.right && box.bottom <= within.bottom"
                "      && last.bottom <= box.bottom; })"), 5)
            self.assertIn("OAP-2B-AA1", self.browser.text(".cage"), size)
        self.assert_accessible(".slot:first-child")
        self.assert_clean()

    def test_2_ports_are_large(self):
        first, second = self.add_module("iivi-new-map"), self.add_module("iivi-new-map")
        self.open()
        self.becomes(first, "up")
        self.becomes(second, "up")
        for size in LAPTOPS:
            self.browser.look(size)
            self.shows(lambda: self.browser.run(
                "const box = document.querySelector(arguments[0]).getBoundingClientRect();"
                "return box.width >= 380 && box.height >= 170", cage_of(second)), 5)


class Views(Panel):
    def test_a_port_tells_all_of_itself(self):
        cage = self.add_module("iivi-alarm")
        self.add_module("iivi-new-map")
        self.open("#/port/0%2F1%2F0%2F1")
        self.shows(lambda: self.browser.says("[data-part=alarms]", "flag-10"))
        self.shows(lambda: "has raised its flag in byte 10" in
                   self.browser.text("[data-part=alarms]"))
        self.assertIn("IV25B00232", self.browser.text("[data-part=identity]"))
        self.assertIn("-31.40", self.browser.text("[data-part=readings]"))
        self.shows(lambda: self.browser.says("[data-part=bins]", "samples"))
        self.assertRegex(self.browser.text("[data-part=transfers]"), r"Transfers\s+\d+")
        self.shows(lambda: self.browser.says(".events", "alarm flag-10 raised"))
        self.assertIn(f"lumctl set {cage.name}:0 threshold=", self.browser.text("main"))
        self.assertIn("#/port/0%2F1%2F0%2F2",
                      self.browser.attribute(".step:last-of-type", "href") or "")
        self.browser.one(".ask").click()
        self.shows(lambda: "has not been asked" not in
                   self.browser.run("return document.querySelector('main').textContent"))
        self.assert_accessible()
        self.browser.look(browser.PHONE, dark=True)
        self.assert_accessible()
        self.assertLessEqual(self.browser.run("return document.body.scrollWidth"), 390)
        self.assertEqual(self.browser.complaints(), [])

    def test_an_empty_cage_has_no_part(self):
        self.add_empty()
        self.open("#/port/0%2F1%2F0%2F1")
        identity = "[data-part=identity]"
        self.shows(lambda: self.browser.says(identity, "none: the cage is empty"))
        self.assertNotIn("not known", self.browser.text(identity))
        self.assertIn("there is no module to measure", self.browser.text("[data-part=readings]"))
        self.assertIn("No history is kept of temperature and supply",
                      self.browser.text(".history"))
        self.assert_accessible()
        self.assert_clean()

    def test_the_node_tells_all_of_itself(self):
        self.add_module("iivi-alarm")
        self.open("#/node")
        self.shows(lambda: self.browser.says("[data-part=health]", "alarm-raised"))
        self.assertEqual(
            self.browser.text("[data-part=health] .line"),
            support.run(support.LUMCTL, "--socket", self.shelf.socket, "check").stdout
            .split(" | ")[0])
        self.shows(lambda: self.browser.says("[data-part=store]", "checkpoints.db"))
        self.assertIn("Batches", self.browser.text("[data-part=manager]"))
        self.assertIn("lum_error", self.browser.text("[data-part=traces]"))
        self.shows(lambda: self.browser.says(".events", "alarm flag-10 raised"))
        self.assert_accessible()
        self.assert_clean()

    def test_times_are_the_viewers_or_utc(self):
        self.add_module("iivi-new-map")
        self.browser.driver.execute_cdp_cmd("Emulation.setTimezoneOverride",
                                            {"timezoneId": "Asia/Kathmandu"})
        self.addCleanup(self.browser.driver.execute_cdp_cmd, "Emulation.setTimezoneOverride",
                        {"timezoneId": ""})
        oldest = ".events li:last-child time"
        self.open()
        self.shows(lambda: self.browser.text(oldest))
        told = self.browser.attribute(oldest, "datetime")
        own = self.browser.text(oldest)
        self.assertEqual(own[-5:], self.browser.run(
            "return new Date(Date.parse(arguments[0]) + 20700000).toISOString().slice(14, 19)",
            told))
        self.browser.one(".zone").click()
        self.shows(lambda: (self.browser.text(oldest) or "").endswith("UTC"))
        self.assertIn(told[11:19], self.browser.text(oldest))
        self.browser.one(".zone").click()

    def test_module_texts_are_no_markup(self):
        cage = self.add_module("iivi-new-map", part="<img src=x>", vendor="<b>II-VI</b>",
                               serial="<script>1/*")
        self.open()
        self.shows(lambda: self.browser.says(cage_of(cage), "<img src=x>"))
        self.browser.run("location.hash = '#/port/0%2F1%2F0%2F1'")
        self.shows(lambda: self.browser.says("[data-part=identity]", "<script>1/*"))
        self.assertEqual(self.browser.run(
            "return document.querySelectorAll('main img, main b, main script').length"), 0)

    def test_the_shelf_is_walked_with_the_keyboard(self):
        first, second = self.add_module("iivi-new-map"), self.add_module("iivi-new-map")
        self.open()
        self.becomes(second, "up")
        self.browser.run("document.querySelector(arguments[0]).focus()", cage_of(first))
        self.browser.driver.switch_to.active_element.send_keys(browser.Keys.ARROW_RIGHT)
        self.browser.driver.switch_to.active_element.send_keys(browser.Keys.ENTER)
        self.shows(lambda: self.browser.text("h1") == second.name)


class Living(unittest.TestCase):
    """What `make shelf` starts."""

    def test_the_shelf_moves_until_it_is_stopped(self):
        shelf = subprocess.Popen(
            [sys.executable, support.SOURCE / "tools" / "demo", "--build", support.BUILD, "--stay"],
            stdout=subprocess.PIPE, text=True)
        self.addCleanup(shelf.stdout.close)
        self.addCleanup(shelf.kill)
        page = re.search(r"http://127\.0\.0\.1:\d+/", shelf.stdout.readline())[0]
        looking = browser.Browser()
        self.addCleanup(looking.close)
        looking.open(page)
        powers = ("return [...document.querySelectorAll('.value')].map((one) => one.textContent)"
                  ".filter((text) => text !== '–').join()")
        self.assertTrue(looking.wait(lambda: looking.run(powers).count(",") > 30, 60))
        first = looking.run(powers)
        self.assertTrue(looking.wait(lambda: looking.run(powers) != first))
        self.assertEqual(len(looking.all('.led[data-led="fault"]')), 3)
        shelf.send_signal(signal.SIGINT)
        self.assertEqual(shelf.wait(15), 0)
        self.assertTrue(looking.wait(lambda: looking.text("#head .live") == "not live"))


if __name__ == "__main__":
    unittest.main()
