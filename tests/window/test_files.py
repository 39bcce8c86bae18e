"""File choosers, and files that cannot be read or written."""

import os
import unittest

from harness import WindowTest, wait_until

# Root without the right to pass over the permissions of files.
PREFIX = ["setpriv", "--bounding-set=-dac_override"] if os.geteuid() == 0 else []


class Files(WindowTest):
    def test_cancel(self):
        self.launch()
        for button, title in (("Assemble", "Choose assembly file"), ("Load", "Choose assembly file"),
                              ("Choose assembly file", "Choose assembly file"),
                              ("Save VGA", "Choose VGA .dat file")):
            self.click(button)
            self.choose(title, None)
            self.assertEqual({"tovik", "VGA", "K24 memory"}, set(self.frames()))
        self.assertEqual("Choose assembly file", self.label("Choose assembly file"))
        self.assertEqual([], list(self.folder.glob("*.mif")) + list(self.folder.glob("*.dat")))

    def test_image_that_vanished(self):
        self.launch("lab.k")
        self.click("Assemble")
        wait_until(lambda: (self.folder / "lab.labels").exists())
        (self.folder / "lab.mif").unlink()
        self.click("Load")
        self.assertEqual(f"Can't open {self.folder}/lab.mif", self.answer())

    def test_source_that_is_not_text(self):
        (self.folder / "bytes.k").write_bytes(b" h\xe9 %s 1\n")
        self.launch("bytes.k")
        self.click("Assemble")
        self.assertEqual(f"error in {self.folder}/bytes.k at line number 1:  h\xe9 %s 1\nunknown opcode h\xe9",
                         self.answer())

    def test_save(self):
        (self.folder / "full.dat").symlink_to("/dev/full")
        (self.folder / "locked").mkdir(mode=0o555)
        self.launch(prefix=PREFIX)
        for name, replace, error in (
                ("picture", False, "filename must end in .dat"), ("x.DAT", False, "filename must end in .dat"),
                ("full.dat", True, "Can't write file {}: No space left on device"),
                ("locked/x.dat", False, "Can't open file {}: Permission denied"),
                ("x.dat", False, None), ("x.dat", True, None)):
            with self.subTest(name=name, replace=replace):
                self.click("Save VGA")
                path = self.folder / name
                self.choose("Choose VGA .dat file", path)
                if replace:
                    if error is None:
                        path.write_bytes(b"old")
                    self.answer("Replace")
                if error is None:
                    wait_until(lambda: path.exists() and path.stat().st_size == 2097152)
                else:
                    self.assertEqual(error.format(path), self.answer())
                wait_until(lambda: set(self.frames()) == {"tovik", "VGA", "K24 memory"})
        self.assertEqual(["full.dat", "x.dat"], sorted(path.name for path in self.folder.rglob("*.[dD][aA][tT]")))


if __name__ == "__main__":
    unittest.main()
