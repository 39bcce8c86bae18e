#pragma once

// What is said of a program, as the cases of the tests have it.

#include <string>

#include "assembler/analyse.h"

// "3:5-7", with the file's name before it when that is not the main file.
std::string text_of_place(const source_map_t& map, const place_t& place);

// A line for each: place, code: message; help (related) -> edit
std::string listing(const analysis_t& analysis);
