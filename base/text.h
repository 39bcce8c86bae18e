#pragma once

// What all texts have in common that tovik reads: sources, images, scripts, options.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// What separates words.
constexpr std::string_view WHITE_SPACE = " \t\n\v\f\r";

// A whole text as a number without a sign, decimal or hexadecimal ("0x1f"), if it is one from `lowest` to
// `highest`. Neither bound may be negative.
std::optional<int64_t> parse_number(std::string_view text, int64_t lowest, int64_t highest);

// A word, or a number without a sign, as sources have it: "0x1f".
std::string hexadecimal(uint64_t number);
std::string hexadecimal(int32_t word);
