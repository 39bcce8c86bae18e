#!/usr/bin/python3 -B
"""Follows docs/getting-started.md word for word, in a folder and on a display of its own.

The files of the page are written, its commands are run and must print what the page shows, and its sentences are done
in the window or must hold there. A sentence with a text in bold or in double quotes that is none of SENTENCES is a
mistake of the page. The computer that the page is read on has no sound server.
"""

import argparse
import os
import pathlib
import re
import shlex
import shutil
import struct
import subprocess
import sys
import time
import unittest
import zlib

HERE = pathlib.Path(__file__).resolve().parent
INSTALLED_EXAMPLES = "/usr/share/tovik/examples"
PICTURED = {"board": "tovik", "memory": "K24 memory"}
PICTURED_HEIGHT = 180  # points: the other lines of the memory show nothing
PICTURED_FOLDER = pathlib.Path("/tmp/k24")  # stands in the pictures
PATIENCE = "20s"  # with a command
BOLD = r"\*\*([^*]+)\*\*"
SENTENCES = []
# A fenced block, a picture, a heading, or a paragraph, which may be an item of a numbered list.
BLOCK = re.compile(r"^```(\w*)\n(.*?)^```\n|^!\[[^]]*\]\(images/getting-started-(\w+)\.png\)\n|^#[^\n]*\n"
                   r"|^(?:\d+\. +)?(\S.*?\n)(?=\n|\d+\. |```|\Z)", re.M | re.S)

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("page", type=pathlib.Path)
parser.add_argument("--bin", default="/usr/bin", help="the folder of the programs")
parser.add_argument("--examples", default=INSTALLED_EXAMPLES, help="the folder of the examples")
parser.add_argument("--screenshots", type=pathlib.Path, help="a folder for the page's pictures, made anew")
options = parser.parse_args()
options.examples = os.path.realpath(options.examples)
os.environ["TOVIK_BIN"] = os.path.realpath(options.bin)
sys.path.insert(0, str(HERE / "window"))
import harness  # noqa: E402 (starts the display)
from harness import Atspi, GLib, descendants, output, text_of, wait_until  # noqa: E402


def sentence(pattern):
    """Before it a condition may stand, and after it an explanation, both without anything to check."""
    def add(function):
        SENTENCES.append((re.compile(rf'(?:[^*"`]+[,:] )?{pattern}(?:[,:;]? [^*"]*)?', re.I), function))
        return function
    return add


@sentence(r"Save this as `([^`]+)` with any text editor:")
def save(test, name):
    test.fenced = (test.folder / name).write_text


@sentence(r"In `([^`]+)`, change `([^`]+)` to `([^`]+)`")
def change(test, name, old, new):
    replace(test.folder / name, re.escape(old), new)


@sentence(r"In `([^`]+)`, change the line that begins with `([^`]+)`:")
def change_line(test, name, label):
    test.fenced = lambda line: replace(test.folder / name, rf"^{label} .*\n", line)


def replace(path, old, new):
    text, count = re.subn(old, lambda _: new, path.read_text(), flags=re.M)
    assert count == 1, f"{path.name} has {count} times {old}"
    path.write_text(text)


@sentence(r'The windows "([^"]+)", "([^"]+)" and "([^"]+)" open')
def windows(test, *names):
    test.poll(set(names), lambda: set(test.frames()))


@sentence(rf"Press ({BOLD}(?:(?:, then|,| and) {BOLD})*)")
def press(test, names, *_):
    for name in re.findall(BOLD, names):
        name = "Run " if name == "Run" else name
        test.poll(name, lambda: test.has(name) and test.label(name))
        test.click(name)
        if name in ("Load", "Reset"):
            test.wait_stopped(pc=0)


def message(test):
    """The text of the dialog and its buttons by name."""
    try:
        widgets = list(descendants(test.window("alert")))
        return ("".join(text_of(widget) for widget in widgets if widget.get_role() == Atspi.Role.LABEL),
                {widget.get_name(): widget for widget in widgets if widget.get_role() == Atspi.Role.PUSH_BUTTON})
    except (GLib.Error, AttributeError):  # there is none, or it goes while we look
        return None, {}


@sentence(rf'A dialog says "([^"]+)"(?: and "([^"]+)")?; press {BOLD}')
def dialog(test, first, second, button):
    """The next one may come at once, so it is told by its text whether this one has gone."""
    expected = "\n".join(filter(None, (first, second)))
    test.poll(expected, lambda: message(test)[0])
    Atspi.Action.do_action(message(test)[1][button], 0)
    wait_until(lambda: message(test)[0] != expected)


@sentence(rf"Click (?:switch|the switches) ({BOLD}(?:(?:,| and) {BOLD})*)")
def switch(test, names, *_):
    for name in re.findall(BOLD, names):
        test.activate("tovik")
        turned = not test.lit(f"SW {name}")
        test.click_at(f"SW {name}")
        test.poll(turned, lambda: test.lit(f"SW {name}"))


@sentence(rf"Write {BOLD} into {BOLD}")
def write(test, text, name):
    """Again when a key went astray, which happens on a busy computer."""
    def written():
        test.click_at(name)
        test.keys("key", "ctrl+a", "BackSpace", *(["type", text] if text else []))
        return any(test.text(name) == text or time.sleep(0.01) for _ in range(200))
    wait_until(written)


@sentence(rf"Empty {BOLD}")
def empty(test, name):
    write(test, "", name)


@sentence(r'The status says "(\w+)"(?: and "PC (\d+)")?')
def status(test, expected, pc):
    test.poll(expected, lambda: test.text("Status").strip())
    if pc:
        test.wait_text("PC", f"PC {pc}")


