#pragma once

// Ctrl+C, SIGTERM and the end of the terminal end the grading in order: what has been graded stays, processes
// and temporary folders go.

// From now on the first of the signals is noted, and the second one ends the process at once. One that is
// ignored stays so. Throws tovik_error when the machine is in the way.
void watch_for_end();

// In a child, which has no part in that: the signals end it.
void forget_end();

[[nodiscard]] bool is_end_asked();

// Can be read from, for `poll`, as soon as the end is asked for; -1, which `poll` passes over, where nobody
// watches.
[[nodiscard]] int end_descriptor();
