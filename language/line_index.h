#pragma once

// The lines of a program's files by their numbers.

#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>
#include <tuple>
#include <vector>

#include "assembler/source_map.h"

// Made when a file's first line is asked for. The map must outlive it.
struct line_index_t {
    explicit line_index_t(const source_map_t& of) : map(&of), begins(of.files.size()) {}

    const source_map_t* map;
    std::vector<std::vector<uint32_t>> begins; // of each file the offsets of its lines
    // Columns that have been counted, by file, line and bytes: many diagnostics may lead to one place, far
    // behind the beginning of a long line.
    std::map<std::tuple<uint32_t, int32_t, uint32_t>, size_t> columns{};
};

// A line without its end, by its number from 1; empty when the file has no such line.
std::string_view text_of_line(line_index_t& lines, uint32_t file, int32_t number);

// The column, in characters from 1, behind so many bytes of a line.
size_t column_behind(line_index_t& lines, uint32_t file, int32_t number, uint32_t bytes);
