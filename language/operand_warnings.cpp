// Numbers as operands.

#include <optional>
#include <unordered_map>
#include <utility>

#include "base/machine.h"
#include "devices/io.h"
#include "devices/registers.h"
#include "language/warnings_internal.h"

namespace {

// What a word that holds a number is called in an advice.
std::string constant_name(int32_t value) {
    constexpr std::string_view NAMES[] = {"zero",  "one",   "two",  "three", "four",   "five",  "six",
                                          "seven", "eight", "nine", "ten",   "eleven", "twelve"};
    if (value >= 0 && static_cast<size_t>(value) < std::size(NAMES)) {
        return std::string(NAMES[value]);
    }
    return value < 0 ? "minus_" + constant_name(-value) : "number_" + std::to_string(value);
}

struct context_t {
    int32_t first_origin =
        MEMORY_SIZE; // from there on a number in the first column gives words their addresses
    std::unordered_map<int32_t, uint32_t> constants; // labels of words that always have the value
};

context_t look_around(const program_t& program) {
    const source_map_t& map = *program.map;
    context_t context;
    for (const statement_t& statement : map.statements) {
        if (statement.origin) {
            context.first_origin = statement.address;
            break;
        }
    }
    for (uint32_t i = 0; i < map.labels.size(); ++i) {
        const label_t& label = map.labels[i];
        const operation_t* const operation = map.statements[label.statement].operation;
        const bool own =
            operation != nullptr && is_data(*operation) && !is_included(program, label.statement);
        if (const std::optional<int32_t> value = constant_at(program, label.address); own && value) {
            context.constants.emplace(*value, i);
        }
    }
    return context;
}

// A jump compares a word with itself, whichever it is.
bool is_jump_idiom(const instruction_t& instruction) {
    return is_branch(instruction) && instruction.operands[1] == instruction.operands[2] &&
           instruction.operands[1] >= 0;
}

// Whether the program changes an operand in a way that is known: by the label of its word, or as an array.
// Numbers that happen to hit an instruction are what is warned of.
bool is_changed_by_name(const program_t& program, const instruction_t& instruction, size_t operand) {
    const size_t address = static_cast<size_t>(instruction.address) + 1 + operand;
    return (program.words[address] & STORED) != 0;
}

// Whether a word has its address by a number in the first column.
bool is_placed(const source_map_t& map, const context_t& context, int32_t address) {
    return address >= context.first_origin && map.words[static_cast<size_t>(address)].kind == word_e::DATA;
}

struct advice_t {
    std::string help;
    std::vector<edit_t> fix;
};

// For a number where something is stored.
advice_t advise_label(const warnings_t& warnings, const instruction_t& instruction) {
    std::string name = "result";
    if (has_opcode(instruction, K24_CALL)) {
        const operand_place_t target = place_of_operand(*warnings.program, instruction, 0);
        name = target.label == NOTHING
                   ? "back"
                   : std::string(name_of(*warnings.map, warnings.map->labels[target.label])) + "_ret";
    }
    return {"give the word a label, with a line such as " + quoted(name + " .data 0") + " behind the program",
            {}};
}

// For one that is read.
advice_t advise_constant(const warnings_t& warnings, const context_t& context,
                         const instruction_t& instruction, int32_t value, const operand_place_t& place) {
    const source_map_t& map = *warnings.map;
    const statement_t& line = map.statements[place.statement];
    if (has_opcode(instruction, K24_CP) && !instruction.made_of_data) {
        const std::string_view to = text_of(map, line.file, line.operands[0].token);
        return {"write " + quoted("cpdata " + std::string(to) + " " + std::to_string(value)) +
                    " if the number itself is meant",
                {{place_of(line, line.opcode), "cpdata"}}};
    }
    if (has_opcode(instruction, K24_RET)) {
        return {"write the second operand of the `call`", {}};
    }
    if (const auto found = context.constants.find(value); found != context.constants.end()) {
        const std::string_view label = name_of(map, map.labels[found->second]);
        return {"write " + quoted(label) + ", a word that holds " + std::to_string(value),
                {{place_of(line, place.token), std::string(label)}}};
    }
    const std::string name = constant_name(value);
    return {"write " + quoted(name + " .data " + std::to_string(value)) + " behind the program and use " +
                quoted(name),
            {}};
}

// Whether the program stores into a word that no line sets: it is used as a variable.
bool is_variable(const program_t& program, int32_t address) {
    const auto index = static_cast<size_t>(address);
    return program.map->words[index].kind == word_e::NONE && (program.words[index] & (CHANGES | CALLED)) != 0;
}

void warn_of_number(warnings_t& warnings, const context_t& context, const instruction_t& instruction,
                    role_e role, int32_t value, const operand_place_t& place) {
    const std::string number = std::to_string(value);
    std::string message = role == role_e::WRITTEN ? "this line stores into the word at address " + number
                                                  : quoted_operand(warnings, place) + " is not the number " +
                                                        number + " but the word at address " + number;
    // After a fault lines may have words that are not there yet.
    if (warnings.flow != nullptr) {
        message += ", here " + word_name(*warnings.map, value, place.statement);
    }
    const bool stored = role == role_e::WRITTEN ||
                        (is_variable(*warnings.program, value) && !has_opcode(instruction, K24_RET));
    auto [help, fix] = stored ? advise_label(warnings, instruction)
                              : advise_constant(warnings, context, instruction, value, place);
    const span_t token = place.token;
    warn(warnings, code::BARE_NUMBER, place.statement, token, std::move(message), std::move(help)).fix =
        std::move(fix);
}

void warn_of_address(warnings_t& warnings, const context_t& context, const instruction_t& instruction,
                     role_e role, int32_t value, const operand_place_t& place) {
    const bool decimal = quoted_operand(warnings, place).find('x') == std::string::npos;
    advice_t advice{"the devices' registers are listed in docs/devices.md", {}};
    if (decimal && value != INT32_MIN) {
        advice = role == role_e::WRITTEN ? advise_label(warnings, instruction)
                                         : advise_constant(warnings, context, instruction, value, place);
    }
    const span_t token = place.token;
    warn(warnings, code::ILLEGAL_ADDRESS, place.statement, token,
         quoted_operand(warnings, place) +
             (value >= 0 ? " is an address behind the end of the memory, which is 16383"
                         : " is an address at which there is no device"),
         std::move(advice.help))
        .fix = std::move(advice.fix);
}

void warn_of_direction(warnings_t& warnings, role_e role, const board_register_t& found,
                       const operand_place_t& place) {
    const device_t& device = *find_device(found.offset);
    const std::string name = device.registers[0].kind == register_e::PLAIN
                                 ? "of the " + std::string(found.name)
                                 : "(" + std::string(device.name) + ", " + std::string(found.name) + ")";
    const bool write = role == role_e::WRITTEN;
    warn(warnings, code::PORT_DIRECTION, place.statement, place.token,
         "the register " + quoted_operand(warnings, place) + " " + name + " can only be " +
             (write ? "read, and this line writes it" : "written, and this line reads it"),
         write ? "look at the order of the operands: the first one is where the result goes"
               : "keep what was written in a word, and read that");
}

// Whether the address of a word is a number of the source.
bool is_number(const operand_place_t& place) { return place.token.size != 0 && place.label == NOTHING; }

void look_at(warnings_t& warnings, const instruction_t& instruction, size_t operand, const context_t& context,
             bool in_template) {
    const role_e role = role_as_written(instruction, operand);
    if ((role != role_e::READ && role != role_e::WRITTEN) ||
        is_changed_by_name(*warnings.program, instruction, operand)) {
        return;
    }
    const int32_t value = instruction.operands[operand];
    const operand_place_t place = place_of_operand(*warnings.program, instruction, operand);
    if (!is_number(place) || warnings.map->statements[place.statement].faulty) {
        return;
    }
    if (value >= 0 && value < MEMORY_SIZE) {
        if (!is_placed(*warnings.map, context, value) && !is_jump_idiom(instruction) && !in_template &&
            !is_left_out(warnings, code::BARE_NUMBER, place.statement, place.token)) {
            warn_of_number(warnings, context, instruction, role, value, place);
        }
        return;
    }
    const int32_t offset = io_offset(value);
    if (value >= 0 || find_device(offset) == nullptr) {
        warn_of_address(warnings, context, instruction, role, value, place);
        return;
    }
    const board_register_t* const found = find_register(offset);
    const direction_e access = role == role_e::WRITTEN ? direction_e::WRITE : direction_e::READ;
    if (found != nullptr && found->access != access) {
        warn_of_direction(warnings, role, *found, place);
    }
}

// The address into which an instruction stores by way of an operand, when that is certain.
std::optional<int32_t> stored_into(const program_t& program, const instruction_t& instruction,
                                   size_t operand) {
    const role_e role = role_as_written(instruction, operand);
    const int32_t named = instruction.operands[operand];
    if (!instruction.known[operand] || named < 0 || named >= MEMORY_SIZE) {
        return std::nullopt;
    }
    if (role == role_e::WRITTEN) {
        return named;
    }
    const std::optional<int32_t> index = role == role_e::BASE && instruction.written->opcode == K24_CPTA
                                             ? value_read(program, instruction, 2)
                                             : std::nullopt;
    return index && *index >= -named && *index < MEMORY_SIZE - named ? std::optional(named + *index)
                                                                     : std::nullopt;
}

// The instruction of which a word is a part.
uint32_t instruction_around(const program_t& program, int32_t address) {
    const word_e kind = program.map->words[static_cast<size_t>(address)].kind;
    if (kind == word_e::NONE || kind == word_e::DATA) {
        return NOTHING;
    }
    const statement_t& line =
        program.map->statements[program.map->words[static_cast<size_t>(address)].statement];
    return program.at[static_cast<size_t>(line.address)];
}

void warn_of_overwriting(warnings_t& warnings, const instruction_t& instruction, size_t operand) {
    program_t& program = *warnings.program;
    const operand_place_t place = place_of_operand(program, instruction, operand);
    const std::optional<int32_t> address = stored_into(program, instruction, operand);
    if (!address || place.label == NOTHING) {
        return;
    }
    const int32_t named = instruction.operands[operand];
    const bool computed = *address != named;
    const bool begins_in_data = program.at[static_cast<size_t>(named)] == NOTHING;
    // To change an operand, the array begins at the instruction.
    const uint32_t target =
        begins_in_data ? instruction_around(program, *address) : program.at[static_cast<size_t>(*address)];
    if (target == NOTHING || program.code[target].made_of_data) {
        return;
    }
    diagnostic_t& diagnostic =
        warn(warnings, code::CODE_OVERWRITTEN, place.statement, place.token,
             (computed ? quoted_operand(warnings, place) + " with this index is " +
                             (target == program.at[static_cast<size_t>(*address)] ? "" : "a part of ") +
                             "an instruction"
                       : quoted_operand(warnings, place) + " is an instruction") +
                 ", and what is stored here takes its place",
             begins_in_data ? "the index leads out of the array"
                            : "store into a word of data; `cpta` with the instruction as its array and an "
                              "index from 1 to 3 changes an operand");
    const statement_t& line = warnings.map->statements[program.code[target].statement];
    diagnostic.related = {
        {place_of(line, line.label.size != 0 ? line.label : line.opcode), "the instruction"}};
}

} // namespace

void warn_of_operands(warnings_t& warnings) {
    const context_t context = look_around(*warnings.program);
    // Code made of data comes in only when a way leads there.
    for (size_t i = 0; i < warnings.program->code.size(); ++i) {
        for (size_t operand = 0; operand < 3; ++operand) {
            const instruction_t& instruction = warnings.program->code[i];
            look_at(warnings, instruction, operand, context, is_template(warnings, static_cast<uint32_t>(i)));
            if (warnings.flow != nullptr) {
                warn_of_overwriting(warnings, instruction, operand);
            }
        }
    }
}
