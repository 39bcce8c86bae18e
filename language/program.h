#pragma once

// A program as the warnings see it: its instructions with what is certain of them, and what becomes of each
// word.

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "assembler/source_map.h"

// What happens to a word of memory while the program runs, as far as the source shows it. Bits.
constexpr uint8_t STORED = 1;        // an instruction other than call may store there
constexpr uint8_t CALLED = 2;        // a call stores its return address there
constexpr uint8_t ADDRESS_TAKEN = 4; // its address is a value somewhere: a pointer, a table of jumps
constexpr uint8_t BASE = 8;          // an array begins there
constexpr uint8_t LABELLED = 16;     // a label stands there
constexpr uint8_t IN_ARRAY = 32;     // it may belong to an array into which the program stores
constexpr uint8_t BY_NUMBER = 64;    // an operand that is a number names it, and stores there
constexpr uint8_t IS_READ = 128;     // an operand names it, and reads it
constexpr uint8_t CHANGES = STORED | BY_NUMBER;

struct instruction_t {
    int32_t address = 0;
    uint32_t statement = 0;                 // index of the line of its first word
    const operation_t* written = nullptr;   // as the source has it
    const operation_t* operation = nullptr; // null when the program changes it
    std::array<int32_t, 3> operands{};      // the words behind the operation
    std::array<bool, 3> known{};            // false where the program may change that word
    bool made_of_data = false;              // its words are lines of .data
};

struct program_t {
    const source_map_t* map = nullptr;
    std::vector<instruction_t> code; // by address, then those made of data
    std::vector<uint32_t> at;        // by address: index of the instruction that begins there, or NOTHING
    std::vector<uint8_t> words;      // by address: the bits above
    std::vector<bool> no_code;       // by address: data of which it is known that it makes no instructions
    bool has_halt = false;
    bool has_arrays = false; // there is a cpfa or cpta
};

// Of a source without faults, which must outlive the program.
program_t read_program(const source_map_t& map);

// Index of the instruction that begins at an address; NOTHING when none does. Looks also at words of .data
// that are an instruction written word by word, the first time.
uint32_t instruction_at(program_t& program, int32_t address);

// Whether the program may put instructions of its own there: into words that change and are never read.
bool may_be_made(const program_t& program, int32_t address);

// What operand 0, 1 or 2 of the machine's instruction stands for. NONE where the program changes the
// operation; the second function tells what the source has there.
role_e role_of(const instruction_t& instruction, size_t operand);
role_e role_as_written(const instruction_t& instruction, size_t operand);

// The value of a word of memory that no instruction changes.
std::optional<int32_t> constant_at(const program_t& program, int32_t address);

// What an instruction reads through an operand, when that is always the same.
std::optional<int32_t> value_read(const program_t& program, const instruction_t& instruction, size_t operand);

bool has_opcode(const instruction_t& instruction, int32_t opcode);

bool is_branch(const instruction_t& instruction);

// Whether the instruction behind this one may come next, other than by a return. A branch on words that never
// change can be a jump, or a switch that the writer sets: for the one constants count, for the other they do
// not.
enum class constants_e { COUNT, MAY_CHANGE };
bool falls_through(const program_t& program, const instruction_t& instruction, constants_e constants);
