#pragma once

// The run loop and what belongs to the machine as a whole.

#include <cstdint>
#include <string>

// Turns of the run loop, one an instruction or an event, between two looks at the window.
constexpr int32_t TURNS_PER_LOOK = 100000;

// Limits the process's processor time, and clears the controls of the simulation: no trace, no breakpoint, no
// watchpoint, no step.
void simulate_init();

// Before the first pass: sets the run loop's counts to 0 and brings every display up to date.
void simulate_begin();

// What is to be done before the next pass.
struct pass_t {
    bool idle;        // nothing runs: wait for an event
    int32_t sleep_ms; // how far the board is ahead of its clock

    // What the board waits for at the host, sound that is played or something that an instruction needs:
    // until this returns true. It waits so many milliseconds at most. Else nullptr.
    bool (*wait)(int most_ms) = nullptr;
};

// Executes at most `most` instructions (at least 1) while simulator.running is true, with all that happens
// after each, and handles the events that wait when the window is to be looked at. Waits neither for events
// nor for the pace. Each pass with nothing to run counts as a turn: it is to be followed by one event. Where
// the others end changes nothing.
pass_t simulate_pass(int32_t most);

// Pass after pass, with the waiting in between, for a front end that leaves the thread to the run loop. Never
// returns; the process ends in one of the front end's event handlers.
[[noreturn]] void simulate_run();

// The Reset action: stops the run, sets pc and instr_count to 0, resets every device and redraws. Memory,
// switches, breakpoint and watchpoint stay as they are.
void reset_machine();

// Brings every display of the front end up to date with the machine.
void print_machine();

// Shows machine.pc as "PC N".
void print_pc();

// Why a run stopped. Where several reasons meet in one instruction the first of this list counts.
enum class stop_reason_e { NONE, ERROR, HALT, BREAKPOINT, WATCHPOINT, STEPS, STOPPED };

struct stop_t {
    stop_reason_e reason;
    std::string error; // the whole text of the run-time error, with its address; else empty
};

// Why the last run stopped; NONE before the first stop. STEPS is the end of the step count; STOPPED is
// anything that set simulator.step to 0 or simulator.running to false from outside the program.
const stop_t& last_stop();
