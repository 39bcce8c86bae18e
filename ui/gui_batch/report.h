#pragma once

// What tovik-run tells about a run.

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "assembler/labels.h"
#include "debugger/places.h"
#include "debugger/reasons.h"

// A dialog that a window would have shown.
struct message_t {
    bool error;
    std::string text;
};

// What the checks have found.
struct check_t {
    std::string kind;  // "unset-read"
    std::string place; // "prog.k:12", or "address 8" without a source
    std::string label; // the nearest, "loop+4"; empty when there is none
    int32_t address;   // of the instruction
    std::string text;  // "reads x (address 8), which nothing has written"
    uint64_t count;
};

// What the report needs beside the machine itself.
struct run_t {
    // "halt", "limit", "breakpoint", "watchpoint", "error", "check", "script" or "interrupted"
    std::string reason;
    std::string hex74; // the displays' digits as shown
    std::string hex30;
    std::set<int32_t> memory; // addresses of words to report
    std::vector<message_t> messages;
    std::string serial_output; // to the serial console, without carriage returns: the beginning
    uint64_t serial_bytes;     // to the serial console in all, with carriage returns
    bool serial_truncated;     // there was more than `serial_output` holds
    labels_t labels;
    std::optional<std::vector<check_t>> checks; // only where they were asked for
    places_t places;
    reason_t why;
};

// What `serial_output` holds at most: an endless sender must not fill the memory.
constexpr size_t MOST_SERIAL_OUTPUT = size_t{16} << 20;

// Each byte as the character of that number, in UTF-8.
std::string characters(std::span<const uint8_t> line);

// The report for a person, and as one JSON object. Each ends with a line feed.
std::string text_report(const run_t& run);
std::string json_report(const run_t& run);
