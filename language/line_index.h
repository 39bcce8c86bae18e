#pragma once

// The lines of a program's files by their numbers.

#include <cstdint>
#include <string_view>
#include <vector>

#include "assembler/source_map.h"

// Made when a file's first line is asked for. The map must outlive it.
struct line_index_t {
    explicit line_index_t(const source_map_t& of) : map(&of), begins(of.files.size()) {}

    const source_map_t* map;
    std::vector<std::vector<uint32_t>> begins; // of each file the offsets of its lines
};

// A line without its end, by its number from 1; empty when the file has no such line.
std::string_view text_of_line(line_index_t& lines, uint32_t file, int32_t number);
