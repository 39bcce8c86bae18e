#!/usr/bin/python3 -B
"""What the shells, the editors and the desktop do with the files of the installed packages."""

import os
import pathlib
import pty
import re
import select
import subprocess
import tempfile
import time
import unittest

import gi
gi.require_version("GtkSource", "4")
from gi.repository import GtkSource  # noqa: E402

PATIENCE = 20  # seconds
MANUAL = pathlib.Path("/usr/share/doc/tovik")
SOURCE = """// remark
#include other.k
add             sub     sum 42 // behind
                .data   0x2a
cp
"""
VIM, NANO, WIDGET = range(3)
# Of each kind, Vim's group, the number of nano's color and the style of the editor widget; and of words, the kind.
KINDS = {
    "comment": ("k24Comment", 36, "def:comment"),
    "include": ("k24Include", 36, "def:preprocessor"),
    "label": ("k24Label", 33, "def:identifier"),
    "operation": ("k24Mnemonic", 34, "def:keyword"),
    "operand": ("", 39, None),
    "number": ("k24Number", 35, "def:number"),
    "directive": ("k24Directive", 32, "def:type"),
}
WORDS = {"remark": "comment", "include": "include", "add": "label", "sub": "operation", "sum": "operand",
         "42": "number", "behind": "comment", "data": "directive", "0x2a": "number", "cp": "label"}
PLACES = [SOURCE.index(word) for word in WORDS]

FILES = ["primes.k", "primes.txt", "primes.wav"]
COMPLETIONS = [
    ("tovik-run --swi", "tovik-run --switches "),
    ("tovik-run --report js", "tovik-run --report json "),
    ("tovik-run pri", "tovik-run primes.k "),
    ("tovik-run --mic pri", "tovik-run --mic primes.wav "),
    ("tovik -", "tovik -a "),
    ("tovik -a pri", "tovik -a primes.k "),
    ("tovik-relay --max-c", "tovik-relay --max-clients "),
    ("tovik-relay --log-level de", "tovik-relay --log-level debug "),
]
SHOW = "\x14"  # Control+T shows the line and empties it.
SHELLS = {
    "bash": (".bashrc", r"""
        . /usr/share/bash-completion/bash_completion
        show() { printf '<%s>' "$READLINE_LINE"; READLINE_LINE=; }
        bind -x '"\C-t": show'
        PS1=ready
        """),
    "zsh": (".zshrc", """
        autoload -Uz compinit; compinit -u
        show() { printf '<%s>' $BUFFER; BUFFER= }
        zle -N show; bindkey '^T' show; bindkey '^I' complete-word
        PS1=ready
        """),
}


def expected(editor):
    return {word: KINDS[kind][editor] for word, kind in WORDS.items()}


