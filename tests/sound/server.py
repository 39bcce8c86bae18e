"""A sound server of the tests' own: a sink that nobody hears, whose monitor can be recorded, and a microphone that
plays what is written to a pipe."""

import os
import pathlib
import subprocess
import tempfile
import time


class SoundServer:
    def __init__(self):
        self.holder = tempfile.TemporaryDirectory(prefix="tovik-sound-")
        self.folder = pathlib.Path(self.holder.name)
        self.name = f"unix:{self.folder}/native"
        self.process = None
        self.start()

    def start(self):
        modules = [f"module-native-protocol-unix auth-anonymous=1 socket={self.folder}/native",
                   "module-null-sink sink_name=out norewinds=1 rate=8000 channels=1 format=s16le",
                   f"module-pipe-source source_name=in file={self.folder}/microphone rate=8000 channels=1 format=s16le"]
        # The settings with which what arrives is exact to the sample.
        self.process = subprocess.Popen(
            ["setpriv", "--pdeathsig=TERM", "pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1",
             "--use-pid-file=no", "--disallow-exit", "--disable-shm=yes", *[f"--load={module}" for module in modules]],
            env={**os.environ, "PULSE_RUNTIME_PATH": str(self.folder), "HOME": str(self.folder)},
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        end = time.monotonic() + 20
        while "out" not in self.tool("pactl", "list", "short", "sinks"):
            if time.monotonic() > end:
                raise RuntimeError("the sound server does not start")
            time.sleep(0.02)
        self.tool("pactl", "set-default-sink", "out")
        self.tool("pactl", "set-default-source", "in")

    def tool(self, *command):
        return subprocess.run(command, env={**os.environ, "PULSE_SERVER": self.name}, capture_output=True,
                              text=True).stdout

    def stop(self):
        """At once, as a server dies."""
        self.process.kill()
        self.process.wait()

    def close(self):
        self.stop()
        self.holder.cleanup()
