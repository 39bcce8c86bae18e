"""Drives the windows from outside, as a person would, on a display and a session bus of its own.

Nothing here waits for a fixed time: wait_until polls until a condition holds. What was started is ended by its
process, in the reverse order.
"""

import atexit
import contextlib
import faulthandler
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.append(str(HERE.parent / "support"))
from servers import wait_until  # noqa: E402

faulthandler.dump_traceback_later(300, exit=True)  # should the other side never answer
SCRATCH = pathlib.Path(tempfile.mkdtemp(prefix="tovik-window-"))
atexit.register(shutil.rmtree, SCRATCH, ignore_errors=True)


def start(*command):
    process = subprocess.Popen(["setpriv", "--pdeathsig=TERM", *command], stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    atexit.register(lambda: (process.terminate(), process.communicate()))
    return process


def first_line(*command):
    """Of a server that says where it can be found."""
    return start(*command).stdout.readline().strip()


def start_desktop():
    for name in ("home", "runtime", "home/.config/gtk-2.0", "home/.local/share"):
        (SCRATCH / name).mkdir(mode=0o700, parents=True)
    # The file chooser with a field for the name, as typing needs it.
    (SCRATCH / "home/.config/gtk-2.0/gtkfilechooser.ini").write_text(
        "[Filechooser Settings]\nLocationMode=filename-entry\n")
    for name in ("XDG_CONFIG_HOME", "XDG_DATA_HOME", "AT_SPI_BUS_ADDRESS", "NO_AT_BRIDGE", "XAUTHORITY"):
        os.environ.pop(name, None)
    os.environ.update(PULSE_SERVER="unix:/nonexistent", HOME=str(SCRATCH / "home"), LC_ALL="C.UTF-8",
                      XDG_RUNTIME_DIR=str(SCRATCH / "runtime"), GTK_MODULES="gail:atk-bridge", GIO_USE_VFS="local",
                      GSETTINGS_BACKEND="memory")
    os.environ["DISPLAY"] = ":" + first_line("Xvfb", "-displayfd", "1", "-nolisten", "tcp", "-noreset", "-screen", "0",
                                             os.environ.get("TOVIK_SCREEN", "1600x1200") + "x24")
    os.environ["DBUS_SESSION_BUS_ADDRESS"] = first_line("dbus-daemon", "--session", "--nofork", "--print-address")
    start("openbox")
    wait_until(lambda: "Openbox" in output("wmctrl", "-m"))


def output(*command):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True).stdout


start_desktop()
import gi  # noqa: E402 (reads the environment)
gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402
from Xlib import X, display  # noqa: E402
from Xlib.ext import xfixes  # noqa: E402

Atspi.init()
Atspi.set_timeout(4000, 4000)
DISPLAY = display.Display()
DISPLAY.xfixes_query_version()
TIPS = []  # those on the screen; they are found only by their coming


def note_tip(event):
    if event.source.get_role() == Atspi.Role.TOOL_TIP:
        TIPS[:] = [event.source] if event.detail1 else []


TIP_LISTENER = Atspi.EventListener.new(note_tip)
TIP_LISTENER.register("object:state-changed:showing")


def children(widget):
    return [child for child in map(widget.get_child_at_index, range(widget.get_child_count())) if child]


def descendants(widget):
    for child in children(widget):
        yield child
        yield from descendants(child)


def text_of(widget):
    return Atspi.Text.get_text(widget, 0, Atspi.Text.get_character_count(widget))


def corners(extents):
    return extents.x, extents.y, extents.x + extents.width, extents.y + extents.height