@sentence(r'(HEX\d-HEX\d) shows "(....)"')
def digits(test, name, expected):
    test.wait_text(f"{name} digits", expected)


@sentence(rf"(?:The red lamps ({BOLD}(?:(?:,| and) {BOLD})*) are|No red lamp is) lit")
def lamps(test, names, *_):
    expected = {int(name) for name in re.findall(BOLD, names or "")}
    test.activate("tovik")
    test.poll(expected, lambda: {i for i in range(18) if test.lit(f"LED_RED {i}")})


@sentence(rf"In the memory window, the word {BOLD} is {BOLD}(, in red)?")
def memory(test, address, value, red):
    line, column = divmod(int(address), 10)
    start = line * 127 + 7 + column * 12
    test.poll(value, lambda: test.memory_text(start, start + 11).strip())
    test.poll(bool(red), lambda: int(address) in (first for first, _ in test.red_words()))


@sentence(r"Press the button that names the source, and choose `(.+?)`")
def source(test, name):
    test.has("Load")
    test.click(next(name for name in test.named if name.endswith(".k")))
    choose(test, next(test.folder.rglob(name)))


@sentence(r"Type the name `([^`]+)` and press \*\*Return\*\*")
def name_file(test, name):
    choose(test, name)
    wait_until((test.folder / name).exists)


def choose(test, name):
    """The window takes a name only as the file chooser goes."""
    title = wait_until(lambda: next((title for title in test.frames() if title.startswith("Choose")), None))
    entry = wait_until(lambda: next((widget for widget in descendants(test.window(title))
                                     if widget.get_role() == Atspi.Role.TEXT), None))
    test.activate(title)
    test.keys("key", "ctrl+a", "type", str(name))
    test.poll(str(name), lambda: text_of(entry))
    test.keys("key", "Return")
    wait_until(lambda: test.window(title) is None)


@sentence(rf"Close the window {BOLD}")
def close(test, name):
    test.close(name)
    test.assert_exits()


def png(width, height, pixels):
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    rows = b"".join(b"\0" + bytes(sum(pixels[y * width:(y + 1) * width], ())) for y in range(height))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows, 9)) + chunk(b"IEND", b""))


def command(test, line, shown):
    test.doing = line
    line = line[2:].replace(INSTALLED_EXAMPLES, shlex.quote(options.examples))
    if line.startswith("tovik "):
        test.begin(*shlex.split(line)[1:])
        return
    environment = {**os.environ, "PATH": os.environ["TOVIK_BIN"] + os.pathsep + os.environ["PATH"]}
    done = subprocess.run(["timeout", PATIENCE, "sh", "-c", line], cwd=test.folder, env=environment, text=True,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    test.assertEqual(shown, done.stdout)


def follow_fence(test, language, text):
    if language == "console":
        lines = re.findall(r"^(\$ .*)\n((?:(?!\$ ).*\n)*)", text, re.M)
        test.assertEqual(text, "".join(line + "\n" + shown for line, shown in lines))
        for line, shown in lines:
            command(test, line, shown)
    else:
        test.assertIsNotNone(test.fenced, "what is this for?")
        test.fenced(text)
        test.fenced = None


def follow_prose(test, text):
    for part in re.split(r"(?<=\.) (?=[A-Z*])", re.sub(r"\s*\n\s*", " ", text.strip())):
        test.doing = part
        known = [(match, function) for pattern, function in SENTENCES
                 if (match := pattern.fullmatch(part.removesuffix(".")))]
        if len(known) > 1 or not known and re.search(r'\*\*|"|^(?:In|Save this as|Type the name) `', part):
            raise AssertionError(f"{len(known)} meanings of this")
        for match, function in known:
            function(test, *match.groups())


def picture(test, name):
    """Of a window as it stands; only when pictures are wanted."""
    title = PICTURED[name]
    if options.screenshots is None:
        return
    window = test.activate(title)
    geometry = dict(re.findall(r"(\w+)=(\d+)", output("xdotool", "getwindowgeometry", "--shell", window)))
    width, height = int(geometry["WIDTH"]), min(int(geometry["HEIGHT"]), PICTURED_HEIGHT)
    output("xdotool", "mousemove", 1599, 1199)
    time.sleep(1)  # a tool's tip goes, and the last changes are drawn
    (options.screenshots / f"getting-started-{name}.png").write_bytes(
        png(width, height, test.pixels(window, 0, 0, width, height)))


class Page(harness.WindowTest):
    def setUp(self):
        self.folder = PICTURED_FOLDER if options.screenshots else harness.SCRATCH / "student"
        self.folder.mkdir()
        self.addCleanup(shutil.rmtree, self.folder)
        self.program = self.fenced = self.doing = None

    def poll(self, expected, actual):
        try:
            wait_until(lambda: actual() == expected)
        except AssertionError:
            self.assertEqual(expected, actual())

    def test_page(self):
        text = options.page.read_text()
        end = 0
        for block in BLOCK.finditer(text):
            language, fence, name, prose = block.groups()
            self.doing = block[0]
            try:
                self.assertEqual("", text[end:block.start()].strip(), "what is this?")
                if fence is not None:
                    follow_fence(self, language, fence)
                elif name:
                    picture(self, name)
                elif prose:
                    follow_prose(self, prose)
            except Exception as error:
                line = text.count("\n", 0, block.start()) + 1
                raise AssertionError(f"{options.page}:{line}: {self.doing}\n{error}") from error
            end = block.end()
        self.assertEqual((None, None, ""), (self.program, self.fenced, text[end:]), "left at the end")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
