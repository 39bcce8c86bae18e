#pragma once

// What is the same for every instruction of an opcode: which operands it uses and what it computes. Inline,
// because the engine makes a handler of its own for each opcode out of these.

#include <cstdint>

#include "base/arithmetic.h"
#include "base/machine.h"

constexpr bool is_opcode(int32_t word) { return word >= K24_HALT && word <= K24_RET; }

constexpr bool is_branch(int32_t opcode) { return opcode >= K24_BE && opcode <= K24_BLT; }

// Which of the three operands are addresses, the target of a branch or call included.
struct uses_t {
    bool arg1;
    bool arg2;
    bool arg3;
};

constexpr uses_t uses_of(int32_t opcode) {
    switch (opcode) {
    case K24_HALT:
        return {.arg1 = false, .arg2 = false, .arg3 = false};
    case K24_RET:
        return {.arg1 = true, .arg2 = false, .arg3 = false};
    case K24_CP:
    case K24_NOT:
    case K24_CALL:
        return {.arg1 = true, .arg2 = true, .arg3 = false};
    default:
        return {.arg1 = true, .arg2 = true, .arg3 = true};
    }
}

// Whether the instruction computes a word, or compares, out of the word at arg2 and, unless it has only one,
// that at arg3.
constexpr bool computes(int32_t opcode) { return opcode >= K24_ADD && opcode <= K24_SR; }

constexpr bool reads_left(int32_t opcode) { return computes(opcode) || is_branch(opcode); }

// The index of an array is at arg3 too.
constexpr bool reads_right(int32_t opcode) {
    return opcode != K24_CP && opcode != K24_NOT && opcode >= K24_ADD && opcode <= K24_BLT;
}

// Whether there is a result for the word at arg3; otherwise the instruction fails, or does not read the word
// at arg2.
constexpr bool has_result(int32_t opcode, int32_t right) {
    if (opcode == K24_DIV) {
        return right != 0;
    }
    if (opcode == K24_SL || opcode == K24_SR) {
        return right >= 0 && right < DATA_BITS;
    }
    return true;
}

// Whether there always is, and arg2 is read before arg3.
constexpr bool always_has_result(int32_t opcode) {
    return reads_left(opcode) && opcode != K24_DIV && opcode != K24_SL && opcode != K24_SR;
}

// The result of an instruction that computes; it must have one.
constexpr int32_t result_of(int32_t opcode, int32_t left, int32_t right) {
    switch (opcode) {
    case K24_ADD:
        return wrap_add(left, right);
    case K24_SUB:
        return wrap_sub(left, right);
    case K24_MULT:
        return wrap_mult(left, right);
    case K24_DIV:
        return wrap_div(left, right);
    case K24_CP:
        return left;
    case K24_AND:
        return left & right;
    case K24_OR:
        return left | right;
    case K24_NOT:
        return ~left;
    case K24_SL:
        return shift_left(left, right);
    default: // K24_SR
        return shift_right(left, right);
    }
}

// Whether a branch is taken.
constexpr bool is_taken(int32_t opcode, int32_t left, int32_t right) {
    switch (opcode) {
    case K24_BE:
        return left == right;
    case K24_BNE:
        return left != right;
    default: // K24_BLT
        return left < right;
    }
}

// One comparison for any number of addresses: MEMORY_SIZE is a power of two, so the bits of all of them
// together stay below it exactly when each does.
constexpr bool in_memory(int32_t address_bits) {
    return static_cast<uint32_t>(address_bits) < static_cast<uint32_t>(MEMORY_SIZE);
}

// Whether all words of an instruction lie in memory.
constexpr bool whole_in_memory(int32_t pc) {
    return static_cast<uint32_t>(pc) <= static_cast<uint32_t>(MEMORY_SIZE - WORDS_PER_INSTRUCTION);
}

struct words_t {
    int32_t opcode;
    int32_t arg1;
    int32_t arg2;
    int32_t arg3;
};

// The instruction at pc, which must be whole in memory.
inline words_t words_at(int32_t pc) {
    const int32_t* const words = machine.memory + pc;
    return {words[0], words[1], words[2], words[3]};
}
