#!/usr/bin/env python3
"""The pictures of the manual. Usage: scripts/gallery [NAME ...]

What an example draws on the screen is written by tovik-run; what it shows elsewhere is a picture of the windows, and
of one that plays sound, a picture of the sound. A run stops after a number of instructions, and keys are pressed
while it stands: so it is the same each time, and the pictures change only when what they show does.
"""

import os
import pathlib
import shutil
import subprocess
import sys
import time

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
IMAGES = REPOSITORY / "docs/images"
BIN = pathlib.Path(os.environ["TOVIK_BIN"])
sys.path.insert(0, str(REPOSITORY / "tests/window"))
import harness  # noqa: E402

# A picture of up to 256 colours takes a fraction of the space; the windows have fewer.
PALETTE = "split[a][b];[a]palettegen=reserve_transparent=0[p];[b][p]paletteuse=dither=none"
WAV = ["-r", 8000, "-c", 1, "-b", 32, "-e", "signed"]
MOVIE = ["-f", "rawvideo", "-pix_fmt", "rgb555le"]
GAP = 8
KEYS = ("Return", "Escape", "Next")
SMALL_SCREEN = "1366x768"
PLACES = {"tovik": (0, 0), "VGA": (0, 200), "K24 memory": (324, 343), "Serial console": (719, 200)}


def do(*command, **options):
    subprocess.run([str(word) for word in command], check=True, **options)


def keep(name, *source, picture=PALETTE, **options):
    do("ffmpeg", "-loglevel", "error", "-y", *source, "-filter_complex", picture, "-frames:v", 1, "-pred", "mixed",
       "-compression_level", 9, IMAGES / f"{name}.png", **options)


# A cursor that blinks would be in some pictures and not in others.
STEADY = harness.SCRATCH / "home/.gtkrc-2.0"
STEADY.write_text("gtk-cursor-blink = 0\n")


