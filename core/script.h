#pragma once

// Timed input for a run that nobody sits in front of.

#include <array>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

struct event_t {
    uint64_t count;                 // the instruction count at or after which it happens
    void (*happen)(const event_t&); // does what the user at the window would
    std::array<int, 2> values;
    std::string text;
};

// Reads a script. Throws tovik_error when it cannot be read or a line is malformed.
std::vector<event_t> read_script(const std::string& file_name);

// Reads one from elsewhere; messages call it by its name.
std::vector<event_t> read_script(std::istream& script, const std::string& name);
