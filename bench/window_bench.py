#!/usr/bin/env python3
"""How the windows feel, measured from outside on a display of its own. Usage: scripts/bench-window

Prints, as medians: from the start to labels and noise on the screen; from the click to the visible end of a single
step and of Stop while a program runs at full speed; how fast programs that draw without a pause run with the VGA window
open, compared with closed; and the processor time of the stopped program.
"""

import os
import pathlib
import shutil
import statistics
import sys
import time

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(REPOSITORY / "tests/window"))
import harness  # noqa: E402

ROUNDS = 7


class Bench(harness.WindowTest):
    def runTest(self):
        pass

    def setUp(self):
        super().setUp()
        for source in (REPOSITORY / "bench/window").glob("*.k"):
            shutil.copy(source, self.folder)

    def measure(self, act, done):
        start = time.monotonic()
        act()
        while not done():
            pass
        return time.monotonic() - start

    def processor_seconds(self):
        fields = pathlib.Path(f"/proc/{self.program.pid}/stat").read_text().split()
        return (int(fields[13]) + int(fields[14])) / os.sysconf("SC_CLK_TCK")


def fresh(function, *arguments):
    bench = Bench()
    bench.setUp()
    try:
        return function(bench, *arguments)
    finally:
        bench.doCleanups()


def start_up(bench):
    def painted():
        window = harness.output("xdotool", "search", "--onlyvisible", "--name", "^VGA$").split()
        return window and len(set(bench.pixels(window[-1], 0, 300, 40, 1))) > 30
    return bench.measure(lambda: bench.begin("loop.k"), painted)


def until_seen(bench, button, label):
    """From a click to other pixels where a label is."""
    def seen():
        return bench.pixels(None, *bench.place(label), 120, 16)
    before = seen()
    return bench.measure(lambda: bench.click(button), lambda: seen() != before)


def single_step(bench):
    bench.load("lab.k", run=False)
    bench.activate("tovik")
    bench.fill(Steps="1")
    times = []
    for pc in range(4, 4 * ROUNDS, 4):
        times.append(until_seen(bench, "Run ", "PC"))
        bench.wait_stopped(pc=pc)
    return statistics.median(times)


def stop(bench, program):
    bench.load(program)
    bench.activate("tovik")
    bench.wait_text("Status", "Running")
    time.sleep(0.2)
    return until_seen(bench, "Run ", "Status")


def drawing(bench, program, opened):
    bench.load(program, run=False)
    if not opened:
        bench.close("VGA")
        harness.wait_until(lambda: bench.window("VGA") is None)
    start = time.monotonic()
    bench.click("Run ")
    bench.wait_text("Status", "Halted  ")
    return time.monotonic() - start


def start_console(bench):
    bench.load("send.k", run=False)
    bench.click("Run ")
    title = harness.wait_until(lambda: set(bench.frames()) - {"tovik", "VGA", "K24 memory"}).pop()
    bench.answer("OK", title)
    harness.wait_until(lambda: bench.window("Serial console"))


def sending(bench, opened):
    """Processor time, which the accessibility interface's part in showing text counts in."""
    start_console(bench)
    if not opened:
        bench.close("Serial console")
    bench.wait_text("Status", "Halted  ")
    return bench.processor_seconds()


def stop_console(bench):
    start_console(bench)
    bench.activate("tovik")
    time.sleep(5)
    return until_seen(bench, "Run ", "Status")


def stopped(bench):
    bench.load("lab.k", run=False)
    time.sleep(2)
    before = bench.processor_seconds()
    time.sleep(10)
    return bench.processor_seconds() - before


def main():
    median = statistics.median
    print(f"start-up        {median(fresh(start_up) for _ in range(ROUNDS)) * 1000:6.0f} ms")
    print(f"single step     {fresh(single_step) * 1000:6.1f} ms")
    for program in ("loop.k", "plot.k", "fill.k"):
        print(f"Stop {program:10} {median(fresh(stop, program) for _ in range(ROUNDS)) * 1000:6.1f} ms")
    for program in ("plot.k", "fill.k", "displays.k"):
        pairs = [(fresh(drawing, program, True), fresh(drawing, program, False)) for _ in range(ROUNDS)]
        speed = median(closed / opened for opened, closed in pairs)
        print(f"{program:15} {speed * 100:6.0f} % of the speed with the VGA window closed")
    pairs = [(fresh(sending, True), fresh(sending, False)) for _ in range(ROUNDS)]
    speed = median(closed / opened for opened, closed in pairs)
    print(f"send.k          {speed * 100:6.0f} % of the speed with the console closed")
    print(f"Stop send.k     {median(fresh(stop_console) for _ in range(ROUNDS)) * 1000:6.1f} ms")
    print(f"stopped         {fresh(stopped) * 1000:6.0f} ms of processor time in 10 s")


main()
