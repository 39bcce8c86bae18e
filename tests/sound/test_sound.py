"""Speaker and microphone on a real sound server."""

import itertools
import json
import os
import pathlib
import re
import struct
import subprocess
import tempfile
import threading
import time
import unittest

from server import SoundServer

TOVIK_RUN = pathlib.Path(os.environ["TOVIK_BIN"]) / "tovik-run"

# Random samples, a new one each tick; never 0.
NOISE = """
next    mult sample sample factor
        add sample sample odd
        cp 0x80000042 sample
        cp 0x80000040 one
wait    bne wait 0x80000041 one
        cp 0x80000040 zero
        add count count one
        blt next count last
        halt
sample  .data 1
factor  .data 1103515245
odd     .data 12345
count   .data 0
last    .data {}
one     .data 1
zero    .data 0
"""

LISTEN = """
next    cp 0x80000050 one
wait    bne wait 0x80000051 one
        cp sample 0x80000052
        cp 0x80000050 zero
        cpta sample heard count
        add count count one
        blt next count last
        halt
sample  .data 0
count   .data 0
last    .data 2000
one     .data 1
zero    .data 0
heard   .data 0
"""

LOOP = "loop be loop one one\none .data 1\n"


def samples_of(data):
    return list(struct.unpack(f"<{len(data) // 2}h", data[:len(data) // 2 * 2]))


class Sound(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.server = SoundServer()
        self.addCleanup(self.server.close)

    def start(self, source, *options):
        (self.folder / "p.k").write_text(source)
        return subprocess.Popen([TOVIK_RUN, "--live-sound", *map(str, options), "p.k"], cwd=self.folder,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                env={**os.environ, "PULSE_SERVER": self.server.name})

    def run_to_end(self, source, *options):
        process = self.start(source, *options)
        out, errors = process.communicate(timeout=60)
        return process.returncode, out, errors

    def test_what_is_played_arrives(self):
        recorder = subprocess.Popen(
            ["parec", "--server", self.server.name, "--device=out.monitor", "--rate=8000", "--channels=1",
             "--format=s16le", "--raw", "--latency-msec=20"], stdout=subprocess.PIPE)
        heard = []
        reader = threading.Thread(target=lambda: heard.append(recorder.stdout.read()))
        reader.start()
        while not self.server.tool("pactl", "list", "short", "source-outputs"):
            time.sleep(0.02)
        self.assertEqual((0, "", ""), self.run_to_end(NOISE.format(16000), "--report", "none", "--save-speaker", "s.wav"))
        time.sleep(0.3)
        recorder.terminate()
        recorder.wait()
        reader.join()
        recorder.stdout.close()
        words = struct.unpack("<16000i", (self.folder / "s.wav").read_bytes()[68:])
        # The high half, rounded toward zero.
        played = [abs(word) // 65536 * (1 if word >= 0 else -1) for word in words]
        arrived = samples_of(heard[0])
        sounding = [i for i, sample in enumerate(arrived) if sample != 0]
        arrived = arrived[sounding[0]:sounding[-1] + 1]
        self.assertTrue(arrived == played[:len(arrived)])
        self.assertGreater(len(arrived), 16000 - 3000, "all but what the server had not yet played")

    def test_the_server_sets_the_pace(self):
        def seconds(samples):
            begin = time.monotonic()
            self.assertEqual((3, "", ""), self.run_to_end(LOOP, "--report", "none", "--limit", 833 * samples))
            return time.monotonic() - begin
        # Until the server's buffer is full, the program runs ahead. A busy machine can only make it later.
        paced = seconds(24000) - seconds(8000)
        self.assertTrue(1.8 < paced < 3, paced)

    def test_what_is_recorded_reaches_the_program(self):
        period = 65521
        spoken = [(i * 7919 + 13) % period - 32760 for i in range(period)]
        done = threading.Event()

        def speak():
            with open(self.server.folder / "microphone", "wb", buffering=0) as pipe:
                for i in itertools.count():
                    pipe.write(struct.pack("<40h", *(spoken[j % period] for j in range(i * 40, i * 40 + 40))))
                    if done.wait(0.01):
                        break
        speaker = threading.Thread(target=speak)
        speaker.start()
        (self.folder / "p.k").write_text(LISTEN)
        subprocess.run([TOVIK_RUN, "--assemble", "p.k"], cwd=self.folder, check=True)
        first = int(re.search(r"heard\s+(\d+)", (self.folder / "p.labels").read_text()).group(1))
        status, out, errors = self.run_to_end(LISTEN, "--report", "json", "--memory", f"{first}-{first + 1999}")
        done.set()
        speaker.join()
        self.assertEqual((0, ""), (status, errors))
        heard = [word / 65536 for word in json.loads(out)["memory"].values()]
        # When the machine is busy, the server drops what its small buffer cannot hold, many samples at a time.
        when = {sample: i for i, sample in enumerate(spoken)}
        times = [when[sample] for sample in heard]
        steps = [(after - before) % period for before, after in itertools.pairwise(times)]
        self.assertLess(max(steps), period // 2, "none comes again or too early")
        self.assertLess(sum(step != 1 for step in steps), 80, "samples in a row follow each other")

    def test_a_server_that_dies_and_comes_back(self):
        process = self.start(LOOP, "--limit", 833 * 8000 * 3, "--save-speaker", "s.wav", "--report", "none")
        time.sleep(0.7)
        self.server.stop()
        out, errors = process.communicate(timeout=60)
        self.assertEqual((3, ""), (process.returncode, out))
        self.assertEqual({"pa_simple_write failed: Connection terminated"}, set(errors.splitlines()))
        self.assertLess(errors.count("\n"), 24000 / 32, "one a batch")
        self.assertEqual(68 + 4 * 24000, (self.folder / "s.wav").stat().st_size)
        self.server.start()
        process = self.start(LISTEN, "--report", "none")
        while not self.server.tool("pactl", "list", "short", "source-outputs"):
            time.sleep(0.02)
        self.server.stop()
        self.assertIn("pa_simple_read failed: Connection terminated\n" * 9, process.communicate(timeout=60)[1])
        status, out, errors = self.run_to_end(LOOP, "--limit", 833 * 8000, "--report", "json")
        refused = "pa_simple_new failed: Connection refused\n"
        self.assertEqual((3, refused + "Can't open pulse speaker.\n" + refused), (status, errors))
        self.assertEqual("limit", json.loads(out)["reason"])
        self.server.start()
        self.assertEqual((3, "", ""), self.run_to_end(LOOP, "--limit", 833 * 800, "--report", "none"))


if __name__ == "__main__":
    unittest.main()
