#pragma once

// Whether a run has shown what was expected.

#include <string>
#include <vector>

#include "grade/seen.h"
#include "grade/task.h"

struct verdict_t {
    bool passed = false;
    std::string expected{}; // in words, for people
    std::string seen{};
    std::vector<picture_t> pictures{}; // for one that is wrong: expected, seen, what differs
};

// The reference is null where a case has none. What a check of `command` needs is in the current folder.
verdict_t judge(const rule_t& rule, const seen_t& seen, const seen_t* reference);

// What a program is given, in words: one line, and those of a script below it. Empty: nothing.
std::string given_text(const input_t& input);

// What is blank at the ends of lines and of the text cannot be seen.
std::string without_blank_ends(const std::string& text);
