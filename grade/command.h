#pragma once

// Programs of the instructor's.

#include <string>

#include "grade/task.h"

struct command_result_t {
    int status;       // the exit status; 128 and more: it was ended
    std::string text; // the beginning of what it printed
};

// Runs it in the current folder, which has what the run has shown. Throws tovik_error when it cannot be
// started: that is nobody's but the instructor's fault.
command_result_t run_command(const command_rule_t& rule);
