// Reading a program's lines through all of its files.

#include <algorithm>

#include "assembler/passes.h"
#include "base/files.h"
#include "base/machine.h"

namespace {

// Room for the lines of most programs from the start.
constexpr size_t BYTES_PER_LINE = 16;
constexpr size_t MOST_RESERVED = MEMORY_SIZE;

// Ends the reading of a source that multiplies itself.
void stop_reading(passes_t& passes, const std::string& text) {
    const source_map_t& map = map_of(passes);
    const uint32_t file = map.inclusions[passes.at.inclusion].file;
    fault(passes, code::TOO_LONG, {.file = file, .line = passes.at.line}, text);
    passes.incomplete = true;
    passes.reading.open.clear();
}

void fault_opening(passes_t& passes, const place_t& place, const opening_t& opening, std::string_view name) {
    passes.incomplete = true;
    if (!passes.unreadable.insert(opening.file).second) {
        return;
    }
    const std::string text = cant_open_text(map_of(passes).files[opening.file].name, opening.error);
    if (diagnostic_t* const diagnostic = fault(passes, code::CANNOT_OPEN, place, text)) {
        explain_include(*diagnostic, name);
    }
}

void include(passes_t& passes, const statement_t& line) {
    source_map_t& map = map_of(passes);
    if (!passes.first_only && map.inclusions.size() >= MOST_INCLUSIONS) {
        stop_reading(passes, "the program has more than " + std::to_string(MOST_INCLUSIONS) + " includes");
        return;
    }
    const std::string_view name = text_of(map, line.file, line.opcode);
    const place_t place = place_of(line, name.empty() ? line.label : line.opcode);
    map.inclusions.push_back({.parent = line.inclusion,
                              .line = line.line,
                              .line_begin = line.line_begin,
                              .name = name.empty() ? line.label : line.opcode});
    const opening_t opening = open_file(passes.reading, map, resolve_name(passes.reading, map, name));
    if (opening.result == opening_e::FAILED) {
        fault_opening(passes, place, opening, name);
    } else if (opening.result == opening_e::CYCLE) {
        const std::string text = "this include of " + std::string(name) + " closes a cycle";
        if (diagnostic_t* const diagnostic = fault(passes, code::INCLUDE_CYCLE, place, text)) {
            diagnostic->help = "the file is being read already";
        }
    }
}

void end_file(passes_t& passes) {
    const source_map_t& map = map_of(passes);
    const uint32_t file = map.inclusions[passes.at.inclusion].file;
    const source_file_t& source = map.files[file];
    if (source.error != 0) {
        passes.incomplete = true;
        if (passes.unreadable.insert(file).second) {
            fault(passes, code::CANNOT_READ, {.file = file, .line = passes.at.line},
                  cant_read_text(source.name, source.error));
        }
    }
    passes.reading.open.pop_back();
}

// Reports a carriage return inside of a line. The line is broken then.
bool is_broken(passes_t& passes, uint32_t file, const line_t& line) {
    const size_t at = stray_carriage_return(line.text);
    if (at == std::string_view::npos) {
        return false;
    }
    const auto column = static_cast<uint32_t>(at) + 1;
    const place_t place{.file = file, .line = passes.at.line, .first = column, .last = column};
    if (diagnostic_t* const diagnostic =
            fault(passes, code::CARRIAGE_RETURN, place, "carriage return in the middle of a line")) {
        diagnostic->help = "a line ends with a line feed, or with a carriage return and a line feed";
    }
    return true;
}

} // namespace

void open_main_file(passes_t& passes, const std::string& name) {
    source_map_t& map = map_of(passes);
    map.inclusions.push_back({});
    const opening_t opening = open_file(passes.reading, map, name);
    map.inclusions.front().file = opening.file;
    if (opening.result != opening_e::OPENED) {
        fault_opening(passes, {.file = opening.file}, opening, {});
    }
    map.statements.reserve(std::min(map.files[opening.file].text.size() / BYTES_PER_LINE, MOST_RESERVED));
}

bool next_statement(passes_t& passes) {
    source_map_t& map = map_of(passes);
    while (!passes.reading.open.empty() && !passes.over) {
        level_t& level = passes.reading.open.back();
        const uint32_t file = map.inclusions[level.inclusion].file;
        const std::optional<line_t> line = read_line(level, map.files[file]);
        passes.at = {level.inclusion, level.line_number, line ? line->text : passes.at.text};
        passes.statement = NOTHING;
        passes.muted = false;
        if (!line) {
            end_file(passes);
            continue;
        }
        if (!passes.first_only && ++passes.lines > MOST_LINES) {
            stop_reading(passes, "the program has more than " + std::to_string(MOST_LINES) + " lines");
            return false;
        }
        passes.bytes += line->text.size();
        if (!passes.first_only && passes.bytes > MOST_BYTES) {
            stop_reading(passes,
                         "the lines of the program have more than " + std::to_string(MOST_BYTES) + " bytes");
            return false;
        }
        statement_t statement{
            .file = file, .inclusion = level.inclusion, .line = level.line_number, .line_begin = line->begin};
        statement.broken = is_broken(passes, file, *line);
        passes.muted = statement.broken;
        if (!split_line(*line, statement)) {
            continue;
        }
        if (text_of(map, file, statement.label) == "#include") {
            include(passes, statement);
            continue;
        }
        statement.faulty = statement.broken;
        passes.statement = static_cast<uint32_t>(map.statements.size());
        map.statements.push_back(statement);
        return !passes.over;
    }
    return false;
}
