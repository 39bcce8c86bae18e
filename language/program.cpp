// What is certain of a program's instructions.
//
// The program may change all its words. What it changes is taken from the operands that name words; an array
// into which it stores at a computed index reaches as far as the data go on behind its beginning; what is
// reached by pointers is taken to be what has its address taken. More cannot be known.

#include "language/program.h"

#include <algorithm>

#include "base/arithmetic.h"
#include "base/machine.h"

namespace {

bool in_memory(int32_t address) { return address >= 0 && address < MEMORY_SIZE; }

uint8_t bits_at(const program_t& program, int32_t address) {
    return in_memory(address) ? program.words[static_cast<size_t>(address)] : 0;
}

void mark(program_t& program, int32_t address, uint8_t bits) {
    if (in_memory(address)) {
        program.words[static_cast<size_t>(address)] |= bits;
    }
}

const word_t& word_at(const program_t& program, int32_t address) {
    return program.map->words[static_cast<size_t>(address)];
}

instruction_t decode(const program_t& program, int32_t address, const operation_t* operation) {
    instruction_t instruction{.address = address,
                              .statement = word_at(program, address).statement,
                              .written = operation,
                              .operation = operation};
    for (int32_t i = 0; i < 3; ++i) {
        const bool inside = in_memory(address + 1 + i);
        instruction.operands[static_cast<size_t>(i)] = inside ? word_at(program, address + 1 + i).value : 0;
        instruction.known[static_cast<size_t>(i)] =
            inside && (bits_at(program, address + 1 + i) & CHANGES) == 0;
    }
    return instruction;
}

void find_instructions(program_t& program) {
    for (const statement_t& statement : program.map->statements) {
        const operation_t* const operation = statement.operation;
        if (operation == nullptr || is_data(*operation) || statement.broken || statement.address < 0 ||
            statement.address > MEMORY_SIZE - WORDS_PER_INSTRUCTION) {
            continue;
        }
        program.at[static_cast<size_t>(statement.address)] = static_cast<uint32_t>(program.code.size());
        program.code.push_back(decode(program, statement.address, operation));
        program.has_halt |= operation->opcode == K24_HALT;
        program.has_arrays |= operation->opcode == K24_CPFA || operation->opcode == K24_CPTA;
    }
}

// Labels whose address is a value, and where arrays begin.
void mark_labels(program_t& program) {
    const source_map_t& map = *program.map;
    for (const label_t& label : map.labels) {
        mark(program, label.address, LABELLED);
        for (uint32_t i = 0; i < label.use_count; ++i) {
            const use_t& use = map.uses[label.first_use + i];
            const operation_t* const operation = map.statements[use.statement].operation;
            if (operation != nullptr) {
                const role_e role = operation->operands[use.operand].role;
                mark(program, label.address, role == role_e::VALUE ? ADDRESS_TAKEN : 0);
                mark(program, label.address, role == role_e::BASE ? BASE : 0);
            }
        }
    }
}

void mark_named_words(program_t& program) {
    for (const instruction_t& instruction : program.code) {
        for (int32_t i = 0; i < 3; ++i) {
            const auto operand = static_cast<size_t>(i);
            if (role_of(instruction, operand) == role_e::READ) {
                mark(program, instruction.operands[operand], IS_READ);
            } else if (role_of(instruction, operand) == role_e::WRITTEN) {
                const word_t& word = word_at(program, instruction.address + 1 + i);
                const statement_t& line = program.map->statements[instruction.statement];
                const bool named = word.operand != NO_OPERAND && line.operands[word.operand].label != NOTHING;
                mark(program, instruction.operands[operand],
                     has_opcode(instruction, K24_CALL) ? CALLED
                     : named                           ? STORED
                                                       : BY_NUMBER);
            }
        }
    }
}

// All data from here on, up to the next instruction.
void mark_data_from(program_t& program, int32_t address) {
    while (in_memory(address) && word_at(program, address).kind != word_e::OPCODE &&
           (bits_at(program, address) & IN_ARRAY) == 0) {
        mark(program, address, STORED | IN_ARRAY);
        ++address;
    }
}

// Stores into arrays. An array that begins at an instruction is its words; the index then says which one.
void mark_array_stores(program_t& program) {
    std::vector<int32_t> computed;
    bool by_pointers = false;
    std::vector<int32_t> words;
    for (const instruction_t& instruction : program.code) {
        if (!has_opcode(instruction, K24_CPTA)) {
            continue;
        }
        const int32_t base = instruction.operands[1];
        if (const std::optional<int32_t> index = constant_at(program, instruction.operands[2])) {
            if (*index >= 0 && *index < MEMORY_SIZE) {
                words.push_back(wrap_add(base, *index));
            }
        } else {
            by_pointers = true;
            computed.push_back(base);
        }
    }
    for (const int32_t word : words) {
        mark(program, word, STORED);
    }
    for (const int32_t base : computed) {
        // The array that begins at 0 is what pointers point to.
        if (base <= 0 || !in_memory(base)) {
            continue;
        }
        if (word_at(program, base).kind == word_e::OPCODE) {
            for (int32_t i = 0; i < WORDS_PER_INSTRUCTION; ++i) {
                mark(program, base + i, STORED);
            }
        } else {
            mark_data_from(program, base);
        }
    }
    for (int32_t address = 0; by_pointers && address < MEMORY_SIZE; ++address) {
        const bool pointed_to = (bits_at(program, address) & ADDRESS_TAKEN) != 0;
        if (pointed_to && program.at[static_cast<size_t>(address)] == NOTHING) {
            mark_data_from(program, address);
        }
    }
}

void forget_what_changes(program_t& program) {
    for (instruction_t& instruction : program.code) {
        if ((bits_at(program, instruction.address) & CHANGES) != 0) {
            instruction.operation = nullptr;
        }
        for (int32_t i = 0; i < 3; ++i) {
            instruction.known[static_cast<size_t>(i)] =
                (bits_at(program, instruction.address + 1 + i) & CHANGES) == 0;
        }
    }
}

const operation_t* operation_of(int32_t opcode) {
    const auto found = std::find_if(operations().begin(), operations().end(),
                                    [&](const operation_t& operation) { return operation.opcode == opcode; });
    return found == operations().end() || opcode == NO_OPCODE ? nullptr : &*found;
}

// An instruction that is written word by word names its operands, or has labels by which they are changed:
// four constants in a row do not.
bool is_written_by_words(const program_t& program, int32_t address) {
    bool names_words = false;
    for (int32_t i = 0; i < WORDS_PER_INSTRUCTION; ++i) {
        if (!in_memory(address + i) || word_at(program, address + i).kind != word_e::DATA) {
            return false;
        }
        const statement_t& line = program.map->statements[word_at(program, address + i).statement];
        const bool is_label = line.operands[0].label != NOTHING;
        if (i == 0) {
            const int32_t opcode = word_at(program, address).value;
            if (is_label || opcode <= K24_HALT || opcode > K24_RET ||
                (bits_at(program, address) & STORED) != 0) {
                return false;
            }
        } else {
            names_words = names_words || is_label || (bits_at(program, address + i) & STORED) != 0;
        }
    }
    return names_words;
}

// The pair of words that a branch compares, and what it does with the result.
constexpr uint8_t LESS = 1;
constexpr uint8_t EQUAL = 2;
constexpr uint8_t GREATER = 4;

uint8_t exchanged(uint8_t results) {
    return static_cast<uint8_t>((results & EQUAL) | ((results & LESS) != 0 ? GREATER : 0) |
                                ((results & GREATER) != 0 ? LESS : 0));
}

uint8_t taken_when(const instruction_t& branch) {
    switch (branch.operation->opcode) {
    case K24_BE:
        return EQUAL;
    case K24_BNE:
        return LESS | GREATER;
    default:
        return LESS;
    }
}

bool compares_memory(const instruction_t& instruction) {
    return is_branch(instruction) && instruction.known[1] && instruction.known[2] &&
           in_memory(instruction.operands[1]) && in_memory(instruction.operands[2]);
}

// What a comparison may give when its two words can be anything, are one, or do not change.
uint8_t possible_results(const program_t& program, const instruction_t& branch, constants_e constants) {
    if (branch.operands[1] == branch.operands[2]) {
        return EQUAL;
    }
    const std::optional<int32_t> left = constant_at(program, branch.operands[1]);
    const std::optional<int32_t> right = constant_at(program, branch.operands[2]);
    if (constants == constants_e::COUNT && left && right) {
        return *left < *right ? LESS : *left == *right ? EQUAL : GREATER;
    }
    return LESS | EQUAL | GREATER;
}

} // namespace

