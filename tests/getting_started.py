#!/usr/bin/python3 -B
"""Follows docs/getting-started.md word for word, in a folder and on a display of its own.

The files of the page are written, its commands are run and must print what the page shows, and its sentences are done
in the window or must hold there. A sentence with a text in bold or in double quotes that is none of SENTENCES is a
mistake of the page. The computer that the page is read on has no sound server. Usage: getting_started.py [FOLDER], a
folder for the page's pictures, made anew.
"""

import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import time
import unittest

INSTALLED_EXAMPLES = "/usr/share/tovik/examples"
PICTURED = {"board": "tovik", "memory": "K24 memory"}
PICTURED_HEIGHT = 180  # points: the other lines of the memory show nothing
PICTURED_FOLDER = pathlib.Path("/tmp/k24")  # stands in the pictures
BOLD = r"\*\*([^*]+)\*\*"
BOLDS = rf"({BOLD}(?:(?:, then|,| and) {BOLD})*)"
# A fenced block, a picture, a heading, or a paragraph, which may be an item of a numbered list.
BLOCK = re.compile(r"^```(\w*)\n(.*?)^```\n|^!\[[^]]*\]\(images/getting-started-(\w+)\.png\)\n|^#[^\n]*\n"
                   r"|^(?:\d+\. +)?(\S.*?\n)(?=\n|\d+\. |```|\Z)", re.M | re.S)

HERE = pathlib.Path(__file__).resolve().parent
PAGE = HERE.parent / "docs/getting-started.md"
PICTURES = pathlib.Path(sys.argv[1]) if sys.argv[1:] else None
os.environ.setdefault("TOVIK_BIN", "/usr/bin")
EXAMPLES = os.environ.get("TOVIK_EXAMPLES", INSTALLED_EXAMPLES)
sys.path.insert(0, str(HERE / "window"))
import harness  # noqa: E402 (starts the display)
from servers import PATIENCE, wait_until  # noqa: E402


def bold(names):
    return re.findall(BOLD, names or "")


def press(test, names, *_):
    for name in bold(names):
        name = "Run " if name == "Run" else name
        test.poll(name, lambda: test.has(name) and test.label(name))
        test.click(name)
        if name in ("Load", "Reset"):
            test.wait_stopped(pc=0)


def alert(test):
    """The text of the dialog and its buttons by name."""
    try:
        widgets = list(harness.descendants(test.window("alert")))
        return ("".join(harness.text_of(widget) for widget in widgets if widget.get_role() == harness.Atspi.Role.LABEL),
                {widget.get_name(): widget for widget in widgets})
    except (harness.GLib.Error, AttributeError):  # there is none, or it goes while we look
        return None, {}


def dialog(test, first, second, button):
    """The next one may come at once, so it is told by its text whether this one has gone."""
    expected = "\n".join(filter(None, (first, second)))
    test.poll(expected, lambda: alert(test)[0])
    harness.Atspi.Action.do_action(alert(test)[1][button], 0)
    wait_until(lambda: alert(test)[0] != expected)


def switch(test, names, *_):
    for name in bold(names):
        turned = not test.lit(f"SW {name}")
        test.click_at(f"SW {name}")
        test.poll(turned, lambda: test.lit(f"SW {name}"))


def status(test, expected, pc):
    test.poll(expected, lambda: test.text("Status").strip())
    if pc:
        test.wait_text("PC", f"PC {pc}")


def lamps(test, names, *_):
    test.activate("tovik")
    test.poll(set(map(int, bold(names))), lambda: {i for i in range(18) if test.lit(f"LED_RED {i}")})


def memory(test, address, value, red):
    start = int(address) // 10 * 127 + 7 + int(address) % 10 * 12
    test.poll(value, lambda: test.memory_text(start, start + 11).strip())
    test.poll(bool(red), lambda: int(address) in (first for first, _ in test.red_words()))


def choose_source(test, name):
    test.has("Load")
    test.click(next(name for name in test.named if name.endswith(".k")))
    choose(test, next(test.folder.rglob(name)))


def choose(test, name):
    title = wait_until(lambda: next((title for title in test.frames() if title.startswith("Choose")), None))
    test.choose(title, name)
    wait_until(lambda: test.window(title) is None and (test.folder / name).exists())


def close(test, name):
    test.close(name)
    test.assert_exits()


