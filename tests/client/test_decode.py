"""Dumps of modules' memories, decoded without a driver."""

import json
import os
import pathlib
import subprocess
import unittest

import support
from support import BUILD, EXAMPLES, LUMCTL, run

IMAGE_TOOL = BUILD / "lum-module-image"
LOWER, PAGE = 128, 128


def position(page, offset):
    return offset if offset < LOWER else PAGE * page + offset


def in_hexadecimal(memory, page):
    """A page as `lumctl show module --page` prints it."""
    both = memory[:LOWER] + memory[position(page, 128):position(page, 128) + PAGE]
    lines = [f"Page {page}, the lower page first:"]
    for start in range(0, 256, 16):
        line = both[start:start + 16]
        text = "".join(chr(byte) if 0x20 <= byte < 0x7F else "." for byte in line)
        lines.append(f"  {start:3}  {line.hex(' '):<47}  {text}")
    return "\n".join(lines) + "\n"


class Dumps(support.ShelfTest):
    def setUp(self):
        super().setUp()
        self.dump = self.shelf.folder / "module.eeprom"
        self.make("iivi-old-map")

    def make(self, kind):
        subprocess.run([IMAGE_TOOL, EXAMPLES / f"{kind}.toml", self.dump], check=True)
        self.memory = bytearray(self.dump.read_bytes())

    def change(self, page, offset, *values):
        for i, value in enumerate(values):
            self.memory[position(page, offset + i)] = value
        self.dump.write_bytes(self.memory)

    def decode(self, source=None, content=None):
        """The document of a dump: a file's, or of what is piped into standard input."""
        if content is None:
            done = run(LUMCTL, "decode", source or self.dump, "--json")
        else:
            done = subprocess.run([LUMCTL, "decode", "-", "--json"], input=content,
                                  capture_output=True, check=False, timeout=30)
        self.assertEqual((done.returncode, done.stderr), (0, type(done.stderr)()), done)
        return json.loads(done.stdout)

    def refused(self, content):
        done = subprocess.run([LUMCTL, "decode", "-"], input=content,
                              capture_output=True, check=False, timeout=30)
        self.assertEqual((done.returncode, done.stdout), (1, b""), done)
        self.assertEqual(done.stderr.count(b"\n"), 1, done.stderr)
        return done.stderr.decode()

    def test_it_says_what_the_driver_shows_of_the_same_module(self):
        kinds = sorted(path.stem for path in EXAMPLES.glob("*.toml")
                       if "faults" not in path.read_text())
        self.assertGreater(len(kinds), 3)
        for kind in kinds:
            self.add_module(kind)
        # The firmware and the memory map are shown as the identity has them until the first poll.
        self.start(held=True)
        for cage, kind in zip(self.shelf.cages, kinds):
            self.make(kind)
            found = self.decode()
            shown = self.wait_for_state(cage, "up")
            for member in ("vendor", "new_memmap"):
                self.assertEqual(found[member], shown[member], (kind, member))
            for member in ("version", "text"):
                self.assertEqual(found["firmware"][member], shown["firmware"][member], kind)
        self.driver.poll_once()
        ports = self.driver.ports()
        for cage, kind in zip(self.shelf.cages, kinds):
            self.make(kind)
            found, shown = self.decode(), ports[cage.name]
            for member in ("temperature_c", "supply_v", "implausible", "flags", "flag_bytes", "raised"):
                self.assertEqual(found[member], shown[member], (kind, member))
            self.assertEqual(found["firmware"]["polled_text"], shown["firmware"]["text"], kind)
            for decoded, polled in zip(found["sub_ports"], shown["sub_ports"], strict=True):
                self.assertEqual(len(decoded["readings"]), 5)
                for member in ("sub_port", "readings", "status"):
                    self.assertEqual(decoded[member], polled[member], (kind, member))

    def test_the_text_has_what_the_document_has(self):
        self.change(0, 9, 0x01)
        said = run(LUMCTL, "decode", self.dump).stdout
        for part in ("II-VI", "0x18 QSFP-DD, CMIS", "temperature high alarm", "older memory map",
                     "page 0, byte 222 over 128 to 221: good", "Doubts:        none",
                     "Sub-port 1:", "power-0", "status bytes"):
            self.assertIn(part, said)

    def test_a_firmware_in_digits_is_told_both_ways(self):
        self.change(0, 39, 0x31, 0x37)
        self.change(0, 129, *b"ACCELINK        ")
        firmware = self.decode()["firmware"]
        self.assertEqual((firmware["text"], firmware["polled_text"]), ("1.07", "49.55"))
        self.assertIn("1.07, newer memory map, shown as 49.55 once polled",
                      run(LUMCTL, "decode", self.dump).stdout)

    def test_pages_as_they_are_printed_say_the_same(self):
        wanted = self.decode()
        printed = run(IMAGE_TOOL, "--dump", self.dump).stdout.encode()
        self.assertIn(b"page 3", printed)
        pages = "Port: 0/1/0/1\n" + "".join(in_hexadecimal(self.memory, page) for page in range(4))
        document = json.dumps({"pages": [
            {"number": page, "bytes": list(self.memory[:LOWER] + self.memory[position(page, 128):][:PAGE])}
            for page in range(4)]}, indent=2).encode()
        for layout, content in (("text", printed), ("text", pages.encode()),
                                ("text", pages.replace("\n", "\r\n").encode()), ("json", document)):
            found = self.decode(content=content)
            self.assertEqual(found.pop("layout"), layout)
            for member in set(wanted) - {"source", "layout"}:
                self.assertEqual(found[member], wanted[member], member)

    def test_what_the_driver_prints_of_a_page_is_a_dump(self):
        cage = self.add_module("iivi-new-map")
        self.start()
        self.wait_for_state(cage, "up")
        command = (LUMCTL, "--socket", self.shelf.socket, "show", "module", cage.name, "--page", "0")
        for more in ((), ("--json",)):
            found = self.decode(content=run(*command, *more).stdout.encode())
            self.assertEqual(found["vendor"]["name"], self.driver.ports()[cage.name]["vendor"]["name"])
            self.assertEqual(found["pages"], [0])
            self.assertEqual(found["missing"], ["page 1", "page 3"])
            self.assertIsNone(found["vendor"]["extra_code"])

    def test_a_short_dump_says_what_is_there_and_what_is_not(self):
        whole = self.decode()
        found = self.decode(content=bytes(self.memory[:LOWER]))
        self.assertEqual(found["missing"], ["page 0", "page 3"])
        self.assertEqual(found["temperature_c"], whole["temperature_c"])
        self.assertEqual(found["sub_ports"][0]["readings"], whole["sub_ports"][0]["readings"])
        self.assertEqual(found["sub_ports"][0]["status"], [])
        self.assertIsNone(found["vendor"]["name"])
        self.assertIsNone(found["firmware"]["text"])
        self.assertIsNone(found["new_memmap"])
        self.assertEqual([check["good"] for check in found["checksums"]], [None] * 3)

        found = self.decode(content=bytes(self.memory[:17]))
        self.assertEqual(found["missing"], ["part of the lower page", "page 0", "page 3"])
        self.assertEqual(found["temperature_c"], whole["temperature_c"])
        self.assertIsNone(found["supply_v"])
        self.assertIsNone(found["flags"])
        self.assertEqual(found["sub_ports"][0]["readings"], [])
        self.assertEqual(found["doubts"], [])

    def test_a_dump_of_any_length_is_decoded(self):
        for length in range(1, len(self.memory), 7):
            self.assertEqual(self.decode(content=bytes(self.memory[:length]))["bytes"], length)
        longest = bytes(257 * 128) + b"\1" * 5
        self.assertEqual(self.decode(content=longest)["bytes_behind"], 5)

    def test_checksums_are_those_of_the_identifier(self):
        def checks():
            return {check["name"]: check["good"] for check in self.decode()["checksums"]}

        self.assertEqual(checks()["page 0"], True)
        self.change(0, 150, self.memory[position(0, 150)] ^ 1)
        self.assertEqual(checks()["page 0"], False)
        self.assertIn("page 0, byte 222 over 128 to 221: wrong: the sum is 0x",
                      run(LUMCTL, "decode", self.dump).stdout)
        self.change(0, 2, 0x80)  # no other pages
        self.assertEqual(set(checks()), {"page 0"})

        self.change(0, 0, 0x11)
        self.change(0, 128, 0x11)
        base, extension = sum(self.memory[128:191]) % 256, sum(self.memory[192:223]) % 256
        self.change(0, 191, base)
        self.change(0, 223, extension ^ 0xFF)
        self.assertEqual(checks(), {"page 0 base": True, "page 0 extension": False})

        self.change(0, 0, 0xEE)
        self.change(0, 128, 0xEE)
        self.assertEqual(checks(), {})
        self.assertIn("not checked, no standard is known",
                      run(LUMCTL, "decode", self.dump).stdout)

    def test_a_page_of_zeros_is_not_called_good(self):
        self.change(1, 128, *bytes(PAGE))
        check = self.decode()["checksums"][1]
        self.assertEqual((check["name"], check["blank"], check["good"]), ("page 1", True, None))

    def test_what_no_module_can_have_is_doubted(self):
        self.assertEqual(self.decode()["doubts"], [])
        self.change(0, 14, 0x7F, 0xFF)
        self.change(0, 18, 0x0F, 0xFF)
        self.change(0, 128, 0x19)
        self.change(0, 130, 0x1B)
        found = self.decode()
        self.assertEqual(found["implausible"], ["temperature_c"])
        self.assertEqual(len(found["doubts"]), 4)
        self.assertIn("power-0 of sub-port 0", found["doubts"][3])

    def test_nothing_in_a_module_steers_the_terminal(self):
        self.change(0, 129, *b"\x1b[2J\x07\xc2\x9b31m\x7f  ABC")
        said = run(LUMCTL, "decode", self.dump).stdout
        self.assertFalse([c for c in said if ord(c) < 0x20 and c != "\n" or 0x7F <= ord(c) < 0xA0])
        self.decode()

    def test_what_is_no_dump_is_refused(self):
        self.assertIn("is empty", self.refused(b""))
        self.assertIn("text without a page", self.refused(b"hello\nworld\n"))
        self.assertIn("not valid JSON", self.refused(b'{"page": '))
        self.assertIn('no "page"', self.refused(b'{"ports": []}'))
        self.assertIn("without 256 bytes", self.refused(b'{"page": {"number": 3, "bytes": [1]}}'))
        self.assertIn("0 to 255", self.refused(b'{"page": {"number": 256, "bytes": []}}'))
        self.assertIn("longer than", self.refused(bytes(5 * 1024 * 1024)))
        for file, why in (("/nowhere/x", "No such file"), (self.shelf.folder, "Is a directory")):
            done = run(LUMCTL, "decode", file)
            self.assertEqual(done.returncode, 1)
            self.assertIn(f"{file} cannot be read: {why}", done.stderr)
        for broken in (b"Page 3\n  300  18\n", b"Page 999, the lower page first:\n  0  18\n",
                       b"page 3\n  128 18\n", b"page 3\n128  zz\n"):
            self.assertIn("text without a page", self.refused(broken))

    def test_it_asks_no_driver(self):
        done = run(LUMCTL, "decode", self.dump, "--socket", "/nowhere")
        self.assertEqual(done.returncode, 2)
        self.assertIn("has no option --socket", done.stderr)
        self.assertEqual(run(LUMCTL, "--json", "decode", self.dump).stdout,
                         run(LUMCTL, "decode", self.dump, "--json").stdout)


@unittest.skipUnless("LUM_MODULE_DUMPS" in os.environ, "LUM_MODULE_DUMPS names no folder")
class RealDumps(unittest.TestCase):
    def test_each_says_who_made_it(self):
        dumps = sorted(pathlib.Path(os.environ["LUM_MODULE_DUMPS"]).glob("*.eeprom"))
        self.assertTrue(dumps)
        for dump in dumps:
            done = run(LUMCTL, "decode", dump, "--json")
            self.assertEqual(done.returncode, 0, done.stderr)
            found = json.loads(done.stdout)
            self.assertEqual(found["missing"], [], dump)
            self.assertEqual(found["identifier"]["standard"], "CMIS", dump)
            self.assertTrue(found["vendor"]["name"], dump)
            self.assertEqual(found["implausible"], [], dump)
            self.assertTrue(all(check["good"] is not False for check in found["checksums"]
                                if check["page"] != 0), dump)
