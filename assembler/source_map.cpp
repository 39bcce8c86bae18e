#include "assembler/source_map.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace {

constexpr size_t SMALLEST_INDEX = 64;

uint32_t hash_of(std::string_view name) { return static_cast<uint32_t>(std::hash<std::string_view>()(name)); }

// The slot of the name, or the free one where it belongs.
size_t slot_of(const source_map_t& map, std::string_view name, uint32_t hash) {
    const size_t mask = map.label_index.size() - 1;
    for (size_t slot = hash & mask;; slot = (slot + 1) & mask) {
        const label_slot_t& found = map.label_index[slot];
        if (found.label == NOTHING || (found.hash == hash && name_of(map, map.labels[found.label]) == name)) {
            return slot;
        }
    }
}

// At most half of the index is in use, so that every search ends soon.
void grow_index(source_map_t& map) {
    const std::vector<label_slot_t> old = std::exchange(map.label_index, {});
    map.label_index.resize(std::max(2 * old.size(), SMALLEST_INDEX));
    const size_t mask = map.label_index.size() - 1;
    for (const label_slot_t& entry : old) {
        if (entry.label != NOTHING) {
            size_t slot = entry.hash & mask;
            while (map.label_index[slot].label != NOTHING) {
                slot = (slot + 1) & mask;
            }
            map.label_index[slot] = entry;
        }
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
    return text_of(map, label.file, label.name);
}

uint32_t find_label(const source_map_t& map, std::string_view name) {
    if (map.label_index.empty()) {
        return NOTHING;
    }
    return map.label_index[slot_of(map, name, hash_of(name))].label;
}

uint32_t add_label(source_map_t& map, const label_t& label) {
    if (2 * map.labels.size() >= map.label_index.size()) {
        grow_index(map);
    }
    const auto added = static_cast<uint32_t>(map.labels.size());
    map.labels.push_back(label);
    const std::string_view name = name_of(map, label);
    const uint32_t hash = hash_of(name);
    map.label_index[slot_of(map, name, hash)] = {.label = added, .hash = hash};
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
