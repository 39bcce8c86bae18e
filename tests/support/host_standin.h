#pragma once

// The host's clock and its sound server, as the simulator sees them in the unit tests: the same in every run.
// The clock follows machine.instr_count, a sleep takes no time, and both are recorded like calls of the front
// end. The processor time has no limit.

#include <cstdint>
#include <vector>

struct host_standin_t {
    bool has_sound = false; // then the speaker's stream takes a few samples each time that it is waited for
    uint64_t slept_ms = 0;  // by which the clock is ahead of the machine's own time
    uint64_t stopwatch_us = 0;
    uint64_t stopwatch_step_us = 1000; // at each look at it
    std::vector<int16_t> played = {};
    bool recorded = false; // the microphone's stream has a sample, as it has once it is waited for
};

extern host_standin_t host_standin;
