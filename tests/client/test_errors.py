"""Errors say what was tried, why it failed and what to do about it."""

import os
import resource
import shutil
import socket
import stat
import subprocess
import tempfile
import threading

import support
from actions import Actions
from support import LUMCTL, LUMD, run

NOBODY = 65534


class NoDriver(support.ShelfTest):
    """Whatever stands where a driver should."""

    def fails(self, *arguments, **how):
        done = subprocess.run([LUMCTL, *arguments], capture_output=True, text=True, check=False,
                              timeout=30, **how)
        self.assertEqual((done.returncode, done.stdout), (3, ""), done.stderr)
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        return done.stderr

    def listener(self, name):
        place = self.shelf.folder / name
        found = socket.socket(socket.AF_UNIX)
        self.addCleanup(found.close)
        found.bind(str(place))
        return found, place

    def test_nobody_is_there(self):
        listener, place = self.listener("abandoned.sock")
        listener.close()
        for socket_path, why in (("/nowhere/lumd.sock", "No such file or directory"),
                                 (self.shelf.folder / "no.sock", "No such file or directory"),
                                 (place, "Connection refused")):
            self.assertEqual(
                self.fails("--socket", socket_path, "show", "ports"),
                f"lumctl: no driver answers at {socket_path}: {why}. Is lumd running (systemctl "
                "status lumd)? Another socket: --socket or LUMD_SOCKET\n")

    def refused_to_nobody(self, place):
        """What a user without any right is told, be it one of ours or this one."""
        if os.geteuid() == 0:
            # It must be able to reach the program, whose folders may be closed.
            with tempfile.TemporaryDirectory(prefix="lum-") as folder:
                os.chmod(folder, 0o755)
                program = shutil.copy(LUMCTL, folder)
                done = subprocess.run([program, "--socket", place, "show", "node"], user=NOBODY,
                                      group=NOBODY, extra_groups=[], cwd="/", capture_output=True,
                                      text=True, check=False, timeout=30)
        else:
            done = run(LUMCTL, "--socket", place, "show", "node")
        self.assertEqual((done.returncode, done.stdout), (3, ""), done.stderr)
        return done.stderr

    def test_a_socket_that_another_may_open(self):
        listener, place = self.listener("closed.sock")
        listener.listen()
        os.chmod(self.shelf.folder, 0o755)
        os.chmod(place, 0o600 if os.geteuid() == 0 else 0)
        mode = stat.S_IMODE(place.stat().st_mode)
        owner = place.owner()
        said = self.refused_to_nobody(place)
        user = "nobody" if os.geteuid() == 0 else owner
        self.assertIn(f"lumctl: {user} may not open {place}: it has the owner {owner}", said)
        self.assertIn(f"the mode {mode:04o}", said)
        self.assertIn("root", said)

    def test_a_folder_that_another_may_enter(self):
        folder = self.shelf.folder / "closed"
        folder.mkdir()
        os.chmod(self.shelf.folder, 0o755)
        os.chmod(folder, 0o700 if os.geteuid() == 0 else 0)
        self.addCleanup(os.chmod, folder, 0o700)
        said = self.refused_to_nobody(folder / "lumd.sock")
        self.assertIn(f"may not open {folder / 'lumd.sock'}: the folder {folder} has the owner",
                      said)

    def test_one_that_does_not_answer_is_waited_for_as_long_as_was_said(self):
        listener, place = self.listener("silent.sock")
        listener.listen()
        for words in (("--timeout", "0.2", "show", "node"), ("show", "node", "--timeout", "0.2"),
                      ("port", "update", "west", "up", "--wait", "0.1", "--timeout=0.2")):
            said = self.fails("--socket", place, *words)
            self.assertIn(f"the driver at {place} has not answered within 0.", said)
            self.assertIn("--timeout SECONDS", said)

    def test_something_else_that_answers(self):
        listener, place = self.listener("other.sock")
        listener.listen()
        for answer in (b"220 mail.example.net ESMTP\r\n",
                       b"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n<a/>\n"):
            thread = threading.Thread(target=self.answer, args=(listener, answer))
            thread.start()
            said = self.fails("--socket", place, "show", "node")
            thread.join()
            self.assertIn(f"what answers at {place} is no driver", said)
            self.assertIn("--socket", said)

    @staticmethod
    def answer(listener, answer):
        connection, _ = listener.accept()
        with connection:
            connection.recv(65536)
            connection.sendall(answer)


