"""Traces, shown by port and place, from their files."""

import datetime
import json
import os
import subprocess
import time

import rings
import support
from actions import Actions
from support import BUILD, LUMCTL, run

FIRST = datetime.datetime(2026, 1, 31, 8, 0, 0)
SMALL = {"TZ": "UTC"}


def line(second, channel, point, message, area="lum_api", tag="LUM_INFO"):
    moment = FIRST + datetime.timedelta(seconds=second)
    return (f"{moment:%Y-%m-%dT%H:%M:%S.%f}Z [lumd] {channel} #{point} "
            f"[{area}][tid:4711]{tag}:{message}")


def known_points():
    """The area of each trace point, "-" of those that are free."""
    catalogue = BUILD / "platforms/common/optics/ots/lum_trace_catalogue.txt"
    rows = (row.split("\t") for row in catalogue.read_text().splitlines())
    return {int(row[0]): row[1] for row in rows}


class TraceTest(support.ShelfTest):
    """Each test has a folder of traces."""

    def setUp(self):
        super().setUp()
        self.folder = self.shelf.folder / "traces"
        self.folder.mkdir()

    def write(self, channel, *lines, rotated=False):
        file = self.folder / f"{channel}{'.1' if rotated else ''}.log"
        with open(file, "a", encoding="utf-8", errors="surrogateescape") as out:
            out.writelines(one + "\n" for one in lines)


