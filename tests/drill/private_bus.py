"""A session bus of the drill's own, on which something shows notifications, and the little that is asked of it."""
import os
import socket
import struct
import subprocess

METHOD_CALL, METHOD_RETURN, ERROR = 1, 2, 3
PATH, INTERFACE, MEMBER, REPLY_SERIAL, DESTINATION, SIGNATURE = 1, 2, 3, 5, 6, 8
SCHEDULER_NAME = "org.snipwren.Scheduler"


def _aligned(data, size):
    return data + bytes(-len(data) % size)


def _text(value):
    data = value.encode()
    return struct.pack("<I", len(data)) + data + b"\0"


class BusClient:
    """One connection, for one thread: calls of the bus itself that take texts and numbers and answer a number."""

    def __init__(self, address):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(address.split("path=")[1].split(",")[0])
        self.socket.sendall(b"\0AUTH EXTERNAL " + str(os.getuid()).encode().hex().encode() + b"\r\n")
        if not self.socket.recv(4096).startswith(b"OK"):
            raise RuntimeError("the bus refused the connection")
        self.socket.sendall(b"BEGIN\r\n")
        self.serial = 0
        self.call("Hello")

    def call(self, member, *arguments):
        """The number that came back; None for an error."""
        self.serial += 1
        body, signature = b"", ""
        for argument in arguments:
            is_text = isinstance(argument, str)
            body = _aligned(body, 4) + (_text(argument) if is_text else struct.pack("<I", argument))
            signature += "s" if is_text else "u"
        fields = b""
        for code, kind, value in [(PATH, "o", "/org/freedesktop/DBus"), (INTERFACE, "s", "org.freedesktop.DBus"),
                                  (MEMBER, "s", member), (DESTINATION, "s", "org.freedesktop.DBus")]:
            fields = _aligned(fields, 8) + bytes([code, 1]) + kind.encode() + b"\0" + _text(value)
        if signature:
            data = signature.encode()
            fields = _aligned(fields, 8) + bytes([SIGNATURE, 1]) + b"g\0" + bytes([len(data)]) + data + b"\0"
        head = struct.pack("<cBBBIII", b"l", METHOD_CALL, 0, 1, len(body), self.serial, len(fields))
        self.socket.sendall(_aligned(head + fields, 8) + body)
        while True:
            kind, answers, body = self._read()
            if answers == self.serial and kind in (METHOD_RETURN, ERROR):
                return struct.unpack_from("<I", body)[0] if kind == METHOD_RETURN and len(body) >= 4 else None

    def _exactly(self, size):
        data = b""
        while len(data) < size:
            piece = self.socket.recv(size - len(data))
            if not piece:
                raise RuntimeError("the bus is gone")
            data += piece
        return data

    def _read(self):
        head = self._exactly(16)
        kind = head[1]
        body_size, _, fields_size = struct.unpack_from("<III", head, 4)
        fields = self._exactly(fields_size + -fields_size % 8)
        answers, at = None, 0
        while at < fields_size:
            at += -at % 8
            code, letter = fields[at], chr(fields[at + 2])
            at += 4
            if letter == "g":
                at += fields[at] + 2
                continue
            at += -at % 4
            (number,) = struct.unpack_from("<I", fields, at)
            at += 4 if letter == "u" else number + 5
            if code == REPLY_SERIAL:
                answers = number
        return kind, answers, self._exactly(body_size)

    def scheduler_of(self, home):
        """The process that schedules for this home; None when none does."""
        mixed = 14695981039346656037
        for byte in home.encode():
            mixed = (mixed ^ byte) * 1099511628211 % 2**64
        return self.call("GetConnectionUnixProcessID", f"{SCHEDULER_NAME}.at{mixed:016x}")


class PrivateBus:
    def __init__(self, folder):
        config = folder / "bus.conf"
        config.write_text(
            '<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"\n'
            ' "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">\n<busconfig><type>session</type>'
            f'<listen>unix:path={folder}/bus</listen><policy context="default">'
            '<allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy>'
            "</busconfig>\n")
        self.process = subprocess.Popen(
            ["dbus-daemon", "--nofork", "--print-address", f"--config-file={config}"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.process.stdout.readline()  # The address is printed once the bus listens.
        self.address = f"unix:path={folder}/bus"
        # Timers are refused where nobody shows notifications; nothing comes due here, so owning the name is enough.
        self.notifications = BusClient(self.address)
        self.notifications.call("RequestName", "org.freedesktop.Notifications", 0)

    def stop(self):
        self.process.kill()
        self.process.wait()