class UnknownWords(support.ShelfTest):
    """A word that is not known is answered with the one that is most like it."""

    def usage(self, *arguments):
        done = run(LUMCTL, *arguments)
        self.assertEqual((done.returncode, done.stdout), (2, ""), done.stderr)
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        self.assertTrue(done.stderr.endswith("; try --help\n"), done.stderr)
        return done.stderr

    def test_commands(self):
        self.assertIn('no command "shwo" (did you mean "show"?)', self.usage("shwo", "ports"))
        self.assertIn('no command "show prots" (did you mean "ports"?)', self.usage("show", "prots"))
        self.assertIn('no command "im behaev" (did you mean "behave"?)', self.usage("im", "behaev"))
        said = self.usage("frobnicate")
        self.assertIn('no command "frobnicate", expected one of show, port, set,', said)
        self.assertNotIn("__complete", said)
        self.assertNotIn("did you mean", said)

    def test_a_missing_command(self):
        self.assertIn("a command is missing, expected one of show, port, set,", self.usage())
        self.assertIn('missing behind "show", expected one of ports, port, controllers,',
                      self.usage("show"))

    def test_options(self):
        self.assertIn('"show ports" has no option --jsno (did you mean "--json"?)',
                      self.usage("show", "ports", "--jsno"))
        self.assertIn('has no option --weit (did you mean "--wait"?)',
                      self.usage("port", "update", "west", "up", "--weit=3"))
        self.assertIn('lumctl has no option --sokcet (did you mean "--socket"?)',
                      self.usage("--sokcet", "x", "show", "ports"))
        self.assertIn("has no option -x", self.usage("show", "ports", "-x"))

    def test_one_word_too_many(self):
        self.assertIn('"show port" takes no further word, and "b" is one',
                      self.usage("show", "port", "a", "b"))

    def test_fixed_words(self):
        self.assertIn('"onn" is none of on, off (did you mean "on"?)',
                      self.usage("im", "hold", "onn"))
        self.assertIn('"15mni" is none of 15min, 24h (did you mean "15min"?)',
                      self.usage("show", "pm", "--bins", "15mni"))
        self.assertIn('no setting "treshold", expected one of threshold, ',
                      self.usage("set", "west", "treshold=1"))
        self.assertIn('(did you mean "threshold"?)', self.usage("set", "west", "treshold=1"))

    def test_numbers_out_of_their_range(self):
        self.assertIn('--wait: "50" is no number from 0 to 20',
                      self.usage("port", "create", "1", "--wait", "50"))
        self.assertIn('--wait: "nan" is no number from 0 to 20',
                      self.usage("port", "create", "1", "--wait", "nan"))
        self.assertIn('--timeout: "0" is no number from 0.1 to 3600',
                      self.usage("show", "ports", "--timeout", "0"))

    def test_options_of_lumd(self):
        done = run(LUMD, "--confg", "node.toml")
        self.assertEqual((done.returncode, done.stderr), (
            2, 'lumd: there is no option --confg (did you mean "--config"?); try --help\n'))

    def test_keys_of_descriptions(self):
        cage = self.add_module("iivi-old-map")
        self.shelf.write_description()
        text = self.shelf.description.read_text()
        self.shelf.description.write_text(text.replace("handle = 1", "hanlde = 1"))
        self.assertIn('(did you mean "handle"?)', run(LUMD, "--config", self.shelf.description).stderr)
        self.shelf.description.write_text(text)
        cage.module.write_text(cage.module.read_text().replace("serial =", "sereal ="))
        self.assertIn('(did you mean "serial"?)', run(LUMD, "--config", self.shelf.description).stderr)


