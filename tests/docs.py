#!/usr/bin/env python3
"""Follows the pages of the manual word for word, and every link of a page. Usage: docs.py PAGE.md ...

"```k24 NAME" and "```file NAME" blocks are files of the page's folder. "```sh" blocks are commands; "```sh ffmpeg"
is left out where ffmpeg is missing. What a command prints, in either stream, must be the "```text" block right after
it, in which a line "..." stands for any number of lines; without such a block the command must succeed. The indented
block that a page shows for "scripts/run PROGRAM" must be the report. sheet.md has every operation and every register
that the sources have, examples.md every example with its picture and the library files that it includes.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import textwrap

SOURCES = pathlib.Path(__file__).resolve().parent.parent
EXAMPLES = SOURCES / "examples"
BLOCK = re.compile(r"^```(\w+) ?(.*)\n((?:.*\n)*?)```$", re.M)
LAUNCH = re.compile(r"^    scripts/run (.*)\n\n(?:\w.*\n)+\n((?: {4}.*\n)+)", re.M)


def as_pattern(text):
    lines = [r"(?:.*\n)*?" if line == "..." else re.escape(line) + r"\n" for line in text.splitlines()]
    return "".join(lines)


def follow(page, folder):
    environment = dict(os.environ, PATH=os.environ["TOVIK_BIN"] + os.pathsep + os.environ["PATH"])
    environment.pop("DISPLAY", None)
    blocks = [(match[1], match[2], match[3]) for match in BLOCK.finditer(page.read_text())]
    for (kind, argument, body), following in zip(blocks, blocks[1:] + [("", "", "")]):
        if kind in ("k24", "file") and argument:
            (folder / argument).write_text(body)
        if kind != "sh" or not all(map(shutil.which, argument.split())):
            continue
        done = subprocess.run(["sh", "-c", body], cwd=folder, env=environment, text=True, errors="replace",
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        expected = as_pattern(following[2]) if following[0] == "text" else None
        if re.fullmatch(expected, done.stdout) is None if expected else done.returncode != 0:
            yield f"{body}prints, with status {done.returncode}:\n{done.stdout}"


def differing_reports(page, folder):
    for program, shown in LAUNCH.findall(page.read_text()):
        command = [os.environ["TOVIK_BIN"] + "/tovik-run", program]
        done = subprocess.run(command, cwd=folder, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if done.stdout != textwrap.dedent(shown):
            yield f"{program} shows:\n{done.stdout}"


def prose(page):
    return re.sub(r"^ *```(?:.*\n)*? *```$", "", page.read_text(), flags=re.M)


def headings(page):
    titles = re.findall(r"^#+ (.*)$", prose(page), re.M)
    return {re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-") for title in titles}


def broken_links(page):
    for name, anchor in re.findall(r"\]\((?!\w+:)([^)#]*)#?([^)]*)\)", prose(page)):
        target = page.parent / name if name else page
        if not target.exists() or (anchor and anchor not in headings(target)):
            yield f"link to {name}#{anchor}"


def differs_from_sources(page):
    assembler = (SOURCES / "assembler/operations.cpp").read_text()
    devices = "".join(source.read_text() for source in (SOURCES / "devices").glob("*.cpp"))
    has = set(re.findall(r'\{"(\w+)",\s+K24_\w+,\s+(\d)', assembler))
    has |= {(offset, access, bits.replace("..", "-"))
            for offset, access, bits in re.findall(r"^// +0x(\w+) +\S.*? +(r|w)\w+ +([\d.]+)\b", devices, re.M)}
    text = page.read_text()
    shows = {(name, str(len(operands.split())))
             for name, operands in re.findall(r"^\| `(\w+)(.*)` \| \d+ \|", text, re.M)}
    shows |= set(re.findall(r"^\| 0x800000(\w+) \| [^|]+ \| (.) \| (\S+) \|", text, re.M))
    return [f"only there or only in the sources: {row}" for row in has ^ shows]


def misses_examples(page):
    for program in EXAMPLES.glob("*.k"):
        libraries = ", ".join(re.findall(r"^#include lib/(.*)\.k$", program.read_text(), re.M))
        section = re.search(rf"^## {program.name}\n(.*?)^!\[{program.name}\]\(images/{program.stem}\.png\)$",
                            page.read_text(), re.M | re.S)
        if section is None or f"Library files: {libraries}." not in " ".join(section[1].split()):
            yield f"{program.name} is not there with its picture and the library files {libraries}"


faults = []
for page in map(pathlib.Path, sys.argv[1:]):
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        shutil.copytree(EXAMPLES, folder / "examples")
        found = [*follow(page, folder), *differing_reports(page, folder), *broken_links(page)]
        found += differs_from_sources(page) if page.name == "sheet.md" else []
        found += misses_examples(page) if page.name == "examples.md" else []
        faults += [f"{page}: {fault}" for fault in found]
print("\n".join(faults))
sys.exit(bool(faults))
