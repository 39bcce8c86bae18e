#pragma once

// Names that were meant by others that are like them.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// In small letters. ASCII only: what other bytes mean is not known.
char small(char c);
std::string small(std::string_view text);

// A name, and what a first look at it needs.
struct name_t {
    uint32_t letters; // one bit each
    std::string_view text;
};
name_t to_compare(std::string_view name);

// The first of the names that are nearest to this one, which is none of them; empty when none is near enough.
// Letters may be wrong, too many, missing or exchanged, in whatever case they are: one in three, and at most
// three. The budget is what looking may cost, in steps of a few nanoseconds; when it is used up, no name is
// like another.
std::string_view nearest(std::string_view name, const std::vector<name_t>& names, int64_t& budget);