class Gallery(harness.WindowTest):
    def runTest(self):
        pass

    def setUp(self):
        super().setUp()
        shutil.copytree(REPOSITORY / "examples", self.folder, dirs_exist_ok=True)

    # Without a window

    def make(self, *command):
        do(*command, cwd=self.folder)

    def batch(self, name, *options, script=""):
        (self.folder / "script").write_text(script)
        # Not all of them halt.
        subprocess.run([BIN / "tovik-run", "--script", "script", "--limit", "40000000", "--report", "none", *options,
                        f"{name}.k"], cwd=self.folder)

    def screen(self, name, *options, script=""):
        self.batch(name, "--png", "screen.png", *options, script=script)
        keep(name, "-i", self.folder / "screen.png")

    def movie(self):
        self.make("ffmpeg", "-loglevel", "error", "-f", "lavfi", "-i", "testsrc2=size=640x480:rate=30", "-t", 2,
                  *MOVIE, "test.kmovie")

    # In the windows

    def open(self, name):
        self.load(f"{name}.k", run=False, PWD=".")
        self.activate("tovik")

    def run_for(self, instructions):
        self.fill(Steps=str(instructions))
        self.run_until_it_stands()
        self.fill(Steps="")

    def run_until_it_stands(self, during=lambda: None):
        """The program counter is shown while the program stands. It is another one after the run, but where the
        program waits in one instruction."""
        before, start = self.text("PC"), time.monotonic()
        self.click("Run ")
        during()
        harness.wait_until(lambda: self.text("PC").strip() and (
            self.text("PC") != before or time.monotonic() > start + 2))

    def press(self, title, *lines):
        """While the program stands: the keys wait for it in a queue."""
        self.activate(title)
        for line in lines:
            self.keys(*(["key", line] if line in KEYS else ["type", line]))
        self.activate("tovik")

    def frame(self, title):
        """Left, top, right and bottom of a window with its decoration."""
        root = harness.DISPLAY.screen().root
        window = harness.DISPLAY.create_resource_object("window", int(self.id(title)))
        while (parent := window.query_tree().parent) != root:
            window = parent
        place = window.get_geometry()
        return place.x, place.y, place.x + place.width, place.y + place.height

    def place_at(self, title, x, y):
        harness.output("wmctrl", "-i", "-r", self.id(title), "-e", f"0,{x},{y},-1,-1")
        harness.wait_until(lambda: self.frame(title)[:2] == (x, y))

    def shoot(self, name, *titles, lowest=1200):
        for title in reversed(titles):
            self.activate(title)
        self.keys("mousemove", 1599, 0)  # where no window tells what is below the pointer
        frames = [self.frame(title) for title in titles]
        left, top = (min(frame[i] for frame in frames) for i in (0, 1))
        right, bottom = (max(frame[i] for frame in frames) for i in (2, 3))
        bottom = min(bottom, lowest)
        keep(name, "-f", "rawvideo", "-pix_fmt", "bgr0", "-s", f"{right - left}x{bottom - top}", "-i", "-",
             input=self.settled(left, top, right - left, bottom - top))

    def settled(self, *area):
        """The points, when they no longer change from one look to the next."""
        before, now = None, b""
        while before != now:
            time.sleep(0.3)
            before, now = now, harness.DISPLAY.screen().root.get_image(*area, harness.X.ZPixmap, 0xffffffff).data
        return now

    def board(self, name, before=lambda: None, during=lambda: None):
        self.open(name)
        before()
        self.run_until_it_stands(during)
        self.wait_stopped("Halted  ")
        self.shoot(name, "tovik")

    # The pictures

    def draw_window(self):
        """The three windows, with a game that has gone on for a while, and the words that it has written."""
        self.open("pong")
        for title, x, y in (("K24 memory", 20, 755), ("VGA", 20, 230), ("tovik", 20, 20)):
            self.place_at(title, x, y)
        self.run_for(17000000)
        self.activate("VGA")
        self.keys("keydown", "s")
        self.run_for(1500000)
        self.press("K24 memory", *["Next"] * 2)
        self.shoot("window", "tovik", "VGA", "K24 memory", lowest=1100)

    def draw_small_screen(self):
        """The places of the windows, and which of them are in front."""
        if os.environ.get("TOVIK_SCREEN") != SMALL_SCREEN:
            do(sys.executable, "-B", __file__, "small_screen", env=os.environ | {"TOVIK_SCREEN": SMALL_SCREEN})
            return
        places = [(title, x, y) for title, (x, y) in PLACES.items() if title != "Serial console"]
        self.open("pong")
        for title, x, y in places:
            self.place_at(title, x, y)
        self.run_for(17000000)
        self.press("K24 memory", *["Next"] * 2)
        self.shoot("small-screen-vga", "tovik", "VGA", "K24 memory")
        self.run_for(1)
        self.shoot("small-screen-memory", "tovik", "K24 memory", "VGA")
        self.end()
        self.converse("calc", places, [], CALCULATION, switches=[0])
        self.place_at("Serial console", *PLACES["Serial console"])
        self.keys("windowminimize", self.id("VGA"))
        self.shoot("small-screen-serial", "tovik", "Serial console", "K24 memory")

    def draw_getting_started(self):
        """What the page shows is taken while it is followed."""
        do(sys.executable, "-B", REPOSITORY / "tests/getting_started.py", IMAGES,
           env=os.environ | {"GTK2_RC_FILES": str(STEADY), "TOVIK_EXAMPLES": str(REPOSITORY / "examples")})

    def draw_primes(self):
        self.board("primes")

    def draw_sort(self):
        self.board("sort")

    def draw_fibonacci(self):
        self.board("fibonacci")

    def draw_hello_lcd(self):
        self.board("hello_lcd")

    def draw_sdram_copy(self):
        self.board("sdram_copy")

    def draw_fft_tone(self):
        def switches():
            for switch in (0, 8):
                self.click_at(f"SW {switch}")
        self.board("fft_tone", before=switches)

    def draw_counter(self):
        self.open("counter")
        self.run_for(100000000)
        self.shoot("counter", "tovik")

    def draw_keyboard_echo(self):
        self.board("keyboard_echo", before=lambda: self.press(
            "VGA", "Hello K24", "Return", "12 x 12 = 144", "Escape"))

    def draw_sd_notes(self):
        self.make("truncate", "-s", "1M", "card.img")
        self.batch("sd_notes", "--sd", "card.img")
        self.board("sd_notes", during=lambda: self.choose("Choose SD card file", self.folder / "card.img"))

    def converse(self, name, places, typed, received, switches=()):
        """The serial port leads to the console."""
        self.open(name)
        for title, x, y in places:
            self.place_at(title, x, y)
        for switch in switches:
            self.click_at(f"SW {switch}")
        self.press("VGA", *typed)
        self.fill(Steps="5000000")
        self.run_until_it_stands(self.answer_prompt)
        self.press("Serial console", *received)
        self.run_for(5000000)

    def console(self, name, *said, **options):
        self.converse(name, (("tovik", 0, 0), ("VGA", 0, 600), ("K24 memory", 0, 600)), *said, **options)
        top = self.frame("tovik")[3] + GAP
        self.place_at("Serial console", 0, top)
        self.shoot(name, "tovik", "Serial console", lowest=top + 160)

    def answer_prompt(self):
        self.answer("OK", "question")

    def draw_calc(self):
        self.console("calc", [], CALCULATION, switches=[0])

    def draw_chat(self):
        self.console("chat", ["How are you?", "Return"], ["Fine, thanks"])

    def draw_tone(self):
        """The pitch, from left to right in time."""
        self.batch("tone", "--save-speaker", "tone.wav")
        self.make("sox", "tone.wav", "-n", "rate", "4k", "spectrogram", "-x", 560, "-y", 200, "-z", 50, "-l", "-c", "",
                  "-t", "", "-o", "tone.png")
        keep("tone", "-i", self.folder / "tone.png")

    def draw_echo(self):
        """The loudness of one short sound, from left to right in time."""
        self.make("sox", "-n", *WAV, "clap.wav", "synth", 0.05, "sine", 600, "fade", 0, 0.05, 0.045, "pad", 0.1, 1.9)
        self.batch("echo", "--mic", "clap.wav", "--switches", "20", "--save-speaker", "echo.wav")
        keep("echo", "-i", self.folder / "echo.wav", picture="color=white:s=640x160:d=0.04[white];"
             f"[0:a]showwavespic=s=640x160:scale=sqrt:filter=peak:colors=0x206020[wave];[white][wave]overlay,{PALETTE}")

    def draw_spectrum(self):
        self.make("sox", "-n", *WAV, "saw.wav", "synth", 0.3, "sawtooth", 300, "vol", 0.12)
        self.screen("spectrum", "--mic", "saw.wav", "--switches", "1")

    def draw_mirror(self):
        self.movie()
        self.screen("mirror", "--camera", "test.kmovie", "--switches", "45")

    def draw_snapshot(self):
        self.movie()
        self.screen("snapshot", "--camera", "test.kmovie",
                    script="".join(f'{second}000000 type "k"\n' for second in (1, 2, 3, 4)))

    def draw_paint(self):
        self.screen("paint", script=PAINTING)

    def draw_bounce(self):
        self.screen("bounce", script="20000000 switch 0 on\n")

    def draw_pong(self):
        self.screen("pong", script="99999 press s\n99999 press l\n2200000 release s\n2200000 release l\n"
                                   "20000000 stop\n")


