#include "assembler/explain.h"

#include <algorithm>
#include <array>
#include <utility>

#include "assembler/foreign.h"
#include "assembler/invisible.h"
#include "assembler/numbers.h"
#include "assembler/operations.h"
#include "assembler/source.h"
#include "base/text.h"

namespace {

constexpr size_t npos = std::string_view::npos;

std::string quoted(std::string_view text) {
    constexpr size_t LONGEST = 60;
    return "`" + std::string(text.substr(0, LONGEST)) + (text.size() > LONGEST ? "..." : "") + "`";
}

void suggest(diagnostic_t& diagnostic, std::string help, std::string text) {
    diagnostic.help = std::move(help);
    diagnostic.fix = {{diagnostic.place, std::move(text)}};
}

void suggest_nearest(diagnostic_t& diagnostic, std::string_view best) {
    if (!best.empty()) {
        suggest(diagnostic, "did you mean " + quoted(best) + "?", std::string(best));
    }
}

std::string_view line_of(const source_map_t& map, const statement_t& statement) {
    return without_comment(line_text(map, statement.file, statement.line_begin));
}

// Operands.

std::string count_of_operands(size_t count) {
    constexpr std::array<std::string_view, 7> WORDS = {"no", "one", "two", "three", "four", "five", "six"};
    const std::string number = count < WORDS.size() ? std::string(WORDS[count]) : std::to_string(count);
    return number + (count == 1 ? " operand" : " operands");
}

// `add a b c`
std::string form_of(const operation_t& operation) {
    std::string form(operation.name);
    for (size_t i = 0; i < operation.count; ++i) {
        form.append(" ").append(operation.operands[i].name);
    }
    return quoted(form);
}

// A label that was written with a colon at one place and without at the other.
bool explain_colon(diagnostic_t& diagnostic, const source_map_t& map, std::string_view name) {
    const std::string_view bare = name.substr(0, name.size() - 1);
    if (name.ends_with(':') && find_label(map, bare) != NOTHING) {
        suggest(diagnostic, "a label has no colon: write " + quoted(bare), std::string(bare));
        return true;
    }
    const uint32_t with_colon = find_label(map, std::string(name) + ":");
    if (with_colon == NOTHING) {
        return false;
    }
    place_t colon = place_of(map, map.labels[with_colon]);
    diagnostic.related = {{colon, "defined here with a colon"}};
    colon.first = colon.last;
    diagnostic.fix = {{colon, ""}};
    diagnostic.help = "the colon became part of the label's name: define it without";
    return true;
}

void collect_labels(names_t& names, const source_map_t& map) {
    for (uint32_t i = 0; i < map.labels.size(); ++i) {
        const std::string_view name = name_of(map, map.labels[i]);
        names.labels.push_back(to_compare(name));
        if (find_invisible(name)) {
            names.hidden.emplace(without_invisible(name), i);
        }
    }
}

// Values that other languages write in an operand.
bool explain_value(diagnostic_t& diagnostic, std::string_view name) {
    std::string value;
    if (const std::optional<int> code = character(name)) {
        value = std::to_string(*code);
    } else if (name.starts_with('$')) {
        value = right_form("0x" + std::string(name.substr(1)));
    } else if (name.starts_with('#') && numeric(name.substr(1))) {
        value = right_form(name.substr(1));
    }
    if (value.empty()) {
        return false;
    }
    const std::string help = "write " + quoted(value);
    suggest(diagnostic, help, std::move(value));
    return true;
}

// A pointer or an element of an array, as other languages write them.
bool explain_brackets(diagnostic_t& diagnostic, std::string_view name) {
    if (name.find_first_of("[(") == npos && !(name.starts_with('*') && name.size() > 1)) {
        return false;
    }
    const operation_t& operation = *find_operation("cpfa");
    diagnostic.help = form_of(operation) + " " + std::string(operation.effect);
    return true;
}

// Operands with commas between them.
bool explain_commas(diagnostic_t& diagnostic, std::string_view name) {
    if (name.find(',') == npos) {
        return false;
    }
    std::string bare(name);
    std::replace(bare.begin(), bare.end(), ',', ' ');
    bare.erase(bare.find_last_not_of(' ') + 1);
    suggest(diagnostic, "blanks separate operands, not commas", std::move(bare));
    return true;
}

} // namespace

std::vector<edit_t> edits_of_invisible(const source_map_t& map, const statement_t& statement) {
    std::vector<edit_t> edits;
    const std::string_view line = line_of(map, statement);
    for (auto found = find_invisible(line); found; found = find_invisible(line, found->begin + found->size)) {
        const auto begin = statement.line_begin + static_cast<uint32_t>(found->begin);
        const span_t span{.begin = begin, .size = static_cast<uint32_t>(found->size)};
        edits.push_back({place_of(statement, span), found->separates ? " " : ""});
    }
    return edits;
}

