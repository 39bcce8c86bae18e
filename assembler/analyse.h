#pragma once

// Translates a program to learn about it: all its faults and its source map. Writes no files.

#include <functional>
#include <string>

#include "assembler/diagnostics.h"
#include "assembler/source_map.h"

// A file's text as far as it could be read, and the errno of the failure that ended it; 0 for none.
struct file_text_t {
    std::string text{};
    int error = 0;
    bool opened = true; // false when the failure was that of opening it
};

// Gives the text of a file by its name: from the disk, or from an editor that has it open. Called once for
// each name.
using read_file_t = std::function<file_text_t(const std::string& name)>;

// From the disk. Only regular files can be opened. Of one that is too long for `analyse` only a part is read.
file_text_t read_file(const std::string& name);

struct analysis_t {
    source_map_t map{};
    diagnostics_t diagnostics{};
};

// Goes through the same two passes as `assemble` and goes on after faults; the first fault is the one that
// `assemble` reports, save for those of the output files, which need not exist here. The name need not end in
// ".k". An include that closes a cycle is a fault and is not opened, and there are limits that `assemble`
// does not have: MOST_LINES of all files and MOST_BYTES in them, counted as often as they are included, and
// MOST_INCLUSIONS.
analysis_t analyse(const std::string& name, const read_file_t& read = read_file);

constexpr int32_t MOST_LINES = 1 << 18;
constexpr uint32_t MOST_BYTES = 1 << 25;
constexpr uint32_t MOST_INCLUSIONS = 1 << 14;
