// Pass 2: what goes there.

#include <optional>

#include "assembler/numbers.h"
#include "assembler/passes.h"
#include "base/arithmetic.h"
#include "base/machine.h"
#include "base/text.h"

namespace {

bool is_read(const statement_t& statement, size_t index) {
    return statement.operation != nullptr && index < statement.operation->count &&
           statement.operation->operands[index].role == role_e::READ;
}

int32_t fault_undefined(passes_t& passes, statement_t& statement, const operand_t& operand, bool read) {
    const source_map_t& map = map_of(passes);
    const std::string_view name = text_of(map, statement.file, operand.token);
    const place_t place = place_of(statement, operand.token);
    statement.faulty = true;
    // What is missing may define it.
    if (passes.muted || passes.incomplete) {
        return 0;
    }
    std::vector<diagnostic_t>& list = passes.result.analysis.diagnostics.list;
    if (const auto known = passes.undefined.find(name); known != passes.undefined.end()) {
        if (known->second < list.size() && list[known->second].code == code::UNDEFINED_LABEL) {
            diagnostic_t& said = list[known->second];
            add_related(said, {place, "also used here"});
            if (said.fix.size() == MOST_EDITS) {
                said.fix.clear();
            } else if (!said.fix.empty() && said.fix.front().place == said.place) {
                said.fix.push_back({place, said.fix.front().text});
            }
        }
        return 0;
    }
    diagnostic_t* const diagnostic =
        fault(passes, code::UNDEFINED_LABEL, place, "undefined label " + std::string(name));
    if (diagnostic != nullptr) {
        explain_label(*diagnostic, map, name, passes.names);
        if (read) {
            explain_read(*diagnostic);
        }
    }
    if (!passes.muted) {
        // Operands that are written as one are also too few.
        passes.muted = name.find_first_of(',') < name.size() - 1;
        passes.undefined.emplace(name, diagnostic == nullptr ? NOTHING : list.size() - 1);
    }
    return 0;
}

// The value of an operand of the source, which is 0 when it has none.
int32_t find_value(passes_t& passes, statement_t& statement, uint8_t index) {
    const source_map_t& map = map_of(passes);
    operand_t& operand = statement.operands[index];
    const std::string_view text = text_of(map, statement.file, operand.token);
    if (text.empty()) {
        if (diagnostic_t* const diagnostic =
                fault(passes, code::MISSING_OPERAND, place_of(statement, statement.opcode), "empty label")) {
            explain_count(*diagnostic, map, statement);
        }
        // All that would stand behind it is missing too.
        passes.muted = true;
        return 0;
    }
    if (numeric(text)) {
        const std::optional<int32_t> value = read_number(text);
        if (!value) {
            if (diagnostic_t* const diagnostic =
                    fault(passes, code::MALFORMED_NUMBER, place_of(statement, operand.token),
                          std::string(text) + " is a malformed number")) {
                explain_number(*diagnostic, text, false);
                if (is_read(statement, index)) {
                    explain_read(*diagnostic);
                }
            }
        }
        return value.value_or(0);
    }
    operand.label = find_label(map, text);
    if (operand.label == NOTHING) {
        return fault_undefined(passes, statement, operand, is_read(statement, index));
    }
    passes.uses.emplace_back(operand.label, use_t{.statement = passes.statement, .operand = index});
    return map.labels[operand.label].address;
}

void put_word(passes_t& passes, const statement_t& statement, int32_t offset, word_t word) {
    const int32_t address = wrap_add(statement.address, offset);
    if (address < 0 || address >= MEMORY_SIZE) {
        fault_beyond(passes, place_of(statement, statement.opcode),
                     "address " + std::to_string(address) + " out of range");
    } else if (!passes.over) {
        word.statement = passes.statement;
        map_of(passes).words[static_cast<size_t>(address)] = word;
    }
}

void check_count(passes_t& passes, const statement_t& statement) {
    const size_t count = statement.operation->count;
    const span_t first =
        count < statement.operands.size() ? statement.operands[count].token : statement.extra;
    if (first.size == 0) {
        return;
    }
    place_t place = place_of(statement, first);
    const std::string_view line =
        without_comment(line_text(map_of(passes), statement.file, statement.line_begin));
    place.last = static_cast<uint32_t>(line.find_last_not_of(WHITE_SPACE)) + 1;
    if (diagnostic_t* const diagnostic =
            fault(passes, code::EXTRA_OPERAND, place, "extra characters at end of line")) {
        explain_count(*diagnostic, map_of(passes), statement);
    }
}

void put_operand(passes_t& passes, statement_t& statement, int32_t offset, word_e kind, uint8_t index) {
    const int32_t value = find_value(passes, statement, index);
    statement.operands[index].value = value;
    put_word(passes, statement, offset, {.value = value, .kind = kind, .operand = index});
}

// The opcode's word comes before the operands are looked at, and each operand's before the next.
void encode_statement(passes_t& passes, statement_t& statement) {
    const operation_t& operation = *statement.operation;
    if (is_data(operation)) {
        check_count(passes, statement);
        put_operand(passes, statement, 0, word_e::DATA, 0);
        return;
    }
    put_word(passes, statement, 0, {.value = operation.opcode, .kind = word_e::OPCODE});
    check_count(passes, statement);
    for (int word = 1; word < WORDS_PER_INSTRUCTION; ++word) {
        const int operand = operand_in_word(operation, word);
        if (operand >= 0) {
            put_operand(passes, statement, word, word_e::OPERAND, static_cast<uint8_t>(operand));
        } else {
            const bool value_address = is_cpdata(operation);
            const int32_t value = value_address ? wrap_add(statement.address, CPDATA_VALUE_OFFSET) : 0;
            put_word(passes, statement, word, {.value = value, .kind = word_e::IMPLIED});
        }
    }
}

// Of a line that could not be understood it is still known which labels it uses.
void look_at_operands(passes_t& passes, statement_t& statement) {
    for (size_t i = 0; i < statement.operands.size(); ++i) {
        if (statement.operands[i].token.size != 0) {
            statement.operands[i].value = find_value(passes, statement, static_cast<uint8_t>(i));
        }
    }
}

} // namespace

void encode(passes_t& passes) {
    source_map_t& map = map_of(passes);
    passes.encoding = true;
    for (uint32_t i = 0; i < map.statements.size() && !passes.over; ++i) {
        statement_t& statement = map.statements[i];
        passes.statement = i;
        passes.muted = statement.broken;
        if (statement.broken) {
            look_at_operands(passes, statement);
        } else if (statement.operation != nullptr) {
            encode_statement(passes, statement);
        }
    }
}
