#pragma once

// What tovik-run tells about a run.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ui/gui_batch/labels.h"

// A dialog that a window would have shown.
struct message_t {
    bool error;
    std::string text;
};

// Words of memory to report, both ends included.
struct range_t {
    int32_t first;
    int32_t last;
};

// What the report needs beside the machine itself.
struct run_t {
    std::string reason; // "halt", "limit", "breakpoint", "watchpoint", "error" or "script"
    std::string hex74;  // the displays' digits as shown
    std::string hex30;
    std::vector<range_t> memory;
    std::vector<message_t> messages;
    labels_t labels;
};

// "FIRST-LAST" or "FIRST", each an address or a label. Labels may contain a '-': the whole text is tried
// first, then each '-' as the one between two.
std::optional<range_t> find_range(const std::string& text, const labels_t& labels);

// The report for a person, and as one JSON object. Each ends with a line feed.
std::string text_report(const run_t& run);
std::string json_report(const run_t& run);
