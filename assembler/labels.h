#pragma once

// The label list beside an image, for naming addresses by labels and labels by addresses.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

// From name to address, which is always one of memory.
using labels_t = std::map<std::string, int32_t, std::less<>>;

// Words of memory, both ends included.
struct range_t {
    int32_t first;
    int32_t last;
};

// Reads a ".labels" file; lines of another form, and labels of no address in memory, are skipped. Empty when
// there is no such file. Throws tovik_error when it cannot be read.
labels_t read_labels(const std::string& file_name);

// The address that a text names: a label, or a number from 0 to 16383, decimal or hexadecimal.
std::optional<int32_t> find_address(std::string_view text, const labels_t& labels);

// "FIRST-LAST" or "FIRST", each an address or a label. Labels may contain a '-': the whole text is tried
// first, then each '-' as the one between two.
std::optional<range_t> find_range(std::string_view text, const labels_t& labels);

// "NAME" or "NAME+OFFSET" for the nearest label at or before an address; empty when there is none.
std::string nearest_label(int32_t address, const labels_t& labels);