program_t read_program(const source_map_t& map) {
    program_t program;
    program.map = &map;
    program.at.assign(MEMORY_SIZE, NOTHING);
    program.words.assign(MEMORY_SIZE, 0);
    program.no_code.assign(MEMORY_SIZE, false);
    find_instructions(program);
    mark_labels(program);
    mark_named_words(program);
    mark_array_stores(program);
    forget_what_changes(program);
    return program;
}

uint32_t instruction_at(program_t& program, int32_t address) {
    if (!in_memory(address)) {
        return NOTHING;
    }
    const auto first = static_cast<size_t>(address);
    // What stands at 0 is data by mistake.
    if (program.at[first] != NOTHING || program.no_code[first] || address == 0) {
        return program.at[first];
    }
    // They go on to an instruction, or end with one that does not go on: otherwise they are plain data.
    std::vector<instruction_t> found;
    int32_t next = address;
    bool goes_on = true;
    while (goes_on && is_written_by_words(program, next) &&
           program.at[static_cast<size_t>(next)] == NOTHING && !program.no_code[static_cast<size_t>(next)]) {
        found.push_back(decode(program, next, operation_of(word_at(program, next).value)));
        found.back().made_of_data = true;
        goes_on =
            falls_through(program, found.back(), constants_e::COUNT) || has_opcode(found.back(), K24_CALL);
        next += WORDS_PER_INSTRUCTION;
    }
    if (goes_on && (!in_memory(next) || program.at[static_cast<size_t>(next)] == NOTHING)) {
        for (int32_t rejected = address; rejected <= next && in_memory(rejected);
             rejected += WORDS_PER_INSTRUCTION) {
            program.no_code[static_cast<size_t>(rejected)] = true;
        }
        return NOTHING;
    }
    for (const instruction_t& instruction : found) {
        program.at[static_cast<size_t>(instruction.address)] = static_cast<uint32_t>(program.code.size());
        program.code.push_back(instruction);
    }
    return program.at[first];
}

