#include "debugger/places.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string_view>

#include "assembler/operations.h"
#include "assembler/source.h"
#include "base/machine.h"
#include "base/text.h"

namespace {

// The words of a line with one blank between them: its columns mean nothing in a message.
std::string words_of(std::string_view text) {
    std::string words;
    for (size_t begin = text.find_first_not_of(WHITE_SPACE); begin < text.size();) {
        const size_t end = std::min(text.find_first_of(WHITE_SPACE, begin), text.size());
        words += words.empty() ? "" : " ";
        words += text.substr(begin, end - begin);
        begin = text.find_first_not_of(WHITE_SPACE, end);
    }
    return words;
}

labels_t labels_of(const source_map_t& map) {
    labels_t labels;
    for (const label_t& label : map.labels) {
        if (label.address >= 0 && label.address < MEMORY_SIZE) {
            labels.emplace(name_of(map, label), label.address);
        }
    }
    return labels;
}

// The first thing in which the source is not what was loaded.
std::string find_difference(const places_t& places, const labels_t& listed) {
    const auto says = [&](const std::string& what) {
        return places.analysis.map.files.front().name + " is not what was loaded: " + what;
    };
    if (places.analysis.diagnostics.faults > 0) {
        return says("it has faults");
    }
    for (size_t address = 0; address < places.analysis.map.words.size(); ++address) {
        if (places.analysis.map.words[address].value != machine.memory[address]) {
            return says("word " + std::to_string(address) + " differs");
        }
    }
    const auto labels = labels_of(places.analysis.map);
    const auto differs = std::mismatch(listed.begin(), listed.end(), labels.begin(), labels.end()).first;
    if (differs != listed.end()) {
        return says("label " + differs->first + " differs");
    }
    return "";
}

bool is_same_file(const std::string& one, const std::string& other) {
    std::error_code unknown;
    return one == other || std::filesystem::equivalent(one, other, unknown);
}

} // namespace

places_t load_places(const std::string& program) {
    const std::string base = program.substr(0, program.rfind('.'));
    places_t places;
    places.program = program;
    places.loaded.assign(std::begin(machine.memory), std::end(machine.memory));
    places.labels = read_labels(base + ".labels");
    if (analysis_t analysis = analyse(base + ".k"); analysis.map.files.front().error == 0) {
        places.analysis = std::move(analysis);
        places.difference = find_difference(places, places.labels);
        if (places.labels.empty()) {
            places.labels = labels_of(places.analysis.map);
        }
    }
    return places;
}

const statement_t* statement_at(const places_t& places, int32_t address) {
    const source_map_t& map = places.analysis.map;
    if (address < 0 || address >= static_cast<int32_t>(map.words.size())) {
        return nullptr;
    }
    const uint32_t statement = map.words[static_cast<size_t>(address)].statement;
    return statement == NOTHING ? nullptr : &map.statements[statement];
}

where_t where(const places_t& places, int32_t address) {
    where_t where = {.address = address, .label = {}, .file = {}, .line = 0, .text = {}, .mnemonic = {}};
    if (address < 0 || address >= MEMORY_SIZE) {
        return where;
    }
    where.label = nearest_label(address, places.labels);
    where.mnemonic = mnemonic_of(machine.memory[address]);
    if (const statement_t* const statement = statement_at(places, address)) {
        const source_map_t& map = places.analysis.map;
        where.file = map.files[statement->file].name;
        where.line = statement->line;
        where.text = words_of(without_comment(line_text(map, statement->file, statement->line_begin)));
    }
    return where;
}

std::string shown(const where_t& where) {
    const std::string address = "address " + std::to_string(where.address);
    std::string text = where.label.empty() ? address : where.label + " (" + address + ")";
    if (where.line > 0) {
        text += ", " + where.file + ":" + std::to_string(where.line) + ": " + where.text;
    } else if (!where.mnemonic.empty()) {
        text += ": " + where.mnemonic;
    }
    return text;
}

line_address_t address_of_line(const places_t& places, const std::string& file, int32_t line) {
    const source_map_t& map = places.analysis.map;
    line_address_t found = {-1, 0};
    for (const statement_t& statement : map.statements) {
        const bool is_instruction =
            statement.operation != nullptr && !is_data(*statement.operation) && !statement.broken;
        const bool is_nearer = found.address < 0 || statement.line < found.line;
        if (is_instruction && statement.line >= line && is_nearer &&
            is_same_file(map.files[statement.file].name, file)) {
            found = {statement.address, statement.line};
        }
    }
    return found;
}
