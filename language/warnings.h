#pragma once

// Warnings: what is legal in a program and hardly ever meant.

#include "assembler/analyse.h"

// Adds the warnings to the faults of a program, in the order of its lines. In a program that has faults only
// what does not depend on the lines in question is looked at. Nothing is said of a line that ends with a
// comment "// tovik: allow CODE" or "// tovik: allow CODE, CODE" that names the code.
void add_warnings(analysis_t& analysis);
