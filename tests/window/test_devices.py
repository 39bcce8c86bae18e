"""Switches, keyboard, pointer, LCD, and the picture."""

import os
import pathlib
import select
import signal
import socket
import struct
import subprocess
import threading
import time
import unittest

from harness import Atspi, WindowTest, descendants, output, text_of, wait_until
from server import SoundServer


def send_on(line, done):
    os.set_blocking(line, False)
    while not done.is_set():
        try:
            os.write(line, b"new " * 1000)
        except BlockingIOError:
            time.sleep(0.001)


class Devices(WindowTest):
    def test_switch(self):
        self.launch()
        for clicks, lit in ((1, True), (2, True), (1, False)):
            self.click_at("SW 3", clicks)
            wait_until(lambda: self.lit("SW 3") is lit)
        self.assertIs(False, self.lit("SW 2"))

    def test_keyboard_instead_of_the_pointer(self):
        controls = ["Assemble", f"{self.folder}/draw.k", "Load", "Run ", "Reset", "Save speaker", "Save SDRAM",
                    "Save VGA", "Steps", "Break", "Watch", "Camera", "Mic",
                    *(f"SW {i}" for i in reversed(range(18)))]
        self.load("draw.k", run=False)
        self.activate("tovik")
        Atspi.Component.grab_focus(self.widget(controls[0]))

        def expect_focus(name):
            wait_until(lambda: self.state(name, Atspi.StateType.FOCUSED))
            if name.startswith("SW"):
                wait_until(lambda: self.framed(name))
        for name in controls + controls[:1]:
            expect_focus(name)
            if name == "SW 17":
                self.keys("key", "space")
                wait_until(lambda: self.lit(name))
            self.keys("key", "Tab")
        wait_until(lambda: not any(self.framed(name) for name in controls if name.startswith("SW")))
        self.keys("key", "Tab", "Tab", "space")
        self.wait_stopped("Running")
        self.keys("key", "--repeat", len(controls) - controls.index("SW 17") + 3, "shift+Tab")
        expect_focus("SW 17")
        self.keys("keydown", "space", "sleep", "0.9")
        self.assertEqual({False}, {self.lit("SW 17") for _ in range(50)})
        self.keys("keyup", "space")
        self.wait_stopped("Halted  ")
        self.keys("key", "space")
        wait_until(lambda: self.lit("SW 17"))

    def test_bytes_on_the_lcd(self):
        self.load("bytes.k")
        self.wait_text("LCD text", "\x7f\xe9\xff\x80 \x7fA" + " " * 9 + "\n" + " " * 16)

    def test_keyboard(self):
        self.load("echo.k", run=False)
        for keys, pressed, released in (
                (["key", "a"], "a", "a"), (["key", "shift+a"], "A", "A"),
                (["key", "Return", "Tab", "BackSpace", "Escape"], "\n\t\b\x1b", "\n\t\b\x1b"),
                (["keydown", "1", "keydown", "shift", "keyup", "1", "keyup", "shift"], "1", "1"),
                (["keydown", "b", "sleep", "0.9", "keyup", "b", "key", "c"], "bc", "bc"),
                (["key", "ctrl+m", "key", "ctrl+m", "key", "x"], "x", "x"),
                (["key", "ctrl+shift+m", "ctrl+q"], "Mq", "Mq")):
            with self.subTest(keys=keys):
                self.click("Reset")
                self.wait_stopped(pc=0)
                self.click("Run ")
                self.wait_stopped("Running")
                self.activate("VGA")
                self.keys(*keys)
                self.wait_text("LCD text", f"{pressed:16}\n{released:16}")

    def test_pointer(self):
        self.load("pointer.k")
        window = self.activate("VGA")

        def act(*words):
            self.keys("mousemove", "--window", window, *map(str, words))

        def expect(x, y, buttons):
            self.wait_text("HEX7-HEX4 digits", f"{x & 0xffff:04x}")
            self.wait_text("HEX3-HEX0 digits", f"{y & 0xffff:04x}")
            wait_until(lambda: sum((self.lit(f"LED_GREEN {i}") is True) << i for i in range(8)) == buttons)
        act(100, 300)  # the first motion is where it begins
        act(110, 295, "mousedown", 1)
        expect(10, -5, 1)
        self.keys("mouseup", "1")
        act(90, 310, "mousedown", 2)
        expect(-10, 10, 2)
        self.keys("mousedown", "3", "mouseup", "2")
        expect(-10, 10, 4)
        self.keys("mouseup", "3")
        self.click_at("SW 0")
        wait_until(lambda: self.lit("SW 0"))
        self.activate("VGA")
        act(20, 400, "mousedown", 1)
        expect(20, 400, 128)
        act(30, 410)
        expect(30, 410, 128)
        self.keys("mouseup", "1")
        expect(30, 410, 0)

    def test_cursor_shows_whether_the_mouse_is_on(self):
        self.launch()
        self.activate("tovik")
        self.keys("mousemove", "--window", self.id("VGA"), "100", "100")
        plain = self.cursor()
        self.activate("VGA")
        wait_until(lambda: self.cursor() != plain)
        for act, shown in (
                (lambda: self.keys("key", "ctrl+m"), False), (lambda: self.activate("tovik"), False),
                (lambda: self.activate("VGA"), False), (lambda: self.keys("key", "ctrl+alt+m"), True),
                (lambda: self.activate("tovik"), False), (lambda: self.activate("VGA"), True),
                (lambda: self.keys("key", "ctrl+m"), False), (lambda: self.keys("click", "8"), False),
                (lambda: self.keys("key", "ctrl+m"), True), (lambda: self.keys("key", "ctrl+m"), False),
                (lambda: self.keys("click", "1"), True)):
            act()
            wait_until(lambda: (self.cursor() != plain) == shown)

    def test_serial_console(self):
        self.load("serial_echo.k")
        frame, *boxes = map(self.box, [self.dialog("question"), *descendants(self.dialog("question"))])
        room = [min(abs(box[side] - frame[side]) for box in boxes) for side in range(4)]
        self.assertGreaterEqual(min(room), 10, "round the question")
        self.assertEqual([], self.unnamed())
        self.keys("type", "--delay", "30", "none/of/these/that/is/too/long")
        self.keys("key", "Return")
        wait_until(lambda: output("wmctrl", "-l").count(" tovik\n") == 2)  # the window and the message
        self.assertEqual("Can't open serial device", self.answer())
        self.assertIn("To show the serial output in the serial port window, leave the field blank.",
                      self.answer("OK", "question"))
        wait_until(lambda: self.window("Serial console"))
        view = next(widget for widget in descendants(self.window("Serial console"))
                    if widget.get_role() == Atspi.Role.TEXT)
        self.assertEqual([], self.unnamed())
        self.activate("Serial console")
        self.keys("key", "a", "shift", "Return", "Tab", "b")
        wait_until(lambda: text_of(view) == "a\n\tb")
        self.wait_text("HEX3-HEX0 digits", "0004")
        self.close("Serial console")
        wait_until(lambda: self.window("Serial console") is None)
        self.click("Reset")
        self.wait_stopped(pc=0)
        self.click("Run ")
        self.wait_stopped("Running")  # not asked again

    def test_serial_console_before_a_dialog(self):
        self.load("serial_fault.k")
        self.answer("OK", "question")
        view = next(widget for widget in descendants(self.dialog("Serial console"))
                    if widget.get_role() == Atspi.Role.TEXT)
        self.dialog("alert")
        self.assertEqual(20000, text_of(view).count("a"))
        self.answer()

    def open_pty(self):
        master, line = os.openpty()
        self.addCleanup(os.close, line)
        return os.ttyname(line), lambda: master, lambda: not select.select([], [master], [], 0)[1]

    def open_relay(self):
        host = os.environ["TOVIK_RELAY_HOST"] = f"127.66.{os.getpid() >> 8 & 127}.{os.getpid() & 255}"
        relay = subprocess.Popen([pathlib.Path(os.environ["TOVIK_BIN"]) / "tovik-relay", "--address", host],
                                 stderr=subprocess.PIPE)
        self.addCleanup(lambda: (relay.kill(), relay.communicate()))
        relay.stderr.readline()  # it listens

        def join():
            self.answer()
            partner = socket.create_connection((host, 10000))
            challenge = struct.unpack("<i", partner.recv(4))[0]
            partner.sendall(struct.pack("<Ii", (challenge ** 2 + 10714194) & 0xffffffff, 4) + b"abc\0")
            partner.recv(4, socket.MSG_WAITALL)
            return partner.detach()

        def is_full():
            server = f"{struct.unpack('<I', socket.inet_aton(host))[0]:08X}:2710"
            rows = [row.split() for row in pathlib.Path("/proc/net/tcp").read_text().splitlines()]
            return any(row[2] == server and int(row[4].split(":")[1], 16) > 20000 for row in rows[1:])
        return "abc", join, is_full

    def test_reset_discards_what_waits_on_the_line(self):
        Atspi.set_timeout(4000, 4000)
        self.addCleanup(Atspi.set_timeout, 1000, 1000)
        for line in (self.open_pty, self.open_relay):
            with self.subTest(line=line.__name__):
                name, join, is_full = line()
                self.load("serial_echo.k")
                entry = next(widget for widget in descendants(self.dialog("question"))
                             if widget.get_role() == Atspi.Role.TEXT)
                Atspi.EditableText.set_text_contents(entry, name)
                self.answer("OK", "question")
                partner = join()
                self.addCleanup(os.close, partner)
                self.wait_stopped("Running")
                self.click("Run ")
                self.wait_stopped()
                writer = threading.Thread(target=os.write, args=(partner, b"old " * 50000), daemon=True)
                writer.start()
                wait_until(is_full)
                self.click("Reset")
                self.wait_stopped(pc=0)
                writer.join(10)
                self.assertFalse(writer.is_alive(), "all has been read")
                os.write(partner, b"n")
                self.click("Run ")
                wait_until(lambda: select.select([partner], [], [], 0)[0])
                self.assertEqual(b"n", os.read(partner, 10))
                self.click("Run ")
                self.wait_stopped()

                done = threading.Event()
                self.addCleanup(done.set)
                sender = threading.Thread(target=send_on, args=(partner, done), daemon=True)
                sender.start()
                wait_until(is_full)
                self.click("Reset")
                self.wait_stopped(pc=0)  # no later than the accessibility interface gives up
                done.set()
                sender.join()
                self.end()

    def test_sound_that_goes_and_comes_back(self):
        server = SoundServer()
        self.addCleanup(server.close)
        self.load("loop.k", run=False, PULSE_SERVER=server.name)
        mic = Atspi.StateType.CHECKED
        wait_until(lambda: self.state("Mic", mic))

        def run_and_stop():
            self.click("Run ")
            self.wait_stopped("Running")
            self.click("Run ")
            self.wait_stopped()
            wait_until(lambda: not server.tool("pactl", "list", "short", "sink-inputs"))
        run_and_stop()
        for checked in (False, True):
            self.click("Mic")
            wait_until(lambda: self.state("Mic", mic) == checked)
            wait_until(lambda: bool(server.tool("pactl", "list", "short", "source-outputs")) == checked)
        server.stop()
        self.click("Mic")
        wait_until(lambda: not self.state("Mic", mic))
        self.click("Mic")
        self.click("Run ")
        self.assertEqual("Can't open pulse speaker.", self.answer())
        self.wait_stopped("Running")
        self.assertFalse(self.state("Mic", mic))
        self.click("Run ")
        self.wait_stopped()
        run_and_stop()  # says it once only
        server.start()
        self.click("Mic")
        wait_until(lambda: self.state("Mic", mic))
        run_and_stop()
        self.click("Run ")
        self.wait_stopped("Running")
        server.process.send_signal(signal.SIGSTOP)
        time.sleep(0.5)  # longer than the server's buffer
        self.click("Run ")
        self.wait_stopped()
        server.process.send_signal(signal.SIGCONT)
        self.click("Save speaker")
        self.choose("Choose speaker .wav file", self.folder / "loop.wav")
        wait_until(lambda: (self.folder / "loop.wav").exists() and (self.folder / "loop.wav").stat().st_size > 68)

    def test_camera_that_vanishes(self):
        (self.folder / "gray").write_bytes(b"\x10\x42" * 307200 * 40)
        folder, library = os.path.split(os.environ["CAMERA_STANDIN"])  # a preloaded path must have no blank
        self.load("camera.k", run=False, LD_PRELOAD=library, LD_LIBRARY_PATH=folder, STANDIN_GONE="30",
                  ASAN_OPTIONS="verify_asan_link_order=0:detect_leaks=0")
        checked = Atspi.StateType.CHECKED
        self.assertTrue(self.state("Camera", checked))
        for on in (False, True):
            self.click("Camera")
            wait_until(lambda: self.state("Camera", checked) == on)
        self.click("Run ")
        self.assertEqual("error dequeueing buffer", self.answer())
        self.choose("Choose kmovie file", self.folder / "gray")
        self.assertFalse(self.state("Camera", checked))
        window = self.id("VGA")
        wait_until(lambda: {self.pixels(window, *place)[0] for place in ((0, 0), (639, 479))} == {(132, 132, 132)})
        self.choose("Choose kmovie file", None)
        self.assertEqual("error at PC 4\nuser cancelled camera file read", self.answer())
        self.click("Camera")
        self.click("Reset")
        self.wait_stopped(pc=0)
        self.assertFalse(self.state("Camera", checked))

    def test_picture(self):
        self.load("draw.k")
        self.wait_stopped("Halted  ")
        window = self.id("VGA")
        expected = {(50, 50): (255, 0, 0), (100, 100): (132, 132, 132), (199, 149): (132, 132, 132),
                    (200, 149): (255, 0, 0), (600, 400): (255, 255, 255), (639, 470): (255, 255, 255),
                    (300, 200): (8, 24, 41), (301, 200): (255, 0, 0)}

        def shown():
            return {place: self.pixels(window, *place)[0] for place in expected}
        self.activate("VGA")
        wait_until(lambda: shown() == expected)
        cover = self.activate("K24 memory")
        self.keys("windowmove", cover, "0", "0", "windowmove", window, "20", "40")
        wait_until(lambda: shown() != expected)
        self.activate("VGA")
        wait_until(lambda: shown() == expected)


if __name__ == "__main__":
    unittest.main()
