#!/usr/bin/env python3
"""Runs random programs with the native engine and with both of WebAssembly: what they print must be the same. Skipped
where a build is missing, unless TOVIK_ALL_TESTS is set. Usage: digests.py DIGESTS WASM"""

import os
import pathlib
import shutil
import subprocess
import sys

PROGRAMS = 1000
SKIPPED = 77


def lines_of(*command):
    return subprocess.run([*command, str(PROGRAMS)], check=True, capture_output=True, text=True).stdout.splitlines()


native, wasm = sys.argv[1], pathlib.Path(sys.argv[2])
others = {kind: wasm / f"digests-{kind}.js" for kind in ("tail", "loop")}
if shutil.which("node") is None or not all(program.exists() for program in others.values()):
    print("Node or the build for WebAssembly is missing: see scripts/web")
    sys.exit(1 if "TOVIK_ALL_TESTS" in os.environ else SKIPPED)
expected = lines_of(native)
assert len(expected) == PROGRAMS, len(expected)
differences = 0
for kind, program in others.items():
    # With fetch, the program would not look for its file on the disk.
    actual = lines_of("node", "--experimental-wasm-return-call", "--no-experimental-fetch", str(program))
    assert len(actual) == PROGRAMS, len(actual)
    for ours, theirs in zip(expected, actual):
        if ours != theirs:
            differences += 1
            print(f"{kind}: {theirs}\n      {ours}")
print(f"{differences} differences")
sys.exit(differences != 0)
