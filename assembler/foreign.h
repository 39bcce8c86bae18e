#pragma once

// What other languages and machines write where the K24 writes it otherwise.

#include <optional>
#include <string>
#include <string_view>

#include "assembler/source_map.h"

// A number in the form that the assembler takes, for one in a form of other languages: 0x1a for 1Ah; empty
// when it has none.
std::string right_form(std::string_view number);

// The place from which on a line is a comment in the manner of another language; none when there is none.
std::optional<span_t> foreign_comment(const source_map_t& map, const statement_t& statement);

// The value of a character in quotes.
std::optional<int> character(std::string_view text);

// Whether an #include is meant, in whatever form.
bool is_include(std::string_view text);

// What other machines call an operation, or have that the K24 does otherwise: advice,
// or nothing.
std::string_view help_for_others(std::string_view opcode);
