#pragma once

// The front end of the unit tests and the benchmark: shows nothing, remembers what it was asked to show, and
// leaves the run loop, which never returns, when a run has stopped.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct recording_t {
    std::vector<std::string> calls;   // one text a call, for example "status Stopped"; "look" at the window
    std::vector<uint64_t> counts;     // the instruction count at each of them
    std::vector<std::string> prompts; // of the serial port, which is connected once only
    std::function<void()> at_look = [] {};    // what a user does when the window is looked at
    std::function<void()> at_message = [] {}; // what a user does while a dialog is open
    bool memory_window = false; // open: showing the memory takes its marks, and a sum of them is recorded
};

extern recording_t recording;

// What the user typed into the entries, and answers to the file chooser; an empty answer cancels.
struct typed_t {
    std::string assemble_file = "Choose assembly file";
    std::string steps;
    std::string breakpoint;
    std::string watchpoint;
    std::string chosen_file;
    bool only_once = false;                // the chosen file
    std::vector<std::string> serial_names; // answers to the serial port's questions
};

extern typed_t typed;

// Remembers a call, for other stand-ins of the tests.
void record_call(std::string text);

// Runs the machine from where it is until the run stops, with simulate_run or reference_run, and returns the
// calls made meanwhile. The controls of the simulator are the caller's. `rewritten`: the memory may have been
// written since the last run without telling the engine.
const std::vector<std::string>& run_until_stop(void (*run_loop)(), bool rewritten = true);
