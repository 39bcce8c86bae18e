#pragma once

// The operations that a source can name, with what they do to their operands: one table for assembler,
// checker, editors and debugger.

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

enum class role_e : uint8_t {
    NONE,    // there is no such operand
    READ,    // the address of a word that is read
    WRITTEN, // the address of a word that is written
    BASE,    // the address where an array begins: the word at BASE + INDEX is read or written, see `effect`
    TARGET,  // the address of an instruction that may be the next one
    VALUE,   // the number itself, or the address of a label as a number
};

struct operand_info_t {
    std::string_view name{}; // as the manual calls it
    role_e role = role_e::NONE;
};

struct operation_t {
    std::string_view name;
    int32_t opcode; // NO_OPCODE for ".data"
    uint8_t count;  // of operands in the source, the first ones of `operands`
    std::array<operand_info_t, 3> operands;
    std::string_view effect; // one sentence without a full stop, with the operands' names
};

constexpr int32_t NO_OPCODE = -1;

// The word of "cpdata" that holds its value, counted from the opcode.
constexpr int32_t CPDATA_VALUE_OFFSET = 3;

// All mnemonics in the order of their opcodes, then "cpdata", which has the opcode of "cp": it is a cp that
// carries its value in its own last word. The last one is ".data".
std::span<const operation_t> operations();

// The operation of that name, case and all; null when there is none.
const operation_t* find_operation(std::string_view name);

bool is_data(const operation_t& operation);   // ".data"
bool is_cpdata(const operation_t& operation); // "cpdata"

// Words that a line with it takes: 1 for ".data", 4 for all others.
int32_t size_in_words(const operation_t& operation);

// The operand of the source whose value is in word 1, 2 or 3 of the instruction; none (-1) where the
// assembler puts 0 or, in word 2 of "cpdata", the address of word 3.
int operand_in_word(const operation_t& operation, int word);

// The mnemonic of an opcode, empty for a number that is none.
std::string_view mnemonic_of(int32_t opcode);
