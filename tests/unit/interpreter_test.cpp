// What each instruction does, on the engine that ships and on the reference.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "core/machine.h"
#include "core/memory.h"
#include "core/reference.h"
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

// Executes one instruction at START, with what the caller has put into memory.
std::vector<std::string> execute(void (*run_loop)(), const instruction_t& instruction) {
    simulate_init();
    machine.halted = false;
    machine.pc = START;
    machine.instr_count = 0;
    machine.memory[START] = instruction.opcode;
    machine.memory[START + 1] = instruction.arg1;
    machine.memory[START + 2] = instruction.arg2;
    machine.memory[START + 3] = instruction.arg3;
    simulator.step = 1;
    return run_until_stop(run_loop);
}

class Interpreter : public testing::TestWithParam<void (*)()> {
  protected:
    void SetUp() override {
        recording = {};
        clear_memory();
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, Interpreter, testing::Values(simulate_run, reference_run),
                         [](const auto& engine) {
                             return engine.param == simulate_run ? "shipped" : "reference";
                         });

TEST_P(Interpreter, ComputesOnWrappingWords) {
    const struct {
        int32_t opcode;
        int32_t b;
        int32_t c;
        int32_t result;
    } cases[] = {
        {K24_ADD, 2, 3, 5},
        {K24_ADD, INT_MAX, 1, INT_MIN},
        {K24_SUB, 2, 3, -1},
        {K24_SUB, INT_MIN, 1, INT_MAX},
        {K24_MULT, -3, 7, -21},
        {K24_MULT, 0x10001, 0x10001, 0x20001},
        {K24_DIV, 7, 2, 3},
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
    };
    for (const auto& c : cases) {
        machine.memory[A] = 12345;
        machine.memory[B] = c.b;
        machine.memory[C] = c.c;
        machine.modified[A] = false;
        execute(GetParam(), {c.opcode, A, B, C});
        EXPECT_EQ(machine.memory[A], c.result) << "opcode " << c.opcode << " of " << c.b << " and " << c.c;
        EXPECT_TRUE(machine.modified[A]);
        EXPECT_EQ(machine.pc, START + 4);
        EXPECT_EQ(machine.instr_count, 1U);
    }
}

TEST_P(Interpreter, IndexesArraysByAWrappingSum) {
    machine.memory[A] = 77;
    machine.memory[B + 5] = 55;
    machine.memory[C] = 5;
    execute(GetParam(), {K24_CPFA, A, B, C});
    EXPECT_EQ(machine.memory[A], 55);

    machine.memory[C] = INT_MIN + 110;
    execute(GetParam(), {K24_CPTA, A, INT_MIN, C});
    EXPECT_EQ(machine.memory[110], 55);
}

TEST_P(Interpreter, BranchesCallsAndReturns) {
    const struct {
        instruction_t instruction;
        int32_t b;
        int32_t c;
        int32_t pc;
    } cases[] = {
        {{K24_BE, 40, B, C}, 3, 3, 40},
        {{K24_BE, 40, B, C}, 3, 4, START + 4},
        {{K24_BNE, 40, B, C}, 3, 4, 40},
        {{K24_BNE, 40, B, C}, 3, 3, START + 4},
        {{K24_BLT, 40, B, C}, -1, 0, 40},
        {{K24_BLT, 40, B, C}, 3, 3, START + 4},
        {{K24_BE, -7, B, C}, 3, 3, -7},
        {{K24_CALL, 40, A, 0}, 0, 0, 40},
        {{K24_CALL, ILLEGAL, A, 0}, 0, 0, ILLEGAL},
        {{K24_RET, B, 0, 0}, 321, 0, 321},
    };
    for (const auto& c : cases) {
        machine.memory[A] = 0;
        machine.memory[B] = c.b;
        machine.memory[C] = c.c;
        execute(GetParam(), c.instruction);
        EXPECT_EQ(machine.pc, c.pc) << "opcode " << c.instruction.opcode << " with " << c.b << ", " << c.c;
        EXPECT_EQ(machine.memory[A], c.instruction.opcode == K24_CALL ? START + 4 : 0);
    }
}

// The first of several illegal operands that is touched is the one that the error names.
TEST_P(Interpreter, ReadsOperandsInOrder) {
    const int32_t first = ILLEGAL;
    const int32_t second = ILLEGAL + 1;
    const int32_t third = ILLEGAL + 2;
    const struct {
        instruction_t instruction;
        int32_t reported;
    } cases[] = {
        {{K24_ADD, third, first, second}, first}, {{K24_DIV, third, first, second}, first},
        {{K24_DIV, third, B, second}, second},    {{K24_CP, second, first, 0}, first},
        {{K24_CP, second, B, 0}, second},         {{K24_SL, third, second, first}, first},
        {{K24_SR, third, second, C}, second},     {{K24_CPFA, third, second, first}, first},
        {{K24_CPFA, third, first, C}, first},     {{K24_CPTA, second, third, first}, first},
        {{K24_CPTA, second, third, C}, second},   {{K24_CPTA, A, third, C}, third},
        {{K24_BE, third, first, second}, first},  {{K24_CALL, second, first, 0}, first},
        {{K24_RET, first, 0, 0}, first},
    };
    for (const auto& c : cases) {
        const auto calls = execute(GetParam(), c.instruction);
        EXPECT_TRUE(
            std::ranges::count(calls, "error error at PC 200\nillegal address " + std::to_string(c.reported)))
            << "opcode " << c.instruction.opcode << " should report " << c.reported;
    }
    // An amount of 32 or more leaves nothing of the value, which is not even read.
    machine.memory[C] = 32;
    execute(GetParam(), {K24_SL, A, ILLEGAL, C});
    EXPECT_EQ(machine.pc, START + 4);
}

TEST_P(Interpreter, StopsOnAFaultWithTheProgramCounterOnIt) {
    machine.memory[B] = 8;
    machine.memory[C] = -1;
    const struct {
        instruction_t instruction;
        const char* message;
    } cases[] = {
        {{K24_DIV, A, B, 99}, "division by zero"},
        {{K24_SL, A, B, C}, "negative shift amount"},
        {{K24_SR, A, ILLEGAL, C}, "negative shift amount"},
        {{18, 0, 0, 0}, "unknown opcode 18\n"},
        {{-1, 0, 0, 0}, "unknown opcode -1\n"},
        {{K24_CP, A, INT_MIN + 6, 0}, "illegal address -2147483642\n"},
        {{K24_CP, A, INT_MIN + 1, 0}, "unsupported operation on address 0x80000001"},
        {{K24_CP, INT_MIN, B, 0}, "unsupported operation on address 0x80000000"},
    };
    for (const auto& c : cases) {
        const auto calls = execute(GetParam(), c.instruction);
        EXPECT_TRUE(std::ranges::count(calls, std::string("error error at PC 200\n") + c.message))
            << c.message;
        EXPECT_TRUE(std::ranges::count(calls, "status Stopped"));
        EXPECT_EQ(machine.pc, START);
        EXPECT_EQ(machine.instr_count, 1U) << "a failed instruction counts";
    }
}

// At the top of memory the fetch itself fails; below zero it reads the I/O bus, where the blocks without a
// device read as halt.
TEST_P(Interpreter, FetchesLikeAnyRead) {
    simulate_init();
    const struct {
        int32_t pc;
        const char* call;
    } cases[] = {
        {MEMORY_SIZE - 1, "error error at PC 16383\nillegal address 16384"},
        {MEMORY_SIZE, "error error at PC 16384\nillegal address 16384"},
        {INT_MAX, "error error at PC 2147483647\nillegal address 2147483647"},
        {-1, "error error at PC -1\nillegal address -1\n"},
        {INT_MIN, "error error at PC -2147483648\nunsupported operation on address 0x80000001"},
        {INT_MIN + 0xf0, "status Halted  "},
    };
    for (const auto& c : cases) {
        machine.halted = false;
        machine.pc = c.pc;
        simulator.step = -1;
        const auto calls = run_until_stop(GetParam());
        EXPECT_TRUE(std::ranges::count(calls, c.call)) << c.call;
    }
    machine.halted = false;
}

TEST_P(Interpreter, ExecutesTheLastInstructionOfMemory) {
    machine.memory[MEMORY_SIZE - 4] = K24_CP;
    machine.memory[MEMORY_SIZE - 3] = A;
    machine.memory[MEMORY_SIZE - 2] = MEMORY_SIZE - 1;
    machine.memory[MEMORY_SIZE - 1] = 6;
    simulate_init();
    machine.pc = MEMORY_SIZE - 4;
    simulator.step = 1;
    run_until_stop(GetParam());
    EXPECT_EQ(machine.memory[A], 6);
    EXPECT_EQ(machine.pc, MEMORY_SIZE);
}

} // namespace
