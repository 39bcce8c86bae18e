#pragma once

// Loops that wait: a turn of such a loop changes nothing, so all turns are alike until a port changes.

#include <cstdint>

// Loops with more instructions are not recognised.
constexpr int32_t LONGEST_TURN = 8;

struct waiting_t {
    int32_t turn;          // instructions of a turn; 0 when the loop does not wait
    uint64_t steady_until; // the instruction count up to which all its turns are alike
};

// What the loop that begins at `start` does from now on, at machine.instr_count. The caller must then execute
// at least LONGEST_TURN instructions there without a stop: it has read the ports already. `is_only_a_store`
// tells of an address in memory whether writing it the value that it has would change nothing.
waiting_t follow_loop(int32_t start, bool (*is_only_a_store)(int32_t address));
