#pragma once

// Expressions over what the board holds, for conditions, watches and the debugger's console.
//
//   12, 0x1f, 'a'      numbers
//   count, "odd-name"  the word at a label; in quotes any label
//   list[i + 1]        the word so many behind a label
//   &list              the address of a label
//   [0x20], [&list+2]  the word at an address; of a port, what its register holds, without reading it
//   keyboard.response  what a register holds, see ports.h
//   pc, instructions   the program counter, and how many instructions have been executed
//
// with the operators of C, but no assignment: || && | ^ & == != < <= > >= << >> + - * / % ! ~ - and
// parentheses. Words wrap around at 32 bits, comparisons have a sign, >> brings in zeros as the processor
// does; false is 0 and true 1. A label that is called pc or instructions needs its quotes.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

enum class operator_e : uint8_t {
    NUMBER,
    WORD,
    PORT,
    PC,
    INSTRUCTIONS,
    LOAD, // operands; LOAD takes its address from the stack
    NEGATE,
    NOT,
    INVERT,
    MULTIPLY,
    DIVIDE,
    REMAINDER,
    ADD,
    SUBTRACT,
    SHIFT_LEFT,
    SHIFT_RIGHT,
    LESS,
    LESS_EQUAL,
    GREATER,
    GREATER_EQUAL,
    EQUAL,
    NOT_EQUAL,
    BIT_AND,
    BIT_XOR,
    BIT_OR,
    AND_SKIP,
    OR_SKIP, // leave 0 or 1 and skip `value` steps when that is the result, else take it away
    TRUTH,   // makes 0 or 1 of a value
};

struct step_t {
    operator_e op;
    int32_t value = 0; // of a number, the address of a word, the offset of a register, how far to skip
};

struct expression_t {
    std::vector<step_t> steps; // in reverse Polish order
    std::string text;
    std::vector<int32_t> words; // the addresses in memory that it reads
    bool reads_others =
        false; // also what these do not tell: addresses that it computes, ports, pc, instructions
};

// Finds the address of a label.
using find_label_t = std::function<std::optional<int32_t>(std::string_view name)>;

// Throws tovik_error, which names the column and what is wrong there.
[[nodiscard]] expression_t parse_expression(std::string_view text, const find_label_t& find_label);

// Throws tovik_error: a division by zero, an address of nothing.
[[nodiscard]] int32_t evaluate(const expression_t& expression);

// The same of one that is known to be the address of something: `list[2]`, `count`, `[8]`,
// `keyboard.response`. Empty for one that is not.
[[nodiscard]] std::optional<int32_t> address_of(const expression_t& expression);
