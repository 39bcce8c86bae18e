#include "assembler/operations.h"

#include <algorithm>
#include <iterator>

#include "base/machine.h"

namespace {

using enum role_e;

constexpr operation_t OPERATIONS[] = {
    {"halt", K24_HALT, 0, {}, "ends the program"},
    {"add", K24_ADD, 3, {{{"a", WRITTEN}, {"b", READ}, {"c", READ}}}, "puts b + c into a"},
    {"sub", K24_SUB, 3, {{{"a", WRITTEN}, {"b", READ}, {"c", READ}}}, "puts b - c into a"},
    {"mult",
     K24_MULT,
     3,
     {{{"a", WRITTEN}, {"b", READ}, {"c", READ}}},
     "puts the low 32 bits of b times c into a"},
    {"div",
     K24_DIV,
     3,
     {{{"a", WRITTEN}, {"b", READ}, {"c", READ}}},
     "puts b / c, rounded toward zero, into a"},
    {"cp", K24_CP, 2, {{{"a", WRITTEN}, {"b", READ}}}, "copies b to a"},
    {"and", K24_AND, 3, {{{"a", WRITTEN}, {"b", READ}, {"c", READ}}}, "puts b and c, bit by bit, into a"},
    {"or", K24_OR, 3, {{{"a", WRITTEN}, {"b", READ}, {"c", READ}}}, "puts b or c, bit by bit, into a"},
    {"not", K24_NOT, 2, {{{"a", WRITTEN}, {"b", READ}}}, "puts b with every bit inverted into a"},
    {"sl", K24_SL, 3, {{{"a", WRITTEN}, {"b", READ}, {"c", READ}}}, "puts b, shifted left by c, into a"},
    {"sr",
     K24_SR,
     3,
     {{{"a", WRITTEN}, {"b", READ}, {"c", READ}}},
     "puts b, shifted right by c with zeros from the top, into a"},
    {"cpfa",
     K24_CPFA,
     3,
     {{{"a", WRITTEN}, {"b", BASE}, {"c", READ}}},
     "copies the word at index c of the array b to a"},
    {"cpta",
     K24_CPTA,
     3,
     {{{"a", READ}, {"b", BASE}, {"c", READ}}},
     "copies a to the word at index c of the array b"},
    {"be", K24_BE, 3, {{{"a", TARGET}, {"b", READ}, {"c", READ}}}, "goes on at a if b and c are equal"},
    {"bne", K24_BNE, 3, {{{"a", TARGET}, {"b", READ}, {"c", READ}}}, "goes on at a if b and c differ"},
    {"blt",
     K24_BLT,
     3,
     {{{"a", TARGET}, {"b", READ}, {"c", READ}}},
     "goes on at a if b is less than c, as signed numbers"},
    {"call",
     K24_CALL,
     2,
     {{{"a", TARGET}, {"b", WRITTEN}}},
     "stores the address of the next instruction in b, then goes on at a"},
    {"ret", K24_RET, 1, {{{"a", READ}}}, "goes on at the address that is stored in a"},
    {"cpdata",
     K24_CP,
     2,
     {{{"a", WRITTEN}, {"N", VALUE}}},
     "puts the number N, or the address of a label, into a"},
    {".data", NO_OPCODE, 1, {{{"N", VALUE}}}, "makes one word that holds N, or the address of a label"},
};

constexpr const operation_t* DATA = std::end(OPERATIONS) - 1;
constexpr const operation_t* CPDATA = DATA - 1;

} // namespace

std::span<const operation_t> operations() { return OPERATIONS; }

const operation_t* find_operation(std::string_view name) {
    const auto* const found = std::find_if(std::begin(OPERATIONS), std::end(OPERATIONS),
                                           [&](const operation_t& one) { return one.name == name; });
    return found == std::end(OPERATIONS) ? nullptr : found;
}

bool is_data(const operation_t& operation) { return &operation == DATA; }

bool is_cpdata(const operation_t& operation) { return &operation == CPDATA; }

int32_t size_in_words(const operation_t& operation) { return is_data(operation) ? 1 : WORDS_PER_INSTRUCTION; }

int operand_in_word(const operation_t& operation, int word) {
    if (is_cpdata(operation)) {
        constexpr int OPERANDS[] = {-1, 0, -1, 1};
        return OPERANDS[word];
    }
    return word <= operation.count ? word - 1 : -1;
}

std::string_view mnemonic_of(int32_t opcode) {
    const auto* const found = std::find_if(std::begin(OPERATIONS), std::end(OPERATIONS),
                                           [&](const operation_t& one) { return one.opcode == opcode; });
    return found == std::end(OPERATIONS) || opcode == NO_OPCODE ? std::string_view() : found->name;
}