class Files(TraceTest):
    """Traces that nobody writes any more."""

    def trace(self, *words):
        """The messages that are shown."""
        done = run(LUMCTL, "trace", "--directory", self.folder, "--json", *words, **SMALL)
        self.assertEqual((done.returncode, done.stderr), (0, ""), done)
        return [one["text"] for one in json.loads(done.stdout)["lines"]]

    def fails(self, status, *words):
        done = run(LUMCTL, "trace", *words)
        self.assertEqual((done.returncode, done.stdout), (status, ""), done)
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        return done.stderr

    def test_channels_and_rotated_files_are_one_row_in_time(self):
        self.write("lum_info", line(1, "lum_info", 5, "one"), rotated=True)
        self.write("lum_info", line(3, "lum_info", 5, "three"), line(3, "lum_info", 5, "four"))
        self.write("lum_error", line(2, "lum_error", 7, "two"), line(5, "lum_error", 7, "five"))
        self.assertEqual(self.trace(), ["one", "two", "three", "four", "five"])
        shown = run(LUMCTL, "trace", "--directory", self.folder).stdout.splitlines()
        self.assertEqual(shown[1], line(2, "lum_error", 7, "two"))

    def test_a_line_in_json_has_its_parts(self):
        self.write("lum_error", line(1.5, "lum_error", 14, "failed with rc 5 ", tag="LUM_ERR"))
        done = run(LUMCTL, "trace", "--directory", self.folder, "--json")
        self.assertEqual(json.loads(done.stdout), {"schema": 1, "lines": [{
            "time": "2026-01-31T08:00:01.500000Z", "channel": "lum_error", "process": "lumd",
            "point": 14, "area": "lum_api", "tid": 4711, "tag": "LUM_ERR",
            "text": "failed with rc 5 "}]})

    def test_lines_of_a_port_by_whatever_names_it(self):
        mine = [
            "rsip=0x10003 xcvr_disabled=0x0", "RSIP 0x10003 vendor is ACCELINK",
            "OTS controller create failed for rsip: (0x10003)", "Port Found for rsip=65539 lum_port_node_info=0x5",
            "if type:1 ifname Ots0_1_0_3_1 rsip:65539 port_handle:0x3",
            "[0x10003] new memmap: 1", "[recovered pending] [0x10003] with (chkpt_id= 0x7)",
            "checkpoint get for id 0x7, key 0x10003 returns 0 len 5",
            "chkpt_id 0x7 for 0x10003 already exist, no need to create",
            "saved chkpt entry for rsip [0x10003] with (chkpt_id= 0x1),            data ",
            "Going to Provision for rsip 0/1/0/3", "subport 1 RSIP 0/1/0/3, current th 5 is_th_raised 0",
            "iftype:1 rsip:0/1/0/3/1 ifname 'Ots0_1_0_3_1'", "controller replay r/s/i/p/s : 0/1/0/3/1 ",
            "proceeding with delete port R/S/I/P: 0/1/0/3", "Removed node for (0,1,0,3)",
            " delete port (0 1 0 3)", "done for rsip = (0 1 0 3)",
            "module unvailable for r: s: i: p: 0/1/0/3", "[0] port to be deleted 0/1/0/3",
            "controller op UPDATE for 0 1 0 3 failed, rc:0x5",
            "controller_create,rack,0,slot,1,instance,0,port,3,index,2",
            "intf-name[Ots0_1_0_3_0] test[1] alarm-id[2] status[1] RSIP[0:1:0:3:0] ",
            "Controller Created Intf_type 1 ifhandle 0x8000005 for rack 0 slot 1 inst 0 port 3",
            "Read failed for page 3 offset 80 for 0/3 rc 5",
            "Write page 2 offset b4 val 1 on 0/3 rc 0",
        ]
        others = [text.replace("0x10003", "0x10004").replace("65539", "65540").replace("0/1/0/3", "0/1/0/4")
                  .replace("0_1_0_3", "0_1_0_4").replace("0,1,0,3", "0,1,0,4").replace("0 1 0 3", "0 1 0 4")
                  .replace("0:1:0:3", "0:1:0:4").replace("port,3", "port,4").replace("port 3", "port 4")
                  .replace("0/3 rc", "0/4 rc").replace("0x8000005", "0x8000007") for text in mine]
        others += ["LUM_API: entry: R/S/I: 0/1/0/", "index 3 port_data: 0x10003",
                   "incorrect first Ifh in delete done for 0x10003", "size=65539",
                   "creating for 0x10003 bytes", "rc 0/1/0/3"]
        self.assertFalse(set(mine) & set(others))
        for number, (own, other) in enumerate(zip(mine + [""] * 6, others)):
            self.write("lum_info", line(2 * number, "lum_info", 5, own),
                       line(2 * number + 1, "lum_info", 5, other))
        self.assertEqual(self.trace("0/1/0/3"), mine)

    def test_a_handle_is_of_whom_it_was_given_to_last(self):
        self.write("lum_info",
                   line(1, "lum_info", 5, "index 0 ifh 0x8000005 changed bits [0x1]"),
                   line(2, "lum_info", 5, "Update ifh 0x8000005 for Ots0_1_0_3_0, rc 0"),
                   line(4, "lum_info", 5, "Create PM, PTAH ports for 8000005 with rc 0"),
                   line(5, "lum_info", 5, "Delete Oper: Ifhandle : 0x8000005"),
                   line(6, "lum_info", 5, "Create Oper: Ifhandle : 0x8000005, Ifname: Ots0_1_0_4_0"),
                   line(7, "lum_info", 5, "icpe delete cb operations:0x5 bulk count:1 first ifh :0x8000005"))
        self.write("lum_error",
                   line(3, "lum_error", 5, "Failed to get device for interface 8000005"),
                   line(8, "lum_error", 5, "incorrect first Ifh in delete done for 0x8000005"))
        self.assertEqual(self.trace("0/1/0/3"), [
            "Update ifh 0x8000005 for Ots0_1_0_3_0, rc 0", "Failed to get device for interface 8000005",
            "Create PM, PTAH ports for 8000005 with rc 0", "Delete Oper: Ifhandle : 0x8000005"])
        self.assertEqual(len(self.trace("0/1/0/4")), 3)

    def test_points_areas_and_channels(self):
        self.write("lum_info", line(1, "lum_info", 5, "a"), line(2, "lum_info", 120, "b", "lum_controller_interface"))
        self.write("lum_error", line(3, "lum_error", 120, "c", "lum_controller_interface"))
        self.assertEqual(self.trace("--point", "120"), ["b", "c"])
        self.assertEqual(self.trace("--area", "lum_api"), ["a"])
        self.assertEqual(self.trace("--channel", "lum_error"), ["c"])
        self.assertEqual(self.trace("--channel", "lum_info", "--point", "120"), ["b"])
        self.assertEqual(self.trace("--area", "lum_api", "--point", "120"), [])

    def test_what_nobody_knows_is_answered_with_the_nearest(self):
        place = ("--directory", self.folder)
        self.assertIn('did you mean "lum_controller_interface"',
                      self.fails(2, *place, "--area", "lum_controler_interface"))
        self.assertIn('did you mean "lum_error"', self.fails(2, *place, "--channel", "lum_eror"))
        known = known_points()
        free = next(number for number in known if known[number] == "-")
        below = max(number for number in known if number < free and known[number] != "-")
        self.assertIn(f"there is no trace point {free}, the nearest are {below} of {known[below]} and ",
                      self.fails(2, *place, "--point", str(free)))
        for point in ("0", "279", "4000000000", "-1", "x"):
            self.fails(2, *place, "--point", point)
        self.assertIn("no rack/slot/instance/port", self.fails(2, *place, "west"))

    def test_every_point_that_there_is_is_taken(self):
        self.write("lum_info", line(1, "lum_info", 5, "a"))
        for number, area in list(known_points().items())[::25]:
            if area != "-":
                self.trace("--point", str(number), "--area", area)

    def test_since(self):
        self.write("lum_info", *(line(second, "lum_info", 5, str(second)) for second in range(0, 180, 60)))
        for since in ("2026-01-31T08:01:00Z", "2026-01-31T08:01Z", "2026-01-31 08:01", "2026-01-31 08:00:00.5",
                      "2026-01-31T08:00:59.999999"):
            self.assertEqual(self.trace("--since", since), ["60", "120"], since)
        self.assertEqual(self.trace("--since", "2026-01-31"), ["0", "60", "120"])
        self.assertEqual(self.trace("--since", "10m"), [])
        self.assertEqual(self.trace("--since", "4000w"), ["0", "60", "120"])
        zone = run(LUMCTL, "trace", "--directory", self.folder, "--since", "2026-01-31 10:01", TZ="UTC-2")
        self.assertEqual(zone.stdout.count("\n"), 2)
        now = datetime.datetime.now(datetime.timezone.utc)
        with open(self.folder / "lum_info.log", "a", encoding="ascii") as out:
            for ago in (7200, 60):
                moment = now - datetime.timedelta(seconds=ago)
                out.write(f"{moment:%Y-%m-%dT%H:%M:%S.%f}Z [lumd] lum_info #5 [lum_api][tid:1]LUM_INFO:{ago} ago\n")
        for since in ("1h", "1h30m", "90min", "0.05d", "600s"):
            self.assertEqual(self.trace("--since", since), ["60 ago"], since)
        for wrong in ("10", "yesterdy", "2026-02-31", "25:00", "10m5", "-5m", "1e9d", "2026-01-31T08:00:00X"):
            self.assertIn("is no time, expected how long ago",
                          self.fails(2, "--directory", self.folder, f"--since={wrong}"))

    def test_files_may_hold_anything(self):
        torn = "\udcff\udcfe \x1b[2J\x07 no trace"
        self.write("lum_info", torn, line(1, "lum_info", 5, "a"), "x" * 3_000_000,
                   "2026-01-31T08:00:99.000000Z [lumd] lum_info #5 b", "2026-13-31T08:00:00.000000Z [lumd")
        with open(self.folder / "lum_info.log", "a", encoding="ascii") as out:
            out.write(line(2, "lum_info", 5, "without an end"))
        (self.folder / "lum_debug.log").write_bytes(bytes(range(256)) * 100)
        os.mkfifo(self.folder / "lum_periodic.log")
        done = subprocess.run([LUMCTL, "trace", "--directory", self.folder], capture_output=True, check=False, timeout=30)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"lum_periodic.log is no ordinary file", done.stderr)
        self.assertIn(b"without an end", done.stdout)
        self.assertFalse([byte for byte in done.stdout if byte < 0x20 and byte != 0x0A or byte == 0x7F])
        (self.folder / "lum_periodic.log").unlink()
        self.assertEqual(self.trace("--point", "5"), ["a", "without an end"])
        for words in ((), ("0/1/0/3",)):
            self.trace(*words)

    def test_a_folder_that_is_not_there(self):
        self.assertIn("/nowhere/traces", self.fails(1, "--directory", "/nowhere/traces"))
        self.assertEqual(self.trace(), [])

    def test_without_a_driver_the_description_says_where_they_are(self):
        self.add_module("iivi-old-map")
        self.shelf.write_description()
        text = self.shelf.description.read_text().replace("number = 1\nhandle", 'number = 1\nname = "west"\nhandle')
        self.shelf.description.write_text(text)
        self.write("lum_info", line(1, "lum_info", 5, "rsip=0x10001 a"), line(2, "lum_info", 5, "rsip=0x10002 b"))
        for port in ("west", "0/1/0/1"):
            done = run(LUMCTL, "trace", port, "--config", self.shelf.description)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            self.assertEqual(done.stdout, line(1, "lum_info", 5, "rsip=0x10001 a") + "\n")
        self.assertIn('has no port "wset" (did you mean "west"?)',
                      self.fails(1, "wset", "--config", self.shelf.description))
        said = self.fails(3, "--socket", "/nowhere/socket")
        for part in ("/nowhere/socket", "/etc/lumd/node.toml", "--config", "--directory"):
            self.assertIn(part, said)


