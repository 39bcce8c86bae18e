#!/usr/bin/env python3
"""Runs a test that is a script for an editor, in a home of its own. Usage: editor.py EDITOR ARGUMENT...

Where the editor is missing the test is skipped, unless TOVIK_ALL_TESTS is set: then it fails. A test that skips itself
for what the editor lacks ends with 77."""

import os
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77
# With what it needs, this is more than scripts/setup asks for.
OPTIONAL = ["emacs"]

editor = sys.argv[1]
if not shutil.which(editor):
    print(f"{sys.argv[-1]}: {editor} is missing")
    sys.exit(1 if "TOVIK_ALL_TESTS" in os.environ and editor not in OPTIONAL else SKIPPED)
with tempfile.TemporaryDirectory() as folder:
    os.environ.update(HOME=folder, XDG_STATE_HOME=folder, XDG_CACHE_HOME=folder)
    sys.exit(subprocess.run(sys.argv[1:], cwd=folder, timeout=100, stdin=subprocess.DEVNULL).returncode)
