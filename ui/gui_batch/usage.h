#pragma once

// How tovik-run answers its caller: exit statuses, usage errors, and numbers as they are written in options
// and scripts.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

constexpr int EXIT_HALTED = 0;
constexpr int EXIT_ERROR = 1;
constexpr int EXIT_USAGE = 2;
constexpr int EXIT_LIMIT = 3;
constexpr int EXIT_STOPPED = 4;
constexpr int EXIT_NOT_WRITTEN = 5;

// Nothing can run, by the user's fault. `main` prints the message and ends the process with EXIT_USAGE.
struct usage_error_t {
    std::string message;
};

// A whole text as a number without a sign, decimal or hexadecimal ("0x1f"), if it is one from `lowest` to
// `highest`. Neither bound may be negative.
std::optional<int64_t> parse_number(std::string_view text, int64_t lowest, int64_t highest);
