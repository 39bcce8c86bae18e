#include "language/warnings.h"

#include <algorithm>
#include <utility>

#include "base/machine.h"
#include "language/text.h"
#include "language/warnings_internal.h"

namespace {

bool comes_before(const found_t& left, const found_t& right) {
    const auto place_of = [](const found_t& found) {
        return std::tuple(found.statement, found.diagnostic.place.line, found.diagnostic.place.first);
    };
    return place_of(left) < place_of(right);
}

// Whether it is new. Two ways to look at ports may find the same, and so does a file that is included twice.
bool take_note(said_t& said, std::string_view code, const place_t& place) {
    return said.emplace(code, place.file, place.line, place.first).second;
}

bool is_to_be_said(const warnings_t& warnings, std::string_view code, std::string_view line) {
    return (!warnings.is_wanted || warnings.is_wanted(code)) && !is_allowed(line, code);
}

std::string_view line_of(const warnings_t& warnings, uint32_t index) {
    const statement_t& statement = warnings.map->statements[index];
    return line_text(*warnings.map, statement.file, statement.line_begin);
}

std::set<line_number_t> named_lines(const diagnostics_t& faults) {
    std::set<line_number_t> lines;
    for (const diagnostic_t& fault : faults.list) {
        for (const related_t& related : fault.related) {
            lines.emplace(related.place.file, related.place.line);
        }
    }
    return lines;
}

std::string_view ordinal(uint8_t operand) {
    constexpr std::string_view ORDINALS[] = {"first", "second", "third"};
    return ORDINALS[operand];
}

} // namespace

bool is_allowed(std::string_view line, std::string_view code) {
    const size_t comment = line.find("//");
    const size_t allow = comment == std::string_view::npos ? comment : line.find(ALLOW, comment);
    if (allow == std::string_view::npos) {
        return false;
    }
    std::string_view codes = line.substr(allow + ALLOW.size());
    while (!codes.empty()) {
        const size_t begin = std::min(codes.find_first_not_of(CODE_ENDS), codes.size());
        const size_t end = std::min(codes.find_first_of(CODE_ENDS, begin), codes.size());
        if (codes.substr(begin, end - begin) == code) {
            return true;
        }
        codes.remove_prefix(end);
    }
    return false;
}

operand_place_t place_of_operand(const program_t& program, const instruction_t& instruction, size_t operand) {
    const int32_t address = instruction.address + 1 + static_cast<int32_t>(operand);
    const word_t& word = program.map->words[static_cast<size_t>(address)];
    if (word.statement == NOTHING || word.operand == NO_OPERAND) {
        return {.statement = instruction.statement};
    }
    const operand_t& written = program.map->statements[word.statement].operands[word.operand];
    return {.statement = word.statement, .token = written.token, .label = written.label};
}

diagnostic_t& warn(warnings_t& warnings, std::string_view code, uint32_t statement, span_t token,
                   std::string message, std::string help) {
    warnings.found.push_back({statement,
                              line_of(warnings, statement),
                              {.place = place_of(warnings.map->statements[statement], token),
                               .severity = severity_e::WARNING,
                               .code = code,
                               .message = std::move(message),
                               .help = std::move(help)}});
    return warnings.found.back().diagnostic;
}

diagnostic_t& warn(warnings_t& warnings, std::string_view code, const instruction_t& instruction,
                   std::string message, std::string help) {
    const span_t token = warnings.map->statements[instruction.statement].opcode;
    return warn(warnings, code, instruction.statement, token, std::move(message), std::move(help));
}

std::string quoted(std::string_view text) {
    constexpr size_t LONGEST = 60;
    return "`" + std::string(text.substr(0, LONGEST)) + (text.size() > LONGEST ? "..." : "") + "`";
}

std::string quoted_operand(const warnings_t& warnings, const operand_place_t& place) {
    return quoted(text_of(*warnings.map, warnings.map->statements[place.statement].file, place.token));
}

std::string line_name(const source_map_t& map, uint32_t statement, uint32_t from) {
    const statement_t& line = map.statements[statement];
    std::string name = "line " + std::to_string(line.line);
    if (line.file != map.statements[from].file) {
        name.append(" of ").append(base_name(map.files[line.file].name));
    }
    return name;
}

std::string word_name(const source_map_t& map, int32_t address, uint32_t from) {
    const word_t& word = map.words[static_cast<size_t>(address)];
    if (word.kind == word_e::NONE) {
        return "a word that no line sets";
    }
    const statement_t& statement = map.statements[word.statement];
    const std::string where = line_name(map, word.statement, from);
    if (word.kind == word_e::DATA) {
        return statement.defines == NOTHING
                   ? "the word in " + where
                   : quoted(name_of(map, map.labels[statement.defines])) + " in " + where;
    }
    const std::string owner = " of the " + quoted(statement.operation->name) + " in " + where;
    return word.kind == word_e::OPCODE    ? "the operation" + owner
           : word.kind == word_e::OPERAND ? "the " + std::string(ordinal(word.operand)) + " operand" + owner
                                          : "a part" + owner;
}

bool is_left_out(warnings_t& warnings, std::string_view code, const place_t& place, std::string_view line) {
    if (!is_to_be_said(warnings, code, line)) {
        return true;
    }
    if (warnings.in_order.size() >= MOST_DIAGNOSTICS) {
        ++warnings.more;
        return true;
    }
    return !take_note(warnings.in_order, code, place);
}

bool is_left_out(warnings_t& warnings, std::string_view code, uint32_t statement, span_t token) {
    return is_left_out(warnings, code, place_of(warnings.map->statements[statement], token),
                       line_of(warnings, statement));
}

bool is_reached(const warnings_t& warnings, uint32_t instruction) {
    return instruction < warnings.flow->reached.size() && warnings.flow->reached[instruction];
}

bool is_template(const warnings_t& warnings, uint32_t instruction) {
    const program_t& program = *warnings.program;
    const uint8_t bits = program.words[static_cast<size_t>(program.code[instruction].address)];
    return (bits & (IS_READ | BASE)) != 0 && warnings.flow != nullptr && !is_reached(warnings, instruction);
}

void add_warnings(analysis_t& analysis, const is_wanted_t& is_wanted) {
    const bool faultless = analysis.diagnostics.count == 0;
    if (analysis.map.words.size() != MEMORY_SIZE) {
        return;
    }
    program_t program = read_program(analysis.map);
    flow_t flow;
    warnings_t warnings{.map = &analysis.map,
                        .program = &program,
                        .faults = &analysis.diagnostics,
                        .flow = nullptr,
                        .found = {},
                        .is_wanted = is_wanted,
                        .named = named_lines(analysis.diagnostics)};
    if (faultless) {
        flow = find_ways(program);
        warnings.flow = &flow;
        warn_of_ways(warnings);
        warn_of_subroutines(warnings);
        warn_of_ports(warnings);
    }
    warn_of_lines(warnings);
    warnings.in_order.clear();
    warn_of_labels(warnings);
    warnings.in_order.clear();
    warn_of_operands(warnings);
    std::stable_sort(warnings.found.begin(), warnings.found.end(), comes_before);
    said_t said;
    for (found_t& found : warnings.found) {
        const std::string_view code = found.diagnostic.code;
        if (is_to_be_said(warnings, code, found.line) && take_note(said, code, found.diagnostic.place)) {
            add_diagnostic(analysis.diagnostics, std::move(found.diagnostic));
        }
    }
    // The list is full then: those that were let through are in it.
    for (; warnings.more > 0; --warnings.more) {
        add_diagnostic(analysis.diagnostics, {.severity = severity_e::WARNING});
    }
}
