"""The camera with a capture device. Here the device is a stand-in, a library that is preloaded: see standin.cpp."""

import array
import concurrent.futures
import errno
import functools
import json
import os
import pathlib
import subprocess
import tempfile
import time
import unittest

TAKE = (pathlib.Path(__file__).resolve().parent / "take.k").read_text()
CANCELLED = "error at PC 16\nuser cancelled camera file read"
NO_FRAME = "error dequeueing buffer"
PATHS = ["/dev/video", "/dev/video0", "/dev/video1"]
CALLS = ("open", "QUERYCAP", "G_FMT", "S_FMT", "REQBUFS", "QUERYBUF", "mmap", "QBUF", "STREAMON")


@functools.cache
def live(number):
    """The frame of this number as the stand-in makes it: grey, for how colors are made is tested elsewhere."""
    return [((i * 167 + i // 640 * 59 + number * 101 >> 1) & 255) // 8 * 0x421 for i in range(480 * 640)]


@functools.cache
def recorded(number):
    """The frame of this number in the movie."""
    return array.array("H", ((i * 7 + i // 640 * 3 + number * 1001) & 0x7fff for i in range(480 * 640)))


def take(pictures=1, x=0, y=0, scale=3, flip=0, options=("--live-camera",), **standin):
    """Returns the texts of the dialogs, the video memory, what the device was asked for, and the seconds it took."""
    with tempfile.TemporaryDirectory() as name:
        place = pathlib.Path(name)
        (place / "movie").write_bytes(b"".join(recorded(number).tobytes() for number in range(4)))
        (place / "p.k").write_text(TAKE.format(pictures=pictures, x=x, y=y, scale=scale, flip=flip))
        (place / "standin.log").touch()
        folder, library = os.path.split(os.environ["CAMERA_STANDIN"])  # a preloaded path must have no blank
        begin = time.monotonic()
        done = subprocess.run([pathlib.Path(os.environ["TOVIK_BIN"]) / "tovik-run", "--report", "json", "--save-vga",
                               "out.dat", *options, "p.k"], cwd=place, capture_output=True, text=True, timeout=60,
                              env={**os.environ, **{f"STANDIN_{key}": str(value) for key, value in standin.items()},
                                   "LD_PRELOAD": library, "LD_LIBRARY_PATH": folder,
                                   "ASAN_OPTIONS": "verify_asan_link_order=0"})
        assert done.returncode in (0, 1), done.stderr
        return ([message["text"] for message in json.loads(done.stdout)["messages"]],
                array.array("H", (place / "out.dat").read_bytes()), (place / "standin.log").read_text().split(),
                time.monotonic() - begin)


def copied(memory, frame, x=0, y=0, scale=3, flip=0):
    memory = memory[:]
    shift = 3 - scale
    for row in range(0, 480, 1 << shift):
        for column in range(0, 640, 1 << shift):
            place = 640 - column if flip else column
            memory[((row >> shift) + y & 1023) * 1024 + ((place >> shift) + x & 1023)] = frame[row * 640 + column]
    return memory


BOTH = {"options": ("--live-camera", "--camera", "movie")}
# The texts of the dialogs, the frame that is seen at last, and how it is taken.
ROWS = (
    # The first frame never comes: it is not waited for longer than 5 s.
    ([NO_FRAME], recorded(0), {"FRAMES": 0, **BOTH}),
    *(([], live(0), {"x": x, "y": y, "scale": scale, "flip": flip}) for x, y, scale, flip in (
        (1000, 900, 3, 0), (700, 0, 3, 1), (5, 7, 2, 0), (1023, 1023, 1, 1), (300, 1000, 0, 1))),
    ([], live(3), {"pictures": 4}), ([], live(1), {"pictures": 7, "FRAMES": 2}), ([], live(0), {"LATE": 300}),
    *(([], live(0), {"PATH": path}) for path in PATHS),
    # Devices that cannot be used.
    *(([CANCELLED], None, standin) for standin in (
        *({"FAIL": call} for call in CALLS), {"WIDTH": 320}, {"HEIGHT": 360}, {"FORMAT": 0x47504a4d}, {"BUFFERS": 0},
        {"BUFFERS": 2}, {"LENGTH": 614400 + 4096}, {"LENGTH": 4096}, {"CAPABILITIES": 1}, {"CAPABILITIES": 0x04000000},
        {"PATH": "/dev/none"})),
    ([], recorded(1), {"FAIL": "STREAMON", "pictures": 2, **BOTH}),
    ([], recorded(0), {"options": ("--camera", "movie")}),
    # Devices that fail later.
    ([NO_FRAME], recorded(0), {"FAIL": "DQBUF", **BOTH}),
    (["ioctl interrupted by signal"], recorded(0), {"FAIL": "DQBUF", "ERRNO": errno.EAGAIN, **BOTH}),
    (["error re-queueing buffer"], recorded(0), {"FAIL": "QBUF", "AFTER": 1, **BOTH}),
    # When it vanishes, the last frame is shown once more; the movie begins with the next picture.
    ([NO_FRAME], live(1), {"GONE": 2, "pictures": 3, **BOTH}),
    ([NO_FRAME], recorded(2), {"GONE": 2, "pictures": 6, **BOTH}))


class Camera(unittest.TestCase):
    def test_what_is_seen(self):
        noise = take(FAIL="open")[1]
        with concurrent.futures.ThreadPoolExecutor(3) as pool:
            taken = [pool.submit(take, **how) for _, _, how in ROWS]
            for (texts, frame, how), result in zip(ROWS, taken):
                with self.subTest(**how):
                    shown, memory, log, seconds = result.result()
                    self.assertEqual(texts, shown)
                    place = {key: value for key, value in how.items() if key in ("x", "y", "scale", "flip")}
                    self.assertTrue(memory == (copied(noise, frame, **place) if frame else noise), "another picture")
                    self.assertTrue(seconds > 5 or how.get("FRAMES") != 0, seconds)
                    if "--live-camera" not in how.get("options", BOTH["options"]):
                        self.assertEqual([], log)
                    elif texts:
                        self.assertEqual((log.count("mmap"), log.count("open")),
                                         (log.count("munmap"), log.count("close")))
                    if texts == [CANCELLED]:
                        self.assertEqual(PATHS, [line for line in log if line in PATHS])


if __name__ == "__main__":
    unittest.main()
