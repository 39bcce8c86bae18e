#pragma once

// The command line of tovik-grade.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

// A part of a class: the submissions with the numbers `number`, `number` + `of`, ...
struct part_t {
    size_t number = 1;
    size_t of = 1;
};

struct options_given_t {
    std::string task;
    std::vector<std::string> folders;
    std::string out; // empty: none
    int jobs = 0;    // 0: as many as processors
    bool resume = false;
    part_t part;
    std::vector<std::string> merge; // the folders of all parts
    std::string again;              // a student
    std::string again_case;
    std::string example; // a new folder for one
};

// Reads the command line. Nothing after --help, --version and what is wrong, which it answers itself; then
// `status` is the exit status.
std::optional<options_given_t> parse_options(int argc, char** argv, int& status);
