"""A service manager on a bus of its own, which answers what a unit lets in and nothing else."""

import contextlib
import socket
import struct
import threading

UNIT = "/org/freedesktop/systemd1/unit/lumd_2eservice"
ANYBODY = [(socket.AF_INET, bytes(4), 0), (socket.AF_INET6, bytes(16), 0)]
LOOPBACK = [(socket.AF_INET, bytes([127, 0, 0, 0]), 8), (socket.AF_INET6, bytes(15) + b"\1", 128)]
RETURN, ERROR = 2, 3


class Text:
    """Bytes as they go over the bus, each value at its place."""

    def __init__(self):
        self.data = b""

    def align(self, to):
        self.data += bytes(-len(self.data) % to)
        return self

    def number(self, value):
        self.align(4).data += struct.pack("<I", value)
        return self

    def text(self, value):
        self.number(len(value)).data += value.encode() + b"\0"
        return self

    def signature(self, value):
        self.data += bytes([len(value)]) + value.encode() + b"\0"
        return self


def ranges(entries):
    """A variant with an array of (family, address, bits)."""
    inner = Text()
    for family, address, bits in entries:
        inner.align(8).number(family).number(len(address)).data += address
        inner.number(bits)
    made = Text().signature("a(iayu)").number(len(inner.data)).align(8)
    made.data += inner.data
    return made.data


def message(kind, serial, signature, body):
    fields = Text()
    fields.data = bytes([5])
    fields.signature("u").number(serial).align(8)
    fields.data += bytes([8])
    fields.signature("g").signature(signature)
    if kind == ERROR:
        fields.align(8).data += bytes([4])
        fields.signature("s").text("org.freedesktop.systemd1.NoUnitForPID")
    head = Text()
    head.data = b"l" + bytes([kind, 1, 1])
    head.number(len(body)).number(1).number(len(fields.data)).data += fields.data
    return head.align(8).data + body


class ManagerBus:
    """`allowed` and `denied` are what the unit has; None: no process is in a unit."""

    def __init__(self, path, allowed, denied=None):
        self.allowed = allowed
        self.denied = ANYBODY if denied is None else denied
        self.address = f"unix:path={path}"
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(str(path))
        self.listener.listen()
        threading.Thread(target=self.serve, daemon=True).start()

    def close(self):
        self.listener.close()

    def serve(self):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self.listener.accept()
                with connection:
                    self.greet(connection)
                    self.answer_all(connection)

    @staticmethod
    def greet(connection):
        said = b""
        while b"BEGIN\r\n" not in said:
            part = connection.recv(4096)
            if not part:
                return
            said += part
        agree = b"AGREE_UNIX_FD\r\n" if b"NEGOTIATE_UNIX_FD" in said else b""
        connection.sendall(b"DATA\r\nOK " + b"0" * 31 + b"1\r\n" + agree)

    def answer_all(self, connection):
        held = b""
        while part := connection.recv(65536):
            held += part
            while len(held) >= 16:
                body, serial, fields = struct.unpack_from("<III", held, 4)
                length = 16 + fields + -fields % 8 + body
                if len(held) < length:
                    break
                connection.sendall(self.reply(held[:length], serial))
                held = held[length:]

    def reply(self, asked, serial):
        if b"Hello" in asked:
            return message(RETURN, serial, "s", Text().text(":1.1").data)
        if self.allowed is None:
            return message(ERROR, serial, "s", Text().text("in no unit").data)
        if b"GetUnitByPID" in asked:
            return message(RETURN, serial, "o", Text().text(UNIT).data)
        return message(RETURN, serial, "v", ranges(self.allowed if b"IPAddressAllow" in asked else self.denied))
