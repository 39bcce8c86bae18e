#pragma once

// Ctrl+C and SIGTERM end a run, not the process: what the run has found is still written.

// From now on the first of the two signals is only noted, and the second one ends the process at once: what
// has not been written whole by then is lost. One that is ignored stays so.
void note_interrupts();

// The run is over: from now on the next signal ends the process.
void end_at_interrupts();

[[nodiscard]] bool is_interrupted();

// The next byte of standard input, waited for; -1 at its end, and when the run is interrupted.
[[nodiscard]] int read_input_byte();
