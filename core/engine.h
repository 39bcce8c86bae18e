#pragma once

// Executes many instructions in one go.

#include <cstdint>
#include <string>

struct slice_t {
    int32_t executed;  // instructions, a failed one included
    bool faulted;      // the last instruction failed; machine.pc is its address
    std::string fault; // the message of the fault
    bool stopped;      // one of the stops has been met, and its answer was to stop

    // The instruction at machine.pc, which is not among the executed ones, waits for the host; else nullptr.
    // After a Reset in a dialog of the instruction, machine.pc and machine.instr_count are 0.
    bool (*wait)(int most_ms);
};

// Executes up to `count` (at least 1) instructions from machine.pc, stopping early after one that fails,
// halts, meets the breakpoint, or changes the controls in `simulator`, and before one that waits. machine.pc
// and machine.instr_count are exact whenever a device sees them and at the end, save that a failed
// instruction is not yet counted in machine.instr_count. simulator.step, where it counts, is then decreased
// for all but the last instruction.
slice_t run_slice(int32_t count);

// Looks at every instruction before it is executed: machine.pc and machine.instr_count are exact, and it
// changes nothing of the machine. Whether the instruction is to be executed; otherwise the slice ends before
// it, and whoever answers so has set simulator.step to 0. An instruction that waits for the host is looked at
// once more each time that it is tried.
using observer_t = bool (*)();

// nullptr for none. With one the plain way executes all instructions, and no waiting is passed over. It is
// set while nothing runs.
extern observer_t observer;

// Whoever writes machine.memory or clears machine.modified, other than by memwrite in an instruction, calls
// this afterwards: what the engine knows of the memory is no longer true.
void forget_proofs();

// Does now what the first instruction would have to wait for: processes that begin from this one have it
// then.
void prepare_proofs();

// Whether loops that only wait are passed over, many turns at once, as they are at first. Only the speed
// depends on it: the benchmark and the tests turn it off to compare, and so does a window in which nothing
// sets the pace.
void pass_over_waiting(bool on);
