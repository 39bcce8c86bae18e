#pragma once

// Where a run may stop beside simulator.breakpoint and simulator.watchpoint: any number of places, each with
// a question that is asked there. They cost nothing where they are not met.

#include <bitset>
#include <cstdint>

#include "base/machine.h"

struct stops_t {
    std::bitset<MEMORY_SIZE> breakpoints; // addresses of instructions
    std::bitset<MEMORY_SIZE> watched;     // words

    // Whether to stop before the instruction at machine.pc, one of the breakpoints; the machine is exact. Not
    // asked where a run begins.
    bool (*at_breakpoint)() = nullptr;

    // Whether to stop after the instruction that has just written one of the words, the one that is number
    // `count`. machine.pc and machine.instr_count may still be those before it.
    bool (*at_write)(int32_t address, uint64_t count) = nullptr;
};

// nullptr when there are none. The engine takes them over when a slice begins, and the questions must not
// change them.
extern const stops_t* stops;

inline bool is_breakpoint(int32_t pc) {
    return pc == simulator.breakpoint ||
           (stops != nullptr && pc >= 0 && pc < MEMORY_SIZE && stops->breakpoints[static_cast<size_t>(pc)]);
}

inline bool is_watched(int32_t address) {
    return address == simulator.watchpoint ||
           (stops != nullptr && stops->watched[static_cast<size_t>(address)]);
}