bool explain_invisible(diagnostic_t& diagnostic, const source_map_t& map, const statement_t& statement) {
    // A number or a name is wrong by itself; how many words there are depends on the whole line.
    const bool by_word = diagnostic.code == code::UNDEFINED_LABEL ||
                         diagnostic.code == code::MALFORMED_NUMBER ||
                         diagnostic.code == code::DUPLICATE_LABEL;
    const bool by_line = diagnostic.code == code::UNKNOWN_OPCODE ||
                         diagnostic.code == code::MISSING_OPERAND || diagnostic.code == code::EXTRA_OPERAND;
    std::vector<edit_t> edits =
        by_word || by_line ? edits_of_invisible(map, statement) : std::vector<edit_t>();
    const place_t& place = diagnostic.place;
    const auto at = std::find_if(edits.begin(), edits.end(), [&](const edit_t& edit) {
        return by_line || (edit.place.first >= place.first && edit.place.last <= place.last);
    });
    if (at == edits.end()) {
        return false;
    }
    const std::string_view line = line_of(map, statement);
    const invisible_t found = *find_invisible(line, at->place.first - 1);
    diagnostic.help = found.name + " is taken for a letter: " +
                      (found.separates ? "write a blank instead" : "leave it out");
    if (at->place.first < place.first || at->place.last > place.last) {
        diagnostic.related = {{at->place, "it stands here"}};
    }
    diagnostic.fix = std::move(edits);
    return true;
}

void explain_comment(diagnostic_t& diagnostic, std::string_view comment) {
    const size_t size = std::min(comment.find_first_not_of(comment.front()), comment.size());
    diagnostic.message = quoted(comment.substr(0, size)) + " does not begin a comment";
    diagnostic.help = "write `//`";
    place_t marker = diagnostic.place;
    marker.last = marker.first + static_cast<uint32_t>(size) - 1;
    diagnostic.fix = {{marker, "//"}};
}

void explain_number(diagnostic_t& diagnostic, std::string_view number, bool is_label) {
    std::string form = right_form(number);
    if (!form.empty()) {
        const std::string help = "write " + quoted(form);
        suggest(diagnostic, help, std::move(form));
    } else if (number.size() > 1 && number.find_first_not_of("0123456789", 1) == npos) {
        diagnostic.help = "numbers go from -2147483648 to 2147483647, hexadecimal ones to 0xffffffff";
    } else if (!explain_commas(diagnostic, number)) {
        diagnostic.help = is_label ? "a label does not begin with a digit or a sign"
                                   : "what begins with a digit or a sign must be a number";
    }
}

void explain_label(diagnostic_t& diagnostic, const source_map_t& map, std::string_view name, names_t& names) {
    if (explain_colon(diagnostic, map, name) || explain_value(diagnostic, name) ||
        explain_commas(diagnostic, name) || explain_brackets(diagnostic, name)) {
        return;
    }
    if (names.labels.empty()) {
        collect_labels(names, map);
    }
    if (const auto found = names.hidden.find(std::string(name)); found != names.hidden.end()) {
        const label_t& label = map.labels[found->second];
        diagnostic.related = {
            {place_of(map, label), "defined here, with " + find_invisible(name_of(map, label))->name}};
        diagnostic.fix = edits_of_invisible(map, map.statements[label.statement]);
        diagnostic.help = "the definition has a character in it that one does not see: leave it out";
        return;
    }
    suggest_nearest(diagnostic, nearest(name, names.labels, names.budget));
    if (diagnostic.help.empty()) {
        diagnostic.help = "no line of the program begins with this name";
    }
}

void explain_read(diagnostic_t& diagnostic) {
    const std::string_view number =
        diagnostic.fix.size() == 1 ? diagnostic.fix.front().text : std::string_view();
    const std::optional<int32_t> value = numeric(number) ? read_number(number) : std::nullopt;
    if (value && *value >= 0) {
        diagnostic.help +=
            "; a number is an address here, and as a value it needs a word of its own, `NAME .data " +
            std::to_string(*value) + "`";
    }
}

std::string indentation_in(const source_map_t& map, uint32_t file) {
    constexpr size_t LONGEST_LOOK = 4096; // it is asked for at each fault
    const std::string_view text = map.files[file].text;
    for (size_t begin = 0; begin < std::min(text.size(), LONGEST_LOOK);) {
        const std::string_view line = text.substr(begin, text.find('\n', begin) - begin);
        uint32_t position = 0;
        const span_t word = take_token(line, position);
        if (word.begin > 0 && find_operation(line.substr(word.begin, word.size)) != nullptr) {
            return std::string(line.substr(0, word.begin));
        }
        begin += line.size() + 1;
    }
    return std::string(16, ' '); // as in the examples
}