# Before each a condition may stand, and after it an explanation, both without anything to check.
SENTENCES = [(re.compile(rf'(?:[^*"`]+[,:] )?{pattern}(?:[,:;]? [^*"]*)?', re.I), function) for pattern, function in (
    (r"Save this as `([^`]+)` with any text editor:",
     lambda test, name: setattr(test, "fenced", (test.folder / name).write_text)),
    (r"In `([^`]+)`, change `([^`]+)` to `([^`]+)`",
     lambda test, name, old, new: test.replace(name, re.escape(old), new)),
    (r"In `([^`]+)`, change the line that begins with `([^`]+)`:",
     lambda test, name, label: setattr(test, "fenced", lambda line: test.replace(name, rf"^{label} .*\n", line))),
    (r'The windows "([^"]+)", "([^"]+)" and "([^"]+)" open',
     lambda test, *names: test.poll(set(names), lambda: set(test.frames()))),
    (rf"Press {BOLDS}", press),
    (rf'A dialog says "([^"]+)"(?: and "([^"]+)")?; press {BOLD}', dialog),
    (rf"Click (?:switch|the switches) {BOLDS}", switch),
    (rf"Write {BOLD} into {BOLD}", lambda test, text, name: test.fill(**{name: text})),
    (rf"Empty {BOLD}", lambda test, name: test.fill(**{name: ""})),
    (r'The status says "(\w+)"(?: and "PC (\d+)")?', status),
    (r'(HEX\d-HEX\d) shows "(....)"', lambda test, name, shown: test.wait_text(f"{name} digits", shown)),
    (rf"(?:The red lamps {BOLDS} are|No red lamp is) lit", lamps),
    (rf"In the memory window, the word {BOLD} is {BOLD}(, in red)?", memory),
    (r"Press the button that names the source, and choose `(.+?)`", choose_source),
    (r"Type the name `([^`]+)` and press \*\*Return\*\*", choose),
    (rf"Close the window {BOLD}", close),
)]


class Page(harness.WindowTest):
    def setUp(self):
        super().setUp()
        self.folder = PICTURED_FOLDER if PICTURES else self.folder / "student"
        self.folder.mkdir()
        self.addCleanup(shutil.rmtree, self.folder)
        self.program = self.fenced = self.doing = None

    def poll(self, expected, actual):
        try:
            wait_until(lambda: actual() == expected)
        except AssertionError:
            self.assertEqual(expected, actual())

    def replace(self, name, old, new):
        text, count = re.subn(old, lambda _: new, (self.folder / name).read_text(), flags=re.M)
        self.assertEqual(1, count, f"{name} has {old} so many times")
        (self.folder / name).write_text(text)

    def command(self, line, shown):
        self.doing = line
        line = line.removeprefix("$ ").replace(INSTALLED_EXAMPLES, shlex.quote(EXAMPLES))
        if line.startswith("tovik "):
            return self.begin(*shlex.split(line)[1:])
        return self.assertEqual(shown, subprocess.run(
            ["timeout", str(PATIENCE), "sh", "-c", f"PATH=$TOVIK_BIN:$PATH; {line}"], cwd=self.folder,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True).stdout)

    def fence(self, language, text):
        if language != "console":
            self.assertIsNotNone(self.fenced, "what is this for?")
            self.fenced(text)
            self.fenced = None
            return
        lines = re.findall(r"^(\$ .*)\n((?:(?!\$ ).*\n)*)", text, re.M)
        self.assertEqual(text, "".join(line + "\n" + shown for line, shown in lines))
        for line, shown in lines:
            self.command(line, shown)

    def prose(self, text):
        for part in re.split(r"(?<=\.) (?=[A-Z*])", re.sub(r"\s*\n\s*", " ", text.strip())):
            self.doing = part
            known = [(match, function) for pattern, function in SENTENCES
                     if (match := pattern.fullmatch(part.removesuffix(".")))]
            is_plain = not re.search(r'\*\*|"|^(?:In|Save this as|Type the name) `', part)
            self.assertIn(len(known), (0, 1) if is_plain else (1,), "meanings of this")
            for match, function in known:
                function(self, *match.groups())

    def picture(self, name):
        """Of a window as it stands; only when pictures are wanted."""
        if PICTURES is None:
            return
        window = harness.DISPLAY.create_resource_object("window", int(self.activate(PICTURED[name])))
        self.keys("mousemove", "1599", "1199")
        time.sleep(1)  # a tool's tip goes, and the last changes are drawn
        area = window.get_geometry().width, min(window.get_geometry().height, PICTURED_HEIGHT)
        subprocess.run(["ffmpeg", "-loglevel", "error", "-y", "-f", "rawvideo", "-pix_fmt", "bgr0",
                        "-s", "{}x{}".format(*area), "-i", "-", PICTURES / f"getting-started-{name}.png"],
                       check=True, input=window.get_image(0, 0, *area, harness.X.ZPixmap, 0xffffffff).data)

    def test_page(self):
        text = PAGE.read_text()
        end = 0
        for block in BLOCK.finditer(text):
            language, fence, picture, prose = block.groups()
            self.doing = block[0]
            try:
                self.assertEqual("", text[end:block.start()].strip(), "what is this?")
                if fence is not None:
                    self.fence(language, fence)
                elif picture:
                    self.picture(picture)
                elif prose:
                    self.prose(prose)
            except Exception as error:
                line = text.count("\n", 0, block.start()) + 1
                raise AssertionError(f"{PAGE}:{line}: {self.doing}\n{error}") from error
            end = block.end()
        self.assertEqual((None, None, ""), (self.program, self.fenced, text[end:]), "left at the end")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
