// What can be done about a fault by one choice.

#include "language/features.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <span>
#include <utility>

#include "assembler/numbers.h"
#include "assembler/operations.h"
#include "base/text.h"
#include "language/protocol.h"

namespace {

std::string in_quotes(std::string_view text) { return "'" + std::string(text) + "'"; }

// What an edit replaces.
std::string_view old_text(const project_t& program, const edit_t& edit) {
    const text_t& text = program.texts[edit.place.file];
    const auto [begin, end] = bytes_of(text, edit.place);
    return std::string_view(text.bytes).substr(begin, end - begin);
}

bool is_shown(std::string_view text) { return text.find_first_not_of(WHITE_SPACE) != std::string_view::npos; }

// The help where the edits have no words in common, or where blanks are all that they are about.
std::string title_of(const project_t& program, const diagnostic_t& diagnostic) {
    const edit_t& edit = diagnostic.fix.front();
    const std::string_view old = old_text(program, edit);
    const bool same = std::all_of(diagnostic.fix.begin(), diagnostic.fix.end(), [&](const edit_t& other) {
        return other.text == edit.text && old_text(program, other) == old;
    });
    if (same && old.empty() && !edit.text.empty() && !is_shown(edit.text)) {
        return "Indent it";
    }
    if (!same || (!is_shown(edit.text) && !is_shown(old))) {
        std::string help = diagnostic.help;
        help.front() = help.front() >= 'a' && help.front() <= 'z'
                           ? static_cast<char>(help.front() - 'a' + 'A')
                           : help.front();
        std::erase(help, '`');
        return help;
    }
    const size_t places = diagnostic.fix.size();
    const std::string times = places == 1 ? "" : ", in " + std::to_string(places) + " places";
    if (edit.text.empty()) {
        return "Remove " + in_quotes(old) + times;
    }
    return "Write " + in_quotes(edit.text) + (old.empty() ? "" : " instead of " + in_quotes(old)) + times;
}

json changes_of(const server_t& server, const project_t& program, const std::vector<edit_t>& edits) {
    std::map<std::string, json> changes;
    for (const edit_t& edit : edits) {
        const text_t& text = program.texts[edit.place.file];
        json& list =
            changes.try_emplace(uri_of(server, program.paths[edit.place.file]), json::array()).first->second;
        list.push_back(edit_of(server, text, bytes_of(text, edit.place), edit.text));
    }
    return {{"changes", changes}};
}

// The value that a name such as "ten", "minus_one" or "c100" promises; "x2" promises none.
int32_t value_in(std::string_view name) {
    constexpr std::array<std::string_view, 21> NUMBERS = {
        "zero",     "one",     "two",     "three",     "four",     "five",     "six",
        "seven",    "eight",   "nine",    "ten",       "eleven",   "twelve",   "thirteen",
        "fourteen", "fifteen", "sixteen", "seventeen", "eighteen", "nineteen", "twenty"};
    constexpr std::string_view MINUS = "minus_";
    if (name.starts_with(MINUS)) {
        return -value_in(name.substr(MINUS.size()));
    }
    const auto* const word = std::find(NUMBERS.begin(), NUMBERS.end(), name);
    if (word != NUMBERS.end()) {
        return static_cast<int32_t>(word - NUMBERS.begin());
    }
    constexpr std::array<std::string_view, 6> PREFIXES = {"", "c", "n", "const", "num", "number"};
    const size_t digits = name.find_last_not_of("0123456789") + 1;
    std::string_view prefix = name.substr(0, digits);
    prefix.remove_suffix(prefix.ends_with('_') ? 1 : 0);
    return std::find(PREFIXES.begin(), PREFIXES.end(), prefix) == PREFIXES.end()
               ? 0
               : read_number(name.substr(digits)).value_or(0);
}

// Whether the word of a label, and those behind it, are reached by an index or a pointer.
bool is_array(const project_t& program, std::string_view name) {
    const source_map_t& map = program.analysis.map;
    const uint32_t index = find_label(map, name);
    if (index == NOTHING) {
        return false;
    }
    const auto uses = std::span(map.uses).subspan(map.labels[index].first_use, map.labels[index].use_count);
    return std::any_of(uses.begin(), uses.end(), [&](const use_t& use) {
        const operation_t* const operation = map.statements[use.statement].operation;
        const role_e role = operation == nullptr || use.operand >= operation->count
                                ? role_e::NONE
                                : operation->operands[use.operand].role;
        return role == role_e::BASE || role == role_e::VALUE;
    });
}

// Where a word of data can be put into a file: behind its last one, but in front of an array there, which may
// go on beyond the program; behind its last line before includes when it has none. A line feed before what is
// inserted is needed where the last line has none.
struct insertion_t {
    size_t offset = 0;
    std::string before{};
    std::string after{};
};

insertion_t insertion_for_data(const project_t& program, std::string_view text) {
    const std::string ending = text.find("\r\n") == std::string_view::npos ? "\n" : "\r\n";
    std::optional<size_t> behind_code;
    std::optional<size_t> behind_data;
    std::optional<size_t> comments; // those just above the line
    std::string_view label;         // the last one, and where its line or the comments above begin
    size_t label_begin = 0;
    std::string_view data_label;
    size_t data_begin = 0;
    for_each_line(text, [&](const source_line_t& line) {
        const size_t next = line.begin + line.text.size() + 1;
        if (line.blank) {
            const bool comment = line.comment.begin < line.comment.end;
            comments = comment ? std::optional(comments.value_or(line.begin)) : std::nullopt;
            return;
        }
        if (line.statement.label.size != 0) {
            label = text_in(text, line.statement.label);
            label_begin = comments.value_or(line.begin);
        }
        comments.reset();
        if (text_in(text, line.statement.opcode) == ".data") {
            behind_data = next;
            data_label = label;
            data_begin = label_begin;
        } else if (!line.include) {
            behind_code = next;
        }
    });
    if (behind_data && is_array(program, data_label)) {
        return {.offset = data_begin, .after = ending};
    }
    insertion_t insertion{.offset = behind_data.value_or(behind_code.value_or(0)), .after = ending};
    if (insertion.offset > text.size()) {
        insertion = {.offset = text.size(), .before = ending};
    }
    return insertion;
}

// A word of data that would mend a fault.
struct constant_t {
    std::string name;
    std::string value;
    bool named = false; // the operand has the name already
};

// Whether the operand at a place is where the program goes on: there data is of no use.
bool is_target(std::string_view text, size_t offset) {
    const source_line_t line = line_at(text, offset);
    const operation_t* const operation = find_operation(text_in(text, line.statement.opcode));
    const int operand = token_at(text, line, offset).operand;
    return operation != nullptr && operand >= 0 && operand < operation->count &&
           operation->operands[static_cast<size_t>(operand)].role == role_e::TARGET;
}

// The line that a warning proposes, in words such as "write `one .data 1` behind the program and use `one`".
std::optional<constant_t> constant_in(std::string_view help) {
    constexpr std::string_view DATA = " .data ";
    const size_t end = help.find("` behind the program and use `");
    const size_t begin = end == std::string_view::npos ? end : help.rfind('`', end - 1);
    if (begin == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view line = help.substr(begin + 1, end - begin - 1);
    const size_t data = line.find(DATA);
    return data == std::string_view::npos
               ? std::nullopt
               : std::optional(constant_t{std::string(line.substr(0, data)),
                                          std::string(line.substr(data + DATA.size()))});
}

std::optional<constant_t> missing_constant(const project_t& program, const diagnostic_t& diagnostic) {
    const text_t& text = program.texts[diagnostic.place.file];
    const auto [begin, end] = bytes_of(text, diagnostic.place);
    if (diagnostic.code == code::UNDEFINED_LABEL) {
        const std::string name = text.bytes.substr(begin, end - begin);
        const bool other = name.find_first_of("'\",:;=()[]{}") != std::string::npos; // meant otherwise
        return other || is_target(text.bytes, begin)
                   ? std::nullopt
                   : std::optional(constant_t{name, std::to_string(value_in(name)), true});
    }
    const std::optional<constant_t> constant = constant_in(diagnostic.help);
    return constant && find_label(program.analysis.map, constant->name) == NOTHING ? constant : std::nullopt;
}

// In the columns of the examples.
std::string line_of(const constant_t& constant) {
    constexpr size_t OPERATION_COLUMN = 16;
    constexpr size_t OPERAND_COLUMN = 24;
    std::string line = constant.name;
    line.resize(std::max(OPERATION_COLUMN, line.size() + 1), ' ');
    line += ".data";
    line.resize(std::max(OPERAND_COLUMN, line.size() + 1), ' ');
    return line + constant.value;
}

json add_constant(const server_t& server, const project_t& program, const diagnostic_t& diagnostic,
                  const constant_t& constant, const insertion_t& at) {
    const text_t& text = program.texts[diagnostic.place.file];
    json edits = json::array(
        {edit_of(server, text, {at.offset, at.offset}, at.before + line_of(constant) + at.after)});
    if (!constant.named) {
        edits.push_back(edit_of(server, text, bytes_of(text, diagnostic.place), constant.name));
    }
    json changes = json::object();
    changes[uri_of(server, program.paths[diagnostic.place.file])] = std::move(edits);
    return {{"changes", std::move(changes)}};
}

bool is_wanted(const json& params) {
    const json only = params.at("context").value("only", json());
    return only.is_null() || std::any_of(only.begin(), only.end(), [](const json& kind) {
               const auto name = kind.get<std::string>();
               return name.empty() || name == "quickfix";
           });
}

// Where a diagnostic can be mended: at its place, and wherever else an unknown name stands.
bool concerns(const project_t& program, const diagnostic_t& diagnostic, const view_t& view, bytes_t range) {
    const auto within = [&](const place_t& place) {
        const bytes_t bytes = bytes_of(view.text, place);
        return program.paths[place.file] == view.path && bytes.end >= range.begin && bytes.begin <= range.end;
    };
    return within(diagnostic.place) ||
           (diagnostic.code == code::UNDEFINED_LABEL &&
            std::any_of(diagnostic.related.begin(), diagnostic.related.end(),
                        [&](const related_t& related) { return within(related.place); }));
}

} // namespace

json code_actions(server_t& server, const json& params) {
    const view_t view = view_of(server, path_in(params));
    json actions = json::array();
    const json& range = params.at("range");
    const size_t begin = offset_at(view.text, position_in(range.at("start")), server.client.encoding);
    const size_t end = offset_at(view.text, position_in(range.at("end")), server.client.encoding);
    if (!is_wanted(params)) {
        return actions;
    }
    const project_t& program = program_of(server, view.path);
    std::optional<insertion_t> insertion; // of all that is in the file
    const auto add = [&](const diagnostic_t& diagnostic, std::string title, json edit, bool preferred) {
        actions.push_back({{"title", std::move(title)},
                           {"kind", "quickfix"},
                           {"isPreferred", preferred},
                           {"diagnostics", json::array({diagnostic_json(server, program, diagnostic)})},
                           {"edit", std::move(edit)}});
    };
    for (const diagnostic_t& diagnostic : program.analysis.diagnostics.list) {
        if (!concerns(program, diagnostic, view, {begin, end})) {
            continue;
        }
        if (!diagnostic.fix.empty()) {
            add(diagnostic, title_of(program, diagnostic), changes_of(server, program, diagnostic.fix), true);
        }
        if (const std::optional<constant_t> constant = missing_constant(program, diagnostic)) {
            insertion = insertion ? insertion
                                  : insertion_for_data(program, program.texts[diagnostic.place.file].bytes);
            add(diagnostic, "Add " + in_quotes(constant->name + " .data " + constant->value),
                add_constant(server, program, diagnostic, *constant, *insertion), false);
        }
    }
    return actions;
}
