#!/usr/bin/env python3
"""Compares the schema of the task file with tovik-grade itself. Usage: task_schema.py

A task with all keys, which are those of grade/task_read.cpp, is changed in one place at a time: a key is left out or
has another name, or its value is of another type or out of range. What tovik-grade refuses with line and column the
schema must refuse; and it must take what tovik-grade takes, unless the value has changed: there it may be stricter.
"""

import copy
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import tomllib
from concurrent.futures import ThreadPoolExecutor

import jsonschema

SOURCES = pathlib.Path(__file__).resolve().parent.parent
EXAMPLE = SOURCES / "examples/grading"

TASK = """
source = "t.k"
title = "t"
library = ["t.k"]
points = 8
visibility = "hidden"
limit = 10
seeds = [1]
hidden = false
reference = "t.k"
source_check = [{ size = 5, points = 1, message = "m", name = "n" }, { forbidden = ["mult"] }, { must_use = ["a"] },
                { warnings = "all" }, { warnings = ["code-overwritten"] }]
[[case]]
name = "one"
points = 3
limit = 20
seeds = 2
hidden = true
reference = "t.k"
input = { switches = 1, script = "0 switch 1 on", serial = "a", card = ["t.k"], microphone = "t.wav", camera = ["t.kmovie"] }
check = [{ reason = "halt", points = 0.5, message = "m", name = "n" }, { hex74 = "00ff" }, { hex30 = "0000" },
         { led_red = 1 }, { led_green = 255 }, { lcd = ["a", "b"] }, { lcd_contains = "a" }, { lcd_matches = "a*" },
         { serial = "a" }, { serial_contains = "a" }, { serial_matches = "a*" }, { words = { a = 5, b = [-1, 1] } },
         { instructions = 5 }, { picture = {} },
         { picture = { file = "t.png", region = [0, 0, 9, 9], color = 1, distance = 2, share = 0.5 } },
         { sound = { reference = true } }, { sound = { file = "t.wav", tolerance = 0.1 } }, { sound = { seconds = 1 } },
         { sound = { pitch = [{ from = 0, to = 0.5, hz = 262, tolerance = 0.02 }] } },
         { events = [{ hex74 = "0001", after_ms = 1 }, { hex30 = "0001", within_ms = 2 }, { led_red = 1 }] },
         { events = [{ led_green = 1 }] }, { report = { key = "pc", equals = 12 } },
         { command = ["true"], seconds = 1 }, { same = ["hex30", "picture"] }, { same = "sound" }]
[[case]]
name = "two"
input = { script_file = "script", set = { a = 5, b = [-1, 4294967295] } }
check = [{ hex30 = "0000" }]
"""
LABELLED = {"set", "words"}  # their keys are the student's labels
# By the type of a value, what it is changed into.
OTHERS = {str: [True], bool: [-1], int: [True, -1, 0.25, 10**12], float: [True, -1, 10**12], list: [True, {}],
          dict: [True, []]}


def toml(value):
    if isinstance(value, dict):
        return "{" + ", ".join(f"{json.dumps(key)} = {toml(item)}" for key, item in value.items()) + "}"
    return f"[{', '.join(map(toml, value))}]" if isinstance(value, list) else json.dumps(value)


def tables(value, labelled=False):
    """All tables, with whether their keys are labels."""
    if isinstance(value, dict):
        yield value, labelled
        for key, item in value.items():
            yield from tables(item, key in LABELLED)
    elif isinstance(value, list):
        for item in value:
            yield from tables(item)


def changes(task):
    """Tasks that are changed in one place: what has changed, whether it is only a value, the task."""
    for number, (table, labelled) in enumerate(tables(task)):
        for key, value in table.items():
            acts = [(f"no {key}", False, {})]
            acts += [(f"{key} = {other}", True, {key: other}) for other in OTHERS[type(value)]]
            if key == next(iter(table)) and not labelled:
                acts.append((f"x{key}", False, {"x" + key: value}))
            for name, is_value, entries in acts:
                changed = copy.deepcopy(task)
                place = [one for one, _ in tables(changed)][number]
                del place[key]
                place.update(copy.deepcopy(entries))
                yield name, is_value, changed


def refused_by_reader(task, media):
    """The faults that tovik-grade tells with line and column."""
    with tempfile.TemporaryDirectory() as folder:
        for file in media.iterdir():
            os.link(file, pathlib.Path(folder, file.name))
        for name, text in ("t.k", " no program\n"), ("script", "0 switch 1 on\n"), ("task.toml", ""):
            pathlib.Path(folder, name).write_text(text)
        pathlib.Path(folder, "task.toml").write_text("".join(f"{key} = {toml(task[key])}\n" for key in task))
        done = subprocess.run([os.environ["TOVIK_BIN"] + "/tovik-grade", "task.toml", folder], cwd=folder, text=True,
                              capture_output=True)
        if done.returncode not in (0, 2):
            raise SystemExit(f"status {done.returncode}, {done.stderr}")
        return re.findall(r"^.*task.toml:\d+:\d+: .*", done.stderr, re.M)


def make_media(folder):
    """A recording, a movie of one picture, and a picture."""
    (folder / "t.wav").write_bytes(b"RIFF\0\0\0\0WAVE")
    (folder / "t.kmovie").write_bytes(bytes(640 * 480 * 2))
    (folder / "halt.k").write_text(" halt\n")
    subprocess.run([os.environ["TOVIK_BIN"] + "/tovik-run", "--report", "none", "--png", "t.png", "halt.k"], cwd=folder,
                   check=True)


def main():
    schema = json.loads((EXAMPLE / "task.schema.json").read_text())
    validator = jsonschema.Draft7Validator(schema)
    validator.check_schema(schema)
    faults = [f"the example: {error.message}" for error in
              validator.iter_errors(tomllib.loads((EXAMPLE / "task.toml").read_text()))]
    task = tomllib.loads(TASK)
    reader = (SOURCES / "grade/task_read.cpp").read_text()
    known = set(re.findall(r'\b(?:read_\w+|find|file_text)\(\w+, "(\w+)"', reader))
    known |= set(re.findall(r'^    \{"(\w+)", (?:read_|in_table)', reader, re.M))
    used = {key for table, labelled in tables(task) if not labelled for key in table}
    faults += [f"only in task_read.cpp or only in the task of this test: {key}" for key in known ^ used]

    def compare(change):
        name, is_value, changed = change
        told = refused_by_reader(changed, media)
        refuses = not validator.is_valid(changed)
        if told and not refuses:
            return f"{name}: the schema takes it. {told[0]}"
        return f"{name}: the schema refuses it" if refuses and not told and not is_value else None

    with tempfile.TemporaryDirectory() as folder, ThreadPoolExecutor(os.cpu_count()) as pool:
        media = pathlib.Path(folder)
        make_media(media)
        faults += filter(None, pool.map(compare, [("unchanged", False, task), *changes(task)]))
    print("\n".join(faults))
    sys.exit(bool(faults))


main()
