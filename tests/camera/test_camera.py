"""The camera with a capture device. Here the device is a stand-in, a library that is preloaded: see standin.cpp."""

import array
import errno
import functools
import json
import os
import pathlib
import subprocess
import tempfile
import time
import unittest

TOVIK_RUN = pathlib.Path(os.environ["TOVIK_BIN"]) / "tovik-run"
PATHS = ["/dev/video", "/dev/video0", "/dev/video1"]

TAKE = """
 cpdata 0x800000b2 {x}
 cpdata 0x800000b3 {y}
 cpdata 0x800000b4 {scale}
 cpdata 0x800000b5 {flip}
next cpdata 0x800000b0 1
wait bne wait 0x800000b1 one
 cpdata 0x800000b0 0
 add count count one
 blt next count last
 halt
count .data 0
last .data {pictures}
one .data 1
"""
CANCELLED = "error at PC 16\nuser cancelled camera file read"


def color(y, u, v):
    red = y + 1.370705 * (v - 128)
    green = y - 0.698001 * (v - 128) - 0.337633 * (u - 128)
    blue = y + 1.732446 * (u - 128)
    red, green, blue = (min(max(int(channel), 0), 255) >> 3 for channel in (red, green, blue))
    return red << 10 | green << 5 | blue


@functools.cache
def live(number):
    """The frame of this number as the stand-in makes it, in the camera's colors."""
    data = [(i * 167 + i // 1280 * 59 + number * 101 >> 1) & 255 for i in range(480 * 1280)]
    return [color(data[i // 2 * 4 + i % 2 * 2], data[i // 2 * 4 + 1], data[i // 2 * 4 + 3]) for i in range(480 * 640)]


@functools.cache
def recorded(number):
    """The frame of this number in the movie."""
    return [(i * 7 + i // 640 * 3 + number * 1001) & 0x7fff for i in range(480 * 640)]


def copied(memory, frame, x=0, y=0, scale=3, flip=0):
    memory = memory[:]
    shift = 3 - scale
    for row in range(0, 480, 1 << shift):
        for column in range(0, 640, 1 << shift):
            place = 640 - column if flip else column
            memory[((row >> shift) + y & 1023) * 1024 + ((place >> shift) + x & 1023)] = frame[row * 640 + column]
    return memory


class Camera(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        frames = (array.array("H", recorded(number)).tobytes() for number in range(4))
        (self.folder / "movie").write_bytes(b"".join(frames))

    def take(self, pictures=1, x=0, y=0, scale=3, flip=0, options=("--live-camera",), **standin):
        """Returns the texts of the dialogs, the video memory, and what the device was asked for."""
        (self.folder / "p.k").write_text(TAKE.format(pictures=pictures, x=x, y=y, scale=scale, flip=flip))
        (self.folder / "log").write_text("")
        environment = {f"STANDIN_{name}": str(value) for name, value in standin.items()}
        folder, library = os.path.split(os.environ["CAMERA_STANDIN"])  # a preloaded path must have no blank
        done = subprocess.run([TOVIK_RUN, "--report", "json", "--save-vga", "out.dat", *options, "p.k"],
                              cwd=self.folder, capture_output=True, text=True, timeout=60,
                              env={**os.environ, **environment, "LD_PRELOAD": library, "LD_LIBRARY_PATH": folder,
                                   "STANDIN_LOG": "log", "ASAN_OPTIONS": "verify_asan_link_order=0"})
        self.assertIn(done.returncode, (0, 1), done.stderr)
        report = json.loads(done.stdout)
        return ([message["text"] for message in report["messages"]],
                array.array("H", (self.folder / "out.dat").read_bytes()), (self.folder / "log").read_text().split())

    @functools.cached_property
    def noise(self):
        (self.folder / "halt.k").write_text(" halt\n")
        subprocess.run([TOVIK_RUN, "--report", "none", "--save-vga", "noise.dat", "halt.k"], cwd=self.folder, check=True)
        return array.array("H", (self.folder / "noise.dat").read_bytes())

    def check(self, texts, frame, taken, **place):
        self.assertEqual(texts, taken[0])
        self.assertTrue(taken[1] == copied(self.noise, frame, **place), "another picture")

    def check_closed(self, log):
        self.assertEqual(log.count("open"), log.count("close"))
        self.assertEqual(log.count("mmap"), log.count("munmap"))

    def test_place_size_and_mirror(self):
        for x, y, scale, flip in ((0, 0, 3, 0), (0, 0, 3, 1), (1000, 900, 3, 0), (700, 0, 3, 1), (5, 7, 2, 0),
                                  (1023, 1023, 1, 1), (300, 1000, 0, 1)):
            place = {"x": x, "y": y, "scale": scale, "flip": flip}
            with self.subTest(**place):
                self.check([], live(0), self.take(**place), **place)

    def test_which_frame(self):
        for pictures, number, standin in ((4, 3, {}), (6, 1, {"SKIP": 2}), (7, 2, {"SKIP": 2}), (1, 0, {"LATE": 300}),
                                          (1, 0, {"PATH": "/dev/video"}), (1, 0, {"PATH": "/dev/video1"})):
            with self.subTest(pictures=pictures, **standin):
                self.check([], live(number), self.take(pictures, **standin))

    def test_device_that_cannot_be_used(self):
        calls = ("open", "QUERYCAP", "G_FMT", "S_FMT", "REQBUFS", "QUERYBUF", "mmap", "QBUF", "STREAMON")
        for standin in (*({"FAIL": call} for call in calls), {"WIDTH": 320}, {"HEIGHT": 360}, {"FORMAT": 0x47504a4d},
                        {"BUFFERS": 0}, {"BUFFERS": 2}, {"LENGTH": 614400 + 4096}, {"LENGTH": 4096},
                        {"CAPABILITIES": 1}, {"CAPABILITIES": 0x04000000}, {"PATH": "/dev/none"}):
            with self.subTest(**standin):
                texts, _, log = self.take(**standin)
                self.assertEqual([CANCELLED], texts)
                self.assertEqual(PATHS, [line for line in log if line in PATHS])
                if standin.get("FAIL") not in ("open", "mmap"):
                    self.check_closed(log)
        self.check([], recorded(1), self.take(2, options=("--live-camera", "--camera", "movie"), FAIL="STREAMON"))

    def test_device_that_fails_later(self):
        for text, standin in (("error dequeueing buffer", {"FAIL": "DQBUF"}),
                              ("ioctl interrupted by signal", {"FAIL": "DQBUF", "ERRNO": errno.EAGAIN}),
                              ("error re-queueing buffer", {"FAIL": "QBUF", "AFTER": 1})):
            with self.subTest(**standin):
                texts, _, log = self.take(**standin)
                self.assertEqual([text, CANCELLED], texts)
                self.check_closed(log)
                self.check([text], recorded(0), self.take(options=("--live-camera", "--camera", "movie"), **standin))

    def test_first_frame_that_never_comes(self):
        begin = time.monotonic()
        texts, _, log = self.take(LATE=-1)
        self.assertEqual(["error dequeueing buffer", CANCELLED], texts)
        self.assertGreaterEqual(time.monotonic() - begin, 5)
        self.check_closed(log)

    def test_device_that_vanishes(self):
        # The last frame is shown once more; the movie begins with the next picture.
        for pictures, frame in ((2, live(1)), (3, live(1)), (4, recorded(0)), (6, recorded(2))):
            with self.subTest(pictures=pictures):
                taken = self.take(pictures, options=("--live-camera", "--camera", "movie"), GONE=2)
                self.check(["error dequeueing buffer"] * (pictures > 2), frame, taken)
                if pictures > 2:
                    self.check_closed(taken[2])

    def test_device_is_not_touched_unasked(self):
        taken = self.take(options=("--camera", "movie"))
        self.check([], recorded(0), taken)
        self.assertEqual([], taken[2])


if __name__ == "__main__":
    unittest.main()
