#pragma once

// Warnings: what is legal in a program and hardly ever meant.

#include <functional>
#include <string_view>

#include "assembler/analyse.h"

// Whether the warnings of a code are to be given; an empty one wants all.
using wanted_t = std::function<bool(std::string_view code)>;

// Adds the warnings to the faults of a program, in the order of its lines. In a program that has faults only
// what does not depend on the lines in question is looked at. Nothing is said of a line that ends with a
// comment "// tovik: allow CODE" or "// tovik: allow CODE, CODE" that names the code.
void add_warnings(analysis_t& analysis, const wanted_t& wanted = {});
