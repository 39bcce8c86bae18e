#pragma once

// How tovik-run answers its caller: exit statuses and usage errors.

#include <string>

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
