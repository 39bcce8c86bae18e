"""Switches, keyboard, pointer, LCD, and the picture."""

import os
import select
import signal
import threading
import time
import unittest

from harness import Atspi, WindowTest, descendants, output, text_of, wait_until
from servers import SoundServer


class Devices(WindowTest):
    def test_switches_and_the_keyboard_instead_of_the_pointer(self):
        controls = ["Assemble", f"{self.folder}/draw.k", "Load", "Run ", "Reset", "Save speaker", "Save SDRAM",
                    "Save VGA", "Steps", "Break", "Watch", "Camera", "Mic",
                    *(f"SW {i}" for i in reversed(range(18)))]
        self.load("draw.k", run=False)
        for turn, (clicks, lit) in enumerate(((1, True), (2, True), (1, False), (2, False))):
            self.click_at("SW 3", clicks)
            self.click_at("SW 2")  # and when this one is seen, the first has come to rest
            wait_until(lambda: self.lit("SW 2") is (turn % 2 == 0))
            wait_until(lambda: self.lit("SW 3") is lit)
        Atspi.Component.grab_focus(self.widget(controls[0]))

        def expect_focus(name):
            wait_until(lambda: self.state(name, Atspi.StateType.FOCUSED))
            # The focus is drawn round the lamp of a switch, and nothing at the rest of its cell's border.
            wait_until(lambda: not name.startswith("SW") or self.border(name) == (True, False))
        for name in controls + controls[:1]:
            expect_focus(name)
            if name == "SW 17":
                self.keys("key", "space")
                wait_until(lambda: self.lit(name))
            self.keys("key", "Tab")
        wait_until(lambda: {self.border(f"SW {i}") for i in range(18)} == {(False, False)})
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

    def border(self, name):
        """Whether more than one color is at the top of the lamp, and of the rest of the cell."""
        left, top, right, _ = self.box(self.widget(name))
        colors = self.pixels(None, left, top, right - left)
        return len(set(colors[:13])) > 1, len(set(colors[13:])) > 1

    def test_bytes_on_the_lcd(self):
        self.load("bytes.k")
        self.wait_text("LCD text", "\x7f\xe9\xff\x80 \x7fA" + " " * 9 + "\n" + " " * 16)

    def test_keyboard(self):
        self.load("echo.k")
        self.wait_stopped("Running")
        self.activate("VGA")
        shown = ""
        for keys, characters in (
                (["key", "a"], "a"), (["key", "shift+a"], "A"),
                (["key", "Return", "Tab", "BackSpace", "Escape"], "\n\t\b\x1b"),
                (["keydown", "1", "keydown", "shift", "keyup", "1", "keyup", "shift"], "1"),
                (["keydown", "b", "sleep", "0.9", "keyup", "b", "key", "c"], "bc"),
                (["key", "ctrl+m", "key", "ctrl+m", "key", "x"], "x"), (["key", "ctrl+shift+m", "ctrl+q"], "Mq")):
            shown += characters
            self.keys(*keys)
            self.wait_text("LCD text", f"{shown:16}\n{shown:16}")

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
        for act, shown in (("VGA", True), ("ctrl+m", False), ("tovik", False), ("VGA", False), ("ctrl+alt+m", True),
                           ("tovik", False), ("VGA", True), ("ctrl+m", False), ("8", False), ("ctrl+m", True),
                           ("ctrl+m", False), ("1", True)):
            if act in ("VGA", "tovik"):
                self.activate(act)
            else:
                self.keys("click" if act.isdigit() else "key", act)
            wait_until(lambda: (self.cursor() != plain) == shown)

    def test_serial_console(self):
        self.load("serial_echo.k")
        frame, *boxes = map(self.box, [self.dialog("question"), *descendants(self.dialog("question"))])
        room = [min(abs(box[side] - frame[side]) for box in boxes) for side in range(4)]
        self.assertGreaterEqual(min(room), 10, "round the question")
        self.assertEqual([], self.unnamed("question"))
        self.keys("type", "none/of/these/that/is/too/long")
        self.keys("key", "Return")
        wait_until(lambda: output("wmctrl", "-l").count(" tovik\n") == 2)  # the window and the message
        self.assertEqual("Can't open serial device", self.answer())
        self.assertIn("To show the serial output in the serial port window, leave the field blank.",
                      self.answer("OK", "question"))
        view = self.find("Serial console", Atspi.Role.TEXT)
        self.assertEqual([], self.unnamed("Serial console"))
        self.activate("Serial console")
        self.keys("key", "a", "shift", "Return", "Tab", "b")
        wait_until(lambda: text_of(view) == "a\n\tb")
        self.wait_text("HEX3-HEX0 digits", "0004")
        self.close("Serial console")
        wait_until(lambda: self.window("Serial console") is None)
        self.press("Reset", pc=0)
        self.press("Run ", "Running")  # not asked again

    def test_serial_console_before_a_dialog(self):
        self.load("serial_fault.k")
        self.answer("OK", "question")
        self.dialog("alert")
        self.assertEqual(20000, text_of(self.find("Serial console", Atspi.Role.TEXT)).count("a"))
        self.answer()

    def test_reset_discards_what_waits_on_the_line(self):
        partner, line = os.openpty()
        done = threading.Event()

        def send_until_done():
            while not done.is_set():
                select.select([], [partner], [], 0.1)[1] and os.write(partner, b"new " * 1000)

        def reset_with(sender):
            threading.Thread(target=sender, daemon=True).start()
            wait_until(lambda: not select.select([], [partner], [], 0)[1])  # the line is full
            self.press("Reset", pc=0)  # no later than the accessibility interface gives up
        self.load("serial_echo.k")
        Atspi.EditableText.set_text_contents(self.find("question", Atspi.Role.TEXT), os.ttyname(line))
        self.answer("OK", "question")
        self.wait_stopped("Running")
        self.press("Run ")
        reset_with(lambda: (os.write(partner, b"old " * 50000), done.set()))
        self.assertTrue(done.wait(10), "all has been read")
        os.write(partner, b"n")
        self.click("Run ")
        wait_until(lambda: select.select([partner], [], [], 0)[0])
        self.assertEqual(b"n", os.read(partner, 10))
        self.press("Run ")
        os.set_blocking(partner, False)
        done.clear()
        self.addCleanup(done.set)
        reset_with(send_until_done)

    def test_sound_that_goes_and_comes_back(self):
        server = SoundServer()
        self.addCleanup(server.close)
        self.load("loop.k", run=False, PULSE_SERVER=server.name)

        def switch(on):
            self.click("Mic")
            wait_until(lambda: self.state("Mic", Atspi.StateType.CHECKED) == on)

        def run_and_stop():
            self.press("Run ", "Running")
            self.press("Run ")
        for on in (False, True):
            switch(on)
            wait_until(lambda: bool(server.list("source-outputs")) == on)
        run_and_stop()
        wait_until(lambda: not server.list("sink-inputs"))
        server.stop()
        switch(False)
        self.click("Mic")
        self.click("Run ")
        self.assertEqual("Can't open pulse speaker.", self.answer())
        self.wait_stopped("Running")
        self.assertFalse(self.state("Mic", Atspi.StateType.CHECKED))
        self.press("Run ")
        run_and_stop()  # says it once only
        server.start()
        switch(True)
        run_and_stop()
        self.press("Run ", "Running")
        server.process.send_signal(signal.SIGSTOP)
        time.sleep(0.5)  # longer than the server's buffer
        self.press("Run ")
        server.process.send_signal(signal.SIGCONT)
        self.click("Save speaker")
        self.choose("Choose speaker .wav file", self.folder / "loop.wav")
        wait_until(lambda: (self.folder / "loop.wav").exists() and (self.folder / "loop.wav").stat().st_size > 68)

    def test_camera_that_vanishes(self):
        (self.folder / "gray").write_bytes(b"\x10\x42" * 307200 * 2)
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
        self.choose("Choose kmovie file")
        self.assertEqual("error at PC 4\nuser cancelled camera file read", self.answer())
        self.click("Camera")
        self.press("Reset", pc=0)
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
