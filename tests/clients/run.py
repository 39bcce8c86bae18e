#!/usr/bin/env python3
"""Runs a test that is a program for Node, with the packages of the lock file, which are installed when they are missing.

Where they cannot be, the test is skipped, unless TOVIK_ALL_TESTS is set: then it fails. Usage: run.py TEST.cjs"""

import fcntl
import os
import pathlib
import shutil
import subprocess
import sys

SKIPPED = 77
HERE = pathlib.Path(__file__).parent
FOLDER = pathlib.Path(os.environ["TOVIK_BIN"]) / "clients"
LOCK = (HERE / "package-lock.json").read_bytes()


def install():
    FOLDER.mkdir(exist_ok=True)
    with open(FOLDER / "busy", "w") as busy:
        fcntl.flock(busy, fcntl.LOCK_EX)
        done = FOLDER / "installed"
        if done.exists() and done.read_bytes() == LOCK:
            return
        for name in ["package.json", "package-lock.json"]:
            shutil.copy(HERE / name, FOLDER)
        # Without a network npm would try again for minutes, even if it still has all packages from another time.
        subprocess.run(["npm", "ci", "--ignore-scripts", "--no-audit", "--no-fund", "--silent", "--prefer-offline",
                        "--fetch-retry-mintimeout=1000", "--fetch-retry-maxtimeout=5000"], cwd=FOLDER, check=True,
                       timeout=200, stdin=subprocess.DEVNULL)
        done.write_bytes(LOCK)


try:
    install()
    subprocess.run(["node", "--version"], check=True, stdout=subprocess.DEVNULL)
except (OSError, subprocess.SubprocessError) as error:
    print(f"{sys.argv[1]}: Node or its packages are missing: {error}")
    sys.exit(1 if "TOVIK_ALL_TESTS" in os.environ else SKIPPED)
os.environ["NODE_PATH"] = str(FOLDER / "node_modules")
sys.exit(subprocess.run(["node", str(HERE / sys.argv[1])]).returncode)
