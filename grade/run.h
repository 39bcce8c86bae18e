#pragma once

// One run of a program for a case, in a process that has no other purpose.

#include <cstdint>
#include <string>

#include "assembler/analyse.h"
#include "grade/seen.h"
#include "grade/task.h"

// Fills the memories of the board with the noise of a seed. Processes that begin from this one need not do it
// again for a run with this seed, which would be most of what a short run costs.
void make_noise(uint64_t seed);

// Whether a run for the case leaves files in the current folder.
bool leaves_files(const case_t& one);

// Runs an assembled program, the only one, with the input of a case on the board of this process, in the
// current folder, and returns what it has shown. Files for `command` checks are then there: report.json,
// screen.png, sound.wav, serial.txt. Of the events it returns the first MOST_EVENTS of displays, lamps and
// LCD. Throws tovik_error when the machine is in the way.
seen_t run_case(analysis_t program, const case_t& one, uint64_t seed);

// A label that the case needs and the program does not define; empty: there is none.
std::string missing_label(const analysis_t& program, const case_t& one);

// Lines for a shell in the folder of the program that do the same with `tovik-run`: they make the other files
// that the run needs, too.
std::string command_for(const std::string& source, const case_t& one, uint64_t seed);

// A word that a shell takes as it is.
std::string quoted_for_shell(const std::string& word);
