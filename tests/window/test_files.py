"""File choosers, and files that cannot be read or written."""

import os
import struct
import subprocess
import unittest

from harness import WindowTest, wait_until

# Root without the right to pass over the permissions of files.
PREFIX = ["setpriv", "--bounding-set=-dac_override"] if os.geteuid() == 0 else []


class Files(WindowTest):
    def test_cancel(self):
        self.launch()
        for button, title in (("Assemble", "Choose assembly file"), ("Load", "Choose assembly file"),
                              ("Choose assembly file", "Choose assembly file"),
                              ("Save SDRAM", "Choose SDRAM .dat file"), ("Save VGA", "Choose VGA .dat file")):
            self.click(button)
            self.choose(title, None)
            self.assertEqual({"tovik", "VGA", "K24 memory"}, set(self.frames()))
        self.assertEqual("Choose assembly file", self.label("Choose assembly file"))
        self.assertEqual([], list(self.folder.glob("*.mif")) + list(self.folder.glob("*.dat")))

    def test_source_with_another_ending(self):
        (self.folder / "notes.txt").touch()
        self.launch()
        self.click("Choose assembly file")
        self.choose("Choose assembly file", self.folder / "notes.txt")
        self.assertEqual(f"unexpected error: {self.folder}/notes.txt doesn't end in .k", self.answer())
        self.assert_exits(1)

    def test_source_whose_name_is_not_text(self):
        name = os.fsencode(self.folder) + b"/x\xe9.k"
        with open(name, "w") as source:
            source.write(" halt\n")
        self.launch(name)
        self.click(f"{self.folder}/x\xe9.k")
        self.choose("Choose assembly file", None)
        self.click("Assemble")
        wait_until(lambda: os.path.exists(name.replace(b".k", b".mif")))

    def test_source_that_is_not_text(self):
        (self.folder / "bytes.k").write_bytes(b" h\xe9 %s 1\n")
        self.launch("bytes.k")
        self.click("Assemble")
        self.assertEqual(f"error in {self.folder}/bytes.k at line number 1:  h\xe9 %s 1\nunknown opcode h\xe9",
                         self.answer())

    def test_card(self):
        (self.folder / "card").write_bytes(b"\x34\x12\0\0")
        self.load("card.k")
        self.choose("Choose SD card file", None)
        self.assertEqual("error at PC 0\nuser cancelled SD card operation", self.answer())
        self.wait_stopped(pc=0)
        for _ in range(2):
            self.click("Run ")
            self.choose("Choose SD card file", self.folder / "card")
            self.wait_stopped("Halted  ", 16)
            self.wait_text("HEX3-HEX0 digits", "1234")
            self.click("Reset")
            self.wait_stopped(pc=0)

    def test_save_sdram(self):
        self.launch()
        self.click("Save SDRAM")
        self.choose("Choose SDRAM .dat file", self.folder / "memory")
        self.assertEqual("filename must end in .dat", self.answer())
        self.choose("Choose SDRAM .dat file", self.folder / "memory.dat")
        wait_until(lambda: (self.folder / "memory.dat").exists() and
                   (self.folder / "memory.dat").stat().st_size == 134217728)

    def test_save(self):
        (self.folder / "full.dat").symlink_to("/dev/full")
        (self.folder / "locked").mkdir(mode=0o555)
        os.mkfifo(self.folder / "pipe.dat")
        self.launch(prefix=PREFIX)
        for name, replace, error in (
                ("picture", False, "filename must end in .dat"), ("x.DAT", False, "filename must end in .dat"),
                ("full.dat", True, "Can't write file {}: No space left on device"),
                ("pipe.dat", True, "Can't open file {}: No such device or address"),
                ("locked/x.dat", False, "Can't open file {}: Permission denied"),
                ("x.dat", False, None), ("x.dat", True, None), ("x.dat", None, None)):
            with self.subTest(name=name, replace=replace):
                self.click("Save VGA")
                path = self.folder / name
                self.choose("Choose VGA .dat file", path)
                if replace is not False and error is None:
                    path.write_bytes(b"old")
                if replace is None:  # second thoughts
                    self.answer("Cancel")
                    self.answer("Cancel", "Choose VGA .dat file")
                    self.assertEqual(b"old", path.read_bytes())
                    continue
                if replace:
                    self.answer("Replace")
                if error is None:
                    wait_until(lambda: path.exists() and path.stat().st_size == 2097152)
                    colors = struct.unpack("<640H", path.read_bytes()[:1280])
                    self.activate("VGA")
                    wait_until(lambda: self.pixels(self.id("VGA"), 0, 0, 640) == [
                        tuple((color >> shift & 31) << 3 | (color >> shift & 31) >> 2 for shift in (10, 5, 0))
                        for color in colors])
                else:
                    self.assertEqual(error.format(path), self.answer())
                wait_until(lambda: set(self.frames()) == {"tovik", "VGA", "K24 memory"})
        path.write_bytes(b"old")
        subprocess.run(["prlimit", f"--pid={self.program.pid}", "--fsize=100000:"], check=True)
        self.click("Save VGA")
        self.choose("Choose VGA .dat file", path)
        self.answer("Replace")
        self.assertEqual(f"Can't write file {path}: File too large", self.answer())
        self.assertEqual((b"old", []), (path.read_bytes(), list(self.folder.glob(".*"))))
        self.assertEqual(["full.dat", "pipe.dat", "x.dat"], sorted(path.name for path in self.folder.rglob("*.[dD][aA][tT]")))


if __name__ == "__main__":
    unittest.main()
