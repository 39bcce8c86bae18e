"""A lab session, run control, the memory view, and how the program ends."""

import os
import pathlib
import re
import signal
import socket
import struct
import unittest

from harness import HERE, Atspi, WindowTest, children, corners, descendants, output, text_of, wait_until

RUN = HERE.parents[1] / "scripts/run"
BLANK_LCD = " " * 16 + "\n" + " " * 16
BANKS = (("SW", "switch", 18), ("LED_RED", "red lamp", 18), ("LED_GREEN", "green lamp", 8))
NEXT_ONE = ": the address of the next instruction of a stopped program."
LEGEND = "columns: the address of the line + 0 to 9\nred: written since the last stop"


def table_of(words):
    """The text of the memory view."""
    return "\n".join(f"{a:5} " + "".join(f" {word:11}" for word in words[a:a + 10])
                     for a in range(0, len(words), 10))


class Session(WindowTest):
    def test_lab(self):
        self.launch()
        self.click("Assemble")
        self.choose("Choose assembly file", self.folder / "lab.k")
        wait_until(lambda: (self.folder / "lab.mif").exists())
        self.assertEqual(str(self.folder / "lab.k"), self.label("Choose assembly file"))
        self.assertEqual(table_of([0] * 16384), self.memory_text())
        self.click("Load")
        words = [0] * 16384
        for address, value in re.findall(r"^\t(\d+)\t:\t(-?\d+);", (self.folder / "lab.mif").read_text(), re.M):
            words[int(address)] = int(value)
        wait_until(lambda: self.memory_text() == table_of(words))
        for steps, pc, red in ((None, 0, range(45)), (4, 16, []), (1, 20, [40]), (1, 24, [])):
            if steps:
                self.press("Run ", pc=pc, Steps=str(steps))
            self.assertEqual([(address, 11) for address in red], self.red_words())
        words[40] = -2147483648
        self.assertEqual(table_of(words), self.memory_text())
        self.press("Run ", "Halted  ", 36, Steps="")
        self.click_at("SW 5")
        self.expect_board("cafe", "beef", "K", {5}, {0, 17}, {1, 7})
        self.assertEqual([], self.unnamed("tovik", "VGA", "K24 memory"))
        self.press("Reset", pc=0)
        self.expect_board("0000", "0000", " ", {5}, set(), set())
        self.assertEqual(table_of(words), self.memory_text())
        for length in (3000, 5, 6):
            self.reload(" .data -7\n" * length)
            wait_until(lambda: self.memory_text() == table_of([-7] * length + [0] * (16384 - length)))
            self.assertEqual([(a, 11) for a in range(length)], self.red_words())

    def expect_board(self, high, low, letter, *lit):
        """To the eye, and in what a screen reader tells."""
        self.wait_text("HEX7-HEX4 digits", high)
        self.wait_text("HEX3-HEX0 digits", low)
        self.wait_text("LCD text", letter + BLANK_LCD[1:])
        for (label, kind, count), on in zip(BANKS, lit):
            wait_until(lambda: {i for i in range(count) if self.lit(f"{label} {i}")} == on)
            self.assertEqual([f"{kind} {i} is {'on' if i in on else 'off'}" for i in range(count)],
                             [self.widget(f"{label} {i}").get_description() for i in range(count)])

    def reload(self, source):
        (self.folder / "lab.k").write_text(source)
        self.click("Assemble")
        self.press("Load", pc=0)

    def test_tips_and_places(self):
        self.load("lab.k")
        self.wait_stopped("Halted  ", 36)
        for i in range(18):
            self.assertTrue(self.has(f"{i}      "))
            self.assertEqual(self.box(self.widget(f"SW {i}"))[0], self.text_box(self.widget(f"{i}      "))[0])
        self.activate("tovik")
        for name, tip in (("SW 5", "SW 5: off"), ("LED_GREEN 1", "LED_GREEN 1: on"), ("PC", "PC 36" + NEXT_ONE),
                          ("Watch", "Run stops after an instruction that writes to this address; empty: none.")):
            self.expect_tip(tip, self.box(self.widget(name)))
        self.check_memory_window()
        # A far address is cut in a window as wide as before, and whole in the tip.
        before = self.box(self.window("tovik"))
        self.reload(" be 0x80000000 0 0\n")
        self.press("Run ", pc=-2147483648, Steps="1")
        self.activate("tovik")
        self.expect_tip("PC -2147483648" + NEXT_ONE, self.box(self.widget("PC")))
        self.assertEqual(before, self.box(self.window("tovik")))
        # The tip of a lamp that changes.
        self.reload((self.folder / "loop.k").read_text().replace("0x80000003", "0x80000001"))
        self.fill(Steps="")
        self.click("Run ")
        self.expect_tip("LED_RED 8: on", self.box(self.widget("LED_RED 8")))
        self.expect_tip("LED_RED 8: off")

    def check_memory_window(self):
        """Its margin, keys that scroll at once, and tips for what is in sight."""
        view = self.memory_view()

        def place(line, column, width=1):
            start = line * 127 + column
            return corners(Atspi.Text.get_range_extents(view, start, start + width, Atspi.CoordType.SCREEN))
        left, top = place(0, 0)[:2]
        self.assertGreater(left, self.box(view)[0] + 2)
        self.activate("K24 memory")
        for key, line, column, tip in (("Down", 12, 3, "address 123: line 120, column 3\n"), ("Next", 50, -1, ""),
                                       ("ctrl+End", 1638, 3, "address 16383: line 16380, column 3\n"),
                                       ("ctrl+Home", 0, 0, "address 0: line 0, column 0\n")):
            before = place(0, 0)
            self.keys("key", key)
            wait_until(lambda: place(0, 0) != before)
            self.expect_tip(tip + LEGEND, place(line, 7 + 12 * column, 11) if column >= 0 else place(line, 0, 5))
        self.assertEqual((left, top), place(0, 0)[:2])

    def test_large_text(self):
        (self.folder / "gtkrc").write_text('gtk-font-name = "Sans 20"\n')
        (self.folder / "resources").write_text("Xft.dpi: 192\n")
        for variable, name in (("GTK2_RC_FILES", "gtkrc"), ("XENVIRONMENT", "resources")):
            with self.subTest(variable=variable):
                self.load("lab.k", **{variable: str(self.folder / name)})
                self.wait_stopped("Halted  ", 36)
                self.fill(Steps="16383", Break="16383", Watch="16383")
                wait_until(lambda: self.text("Watch") == "16383")
                self.assert_texts_whole()
                self.activate("K24 memory")
                self.keys("key", "ctrl+End")
                wait_until(self.is_last_line_shown)
                self.end()

    def assert_texts_whole(self):
        boxes = [(widget, self.box(widget)) for widget in descendants(self.window("tovik")) if not children(widget)]
        for widget, (left, top, right, bottom) in boxes:
            name = widget.get_name()
            if "Text" in widget.get_interfaces() and text_of(widget).strip():
                x, y, x_end, y_end = self.text_box(widget)
                self.assertTrue(left <= x < x_end <= right and top <= y < y_end <= bottom, name)
                self.assertGreater(y_end - y, 26, f"{name} is not large")
            self.assertEqual([], [other.get_name() for other, box in boxes if other is not widget and
                                  left < box[2] and box[0] < right and top < box[3] and box[1] < bottom], name)

    def is_last_line_shown(self):
        pane, view = list(descendants(self.window("K24 memory")))[:2]
        _, top, _, bottom = self.box(pane)
        x, y, x_end, y_end = self.text_box(view, 1638 * 127)
        return top <= y and y_end <= bottom and len(set(self.pixels(None, x, y, x_end - x, y_end - y))) > 1

    def test_an_endless_run(self):
        self.load("loop.k", run=False)
        for entries, pc in (({"Steps": "3"}, 12), ({"Steps": "", "Break": "x"}, 0), ({"Break": "8"}, 8),
                            ({"Break": "-3", "Watch": "16"}, 4)):
            self.press("Run ", pc=pc, **entries)
        self.fill(Steps="41", Break="", Watch="")
        for pc in (8, 12):
            self.press("Run ", pc=pc)
            self.assertEqual([(16, 11), (17, 11)], self.red_words())
        self.press("Run ", "Running", Steps="0")
        self.wait_text("PC", "")
        self.assertEqual("Stop", self.label("Run "))
        self.press("Run ", Steps="2x")
        self.assertEqual(("Run ", "2x"), (self.label("Run "), self.text("Steps")), "the entry waits for the next run")
        self.assertRegex(self.text("PC"), r"^PC (0|4|8|12)$")
        self.fill(Steps="")
        self.click("Run ")
        (self.folder / "loop.mif").rename(self.folder / "kept.mif")
        wait_until(lambda: re.match("[1-9][0-9]* sec$", self.text("Time")))
        self.click("Load")
        self.assertEqual(f"Can't open {self.folder}/loop.mif", self.answer())
        self.expect_progress()
        (self.folder / "kept.mif").rename(self.folder / "loop.mif")
        self.press("Load", pc=0)
        self.assertEqual(("Run ", "0 sec"), (self.label("Run "), self.text("Time")))

    def test_fault(self):
        self.load("fault.k")
        self.wait_stopped("Running")
        self.keys("windowmove", self.id("VGA"), "1000", "750")  # where no dialog hides it
        self.click_at("SW 0")
        self.dialog()
        self.expect_board("0000", "004b", "K", {0}, {0}, set())
        wait_until(lambda: self.pixels(self.id("VGA"), 0, 0) == [(255, 255, 255)])
        for _ in range(2):
            self.assertEqual("error at PC 32\ndivision by zero", self.answer())
            self.wait_stopped(pc=32)
            self.assertEqual("Run ", self.label("Run "))
            self.click("Run ")

    def expect_progress(self):
        digits = self.text("HEX3-HEX0 digits")
        wait_until(lambda: self.text("HEX3-HEX0 digits") != digits)

    def test_without_the_other_windows(self):
        self.load("draw.k", run=False)
        self.click_at("SW 17")
        wait_until(lambda: self.lit("SW 17"))
        self.click("Run ")
        self.expect_progress()
        for window in ("VGA", "K24 memory"):
            self.close(window)
            wait_until(lambda: self.window(window) is None)
            self.expect_progress()
        self.press("Run ")
        self.press("Reset", pc=0)
        self.click("Run ")
        self.expect_progress()
        self.close("tovik")
        self.assert_exits()


