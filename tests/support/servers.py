"""What tests wait for, and a sound server of their own: a sink that nobody hears, whose monitor can be recorded, and a
microphone that plays what is written to a pipe."""

import os
import pathlib
import subprocess
import tempfile
import time

PATIENCE = 20


def wait_until(condition, timeout=PATIENCE):
    """The first true value of the condition."""
    end = time.monotonic() + timeout
    while not (value := condition()):
        if time.monotonic() > end:
            raise AssertionError("timed out")
        time.sleep(0.01)
    return value


class SoundServer:
    def __init__(self):
        self.holder = tempfile.TemporaryDirectory(prefix="tovik-sound-")
        self.folder = pathlib.Path(self.holder.name)
        self.name = f"unix:{self.folder}/native"
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
        wait_until(lambda: "out" in self.list("sinks"))
        self.tool("set-default-sink", "out")
        self.tool("set-default-source", "in")

    def tool(self, *command):
        return subprocess.run(["pactl", "--server", self.name, *command], capture_output=True, text=True,
                              env={**os.environ, "LC_ALL": "C"}).stdout

    def list(self, what):
        return self.tool("list", "short", what)

    def stop(self):
        """At once, as a server dies."""
        self.process.kill()
        self.process.wait()

    def close(self):
        self.stop()
        self.holder.cleanup()
