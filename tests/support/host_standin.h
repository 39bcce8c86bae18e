#pragma once

// The host's clock, its sleep, its sound server and its files, as the simulator sees them in the unit tests:
// the real ones, unless a test wants them to be the same in every run, or to fail.

#include <cstdint>
#include <vector>

struct host_standin_t {
    bool on = false;
    uint64_t slept_us = 0; // by which the clock is ahead of the machine's own time
    int failing_close = 0; // if not 0, so many closes of written files from now, the last one fails
    std::vector<int16_t> played = {};
};

// While it is on, the clock follows machine.instr_count, a sleep takes no time and is recorded like a call of
// the front end, and the speaker's stream takes a few samples each time that it is waited for.
extern host_standin_t host_standin;