class StartAndEnd(WindowTest):
    def test_first_argument(self):
        for arguments, variables, shown in (
                (["lab.k"], {"PWD": "/else"}, "/else/lab.k"), (["/no/such.k", "lab.k"], {}, "/no/such.k"),
                (["lab.txt"], {}, None), (["--sync", "x.k"], {}, f"{self.folder}/x.k"), (["lab.k"], None, None)):
            with self.subTest(arguments=arguments, variables=variables):
                self.begin(*arguments, prefix=["env", "-u", "PWD"] if variables is None else [], **variables or {})
                self.assertTrue(self.has(shown or "Choose assembly file"))
                self.end()

    def test_control_q(self):
        for modifiers in ("ctrl", "ctrl+alt"):
            self.begin()
            self.click_at("Steps")
            self.keys("key", "q")
            self.wait_text("Steps", "q")
            self.keys("key", f"{modifiers}+q")
            self.assert_exits()

    @unittest.skipUnless(os.environ["TOVIK_BIN"].endswith("/build/release"), "scripts/run starts the release build")
    def test_scripts_run_has_a_sound_server_of_its_own(self):
        self.begin("loop.k", prefix=["env", "-u", "PULSE_SERVER"], program=RUN)
        started = pathlib.Path(f"/proc/{self.program.pid}/environ").read_text()
        place = pathlib.Path(re.search(r"PULSE_SERVER=unix:([^\0]+)", started)[1])
        with socket.socket(socket.AF_UNIX) as client:
            client.connect(str(place))
            server = struct.unpack("3i", client.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12))[0]
        for name in ("Assemble", "Load", "Run "):
            self.click(name)
        wait_until(lambda: "tovik-speaker" in output("pactl", "--server", place, "list", "sink-inputs"))
        self.program.kill()
        self.assert_exits(-signal.SIGKILL)
        wait_until(lambda: not place.parent.exists() and not pathlib.Path(f"/proc/{server}").exists())


if __name__ == "__main__":
    unittest.main()
