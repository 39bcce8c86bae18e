#pragma once

// The two passes over a program. `assemble` and `analyse` are their callers.

#include <string>

#include "assembler/analyse.h"

struct translation_t {
    analysis_t analysis;
    // The first fault as `assemble` reports it, with file and line; empty when there is none.
    std::string report;
};

// From the disk, and only up to the first fault: the map's labels and words are those before it. There is no
// list of faults.
translation_t translate(const std::string& name);

// From the texts that are given, to the end, with all faults.
translation_t translate_all(const std::string& name, const read_file_t& read);
