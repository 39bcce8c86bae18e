"""The serial port's ends: a device, the relay, and what happens when they fail."""

import itertools
import json
import os
import pathlib
import signal
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
CHALLENGE = struct.pack("<i", 46341)  # its square wraps
FIRST = 'Connected to virtual serial port.  Next, run a second instance of tovik and connect it to serial port "abc".\n'

NEXT_LETTER = (pathlib.Path(__file__).resolve().parent / "next_letter.k").read_text()
# Sends a byte first, so that the other side knows when the line is open.
READY = " be send one one\n" + NEXT_LETTER
# Sends zero bytes for ever.
FLOOD = READY.replace("be next", "be send")


class Serial(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.host = next(ADDRESSES)

    def start(self, source, *options):
        name = f"p{len(list(self.folder.iterdir()))}.k"
        (self.folder / name).write_text(source)
        process = subprocess.Popen([BIN / "tovik-run", "--report", "json", *options, name], cwd=self.folder, text=True,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   env={**os.environ, "TOVIK_RELAY_HOST": self.host, "RES_OPTIONS": "timeout:1 attempts:1"})
        self.addCleanup(process.kill)
        return process

    def end(self, process):
        out, errors = process.communicate(timeout=60)
        return process.returncode, json.loads(out)["reason"], errors

    def test_device(self):
        master, line = os.openpty()
        settings = termios.tcgetattr(line)
        settings[CONTROL] |= termios.CSTOPB
        settings[LOCAL] &= ~termios.ECHO
        termios.tcsetattr(line, termios.TCSANOW, settings)
        os.write(master, b"typed before it was opened\n")
        process = self.start(READY, "--serial", os.ttyname(line))
        self.assertEqual(b"\0", os.read(master, 1))
        settings = termios.tcgetattr(line)
        self.assertEqual((termios.B115200, termios.B115200), tuple(settings[SPEEDS]))
        self.assertEqual(termios.CS8, settings[CONTROL] & (termios.CSIZE | termios.CSTOPB | termios.PARENB))
        self.assertFalse(settings[LOCAL] & (termios.ICANON | termios.ISIG))
        os.write(master, b"HAL" * 20 + b".")
        self.assertEqual((0, "halt", ""), self.end(process))
        answer = b""
        while len(answer) < 60:  # a terminal hands on what it has, which may not be all
            answer += os.read(master, 1000)
        self.assertEqual(b"IBM" * 20, answer)
        # Its other end goes.
        process = self.start(READY, "--serial", os.ttyname(line), "--limit", "400000")
        self.assertEqual(b"\0", os.read(master, 1))
        os.close(line)
        os.close(master)
        self.assertEqual((3, "limit", ""), self.end(process))

    def test_device_that_goes_under_the_debugger(self):
        """It is a fault of the program, which can be gone back from."""
        master, line = os.openpty()
        (self.folder / "flood.k").write_text(FLOOD)
        process = subprocess.Popen([BIN / "tovik-dap"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(process.kill)

        def message(awaited):
            while True:
                header = process.stdout.readline() + process.stdout.readline()
                body = json.loads(process.stdout.read(int(header.split()[1])))
                if awaited in (body.get("event"), body.get("command")):
                    return body["body"]

        def ask(command, **arguments):
            body = json.dumps({"type": "request", "seq": 1, "command": command, "arguments": arguments}).encode()
            process.stdin.write(b"Content-Length: %d\r\n\r\n%s" % (len(body), body))
            process.stdin.flush()

        ask("initialize")
        ask("launch", program=str(self.folder / "flood.k"), serial=os.ttyname(line))
        ask("configurationDone")
        os.read(master, 1)
        os.close(line)
        os.close(master)
        for command in ("continue", "stepBack", "continue"):
            stopped = message("stopped")
            reason = {"exception": "error at PC 32\nwrite: Input/output error\n", "step": ""}[stopped["reason"]]
            self.assertTrue(stopped.get("text", "").startswith(reason), stopped)
            ask(command, threadId=1)
        ask("evaluate", expression="pc")
        self.assertEqual("32 (0x20, ' ')", message("evaluate")["result"])
        ask("disconnect")
        self.assertEqual(b"", process.communicate(timeout=60)[1])

    def test_device_that_cannot_be_used(self):
        (self.folder / "file1").touch()
        process = self.start(NEXT_LETTER, "--serial", "./none", "--serial", "file1", "--console", "--limit", "1000000")
        self.assertEqual("Can't open serial device\nCan't tcflush serial device\n", process.communicate("AB.", 60)[1])

    def test_two_over_the_relay(self):
        relay = subprocess.Popen([BIN / "tovik-relay", "--address", self.host], stderr=subprocess.PIPE, text=True)
        self.addCleanup(relay.communicate)
        self.addCleanup(relay.terminate)
        relay.stderr.readline()  # it listens
        first = self.start(NEXT_LETTER, "--serial", "abc")
        self.assertRegex(first.stderr.readline(), "^Connected to virtual serial port.")
        second = self.start(" cpdata 0x800000a2 43\n" + READY, "--serial", "abc")
        # Each sends on what it received plus 1: 43 + there, 44 back, 45 - there, 46 . back.
        status, reason, said = self.end(second)
        self.assertEqual((0, "halt"), (status, reason))
        self.assertRegex(said, r"^Connected to another instance of tovik, running on .*\.\n$")
        first.kill()
        first.communicate()

    # The relay does what no real one can be made to do: a stand-in for it.

    def relayed(self, *steps, source=NEXT_LETTER, options=()):
        """Sends the bytes of a step, receives that many, calls it, or, for None, goes and is connected to again; how the
        program ends, and what was received."""
        self.host, self.process = next(ADDRESSES), None
        received = []

        def serve(listener):
            with listener, listener.accept()[0] as connection:
                for step in steps:
                    if step is None:
                        connection.shutdown(socket.SHUT_WR)
                        following, _ = listener.accept()
                        received.append(connection.recv(1))
                        connection = following
                    elif callable(step):
                        step()
                    elif isinstance(step, int):
                        received.append(connection.recv(step, socket.MSG_WAITALL))
                    else:
                        connection.sendall(step)
        relay = threading.Thread(target=serve, args=(socket.create_server((self.host, 10000)),))
        relay.start()
        self.process = self.start(source, "--serial", "abc", *options)
        ended = self.end(self.process)
        relay.join()
        return *ended, received

    def test_relay(self):
        bye = [struct.pack("<ii", -2136764821, 4) + b"abc\0", b"BIM"]
        for status, text in ((b"\0\0\0\0", FIRST),
                             (b"\xc0\x00\x02\x05", "Connected to another instance of tovik, running on 192.0.2.5.\n")):
            self.assertEqual((0, "halt", text, bye), self.relayed(CHALLENGE, 12, status, b"AHL.", 3))
        self.assertEqual((0, "halt", FIRST * 2, [bye[0], b"B", b"", bye[0], b"IM"]), self.relayed(
            CHALLENGE, 12, bytes(4), b"A", 1, None, CHALLENGE, 12, bytes(4), b"HL.", 2, options=("--serial", "abc")),
            "the old connection is closed")
        # It goes: asked again, the answers are a device that is not there, and the console.
        self.assertEqual((3, "limit", FIRST + "Can't open serial device\n"), self.relayed(
            CHALLENGE, 12, bytes(4), b"A", 1,
            options=("--serial", "./none", "--script", os.devnull, "--limit", "3000000"))[:3])
        self.assertIn(
            self.relayed(CHALLENGE, 12, bytes(4), 1, source=FLOOD, options=("--limit", "2000000000"))[:3],
            [(1, "error", FIRST + f"write: {why}\n") for why in ("Broken pipe", "Connection reset by peer")])

    def test_relay_that_has_given_it_up(self):
        def stop_for_a_while():
            time.sleep(0.5)  # until it waits for the challenge
            self.process.send_signal(signal.SIGSTOP)
            time.sleep(5.2)
            self.process.send_signal(signal.SIGCONT)
        # The last step waits for the program's end: what a relay that goes has sent may be lost.
        answer = struct.pack("<ii", -2136764821, 4) + b"abc\0"
        self.assertEqual((0, "halt", FIRST, [b"", answer, b"B", b""]), self.relayed(
            stop_for_a_while, None, CHALLENGE, 12, bytes(4), b"A.", 1, 1))

    def test_relay_that_refuses(self):
        def refused(reason):
            return (1, "error", "error at PC 0\nCannot connect to virtual serial port" + reason +
                    ".  Please contact instructor.\n")
        for steps, missing in (([], "challenge"), ([b"abc"], "challenge"), ([CHALLENGE, 12], "status)"),
                               ([CHALLENGE, 12, b"\0"], "status)")):
            with self.subTest(steps=steps):
                self.assertEqual(refused(f" (error receiving {missing}"), self.relayed(*steps)[:3])
        for self.host, reason in ((next(ADDRESSES), ""), ("nowhere.invalid", " (error getting hostent)")):
            self.assertEqual(refused(reason), self.end(self.start(NEXT_LETTER, "--serial", "abc")))


if __name__ == "__main__":
    unittest.main()
