"""Speaker and microphone on a real sound server."""

import itertools
import json
import os
import pathlib
import re
import shutil
import struct
import subprocess
import tempfile
import threading
import time
import unittest

from servers import SoundServer, wait_until

TOVIK_RUN = pathlib.Path(os.environ["TOVIK_BIN"]) / "tovik-run"

HERE = pathlib.Path(__file__).resolve().parent
PERIOD = 65521
SPOKEN = [(i * 7919 + 13) % PERIOD - 32760 for i in range(PERIOD)]


class Sound(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.server = SoundServer()
        self.addCleanup(self.server.close)

    def start(self, program, *options):
        shutil.copy(HERE / program, self.folder)
        return subprocess.Popen([TOVIK_RUN, "--live-sound", *map(str, options), program], cwd=self.folder,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                env={**os.environ, "PULSE_SERVER": self.server.name})

    def run_to_end(self, program, *options):
        process = self.start(program, *options)
        out, errors = process.communicate(timeout=60)
        return process.returncode, out, errors

    def test_what_is_played_arrives(self):
        with subprocess.Popen(
                ["parec", "--server", self.server.name, "--device=out.monitor", "--rate=8000", "--channels=1",
                 "--format=s16le", "--raw", "--latency-msec=20"], stdout=subprocess.PIPE) as recorder:
            heard = []
            reader = threading.Thread(target=lambda: heard.extend(iter(lambda: recorder.stdout.read(160), b"")))
            reader.start()
            wait_until(lambda: self.server.list("source-outputs"))
            begin = time.monotonic()
            self.assertEqual((0, "", ""), self.run_to_end("noise.k", "--report", "none", "--save-speaker", "s.wav"))
            # Until the server's buffer is full, the program runs ahead. A busy machine can only make it later.
            self.assertTrue(1.5 < time.monotonic() - begin < 4, "the server sets the pace")
            wait_until(lambda: not any(b"".join(heard[-5:])))
            recorder.terminate()
            reader.join()
        words = struct.unpack("<16000i", (self.folder / "s.wav").read_bytes()[68:])
        # The high half, rounded toward zero.
        played = struct.pack("<16000h", *(abs(word) // 65536 * (1 if word >= 0 else -1) for word in words))
        arrived = re.sub(rb"^(\0\0)*|(\0\0)*$", b"", b"".join(heard))
        self.assertTrue(played.startswith(arrived))
        self.assertGreater(len(arrived), 2 * (16000 - 3000), "all but what the server had not yet played")

    def test_what_is_recorded_reaches_the_program(self):
        done = threading.Event()

        def speak():
            with open(self.server.folder / "microphone", "wb", buffering=0) as pipe:
                for i in itertools.count():
                    pipe.write(struct.pack("<40h", *(SPOKEN[j % PERIOD] for j in range(i * 40, i * 40 + 40))))
                    if done.wait(0.01):
                        break
        speaker = threading.Thread(target=speak)
        speaker.start()
        # The words at the label heard.
        status, out, errors = self.run_to_end("listen.k", "--report", "json", "--memory", "37-2036")
        done.set()
        speaker.join()
        self.assertEqual((0, ""), (status, errors))
        # When the machine is busy, the server drops what its small buffer cannot hold, many samples at a time.
        when = {sample: i for i, sample in enumerate(SPOKEN)}
        times = [when[word / 65536] for word in json.loads(out)["memory"].values()]
        steps = [(after - before) % PERIOD for before, after in itertools.pairwise(times)]
        self.assertLess(max(steps), PERIOD // 2, "none comes again or too early")
        self.assertLess(sum(step != 1 for step in steps), 80, "samples in a row follow each other")

    def test_a_server_that_dies_and_comes_back(self):
        process = self.start("loop.k", "--limit", 833 * 8000 * 3, "--save-speaker", "s.wav", "--report", "none")
        wait_until(lambda: re.search("Buffer Latency: [1-9]", self.server.tool("list", "sink-inputs")))  # it plays
        self.server.stop()
        out, errors = process.communicate(timeout=60)
        self.assertEqual((3, ""), (process.returncode, out))
        self.assertEqual({"pa_simple_write failed: Connection terminated"}, set(errors.splitlines()))
        self.assertLess(errors.count("\n"), 24000 / 32, "one a batch")
        self.assertEqual(68 + 4 * 24000, (self.folder / "s.wav").stat().st_size)
        self.server.start()
        process = self.start("listen.k", "--report", "none")
        wait_until(lambda: self.server.list("source-outputs"))
        self.server.stop()
        self.assertIn("pa_simple_read failed: Connection terminated\n" * 9, process.communicate(timeout=60)[1])
        status, out, errors = self.run_to_end("loop.k", "--limit", 833 * 8000, "--report", "json")
        refused = "pa_simple_new failed: Connection refused\n"
        self.assertEqual((3, refused + "Can't open pulse speaker.\n" + refused), (status, errors))
        self.assertEqual("limit", json.loads(out)["reason"])
        self.server.start()
        self.assertEqual((3, "", ""), self.run_to_end("loop.k", "--limit", 833 * 800, "--report", "none"))


if __name__ == "__main__":
    unittest.main()
