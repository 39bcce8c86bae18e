#!/usr/bin/env python3
"""Runs tests/clients/neovim.lua; it is skipped where Neovim is missing, unless TOVIK_ALL_TESTS is set."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77
SCRIPT = pathlib.Path(__file__).parents[1] / "clients" / "neovim.lua"

if not shutil.which("nvim"):
    print("neovim.lua: Neovim is missing")
    sys.exit(1 if "TOVIK_ALL_TESTS" in os.environ else SKIPPED)
with tempfile.TemporaryDirectory() as folder:
    os.environ.update(HOME=folder, XDG_STATE_HOME=folder, XDG_CACHE_HOME=folder)
    sys.exit(subprocess.run(["nvim", "--headless", "--clean", "-n", "-S", SCRIPT], cwd=folder, timeout=100,
                            stdin=subprocess.DEVNULL).returncode)
