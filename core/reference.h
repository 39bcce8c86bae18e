#pragma once

// The plainest run loop: one instruction a pass, all bookkeeping after each. It defines what simulate_run
// must do, and both execute the same execute_instruction where the fast path gives up. The programs do not
// contain it; the tests and the benchmark compare simulate_run with it.

// Like simulate_run: never returns, and does the same to the machine, the front end and the clock.
[[noreturn]] void reference_run();