class Refusals(Actions):
    def test_words_that_only_the_driver_knows(self):
        self.begin()
        name = self.first.name
        for words, hint in (
                (("inject", "alarm", f"{name}:0", "flga-13", "on"), "flag-13"),
                (("inject", "readings", f"{name}:0", "powr-1", "on"), "power-1"),
                (("im", "malform", "1", "garbag"), "garbage"),
                (("module", "fault", name, "flip-evry=2"), "flip-every")):
            self.assertIn(f'(did you mean "{hint}"?)', self.fails(1, *words))

    def test_an_unknown_port(self):
        self.begin()
        for words in (("show", "port"), ("show", "module"), ("show", "pm"), ("clear", "stats"),
                      ("port", "delete"), ("module", "release")):
            said = self.fails(1, *words, "0/1/0/22")
            self.assertIn('the node has no port "0/1/0/22" (did you mean "0/1/0/2"?); its ports '
                          "are 0/1/0/2, 0/1/0/1, 0/2/0/1", said)
        self.assertNotIn("did you mean", self.fails(1, "show", "port", "somewhere else"))
        said = self.fails(1, "inject", "alarm", "0/1/0/22:0", "all", "on")
        self.assertIn('(did you mean "0/1/0/2"?)', said)
        self.assertLess(len(self.fails(1, "show", "port", "x" * 2000)), 300)

    def test_of_many_ports_the_nearest_are_told(self):
        for _ in range(20):
            self.add_module("iivi-old-map", slot=3)
        self.start()
        said = self.fails(1, "show", "port", "0/3/0/99")
        self.assertIn('(did you mean "0/3/0/9"?); the nearest of its 23 ports are 0/3/0/9, 0/3/0/19',
                      said)
        self.assertEqual(said.count(", "), 7, said)

    def test_a_name_of_a_module_cannot_steer_the_terminal(self):
        self.begin()
        self.assertNotIn("\x1b", self.fails(1, "show", "port", "\x1b[2J"))


class Starting(support.ShelfTest):
    def refused(self, extra, status=1):
        self.add_module("iivi-old-map")
        self.shelf.write_description()
        text = self.shelf.description.read_text()
        self.shelf.description.write_text(extra + "\n" + text)
        done = run(LUMD, "--config", self.shelf.description)
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stderr

    def test_a_tcp_port_that_is_taken(self):
        with socket.create_server(("127.0.0.1", 0)) as taken:
            port = taken.getsockname()[1]
            said = self.refused(f"http_port = {port}")
        self.assertIn(f"lumd: cannot listen on 127.0.0.1:{port} (http_address and http_port in the description): "
                      "Address already in use.", said)
        self.assertIn(f"Another lumd or another program has it; \"ss -ltnp 'sport = :{port}'\"", said)

    def test_a_socket_that_is_taken(self):
        self.add_module("iivi-old-map")
        self.start()
        done = run(LUMD, "--config", self.shelf.description)
        self.assertEqual(done.returncode, 1)
        self.assertIn(f"lumd: {self.shelf.socket}: another driver answers on this socket", done.stderr)
        self.assertIn("api_socket", done.stderr)
        self.assertIn("--socket", done.stderr)


class FullDisk(Actions):
    def test_its_path_is_told(self):
        self.begin()
        self.does("set", self.first.name, "threshold=7")
        limit = (1024, resource.RLIM_INFINITY)
        resource.prlimit(self.driver.process.pid, resource.RLIMIT_FSIZE, limit)
        file = str(self.shelf.folder / "state" / "checkpoints.db")
        self.assertIn(file, self.fails(1, "set", self.second.name, "threshold=8"))
        deletion = run(LUMCTL, "--socket", self.shelf.socket, "port", "delete", self.first.name)
        self.assertEqual(deletion.returncode, 1)
        self.assertIn(file, deletion.stderr.splitlines()[-1])