class WindowTest(unittest.TestCase):
    """One run of the program for each test, in a folder of its own that holds the test programs."""

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(dir=SCRATCH))
        for source in HERE.glob("*.k"):
            shutil.copy(source, self.folder)

    def begin(self, *arguments, prefix=(), program=None, **environment):
        program = program or pathlib.Path(os.environ["TOVIK_BIN"]) / "tovik"
        with open(self.folder / "stderr", "w") as log:
            self.program = subprocess.Popen(
                ["setpriv", "--pdeathsig=TERM", *prefix, program, *arguments], cwd=self.folder,
                stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                env={**os.environ, "PWD": str(self.folder), **environment})
        self.addCleanup(self.end)
        self.named = {}
        wait_until(lambda: self.window("tovik") and self.has("LCD text"))

    def launch(self, *arguments, **environment):
        self.begin(*arguments, **environment)
        if "PULSE_SERVER" not in environment:
            # An empty memory halts at once; the first run says that there is no sound.
            self.click("Run ")
            self.assertEqual("Can't open pulse speaker.", self.answer())
            self.wait_stopped("Halted  ")
            self.press("Reset", pc=0)

    def end(self):
        """The program must still run, and must not have complained."""
        if self.program is not None:
            crashed = self.program.poll()
            self.program.kill()
            self.assert_exits(-signal.SIGKILL if crashed is None else "not yet")

    def assert_exits(self, status=0):
        wait_until(lambda: self.program.poll() is not None)
        ended, self.program = self.program.returncode, None
        complaints = [line for line in (self.folder / "stderr").read_text().splitlines() if re.search(
            "CRITICAL|Gtk-WARNING|Gdk-WARNING|Assertion|runtime error|ERROR: ", line)]
        self.assertEqual(([], status), (complaints, ended), "complaints, status")

    # Widgets

    def frames(self):
        try:
            Atspi.get_desktop(0).clear_cache()
            for application in children(Atspi.get_desktop(0)):
                application.clear_cache()
                if application.get_process_id() == self.program.pid:
                    return {self.title_of(frame): frame for frame in children(application)}
        except GLib.Error:  # a window that goes while we look
            pass
        return {}

    def find(self, title, role, *names):
        """Waits for it: what comes or goes while we look cannot be asked."""
        def found():
            with contextlib.suppress(GLib.Error, AttributeError):
                return next((widget for widget in descendants(self.window(title)) if widget.get_role() == role
                             and (not names or widget.get_name() in names)), None)
        return wait_until(found)

    def title_of(self, frame):
        """Messages and questions have the title of the control window."""
        role, name = frame.get_role(), frame.get_name()
        return {Atspi.Role.ALERT: "alert", Atspi.Role.DIALOG: "question" if name == "tovik" else name}.get(role, name)

    def window(self, title):
        return self.frames().get(title)

    def has(self, name, window="tovik"):
        try:
            for widget in descendants(self.window(window)):
                # An entry has the name of the label beside it.
                if widget.get_role() == Atspi.Role.TEXT or widget.get_name() not in self.named:
                    self.named[widget.get_name()] = widget
        except (GLib.Error, AttributeError):
            pass
        return name in self.named

    def widget(self, name):
        return self.named[name]

    def click(self, name):
        Atspi.Action.do_action(self.widget(name), 0)

    def text(self, name):
        return text_of(self.widget(name))

    def state(self, name, state):
        return self.widget(name).get_state_set().contains(state)

    def label(self, name):
        return self.widget(name).get_name()

    def fill(self, **entries):
        for name, text in entries.items():
            Atspi.EditableText.set_text_contents(self.widget(name), text)

    def wait_text(self, name, expected):
        try:
            wait_until(lambda: self.text(name) == expected)
        except AssertionError:
            self.assertEqual(expected, self.text(name), name)

    def wait_stopped(self, status="Stopped", pc=None):
        self.wait_text("Status", status)
        if pc is not None:
            self.wait_text("PC", f"PC {pc}")

    def press(self, button, status="Stopped", pc=None, **entries):
        """Fills the entries, presses the button, and waits for what it leads to."""
        self.fill(**entries)
        self.click(button)
        self.wait_stopped(status, pc)

    def dialog(self, title="alert"):
        return wait_until(lambda: self.window(title))

    def answer(self, button="OK", title="alert"):
        """The text of the dialog, which goes when the button is pressed."""
        pressed = self.find(title, Atspi.Role.PUSH_BUTTON, button)
        texts = [text_of(widget) for widget in descendants(self.dialog(title))
                 if widget.get_role() == Atspi.Role.LABEL]
        Atspi.Action.do_action(pressed, 0)
        wait_until(lambda: self.window(title) is None)
        return "".join(texts)

    # The screen

    def id(self, title):
        """Of the first one: messages, questions and tips are called like the control window."""
        found = wait_until(lambda: output("xdotool", "search", "--onlyvisible", "--name", f"^{title}$").split())
        return min(found, key=int)

    def activate(self, title):
        window = self.id(title)
        wait_until(lambda: output("xdotool", "windowactivate", window, "getactivewindow").strip() == window)
        return window

    def choose(self, title, name=None):
        """Names a file, or presses Cancel."""
        if name is None:
            self.answer("Cancel", title)
            return
        before = set(self.frames())
        for _ in range(4):
            Atspi.EditableText.set_text_contents(self.find(title, Atspi.Role.TEXT), str(name))
            Atspi.Action.do_action(self.find(title, Atspi.Role.PUSH_BUTTON, "Open", "Save"), 0)
            # An answer may be lost that is given while the toolkit still reads the folder.
            with contextlib.suppress(AssertionError):
                return wait_until(lambda: set(self.frames()) not in (set(), before), 5)
        raise AssertionError(f"{title} stays")

    def close(self, title):
        output("wmctrl", "-i", "-c", self.id(title))

    def keys(self, *words):
        output("xdotool", *words)

    def pixels(self, window, x, y, width=1, height=1):
        """Of a window, or of the whole screen without one."""
        drawable = DISPLAY.create_resource_object("window", int(window)) if window else DISPLAY.screen().root
        data = drawable.get_image(x, y, width, height, X.ZPixmap, 0xffffffff).data
        return [(red, green, blue) for blue, green, red, _ in zip(*[iter(data)] * 4)]

    def cursor(self):
        return xfixes.get_cursor_image(DISPLAY, DISPLAY.screen().root).cursor_image

    def place(self, name):
        extents = Atspi.Component.get_extents(self.widget(name), Atspi.CoordType.SCREEN)
        return extents.x, extents.y

    def click_at(self, name, clicks=1):
        """With the pointer, also quickly in a row."""
        self.activate("tovik")
        x, y = self.place(name)
        output("xdotool", "mousemove", x + 6, y + 6, "click", "--repeat", clicks, "--delay", 20, 1)

    def box(self, widget):
        """Left, top, right and bottom, on the screen."""
        return corners(Atspi.Component.get_extents(widget, Atspi.CoordType.SCREEN))

    def text_box(self, widget, start=0):
        return corners(Atspi.Text.get_range_extents(widget, start, Atspi.Text.get_character_count(widget),
                                                    Atspi.CoordType.SCREEN))

    def tip(self):
        """What is told about the thing below the pointer."""
        while GLib.MainContext.default().iteration(False):
            pass
        try:
            for tip in TIPS:
                tip.clear_cache()
            return "".join(widget.get_name() for tip in TIPS for widget in descendants(tip))
        except GLib.Error:  # it goes while we look
            return ""

    def expect_tip(self, text, box=None):
        """Where the pointer is, or in the middle of the box, again when a busy computer has missed that it came."""
        for _ in range(4):
            if box:
                left, top, right, bottom = box
                self.keys("mousemove", "0", "1199", "sleep", "0.1",
                          "mousemove", (left + right) // 2, (top + bottom) // 2)
            with contextlib.suppress(AssertionError):
                return wait_until(lambda: self.tip() == text, 5)
        self.assertEqual(text, self.tip())

    def unnamed(self, *titles):
        """The roles of what a screen reader could not tell."""
        layout = {"filler", "panel", "scroll pane", "scroll bar", "separator"}
        return [widget.get_role_name() for title in titles for widget in descendants(self.dialog(title))
                if not widget.get_name() and widget.get_role_name() not in layout]

    def lit(self, name):
        """The inside and the frame of a lamp."""
        x, y = self.place(name)
        grey = (0x6d,) * 3
        inside, frame = self.pixels(None, x + 6, y + 6)[0], self.pixels(None, x + 1, y + 6)[0]
        return frame == grey and inside == grey if frame == grey else None

    # Work

    def memory_view(self):
        return self.find("K24 memory", Atspi.Role.TEXT)

    def memory_text(self, start=0, end=-1):
        return Atspi.Text.get_text(self.memory_view(), start, end)

    def red_words(self):
        """The runs of red text, as (first address, length in characters)."""
        view = self.memory_view()
        runs, offset, length = [], 0, Atspi.Text.get_character_count(view)
        while offset < length:
            attributes, start, end = Atspi.Text.get_attribute_run(view, offset, False)
            if attributes.get("fg-color") == "65535,0,0":
                line, column = divmod(start, 127)
                self.assertEqual(0, (column - 7) % 12, "a run begins where a field begins")
                runs.append((line * 10 + (column - 7) // 12, end - start))
            offset = end
        return runs

    def load(self, name, run=True, **launching):
        self.launch(name, **launching)
        self.click("Assemble")
        self.click("Load")
        wait_until(lambda: not self.memory_text(0, 126).startswith("    0 " + f" {0:11}" * 2))
        if run:
            self.click("Run ")
