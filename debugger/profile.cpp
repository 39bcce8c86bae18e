// The profile of an observed run, for readers and for tools.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <numeric>
#include <utility>

#include "assembler/operations.h"
#include "base/text.h"
#include "debugger/observe.h"
#include "devices/registers.h"

namespace {

struct row_t {
    std::string name;
    uint64_t count;
};

void sort_by_count(std::vector<row_t>& rows) {
    std::stable_sort(rows.begin(), rows.end(),
                     [](const row_t& a, const row_t& b) { return a.count > b.count; });
}

// "   1234567   45.1 %  NAME"
std::string line_of(const row_t& row, uint64_t all) {
    char columns[64];
    std::snprintf(columns, sizeof columns, "%14llu  %5.1f %%  ", static_cast<unsigned long long>(row.count),
                  all == 0 ? 0.0 : 100.0 * static_cast<double>(row.count) / static_cast<double>(all));
    return columns + row.name + "\n";
}

bool is_known(const places_t& places) {
    return !places.analysis.map.words.empty() && places.difference.empty();
}

// The columns of a source are for many lines.
std::string on_one_blank(const std::string& text) {
    std::string words;
    for (const char c : text) {
        const bool blank = WHITE_SPACE.find(c) != std::string_view::npos;
        if (!blank || !words.ends_with(' ')) {
            words += blank ? ' ' : c;
        }
    }
    return words;
}

std::string name_of_place(const places_t& places, int32_t address) {
    where_t place = where(places, address);
    if (!is_known(places)) {
        place.line = 0;
    }
    if (place.line == 0) {
        return shown(place);
    }
    return place.file + ":" + std::to_string(place.line) + ": " + on_one_blank(place.text);
}

// The instructions of one line, also where its file is included several times, are one row.
std::vector<row_t> rows_of(const places_t& places, const profile_t& profile) {
    std::vector<row_t> rows;
    std::map<std::string, size_t> row_of;
    for (int32_t address = 0; address < MEMORY_SIZE; ++address) {
        const uint64_t count = profile.executions[static_cast<size_t>(address)];
        if (count == 0) {
            continue;
        }
        std::string name = name_of_place(places, address);
        const auto [row, is_new] = row_of.emplace(name, rows.size());
        if (is_new) {
            rows.push_back({std::move(name), 0});
        }
        rows[row->second].count += count;
    }
    sort_by_count(rows);
    return rows;
}

// A response stands for its device; the timer and the switches have only one that shares it with others.
std::vector<row_t> waiting_rows(const profile_t& profile) {
    std::vector<row_t> rows;
    for (const device_t& device : board_devices()) {
        for (const board_register_t& port : device.registers) {
            if (const uint64_t waited = profile.waited[static_cast<size_t>(port.offset)]; waited > 0) {
                rows.push_back(
                    {std::string(port.kind == register_e::PLAIN ? port.name : device.name), waited});
            }
        }
    }
    sort_by_count(rows);
    return rows;
}

} // namespace

std::string profile_table(const places_t& places, const profile_t& profile) {
    const uint64_t all = std::accumulate(profile.executions.begin(), profile.executions.end(), uint64_t{0});
    std::string text = places.difference.empty() ? "" : places.difference + "\n\n";
    text += "    executions    share  line\n";
    for (const row_t& row : rows_of(places, profile)) {
        text += line_of(row, all);
    }
    text += "\n  instructions    share  spent waiting for\n";
    for (const row_t& row : waiting_rows(profile)) {
        text += line_of(row, all);
    }
    return text;
}

std::string profile_lcov(const places_t& places, const profile_t& profile) {
    const source_map_t& map = places.analysis.map;
    std::vector<std::map<int32_t, uint64_t>> lines(map.files.size());
    for (const statement_t& statement : map.statements) {
        if (statement.operation == nullptr) {
            continue;
        }
        // An instruction may be written word by word.
        const uint64_t count = profile.executions[static_cast<size_t>(statement.address)];
        if (!is_data(*statement.operation) || count > 0) {
            lines[statement.file][statement.line] += count;
        }
    }
    std::string text;
    for (size_t file = 0; file < lines.size(); ++file) {
        if (lines[file].empty()) {
            continue;
        }
        std::error_code ignored;
        text += "TN:\nSF:" + std::filesystem::absolute(map.files[file].name, ignored).string() + "\n";
        const auto hit = std::count_if(lines[file].begin(), lines[file].end(),
                                       [](const auto& line) { return line.second > 0; });
        for (const auto& [line, count] : lines[file]) {
            text += "DA:" + std::to_string(line) + "," + std::to_string(count) + "\n";
        }
        text +=
            "LF:" + std::to_string(lines[file].size()) + "\nLH:" + std::to_string(hit) + "\nend_of_record\n";
    }
    return text;
}
