#pragma once

// The host's clock, its sleep and its sound server, as the simulator sees them in the unit tests: the real
// ones, unless a test wants them to be the same in every run.

#include <cstdint>
#include <vector>

struct host_standin_t {
    bool on = false;
    uint64_t slept_us = 0; // by which the clock is ahead of the machine's own time
    std::vector<int16_t> played = {};
    bool recorded = false; // the microphone's stream has a sample, as it has once it is waited for
};

// While it is on, the clock follows machine.instr_count, a sleep takes no time and is recorded like a call of
// the front end, and the speaker's stream takes a few samples each time that it is waited for.
extern host_standin_t host_standin;
