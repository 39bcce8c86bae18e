"""File choosers, and files that cannot be read or written."""

import os
import struct
import unittest

from harness import WindowTest, wait_until

# Root without the right to pass over the permissions of files.
PREFIX = ["setpriv", "--bounding-set=-dac_override"] if os.geteuid() == 0 else []


class Files(WindowTest):
    def test_choosers(self):
        (self.folder / "locked").mkdir(mode=0o555)
        self.launch(prefix=PREFIX)
        for button, title in (("Assemble", "Choose assembly file"), ("Load", "Choose assembly file"),
                              ("Choose assembly file", "Choose assembly file"),
                              ("Save SDRAM", "Choose SDRAM .dat file"), ("Save VGA", "Choose VGA .dat file")):
            self.click(button)
            self.choose(title)
            wait_until(lambda: set(self.frames()) == {"tovik", "VGA", "K24 memory"})
        self.assertEqual("Choose assembly file", self.label("Choose assembly file"))
        self.assertEqual([], list(self.folder.glob("*.mif")) + list(self.folder.glob("*.dat")))
        path = self.folder / "x.dat"
        for kind, size in (("SDRAM", 134217728), ("VGA", 2097152)):
            title = f"Choose {kind} .dat file"
            self.click(f"Save {kind}")
            self.choose(title, self.folder / "x.DAT")
            self.assertEqual("filename must end in .dat", self.answer())
            if kind == "VGA":  # is not asked for again, and has second thoughts
                self.click("Save VGA")
                self.choose(title, path)
                self.answer("Cancel")
                self.assertEqual(134217728, path.stat().st_size)
            self.choose(title, path)
            if kind == "VGA":
                self.answer("Replace")
            wait_until(lambda: path.exists() and path.stat().st_size == size)
        colors = struct.unpack("<640H", path.read_bytes()[:1280])
        self.activate("VGA")
        wait_until(lambda: self.pixels(self.id("VGA"), 0, 0, 640) == [
            tuple((color >> shift & 31) << 3 | (color >> shift & 31) >> 2 for shift in (10, 5, 0))
            for color in colors])
        self.click("Save VGA")
        self.choose("Choose VGA .dat file", self.folder / "locked/x.dat")
        self.assertEqual(f"Can't open file {self.folder}/locked/x.dat: Permission denied", self.answer())
        self.assertEqual([path], list(self.folder.rglob("*.[dD][aA][tT]")))
        self.click("Choose assembly file")
        self.choose("Choose assembly file", path)
        self.assertEqual(f"unexpected error: {path} doesn't end in .k", self.answer())
        self.assert_exits(1)

    def test_source_that_is_not_text(self):
        name = os.fsencode(self.folder) + b"/x\xe9.k"
        with open(name, "wb") as source:
            source.write(b" h\xe9 %s 1\n")
        self.launch(name)
        self.click(f"{self.folder}/x\xe9.k")
        self.choose("Choose assembly file")
        self.click("Assemble")
        self.assertEqual(f"error in {self.folder}/x\xe9.k at line number 1:  h\xe9 %s 1\nunknown opcode h\xe9",
                         self.answer())


if __name__ == "__main__":
    unittest.main()
