#pragma once

// Warnings: what is legal in a program and hardly ever meant.

#include <functional>
#include <string_view>

#include "assembler/analyse.h"

// Whether warnings with a code are wanted; without a function, all are.
using is_wanted_t = std::function<bool(std::string_view code)>;

// Adds the warnings to the faults of a program, in the order of its lines. In a program that has faults only
// what does not depend on the lines in question is looked at. Nothing is said of a line that ends with a
// comment "// tovik: allow CODE" or "// tovik: allow CODE, CODE" that names the code. Of a file that is
// included twice each warning is given once. To be called once for an analysis.
void add_warnings(analysis_t& analysis, const is_wanted_t& is_wanted = {});

// Whether a comment at the end of the line allows what a code stands for.
[[nodiscard]] bool is_allowed(std::string_view line, std::string_view code);
