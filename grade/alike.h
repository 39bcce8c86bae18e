#pragma once

// Which submissions are like each other. That is a reason to look, and no proof: short programs are alike
// by nature.

#include <cstddef>
#include <string>
#include <vector>

#include "assembler/source_map.h"
#include "grade/results.h"

// Of a program without faults, what is in the main file: "HASH:COUNT:PIECES". HASH is the same for two
// programs whose images are equal up to names, comments, spacing and the order of data; COUNT is that of the
// instructions; PIECES are hashes of all sequences of four instructions, for find_alike.
std::string fingerprint_of(const source_map_t& map);

struct alike_t {
    std::vector<std::string> students; // with equal programs
    std::vector<std::string> others;   // likewise, which are like those; none: `students` are equal
    int percent = 100;
    size_t instructions = 0; // of the students' program
};

// First the equal ones, in the order of the class, then the similar ones, those most alike first. `known`
// are fingerprints of programs that everybody may be like, as a reference solution.
std::vector<alike_t> find_alike(const std::vector<student_result_t>& results,
                                const std::vector<std::string>& known);

// A line for each on a terminal, the first twenty of them.
std::string alike_text(const std::vector<alike_t>& all);

std::string alike_csv(const std::vector<alike_t>& all);
std::string alike_markdown(const std::vector<alike_t>& all);
