#include "language/line_index.h"

#include <string>

#include "language/characters.h"

std::string_view text_of_line(line_index_t& lines, uint32_t file, int32_t number) {
    const std::string& text = lines.map->files[file].text;
    std::vector<uint32_t>& begins = lines.begins[file];
    if (begins.empty()) {
        begins.push_back(0);
        for (size_t feed = text.find('\n'); feed != std::string::npos; feed = text.find('\n', feed + 1)) {
            begins.push_back(static_cast<uint32_t>(feed + 1));
        }
    }
    const auto index = static_cast<size_t>(number) - 1;
    if (index >= begins.size()) {
        return {};
    }
    std::string_view line = line_text(*lines.map, file, begins[index]);
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    return line;
}

size_t column_behind(line_index_t& lines, uint32_t file, int32_t number, uint32_t bytes) {
    const auto [known, is_new] = lines.columns.try_emplace({file, number, bytes});
    if (is_new) {
        known->second = count_characters(text_of_line(lines, file, number).substr(0, bytes)) + 1;
    }
    return known->second;
}