class Installed(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.source = self.folder / "source.k"
        self.source.write_text(SOURCE)

    def start(self, *command):
        """A program on a terminal of its own, and what reads from that until a pattern comes."""
        child, terminal = pty.fork()
        if child == 0:
            os.chdir(self.folder)
            os.environ.update(TERM="xterm", HOME=str(self.folder), LC_ALL="C.UTF-8")
            os.execvp(command[0], command)
        # Its end of the terminal goes away with it.
        self.addCleanup(os.waitpid, child, 0)
        self.addCleanup(os.close, terminal)

        def read_until(pattern):
            output, end = "", time.monotonic() + PATIENCE
            while not (found := re.search(pattern, output, re.S)):
                ready = select.select([terminal], [], [], max(0, end - time.monotonic()))[0]
                self.assertTrue(ready, f"no {pattern} in {output!r}")
                output += os.read(terminal, 4096).decode()
            return found
        return terminal, read_until

    def output(self, *command, **variables):
        return subprocess.run(command, cwd=self.folder, env={**os.environ, **variables}, check=True, timeout=PATIENCE,
                              capture_output=True, text=True).stdout

    def test_completion(self):
        for name in FILES:
            (self.folder / name).touch()
        for shell, (settings, commands) in SHELLS.items():
            (self.folder / settings).write_text(commands)
            terminal, read_until = self.start(shell, "-i")
            read_until("ready")
            for typed, completed in COMPLETIONS:
                with self.subTest(shell=shell, typed=typed):
                    os.write(terminal, f"{typed}\t{SHOW}".encode())
                    self.assertEqual(read_until("<(.*?)>")[1], completed)

    def test_vim(self):
        positions = [[SOURCE.count("\n", 0, at) + 1, at - SOURCE.rfind("\n", 0, at)] for at in PLACES]
        groups = f'map({positions}, {{_, at -> synIDattr(synID(at[0], at[1], 1), "name")}})'
        self.output("vim", "-esN", "-u", "NONE", "-i", "NONE", "-c", "filetype on", "-c", "syntax on", "-c",
                    "edit source.k", "-c", f'call writefile([&filetype] + {groups}, "groups")', "-c", "quit")
        filetype, *groups = (self.folder / "groups").read_text().splitlines()
        self.assertEqual(filetype, "k24")
        self.assertEqual(dict(zip(WORDS, groups)), expected(VIM))

    def test_nano(self):
        _, read_until = self.start("nano", self.source.name)
        screen = read_until(r".*remark.*cp")[0]
        status = re.findall(r"\[ ([^]]+) \]", screen)[-1]
        self.assertEqual(status, f"Read {len(SOURCE.splitlines())} lines")
        pieces = re.findall(r"\x1b\[(3\d)m((?:(?!\x1b\[3\d).)*)", screen, re.S)
        colors = {word: next(int(color) for color, piece in pieces if word in piece) for word in WORDS}
        self.assertEqual(colors, expected(NANO))

    def test_editor_widget(self):
        """In a scheme of colors that tell all styles apart."""
        styles = "".join(f'<style name="{kind[WIDGET]}" foreground="#{number:06x}"/>'
                         for number, kind in enumerate(KINDS.values()) if kind[WIDGET])
        (self.folder / "scheme.xml").write_text(
            f'<style-scheme id="kinds" name="kinds" version="1.0">{styles}</style-scheme>')
        schemes = GtkSource.StyleSchemeManager(search_path=[str(self.folder)])
        language = GtkSource.LanguageManager.get_default().guess_language(self.source.name, None)
        buffer = GtkSource.Buffer.new_with_language(language)
        buffer.set_style_scheme(schemes.get_scheme("kinds"))
        buffer.set_text(SOURCE)
        buffer.ensure_highlight(*buffer.get_bounds())
        names = dict(enumerate(KINDS))
        kinds = {word: [names[round(tag.props.foreground_rgba.blue * 255)]
                        for tag in buffer.get_iter_at_offset(at).get_tags() if tag.props.foreground_set]
                 for word, at in zip(WORDS, PLACES)}
        self.assertEqual(kinds, {word: [kind] if KINDS[kind][WIDGET] else [] for word, kind in WORDS.items()})

    def test_html_manual(self):
        """There is a page for each of the others, and each link and picture leads to something that is there."""
        pages = {page.name: page.read_text() for page in MANUAL.glob("*.html")}
        names = {page.stem.replace("README", "index") + ".html" for page in MANUAL.glob("*.md")} - {"CHANGELOG.html"}
        self.assertEqual(names, set(pages))
        for name, text in pages.items():
            for target in re.findall(r'(?:href|src)="([^":]+)"', text):
                page, _, place = target.partition("#")
                there = (MANUAL / target).exists() if target.endswith((".css", ".png")) else (page or name) in pages
                self.assertTrue(there and (not place or f'id="{place}"' in pages[page or name]), f"{name}: {target}")

    def test_double_click(self):
        for name in (self.source.name, "named with blanks.k"):
            source = self.folder / name
            source.write_text(SOURCE)
            self.assertEqual(self.output("xdg-mime", "query", "filetype", source, XDG_CURRENT_DESKTOP="GNOME"),
                             "text/x-k24\n")
            self.assertEqual(self.output("xdg-mime", "query", "default", "text/x-k24"), "tovik.desktop\n")
            # Any other name after it would be an icon of the theme, which comes first.
            self.assertRegex(self.output("gio", "info", "--attributes", "standard::icon", source),
                             "standard::icon: text-x-k24, text-x-k24-symbolic\n")
            program = self.folder / "tovik"
            program.write_text('#!/bin/sh\nprintf "%s\\n" "$@" > part; mv part opened\n')
            program.chmod(0o755)
            self.output("gio", "open", source, PATH=f"{self.folder}:{os.environ['PATH']}")
            opened = self.folder / "opened"
            end = time.monotonic() + PATIENCE
            while not opened.exists() and time.monotonic() < end:
                time.sleep(0.05)
            self.assertEqual(opened.read_text(), f"{source}\n")
            opened.unlink()


if __name__ == "__main__":
    unittest.main()
