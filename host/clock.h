#pragma once

// The time of the host's clock, and the processor time that the host gives.

#include <cstdint>

// Wall-clock time in milliseconds since 1970. Throws host_failure_t, with the reason on standard error, when
// there is no clock.
uint64_t time_ms();

// The time since some moment in the past, in microseconds. Not for what the board does: it is different in
// each run.
uint64_t stopwatch_us();

// Does nothing for so many milliseconds, at least 1.
void wait_ms(int32_t ms);

// Bounds the process's processor time to five hours (ten seconds more for the hard limit; a lower limit is
// kept); when they are used up, the process says so on standard output and ends. Throws host_failure_t, with
// the reason on both standard streams, when the limits cannot be read or set.
void limit_processor_time();
