#pragma once

// Timed input for a run without a window.

#include <cstdint>
#include <string>
#include <vector>

enum class event_e { SWITCH, STOP };

struct event_t {
    uint64_t count; // the instruction count at or after which it happens
    event_e kind;
    int switch_number;
    bool on;
};

// Reads a script. A file that cannot be read, or a malformed line, is a usage error: ends the process.
std::vector<event_t> read_script(const std::string& file_name);

// Does what the event says, as the user at the window would.
void deliver(const event_t& event);
