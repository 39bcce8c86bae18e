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

PATIENCE = 20  # seconds
SOURCE = """// remark
#include other.k
add             sub     sum 42 // behind
                .data   0x2a
cp
"""
# Vim's group of each word.
GROUPS = {"remark": "k24Comment", "include": "k24Include", "add": "k24Label", "sub": "k24Mnemonic", "sum": "",
          "42": "k24Number", "behind": "k24Comment", "data": "k24Directive", "0x2a": "k24Number", "cp": "k24Label"}
PLACES = [SOURCE.index(word) for word in GROUPS]

FILES = ["primes.k", "primes.txt", "primes.wav"]
COMPLETIONS = [
    ("tovik-run --swi", "tovik-run --switches "),
    ("tovik-run --report js", "tovik-run --report json "),
    ("tovik-run pri", "tovik-run primes.k "),
    ("tovik-run --mic pri", "tovik-run --mic primes.wav "),
    ("tovik-check --explain undefined-l", "tovik-check --explain undefined-label "),
    ("tovik-check pri", "tovik-check primes.k "),
    ("tovik-page --out", "tovik-page --output "),
    ("tovik-page --program pri", "tovik-page --program primes.k "),
    ("tovik -", "tovik -a "),
    ("tovik -a pri", "tovik -a primes.k "),
    ("tovik-relay --max-c", "tovik-relay --max-clients "),
    ("tovik-lsp --vers", "tovik-lsp --version "),
    ("tovik-dap --vers", "tovik-dap --version "),
    ("tovik-grade --vers", "tovik-grade --version "),
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
        # Where Neovim is installed, too, "vim" may be that.
        self.output("vim.basic", "-esN", "-u", "NONE", "-i", "NONE", "-c", "filetype on", "-c", "syntax on", "-c",
                    "edit source.k", "-c", f'call writefile([&filetype] + {groups}, "groups")', "-c", "quit")
        filetype, *groups = (self.folder / "groups").read_text().splitlines()
        self.assertEqual(filetype, "k24")
        self.assertEqual(dict(zip(GROUPS, groups)), GROUPS)

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
