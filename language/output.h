#pragma once

// Diagnostics of programs, written for people and for other programs.

#include <cstddef>
#include <string>
#include <vector>

#include "assembler/analyse.h"

// With those that have no room in the list.
struct counts_t {
    size_t faults = 0;
    size_t warnings = 0;
};

counts_t count_diagnostics(const diagnostics_t& diagnostics);

// For a terminal: the place, what is wrong, the line with the token marked, and what to do; in the order of
// the lines, and in the end how many there are. Columns are characters. What is no UTF-8 is shown as Latin-1,
// and what would control a terminal as "?".
std::string to_text(const analysis_t& program, bool color);

// {"version": 1, "programs": [...]}: of each its name, counts and diagnostics. Columns are bytes; both ends
// belong to a place.
std::string to_json(const std::vector<analysis_t>& programs);

// A log in the Static Analysis Results Interchange Format, 2.1.0. Columns are code points, and the one of the
// end lies behind the place.
std::string to_sarif(const std::vector<analysis_t>& programs, const std::string& version);
