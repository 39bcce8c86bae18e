#include "language/output.h"

#include <algorithm>
#include <string_view>
#include <tuple>

#include <nlohmann/json.hpp>

#include "language/characters.h"
#include "language/codes.h"
#include "language/line_index.h"

namespace {

using json = nlohmann::ordered_json;

constexpr size_t TAB = 8;
constexpr size_t LONGEST_LINE = 160; // that is shown whole, in columns
constexpr size_t BEFORE_TOKEN = 40;  // of one that is not
constexpr size_t SHOWN_RELATED = 4;
constexpr size_t NUMBER_WIDTH = 5;

// As a terminal is told.
const char* color_of(severity_e severity) {
    switch (severity) {
    case severity_e::ERROR:
        return "\033[1;31m";
    case severity_e::WARNING:
        return "\033[1;35m";
    default:
        return "\033[1;36m";
    }
}

struct text_writer_t {
    const source_map_t& map;
    line_index_t lines;
    bool color;
    std::string text{};
};

void paint(text_writer_t& writer, const char* color, std::string_view text) {
    writer.text.append(writer.color ? color : "").append(text).append(writer.color ? "\033[0m" : "");
}

// The line as a terminal shows it, with blanks for tabs, and which columns the token has in it.
struct shown_t {
    std::string line;
    size_t first;
    size_t width;
};

// Text of one line in columns; a character counts as one.
size_t append_columns(std::string& shown, size_t column, std::string_view text) {
    while (!text.empty()) {
        const size_t tab = std::min(text.find('\t'), text.size());
        shown += readable(text.substr(0, tab));
        column += count_characters(text.substr(0, tab));
        text.remove_prefix(tab);
        if (!text.empty()) {
            const size_t blanks = TAB - column % TAB;
            shown.append(blanks, ' ');
            column += blanks;
            text.remove_prefix(1);
        }
    }
    return column;
}

shown_t show(std::string_view line, const place_t& place) {
    const std::string_view before = line.substr(0, place.first - 1);
    const std::string_view token =
        line.substr(before.size(), std::max<size_t>(place.last, before.size()) - before.size());
    shown_t shown{};
    shown.first = append_columns(shown.line, 0, before);
    const size_t end = append_columns(shown.line, shown.first, token);
    shown.width = std::max<size_t>(end - shown.first, 1);
    append_columns(shown.line, end, line.substr(before.size() + token.size()));
    return shown;
}

void write_place(text_writer_t& writer, const place_t& place) {
    std::string text = readable(writer.map.files[place.file].name) + ":";
    if (place.line > 0) {
        const size_t column = column_behind(writer.lines, place.file, place.line, place.first - 1);
        text += std::to_string(place.line) + ":" + std::to_string(column) + ":";
    }
    paint(writer, "\033[1m", text);
    writer.text += ' ';
}

void write_line(text_writer_t& writer, const place_t& place, const char* color) {
    if (place.line == 0) {
        return;
    }
    std::string_view line = text_of_line(writer.lines, place.file, place.line);
    place_t shown_place = place;
    std::string cut;
    if (line.size() > LONGEST_LINE) {
        // Bytes, not columns: what is cut here was made to be cut.
        const size_t begin = place.first > BEFORE_TOKEN ? place.first - 1 - BEFORE_TOKEN : 0;
        cut = (begin > 0 ? "..." : "") + std::string(line.substr(begin, LONGEST_LINE));
        const auto shift = static_cast<uint32_t>(begin) - (begin > 0 ? 3 : 0);
        shown_place.first -= shift;
        shown_place.last = std::min(place.last - shift, static_cast<uint32_t>(cut.size()));
        line = cut;
    }
    const shown_t shown = show(line, shown_place);
    const std::string number = std::to_string(place.line);
    writer.text.append(NUMBER_WIDTH - std::min(number.size(), NUMBER_WIDTH), ' ');
    writer.text += number + " | " + shown.line + "\n" + std::string(NUMBER_WIDTH, ' ') + " | ";
    writer.text.append(shown.first, ' ');
    paint(writer, color, "^" + std::string(shown.width - 1, '~'));
    writer.text += '\n';
}

void write_diagnostic(text_writer_t& writer, const diagnostic_t& diagnostic) {
    const char* const color = color_of(diagnostic.severity);
    write_place(writer, diagnostic.place);
    paint(writer, color, std::string(name_of(diagnostic.severity)) + ":");
    writer.text += " " + readable(diagnostic.message) + " [" + std::string(diagnostic.code) + "]\n";
    write_line(writer, diagnostic.place, color);
    if (!diagnostic.help.empty()) {
        writer.text.append(NUMBER_WIDTH, ' ').append(" = help: ").append(readable(diagnostic.help)) += '\n';
    }
    for (size_t i = 0; i < diagnostic.related.size(); ++i) {
        if (i == SHOWN_RELATED) {
            const size_t more = diagnostic.related.size() - i + diagnostic.more_related;
            writer.text.append(NUMBER_WIDTH, ' ') += " = and " + std::to_string(more) + " more places\n";
            break;
        }
        const related_t& related = diagnostic.related[i];
        write_place(writer, related.place);
        paint(writer, color_of(severity_e::NOTE), "note:");
        writer.text += " " + readable(related.message) + "\n";
        write_line(writer, related.place, color_of(severity_e::NOTE));
    }
}

std::string counted(size_t count, const char* noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// In the order of the lines. What says that there are more comes last.
std::vector<const diagnostic_t*> sorted(const diagnostics_t& diagnostics) {
    std::vector<const diagnostic_t*> list;
    for (const diagnostic_t& diagnostic : diagnostics.list) {
        list.push_back(&diagnostic);
    }
    const auto key = [](const diagnostic_t* diagnostic) {
        const place_t& place = diagnostic->place;
        return std::tuple(diagnostic->code == code::MORE, place.file, place.line, place.first);
    };
    std::stable_sort(list.begin(), list.end(), [&](const auto* a, const auto* b) { return key(a) < key(b); });
    return list;
}

json place_to_json(const source_map_t& map, const place_t& place) {
    json result{{"file", readable(map.files[place.file].name)}};
    if (place.line > 0) {
        result.update({{"line", place.line}, {"first", place.first}, {"last", place.last}});
    }
    return result;
}

json diagnostic_to_json(const source_map_t& map, const diagnostic_t& diagnostic) {
    json result = place_to_json(map, diagnostic.place);
    result.update({{"severity", name_of(diagnostic.severity)},
                   {"code", diagnostic.code},
                   {"message", readable(diagnostic.message)},
                   {"help", readable(diagnostic.help)}});
    result["related"] = json::array();
    for (const related_t& related : diagnostic.related) {
        json place = place_to_json(map, related.place);
        place["message"] = readable(related.message);
        result["related"].push_back(place);
    }
    result["fix"] = json::array();
    for (const edit_t& edit : diagnostic.fix) {
        json place = place_to_json(map, edit.place);
        place["text"] = readable(edit.text);
        result["fix"].push_back(place);
    }
    return result;
}

} // namespace

counts_t count_diagnostics(const diagnostics_t& diagnostics) {
    return {diagnostics.faults, diagnostics.count - diagnostics.faults};
}

std::string to_text(const analysis_t& program, bool color) {
    text_writer_t writer{program.map, line_index_t(program.map), color};
    for (const diagnostic_t* const diagnostic : sorted(program.diagnostics)) {
        write_diagnostic(writer, *diagnostic);
    }
    const auto [faults, warnings] = count_diagnostics(program.diagnostics);
    writer.text += readable(program.map.files.front().name) + ": " + counted(faults, "fault") + ", " +
                   counted(warnings, "warning") + "\n";
    return writer.text;
}

std::string to_json(const std::vector<analysis_t>& programs) {
    json list = json::array();
    for (const analysis_t& program : programs) {
        const auto [faults, warnings] = count_diagnostics(program.diagnostics);
        json diagnostics = json::array();
        for (const diagnostic_t* const diagnostic : sorted(program.diagnostics)) {
            diagnostics.push_back(diagnostic_to_json(program.map, *diagnostic));
        }
        list.push_back({{"name", readable(program.map.files.front().name)},
                        {"faults", faults},
                        {"warnings", warnings},
                        {"diagnostics", diagnostics}});
    }
    return json{{"version", 1}, {"programs", list}}.dump(2) + "\n";
}
