#include "assembler/source_map.h"

#include <algorithm>
#include <functional>

namespace {

constexpr size_t SMALLEST_INDEX = 64;

// The place in the index where the name stands, or the free one where it belongs.
size_t slot_of(const source_map_t& map, std::string_view name) {
    const size_t mask = map.label_index.size() - 1;
    size_t slot = std::hash<std::string_view>()(name) & mask;
    while (map.label_index[slot] != NOTHING && name_of(map, map.labels[map.label_index[slot]]) != name) {
        slot = (slot + 1) & mask;
    }
    return slot;
}

// At most half of the index is in use, so that every search ends soon.
void grow_index(source_map_t& map) {
    map.label_index.assign(std::max(2 * map.label_index.size(), SMALLEST_INDEX), NOTHING);
    for (uint32_t i = 0; i < map.labels.size(); ++i) {
        map.label_index[slot_of(map, name_of(map, map.labels[i]))] = i;
    }
}

place_t place_in_line(uint32_t file, int32_t line, uint32_t line_begin, span_t token) {
    const uint32_t first = token.begin - line_begin + 1;
    return {.file = file, .line = line, .first = first, .last = first + token.size - 1};
}

} // namespace

std::string_view text_of(const source_map_t& map, uint32_t file, span_t span) {
    return std::string_view(map.files[file].text).substr(span.begin, span.size);
}

std::string_view line_text(const source_map_t& map, uint32_t file, uint32_t line_begin) {
    const std::string_view rest = std::string_view(map.files[file].text).substr(line_begin);
    return rest.substr(0, rest.find('\n'));
}

std::string_view name_of(const source_map_t& map, const label_t& label) {
    return text_of(map, map.statements[label.statement].file, label.name);
}

uint32_t find_label(const source_map_t& map, std::string_view name) {
    return map.label_index.empty() ? NOTHING : map.label_index[slot_of(map, name)];
}

uint32_t add_label(source_map_t& map, const label_t& label) {
    if (2 * map.labels.size() >= map.label_index.size()) {
        grow_index(map);
    }
    const auto added = static_cast<uint32_t>(map.labels.size());
    map.labels.push_back(label);
    map.label_index[slot_of(map, name_of(map, label))] = added;
    return added;
}

place_t place_of(const statement_t& statement, span_t token) {
    return place_in_line(statement.file, statement.line, statement.line_begin, token);
}

place_t place_of(const source_map_t& map, const label_t& label) {
    return place_of(map.statements[label.statement], label.name);
}

place_t place_of(const source_map_t& map, const use_t& use) {
    const statement_t& statement = map.statements[use.statement];
    return place_of(statement, statement.operands[use.operand].token);
}

place_t place_of(const source_map_t& map, const inclusion_t& inclusion) {
    if (inclusion.parent == NOTHING) {
        return {.file = inclusion.file};
    }
    return place_in_line(map.inclusions[inclusion.parent].file, inclusion.line, inclusion.line_begin,
                         inclusion.name);
}
