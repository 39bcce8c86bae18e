#pragma once

// The command line of tovik-run.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

constexpr int EXIT_USAGE = 2;

struct options_t {
    std::string program; // ends in ".k" or ".mif"
    bool assemble_only = false;
    bool trace = false;
    std::optional<int64_t> limit;
    int32_t switches = 0;
    std::string breakpoint; // an address or a label; empty for none
    std::string watchpoint;
    std::vector<std::string> memory; // words for the report, as they were given
    std::string script_file;         // empty for none
    std::string report_format = "text";
    std::string report_file; // empty for standard output
};

// Reads the command line. Ends the process: with status 0 after --help and --version, with EXIT_USAGE and a
// message on standard error for a wrong one.
options_t parse_options(int argc, char** argv);

// Prints "tovik-run: MESSAGE" to standard error and exits with EXIT_USAGE.
[[noreturn]] void usage_error(const std::string& message);

// A whole text as a number, decimal or hexadecimal ("0x1f"), if it is one from `lowest` to `highest`.
std::optional<int64_t> parse_number(std::string_view text, int64_t lowest, int64_t highest);
