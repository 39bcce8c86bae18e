#!/usr/bin/env python3
"""Makes a class for tovik-grade and measures what it costs. Usage: grade_class.py FOLDER_OF_PROGRAMS [SUBMISSIONS]

Two tasks of eight cases, in which switches are counted: in one of them a run takes about a hundred instructions, in the
other about 60,000. What is printed is processor time, of all processes together, a case, and beside it that of a start of
tovik-run with the same program.
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
                halt
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
    (folder / "right.k").write_text(text)
    for number in range(submissions):
        place = folder / "class" / f"student{number:03}"
        place.mkdir(parents=True)
        wrong = "count" if number % 5 else "bit"
        (place / "count.k").write_text(text.replace("0x80000003 count", f"0x80000003 {wrong}"))
    cases = "".join(f"""
[[case]]
name = "switches {case}"
hidden = {"true" if case > 4 else "false"}
input = {{ switches = {case * 21845} }}
""" for case in range(1, 9))
    (folder / "task.toml").write_text('source = "count.k"\nreference = "right.k"\nlimit = 1_000_000\n' + cases)


# Seconds of processor time.
def cost(command, folder, times=1):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    for _ in range(times):
        subprocess.run(command, cwd=folder, stdout=subprocess.DEVNULL, check=True)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def main():
    programs = pathlib.Path(sys.argv[1]).resolve()
    submissions = int(sys.argv[2]) if len(sys.argv) > 2 else 300
    for name, text in (("count", COUNT), ("long", LONG)):
        with tempfile.TemporaryDirectory() as folder:
            make(pathlib.Path(folder), text, submissions)
            graded = cost([programs / "tovik-grade", "task.toml", "class"], folder)
            started = cost([programs / "tovik-run", "--report", "none", "right.k"], folder, 50) / 50
            a_case = graded / submissions / 8
            print(f"{name}: {graded:.2f} s, {1000 * a_case:.2f} ms a case; tovik-run {1000 * started:.2f} ms, "
                  f"{started / a_case:.1f} times as much")


main()