class Following(TraceTest):
    """What is traced while somebody looks."""

    def follow(self, *words):
        process = subprocess.Popen([LUMCTL, "trace", "--directory", self.folder, "--follow", *words],
                                   stdout=subprocess.PIPE, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def rotate(self, channel):
        (self.folder / f"{channel}.log").replace(self.folder / f"{channel}.1.log")

    def test_over_rotations(self):
        self.write("lum_info", *(line(number, "lum_info", 5, f"old {number}") for number in range(20)))
        follower = self.follow()
        for number in range(10, 20):
            self.assertEqual(follower.stdout.readline(), line(number, "lum_info", 5, f"old {number}") + "\n")
        for number in range(30):
            self.write("lum_info", line(100 + number, "lum_info", 5, f"new {number}"))
            if number % 10 == 4:
                self.rotate("lum_info")
            if number % 7 == 3:
                self.assertTrue(follower.stdout.readline())
                time.sleep(0.3)
        self.write("lum_info", line(200, "lum_info", 5, "last"))
        rest = []
        while not rest or "last" not in rest[-1]:
            rest.append(follower.stdout.readline())
            self.assertTrue(rest[-1])
        self.assertEqual(len(rest) + 4, 31)
        self.assertEqual(rest, sorted(rest))

    def test_a_file_that_comes_later_and_the_rest_of_a_line(self):
        follower = self.follow("--json", "--channel", "lum_error")
        with open(self.folder / "lum_error.log", "a", encoding="ascii") as out:
            text = line(1, "lum_error", 5, "in two parts")
            out.write(text[:40])
            out.flush()
            time.sleep(0.5)
            out.write(text[40:] + "\n")
        self.assertEqual(json.loads(follower.stdout.readline())["text"], "in two parts")

    def test_since_says_where_it_begins(self):
        self.write("lum_info", *(line(number, "lum_info", 5, f"old {number}") for number in range(20)))
        follower = self.follow("--since", "2026-01-31T08:00:01Z")
        self.assertIn("old 1", follower.stdout.readline())


class Running(Actions):
    """The traces of a driver, which says where they are."""

    def test_a_port_s_lines_are_its_own(self):
        self.begin()
        self.does("port", "update", self.first.name, "up")
        self.does("port", "delete", self.second.name)
        mine, others = self.says("trace", self.first.name), self.says("trace", self.second.name)
        for name, other, lines in ((self.first, self.second, mine), (self.second, self.first, others)):
            self.assertIn(f"Ots0_{name.slot}_0_{name.port}_0", lines)
            self.assertNotIn(f"Ots0_{other.slot}_0_{other.port}_", lines)
            self.assertNotIn(f"rsip=0x{0x10000 * other.slot + other.port:x}\n", lines)
            self.assertIn("vendor name: II-VI", lines)
            self.assertIn("Create PM, PTAH ports for", lines)
        self.assertIn("ports DB delete done, rsip 0x10002", others)
        self.assertNotIn("ports DB delete done", mine)
        self.assertEqual(self.says("trace", self.first.name, "--since", "1h"), self.says("trace", "0/1/0/1", "--since", "1h"))
        self.assertIn("no port", self.fails(1, "trace", "0/1/0/9"))


class Killed(Actions):
    """The traces of a driver that had no time to write them."""

    def latest(self, *words):
        done = run(BUILD / "lum-trace", *words)
        self.assertEqual((done.returncode, done.stderr), (0, ""), done)
        return done.stdout.splitlines()

    def test_what_was_traced_last_is_in_the_rings_and_in_the_files_after_the_next_start(self):
        self.begin()
        folder = self.shelf.folder / "traces"
        self.does("port", "update", self.first.name, "up")
        self.driver.kill()
        last = self.latest("-n", "5", folder)
        self.assertEqual(len(last), 5)
        self.assertEqual(last, self.latest(folder)[-5:])
        self.start()
        written = "".join(file.read_text() for file in folder.glob("*.log"))
        for one in last:
            self.assertEqual(written.count(one + "\n"), 1, one)

    def test_lumctl_shows_what_the_files_do_not_have_yet_and_each_line_once(self):
        self.begin()
        folder = self.shelf.folder / "traces"
        self.driver.stop(10)
        shown = [LUMCTL, "trace", "--directory", folder, "--channel", "lum_info"]
        before = run(*shown).stdout
        rings.set_back(folder / "lum_info.ring")
        self.assertEqual(run(*shown).stdout, before)
        for file in folder.glob("lum_info*.log"):
            file.unlink()
        latest = run(*shown).stdout
        self.assertTrue(latest)
        self.assertTrue(before.endswith(latest))

    def test_what_is_no_ring_is_said(self):
        for place in (self.shelf.folder / "nowhere", "/dev/null", self.shelf.folder):
            done = run(BUILD / "lum-trace", place)
            self.assertEqual((done.returncode, done.stdout), (1, ""), done)
            self.assertEqual(done.stderr.count("\n"), 1, done)
