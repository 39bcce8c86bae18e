#pragma once

// What an instruction does, and how many are run in one go.

#include <cstdint>
#include <string>

// Executes the one instruction at machine.pc: fetches four words, reads the operands and writes the result.
// The order of the reads is part of what an instruction is, since reading a device may change it. Throws
// tovik_error on a fault, with machine.pc then somewhere past the start of the instruction and earlier writes
// done.
void execute_instruction();

struct slice_t {
    int32_t executed;  // instructions, a failed one included
    bool faulted;      // the last instruction failed; machine.pc is its address
    std::string fault; // the message of the fault
};

// Executes up to `count` (at least 1) instructions from machine.pc, stopping early after one that fails,
// halts, meets the breakpoint, or changes simulator.running, simulator.step or simulator.speaker_on.
// machine.pc and machine.instr_count are exact whenever a device sees them and at the end, save that a failed
// instruction is not yet counted in machine.instr_count.
slice_t run_slice(int32_t count);
