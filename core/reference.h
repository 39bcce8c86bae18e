#pragma once

// The run loop as its rule reads: one instruction a pass, all bookkeeping after each. The programs do not
// contain it; the tests and the benchmark compare simulate_run with it.

// Like simulate_run: never returns, and does the same to the machine, the front end and the clock.
[[noreturn]] void reference_run();
