// What each instruction does. That the reference does the same is the lockstep test's affair.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "base/machine.h"
#include "core/memory.h"
#include "core/simulate.h"
#include "tests/support/gui_recording.h"

namespace {

constexpr int32_t START = 200;
constexpr int32_t A = 100; // the operands of the instructions below
constexpr int32_t B = 101;
constexpr int32_t C = 102;
constexpr int32_t ILLEGAL = MEMORY_SIZE;

struct instruction_t {
    int32_t opcode;
    int32_t arg1;
    int32_t arg2;
    int32_t arg3;
};

std::vector<std::string> run_from(int32_t pc, int steps) {
    simulate_init();
    machine.halted = false;
    machine.pc = pc;
    simulator.step = steps;
    return run_until_stop(simulate_run);
}

// Executes one instruction at START, with what the caller has put into memory.
std::vector<std::string> execute(const instruction_t& instruction) {
    const int32_t words[] = {instruction.opcode, instruction.arg1, instruction.arg2, instruction.arg3};
    std::ranges::copy(words, machine.memory + START);
    return run_from(START, 1);
}

class Interpreter : public testing::Test {
  protected:
    void SetUp() override {
        recording = {};
        clear_memory();
        reset_machine();
    }
};

TEST_F(Interpreter, DoesWhatItsOpcodeSays) {
    constexpr int32_t untouched = 12345;
    const struct {
        int32_t opcode;
        int32_t b;
        int32_t c;
        int32_t a;
        int32_t pc = START + 4;
    } cases[] = {
        {K24_ADD, INT_MAX, 1, INT_MIN},
        {K24_SUB, 2, 3, -1},
        {K24_SUB, INT_MIN, 1, INT_MAX},
        {K24_MULT, -3, 7, -21},
        {K24_MULT, 0x10001, 0x10001, 0x20001},
        {K24_DIV, -7, 2, -3},
        {K24_DIV, 7, -2, -3},
        {K24_DIV, -7, -2, 3},
        {K24_DIV, INT_MIN, -1, INT_MIN},
        {K24_DIV, INT_MIN, 1, INT_MIN},
        {K24_DIV, 5, INT_MIN, 0},
        {K24_CP, 9, 4, 9},
        {K24_AND, 0b1100, 0b1010, 0b1000},
        {K24_OR, 0b1100, 0b1010, 0b1110},
        {K24_NOT, 5, 0, -6},
        {K24_SL, 1, 31, INT_MIN},
        {K24_SL, 1, 32, 0},
        {K24_SL, -1, INT_MAX, 0},
        {K24_SR, -1, 1, INT_MAX},
        {K24_SR, INT_MIN, 31, 1},
        {K24_SR, -1, 32, 0},
        {K24_BE, 3, 3, untouched, A},
        {K24_BE, 3, 4, untouched},
        {K24_BNE, 3, 4, untouched, A},
        {K24_BNE, 3, 3, untouched},
        {K24_BLT, -1, 0, untouched, A},
        {K24_BLT, 3, 3, untouched},
        {K24_RET, 0, 0, untouched, untouched},
    };
    for (const auto& c : cases) {
        machine.memory[A] = untouched;
        machine.memory[B] = c.b;
        machine.memory[C] = c.c;
        execute({c.opcode, A, B, C});
        EXPECT_EQ(machine.memory[A], c.a) << "opcode " << c.opcode << " of " << c.b << " and " << c.c;
        EXPECT_EQ(machine.pc, c.pc) << "opcode " << c.opcode << " of " << c.b << " and " << c.c;
    }
}

TEST_F(Interpreter, TakesAnyAddress) {
    machine.memory[B + 5] = 55;
    machine.memory[C] = 5;
    execute({K24_CPFA, A, B, C});
    EXPECT_EQ(machine.memory[A], 55);
    machine.memory[C] = INT_MIN + 110;
    execute({K24_CPTA, A, INT_MIN, C});
    EXPECT_EQ(machine.memory[110], 55) << "the sum wraps";

    execute({K24_CALL, ILLEGAL, A, 0});
    EXPECT_EQ(machine.pc, ILLEGAL);
    EXPECT_EQ(machine.memory[A], START + 4);
    execute({K24_BE, -7, B, B});
    EXPECT_EQ(machine.pc, -7);
}

// Of several illegal operands the first that is touched is the one that the error names.
TEST_F(Interpreter, StopsOnAFaultWithTheProgramCounterOnIt) {
    machine.memory[B] = 8;
    machine.memory[C] = -1;
    const int32_t first = ILLEGAL;
    const int32_t second = ILLEGAL + 1;
    const int32_t third = ILLEGAL + 2;
    const struct {
        instruction_t instruction;
        const char* message;
    } cases[] = {
        {{K24_ADD, third, first, second}, "illegal address 16384"},
        {{K24_DIV, third, first, second}, "illegal address 16384"},
        {{K24_DIV, third, B, second}, "illegal address 16385"},
        {{K24_CP, second, first, 0}, "illegal address 16384"},
        {{K24_CP, second, B, 0}, "illegal address 16385"},
        {{K24_SL, third, second, first}, "illegal address 16384"},
        {{K24_CPFA, third, second, first}, "illegal address 16384"},
        {{K24_CPTA, second, third, first}, "illegal address 16384"},
        {{K24_CPTA, first, third, C}, "illegal address 16384"},
        {{K24_CPTA, A, third, C}, "illegal address 16385"},
        {{K24_BE, third, first, second}, "illegal address 16384"},
        {{K24_CALL, second, first, 0}, "illegal address 16384"},
        {{K24_RET, first, 0, 0}, "illegal address 16384"},
        {{K24_DIV, A, B, 99}, "division by zero"},
        {{K24_SL, A, B, C}, "negative shift amount"},
        {{K24_SR, A, ILLEGAL, C}, "negative shift amount"},
        {{18, 0, 0, 0}, "unknown opcode 18\n"},
        {{-1, 0, 0, 0}, "unknown opcode -1\n"},
        {{K24_CP, A, INT_MIN + 6, 0}, "illegal address -2147483642\n"},
        {{K24_CP, INT_MIN, B, 0}, "unsupported operation on address 0x80000000"},
    };
    for (const auto& c : cases) {
        machine.instr_count = 0;
        const auto calls = execute(c.instruction);
        EXPECT_TRUE(std::ranges::count(calls, std::string("error error at PC 200\n") + c.message))
            << "opcode " << c.instruction.opcode << ": " << c.message;
        EXPECT_EQ(machine.pc, START);
        EXPECT_EQ(machine.instr_count, 1U) << "a failed instruction counts";
    }
    // An amount of 32 or more leaves nothing of the value, which is not even read.
    machine.memory[C] = 32;
    execute({K24_SL, A, ILLEGAL, C});
    EXPECT_EQ(machine.pc, START + 4);
}

// At the top of memory the fetch itself fails; below zero it reads the I/O bus, where the blocks without a
// device read as halt.
TEST_F(Interpreter, FetchesLikeAnyRead) {
    const struct {
        int32_t pc;
        const char* call;
    } cases[] = {
        {MEMORY_SIZE - 1, "error error at PC 16383\nillegal address 16384"},
        {INT_MAX, "error error at PC 2147483647\nillegal address 2147483647"},
        {INT_MIN, "error error at PC -2147483648\nunsupported operation on address 0x80000001"},
        {INT_MIN + 0xf0, "status Halted  "},
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(std::ranges::count(run_from(c.pc, -1), c.call)) << c.call;
    }
}

} // namespace