void explain_first_column(diagnostic_t& diagnostic, const source_map_t& map, std::string_view operation) {
    const place_t& place = diagnostic.place;
    diagnostic.help = quoted(operation) + " stands in the first column, where labels are: indent it";
    diagnostic.fix = {{{.file = place.file, .line = place.line}, indentation_in(map, place.file)}};
}

void explain_count(diagnostic_t& diagnostic, const source_map_t& map, const statement_t& statement) {
    const operation_t& operation = *statement.operation;
    const std::string_view line = line_of(map, statement);
    uint32_t position = statement.opcode.begin + statement.opcode.size - statement.line_begin;
    size_t count = 0;
    while (take_token(line, position).size != 0) {
        ++count;
    }
    constexpr size_t UNIT = std::string_view(" operands").size();
    std::string has = count_of_operands(count);
    has.erase(has.rfind(' '), UNIT);
    diagnostic.message = quoted(operation.name) + " takes " + count_of_operands(operation.count) +
                         ", this line has " + (count == 0 ? "none" : has);
    if (count > operation.count) {
        const place_t& extra = diagnostic.place;
        const std::string_view text = line.substr(extra.first - 1, extra.last - extra.first + 1);
        diagnostic.help = quoted(text) + " is too much";
        if (text.find_first_of(WHITE_SPACE) != npos || text.starts_with("/*")) {
            diagnostic.help += "; a comment begins with `//`";
        }
    } else {
        diagnostic.help = form_of(operation) + " " + std::string(operation.effect);
    }
}

void explain_include(diagnostic_t& diagnostic, std::string_view name) {
    if (name.size() > 2 && std::string_view("\"<'").find(name.front()) != npos) {
        const std::string_view bare = name.substr(1, name.size() - 2);
        suggest(diagnostic, "the name stands without quotes: " + quoted(bare), std::string(bare));
    } else if (const auto found = find_invisible(name)) {
        diagnostic.help = found->name + " is taken for a letter of the name";
        suggest(diagnostic, diagnostic.help, without_invisible(name));
    } else if (!name.empty() && !pathname_is_absolute(name)) {
        diagnostic.help = "the name is relative to the folder of the file that includes it";
    }
}

meant_e meant_by(const source_map_t& map, const statement_t& statement) {
    const std::string_view label = text_of(map, statement.file, statement.label);
    const std::string_view opcode = text_of(map, statement.file, statement.opcode);
    if (is_include(label) || is_include(opcode) || (opcode.ends_with(".k") && !label.empty())) {
        return meant_e::INCLUDE;
    }
    if (find_operation(label) != nullptr) {
        return meant_e::OPERATION;
    }
    const std::string_view next = text_of(map, statement.file, statement.operands[0].token);
    const bool may_be_label = label.empty() && !numeric(opcode);
    return may_be_label && (opcode.ends_with(':') || find_operation(next) != nullptr) ? meant_e::LABEL
                                                                                      : meant_e::UNKNOWN;
}

void explain_opcode(diagnostic_t& diagnostic, const source_map_t& map, const statement_t& statement,
                    names_t& names) {
    const std::string_view opcode = text_of(map, statement.file, statement.opcode);
    place_t indentation = diagnostic.place;
    indentation.last = std::exchange(indentation.first, 1) - 1;
    switch (meant_by(map, statement)) {
    case meant_e::INCLUDE:
        diagnostic.help =
            "an include is written " + quoted("#include NAME.k") + " and begins in the first column";
        if (opcode == "#include" && statement.label.size == 0) {
            diagnostic.fix = {{indentation, ""}};
        }
        return;
    case meant_e::OPERATION:
        explain_first_column(diagnostic, map, text_of(map, statement.file, statement.label));
        return;
    case meant_e::LABEL: {
        const bool has_colon = opcode.ends_with(':');
        diagnostic.help = has_colon ? "a label begins in the first column and has no colon"
                                    : "a label begins in the first column";
        diagnostic.fix = {{indentation, ""}};
        if (has_colon) {
            place_t colon = diagnostic.place;
            colon.first = colon.last;
            diagnostic.fix.push_back({colon, ""});
        }
        return;
    }
    case meant_e::UNKNOWN: {
        if (statement.label.size != 0 && numeric(opcode)) {
            const std::string data = ".data " + std::string(opcode);
            suggest(diagnostic, "a value needs `.data`: write " + quoted(data), data);
            return;
        }
        diagnostic.help = help_for_others(opcode);
        if (!diagnostic.help.empty()) {
            return;
        }
        std::vector<name_t> mnemonics;
        for (const operation_t& operation : operations()) {
            mnemonics.push_back(to_compare(operation.name));
        }
        suggest_nearest(diagnostic, nearest(opcode, mnemonics, names.budget));
    }
    }
}
