"""The serial port's ends: a device, the relay, and what happens when they fail."""

import itertools
import json
import os
import pathlib
import socket
import struct
import subprocess
import tempfile
import termios
import threading
import time
import unittest

BIN = pathlib.Path(os.environ["TOVIK_BIN"])
CONTROL, LOCAL, SPEEDS = 2, 3, slice(4, 6)  # in what tcgetattr returns
ADDRESSES = (f"127.{128 + (os.getpid() >> 8 & 63)}.{os.getpid() & 255}.{i}" for i in itertools.count(1))

# Sends what it receives, plus 1, until a full stop comes.
NEXT_LETTER = """
next cpdata 0x80000090 1
wait bne wait 0x80000091 one
 cp c 0x80000092
 cpdata 0x80000090 0
 be end c stop
 add c c one
 cp 0x800000a2 c
 cpdata 0x800000a0 1
busy bne busy 0x800000a1 one
 cpdata 0x800000a0 0
 be next one one
end halt
c .data 0
one .data 1
stop .data 46
"""
# Sends a byte first, so that the other side knows when the line is open.
READY = """
 cpdata 0x800000a0 1
ready bne ready 0x800000a1 one
 cpdata 0x800000a0 0
"""
FLOOD = """
next cpdata 0x800000a0 1
 cpdata 0x800000a0 0
 be next next next
"""


class Serial(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.host = next(ADDRESSES)

    def start(self, source, *options):
        name = f"p{len(list(self.folder.iterdir()))}.k"
        (self.folder / name).write_text(source)
        process = subprocess.Popen([BIN / "tovik-run", "--report", "json", *options, name], cwd=self.folder, text=True,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   env={**os.environ, "TOVIK_RELAY_HOST": self.host})
        self.addCleanup(process.kill)
        return process

    def end(self, process):
        out, errors = process.communicate(timeout=60)
        return process.returncode, json.loads(out)["reason"], errors

    def test_device(self):
        master, line = os.openpty()
        self.addCleanup(os.close, master)
        self.addCleanup(os.close, line)
        settings = termios.tcgetattr(line)
        settings[CONTROL] |= termios.CSTOPB
        settings[LOCAL] &= ~termios.ECHO
        termios.tcsetattr(line, termios.TCSANOW, settings)
        os.write(master, b"typed before it was opened\n")
        process = self.start(READY + NEXT_LETTER, "--serial", os.ttyname(line))
        self.assertEqual(b"\0", os.read(master, 1))
        settings = termios.tcgetattr(line)
        self.assertEqual((termios.B115200, termios.B115200), tuple(settings[SPEEDS]))
        self.assertEqual(termios.CS8, settings[CONTROL] & (termios.CSIZE | termios.CSTOPB | termios.PARENB))
        self.assertFalse(settings[LOCAL] & (termios.ICANON | termios.ISIG))
        os.write(master, b"HAL" * 20 + b".")
        self.assertEqual((0, "halt", ""), self.end(process))
        self.assertEqual(b"IBM" * 20, os.read(master, 1000))

    def test_device_that_cannot_be_used(self):
        (self.folder / "file1").touch()
        process = self.start(NEXT_LETTER, "--serial", "./none", "--serial", "file1", "--console", "--limit", "1000000")
        out, errors = process.communicate("AB.", timeout=60)
        self.assertEqual("Can't open serial device\nCan't tcflush serial device\n", errors)

    def test_device_whose_other_end_goes(self):
        master, line = os.openpty()
        process = self.start(READY + NEXT_LETTER, "--serial", os.ttyname(line), "--limit", "4000000")
        self.assertEqual(b"\0", os.read(master, 1))
        os.close(line)
        os.close(master)
        self.assertEqual((3, "limit", ""), self.end(process))

    def test_two_over_the_relay(self):
        relay = subprocess.Popen([BIN / "tovik-relay", "--address", self.host], stderr=subprocess.PIPE, text=True)
        self.addCleanup(lambda: (relay.terminate(), relay.communicate()))
        relay.stderr.readline()  # it listens
        first = self.start(NEXT_LETTER, "--serial", "abc")
        self.assertRegex(first.stderr.readline(), "^Connected to virtual serial port.")
        second = self.start(" cpdata 0x800000a2 43" + READY + NEXT_LETTER, "--serial", "abc")
        # Each sends on what it received plus 1: 43 + there, 44 back, 45 - there, 46 . back.
        status, reason, said = self.end(second)
        self.assertEqual((0, "halt"), (status, reason))
        self.assertRegex(said, r"^Connected to another instance of tovik, running on .*\.\n$")
        first.kill()
        first.communicate()

    # The relay refuses in ways that no real one can be made to: a stand-in for it.

    def relay(self, *steps):
        """Does what each step says: sends bytes, receives that many, or, for None, goes and is connected to again."""
        listener = socket.create_server((self.host, 10000))
        received = []

        def serve():
            connection, _ = listener.accept()
            with connection, listener:
                for step in steps:
                    if step is None:
                        connection.shutdown(socket.SHUT_WR)
                        following, _ = listener.accept()
                        received.append(connection.recv(1))
                        connection = following
                    elif isinstance(step, int):
                        received.append(connection.recv(step, socket.MSG_WAITALL))
                    else:
                        connection.sendall(step)
        self.relay_thread = threading.Thread(target=serve)
        self.relay_thread.start()
        self.addCleanup(self.relay_thread.join)
        return received

    CHALLENGE = struct.pack("<i", 46341)  # its square wraps

    def test_relay_that_refuses(self):
        challenge, status = " (error receiving challenge", " (error receiving status)"
        for host, steps, error in (
                (None, [], challenge), (None, [b"abc"], challenge), (None, [self.CHALLENGE, 4, 4, 4], status),
                (None, [self.CHALLENGE, 4, 4, 4, b"\0"], status), (next(ADDRESSES), None, ""),
                ("nowhere.invalid", None, " (error getting hostent)")):
            with self.subTest(host=host, steps=steps):
                self.host = host or next(ADDRESSES)
                if steps is not None:
                    self.relay(*steps)
                self.assertEqual(
                    (1, "error", f"error at PC 0\nCannot connect to virtual serial port{error}.  Please contact instructor.\n"),
                    self.end(self.start(NEXT_LETTER, "--serial", "abc")))

    def test_relay_that_accepts_and_goes(self):
        first = 'Connected to virtual serial port.  Next, run a second instance of tovik and connect it to serial port "abc".\n'
        second = "Connected to another instance of tovik, running on 192.0.2.5.\n"
        received = self.relay(self.CHALLENGE, 12, b"\0\0\0\0", b"A", 1, None, self.CHALLENGE, 12, b"\xc0\x00\x02\x05", b"HL.", 2)
        self.assertEqual((0, "halt", first + second), self.end(self.start(NEXT_LETTER, "--serial", "abc", "--serial", "abc")))
        self.relay_thread.join()  # it may end after the program
        introduction = struct.pack("<ii", -2136764821, 4) + b"abc\0"
        self.assertEqual([introduction, b"B", b"", introduction, b"IM"], received, "the old connection is closed")
        self.host = next(ADDRESSES)
        self.relay(self.CHALLENGE, 12, b"\0\0\0\0", 1)
        self.assertEqual((1, "error", first + "write: Broken pipe\n"),
                         self.end(self.start(FLOOD, "--serial", "abc", "--limit", "2000000000")))


if __name__ == "__main__":
    unittest.main()
