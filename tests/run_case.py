#!/usr/bin/env python3
"""Runs one case of tests/commands: real programs, in an empty folder, compared by all that they say.

A case is a text of sections, each headed "-- NAME --". The section "run" is a script for sh; "stdout",
"stderr" and "status" say what it must print and return (by default nothing, nothing and 0). Every other
section is a file that the script finds in its folder, and so is what stands in a folder of the case's name. The
script's environment has the programs on its PATH, EXAMPLES (the folder of examples) and the function unprivileged,
which runs a command as a user who may not do everything.

Usage: run_case.py CASE [WASM]: with the folder of the programs for WebAssembly, tovik-run is the one of them, under
Node. Where that cannot be, the case is skipped, unless TOVIK_ALL_TESTS is set: then it fails.
"""

import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

PRELUDE = """
unprivileged() {
    if [ "$(id -u)" = 0 ]; then setpriv --reuid=65534 --regid=65534 --clear-groups "$@"; else "$@"; fi
}
"""

SKIPPED = 77
WEB = pathlib.Path(__file__).resolve().parent.parent / "web"


def make_programs(wasm, folder):
    """Copies: a user who may not do everything may not even enter the folder of the project."""
    parts = {"wasm": wasm, "node": WEB / "node", "node/node_modules/pako": WEB / "node_modules/pako"}
    if shutil.which("node") is None or not all(part.is_dir() for part in parts.values()):
        print("Node, its packages or the build for WebAssembly are missing: see scripts/web")
        sys.exit(1 if "TOVIK_ALL_TESTS" in os.environ else SKIPPED)
    for name, part in parts.items():
        shutil.copytree(part, folder / name, ignore=shutil.ignore_patterns("tovik-loop.*", "tovik-tail.*"))
    for program in ("tovik", "tovik-check"):
        (folder / program).symlink_to(pathlib.Path(os.environ["TOVIK_BIN"]) / program)
    (folder / "tovik-run").write_text(f"#!/bin/sh\nTOVIK_WASM={shlex.quote(str(folder / 'wasm'))} "
                                      f"exec node {shlex.quote(str(folder / 'node/tovik-run.cjs'))} \"$@\"\n")
    (folder / "tovik-run").chmod(0o755)
    folder.chmod(0o755)
    os.environ["TOVIK_BIN"] = str(folder)


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
    programs = pathlib.Path(tempfile.mkdtemp(prefix="tovik-programs-"))
    try:
        if len(sys.argv) > 2:
            make_programs(pathlib.Path(sys.argv[2]), programs)
        if case.with_suffix("").is_dir():
            shutil.copytree(case.with_suffix(""), folder, dirs_exist_ok=True)
        folder.chmod(0o777)
        for name, text in sections.items():
            (folder / name).write_bytes(text.encode("latin-1"))
        actual = run(script, folder)
    finally:
        shutil.rmtree(folder)
        shutil.rmtree(programs)
    for name in expected:
        if actual[name] != expected[name]:
            print(f"{name}, expected:\n{expected[name]}\n{name}, actual:\n{actual[name]}")
    sys.exit(actual != expected)


main()
