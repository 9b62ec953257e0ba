"""Commands on terminals of their own."""

import fcntl
import os
import pty
import select
import struct
import termios
import time
import unittest


def has_terminals():
    try:
        for end in os.openpty():
            os.close(end)
    except OSError:
        return False
    return True


needs_a_terminal = unittest.skipUnless(has_terminals(), "there are no pseudo-terminals here")


class Terminal:
    """A command on a terminal of its own."""

    def __init__(self, *arguments, **environment):
        self.output = b""
        self.pid, self.master = pty.fork()
        if self.pid == 0:
            os.environ.update({"TERM": "xterm", "COLUMNS": "100", **environment})
            os.execvp(arguments[0], [str(argument) for argument in arguments])

    def resize(self, columns, rows):
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def echoes(self):
        """Whether the terminal shows what is typed, and hands it on line by line."""
        flags = termios.tcgetattr(self.master)[3]
        return bool(flags & termios.ECHO) and bool(flags & termios.ICANON)

    def type(self, text):
        os.write(self.master, text.encode())

    def read_until(self, condition, seconds):
        deadline = time.monotonic() + seconds
        while not condition(self.output) and time.monotonic() < deadline:
            if select.select([self.master], [], [], 0.1)[0]:
                try:
                    self.output += os.read(self.master, 65536)
                except OSError:
                    break
        return condition(self.output)

    def kill(self, number):
        os.kill(self.pid, number)

    def end(self):
        """Its wait status, once everything it has drawn is read."""
        self.read_until(lambda _: False, 5)
        os.close(self.master)
        return os.waitpid(self.pid, 0)[1]