def stroke(start, field, *points):
    """Chooses a field, then draws through the points; a movement each look at the window."""
    events = [f"move {80 * field + 40} 10", "button 1 down", "button 1 up", "move {} {}".format(*points[0]),
              "button 1 down", *("move {} {}".format(*point) for point in points[1:]), "button 1 up"]
    return [f"{100000 * (start + i)} {event}" for i, event in enumerate(events)]


def painting(strokes):
    lines = ["0 focus in"]
    for field, *points in strokes:
        lines += stroke(len(lines), field, *points)
    return "\n".join([*lines, f"{100000 * len(lines)} press escape"])


# A house with a door under the sun, on grass.
PAINTING = painting([
    (3, (0, 400), (120, 396), (250, 402), (400, 398), (520, 403), (639, 399)),
    (7, (220, 398), (220, 240), (420, 240), (420, 398)),
    (1, (200, 240), (320, 130), (440, 240), (200, 240)),
    (6, (295, 398), (295, 310), (345, 310), (345, 398)),
    (4, (540, 100), (565, 110), (575, 135), (565, 160), (540, 170), (515, 160), (505, 135), (515, 110), (540, 100)),
    (4, (480, 80), (500, 100)), (4, (600, 80), (580, 100)), (4, (480, 190), (500, 170)), (4, (600, 190), (580, 170)),
    (2, (60, 398), (80, 360)), (2, (80, 398), (80, 350)), (2, (100, 398), (80, 360)),
])

CALCULATION = ["2 3 +", "Return", "1 2 + 3 4 + *", "Return", "10 *", "Return", "5 0 /", "Return"]

PICTURES = ["window", "small_screen", "getting_started", *sorted(path.stem for path in (REPOSITORY / "examples").glob("*.k"))]

names = sys.argv[1:] or PICTURES
for name in names:
    if name not in PICTURES:
        sys.exit(f"scripts/gallery: no picture is called {name}; there are {', '.join(PICTURES)}")
for name in names:
    gallery = Gallery()
    gallery.setUp()
    try:
        getattr(gallery, f"draw_{name}")()
    finally:
        gallery.doCleanups()
    print(name)