bool may_be_made(const program_t& program, int32_t address) {
    const uint8_t bits = bits_at(program, address);
    return (bits & (CHANGES | ADDRESS_TAKEN | BASE)) != 0 && (bits & IS_READ) == 0;
}

role_e role_as_written(const instruction_t& instruction, size_t operand) {
    if (is_cpdata(*instruction.written)) {
        constexpr role_e ROLES[] = {role_e::WRITTEN, role_e::NONE, role_e::VALUE};
        return ROLES[operand];
    }
    return instruction.written->operands[operand].role;
}

role_e role_of(const instruction_t& instruction, size_t operand) {
    return instruction.operation == nullptr ? role_e::NONE : role_as_written(instruction, operand);
}

std::optional<int32_t> constant_at(const program_t& program, int32_t address) {
    if (!in_memory(address) || word_at(program, address).kind != word_e::DATA ||
        (bits_at(program, address) & (CHANGES | CALLED)) != 0) {
        return std::nullopt;
    }
    return word_at(program, address).value;
}

std::optional<int32_t> value_read(const program_t& program, const instruction_t& instruction,
                                  size_t operand) {
    if (instruction.operation != nullptr && is_cpdata(*instruction.operation)) {
        return instruction.known[2] ? std::optional(instruction.operands[2]) : std::nullopt;
    }
    return instruction.known[operand] ? constant_at(program, instruction.operands[operand]) : std::nullopt;
}

bool has_opcode(const instruction_t& instruction, int32_t opcode) {
    return instruction.operation != nullptr && instruction.operation->opcode == opcode;
}

bool is_branch(const instruction_t& instruction) {
    return has_opcode(instruction, K24_BE) || has_opcode(instruction, K24_BNE) ||
           has_opcode(instruction, K24_BLT);
}

bool falls_through(const program_t& program, const instruction_t& instruction, constants_e constants) {
    if (has_opcode(instruction, K24_HALT) || has_opcode(instruction, K24_CALL) ||
        has_opcode(instruction, K24_RET)) {
        return false;
    }
    if (!compares_memory(instruction)) {
        return true;
    }
    uint8_t left =
        possible_results(program, instruction, constants) & static_cast<uint8_t>(~taken_when(instruction));
    // A chain of branches on the same two words leaves less and less.
    const instruction_t* last = &instruction;
    for (int steps = 0; steps < 2 && left != 0; ++steps) {
        const bool only_from_above = (bits_at(program, last->address) & LABELLED) == 0;
        const int32_t before = last->address - WORDS_PER_INSTRUCTION;
        const uint32_t index = in_memory(before) ? program.at[static_cast<size_t>(before)] : NOTHING;
        if (!only_from_above || index == NOTHING || !compares_memory(program.code[index])) {
            break;
        }
        last = &program.code[index];
        if (last->operands[1] == instruction.operands[1] && last->operands[2] == instruction.operands[2]) {
            left &= static_cast<uint8_t>(~taken_when(*last));
        } else if (last->operands[1] == instruction.operands[2] &&
                   last->operands[2] == instruction.operands[1]) {
            left &= static_cast<uint8_t>(~exchanged(taken_when(*last)));
        } else {
            break;
        }
    }
    return left != 0;
}
