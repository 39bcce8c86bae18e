#!/usr/bin/env python3
"""Makes a class for tovik-grade and measures what it costs. Usage: grade_class.py TOVIK_GRADE [SUBMISSIONS]

Two tasks of eight cases, in which switches are counted: in one of them a run takes about a hundred instructions, in the
other about 60,000. What is printed is processor time, of all processes together, a case.
"""

import pathlib
import resource
import subprocess
import sys
import tempfile

COUNT = """\
                cp      rest 0x80000000
again           be      done rest zero
                and     bit rest one
                add     count count bit
                sr      rest rest one
                be      again zero zero
done            cp      0x80000003 count
                {end}
rest            .data   0
bit             .data   0
count           .data   0
zero            .data   0
one             .data   1
"""

# Waits would be passed over.
LONG = """\
                cp      k zero
spin            add     k k one
                add     sum sum k
                bne     spin k rounds
""" + COUNT + """\
k               .data   0
sum             .data   0
rounds          .data   20000
"""


def make(folder, text, submissions):
    (folder / "right.k").write_text(text.format(end="halt"))
    for number in range(submissions):
        place = folder / "class" / f"student{number:03}"
        place.mkdir(parents=True)
        wrong = "count" if number % 5 else "bit"
        (place / "count.k").write_text(text.replace("0x80000003 count", f"0x80000003 {wrong}").format(end="halt"))
    cases = "".join(f"""
[[case]]
name = "switches {case}"
hidden = {"true" if case > 4 else "false"}
input = {{ switches = {case * 21845} }}
""" for case in range(1, 9))
    (folder / "task.toml").write_text('source = "count.k"\nreference = "right.k"\nlimit = 1_000_000\n' + cases)


def used():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def main():
    grade = pathlib.Path(sys.argv[1]).resolve()
    submissions = int(sys.argv[2]) if len(sys.argv) > 2 else 300
    for name, text in (("count", COUNT), ("long", LONG)):
        with tempfile.TemporaryDirectory() as folder:
            make(pathlib.Path(folder), text, submissions)
            before = used()
            subprocess.run([grade, "task.toml", "class"], cwd=folder, stdout=subprocess.DEVNULL, check=True)
            seconds = used() - before
            print(f"{name}: {seconds:.2f} s, {1000 * seconds / submissions / 8:.2f} ms a case")


main()
