#!/usr/bin/env python3
"""Runs one case of tests/commands: real programs, in an empty folder, compared by all that they say.

A case is a text of sections, each headed "-- NAME --". The section "run" is a script for sh; "stdout",
"stderr" and "status" say what it must print and return (by default nothing, nothing and 0). Every other
section is a file that the script finds in its folder, and so is what stands in a folder of the case's name. The
script's environment has the programs on its PATH, EXAMPLES (the folder of examples) and the function unprivileged,
which runs a command as a user who may not do everything.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

PRELUDE = """
unprivileged() {
    if [ "$(id -u)" = 0 ]; then setpriv --reuid=65534 --regid=65534 --clear-groups "$@"; else "$@"; fi
}
"""


def run(script, folder):
    environment = dict(os.environ)
    environment["PATH"] = environment["TOVIK_BIN"] + os.pathsep + environment["PATH"]
    environment["EXAMPLES"] = environment["TOVIK_EXAMPLES"]
    environment.pop("DISPLAY", None)
    done = subprocess.run(["sh", "-c", PRELUDE + script], cwd=folder, env=environment,
                          stdin=subprocess.DEVNULL, capture_output=True)
    return {"status": f"{done.returncode}\n", "stdout": done.stdout.decode("latin-1"),
            "stderr": done.stderr.decode("latin-1")}


def main():
    case = pathlib.Path(sys.argv[1])
    parts = re.split(r"^-- (\S+) --\n", case.read_text(encoding="latin-1"), flags=re.M)
    sections = dict(zip(parts[1::2], parts[2::2]))
    expected = {"status": "0\n", "stdout": "", "stderr": ""}
    expected.update({name: sections.pop(name) for name in list(sections) if name in expected})
    script = sections.pop("run")
    folder = pathlib.Path(tempfile.mkdtemp(prefix="tovik-case-"))
    try:
        if case.with_suffix("").is_dir():
            shutil.copytree(case.with_suffix(""), folder, dirs_exist_ok=True)
        folder.chmod(0o777)
        for name, text in sections.items():
            (folder / name).write_bytes(text.encode("latin-1"))
        actual = run(script, folder)
    finally:
        shutil.rmtree(folder)
    for name in expected:
        if actual[name] != expected[name]:
            print(f"{name}, expected:\n{expected[name]}\n{name}, actual:\n{actual[name]}")
    sys.exit(actual != expected)


main()
