// What each instruction does. That the reference does the same is the lockstep test's affair.

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string>

#include "base/machine.h"
#include "core/memory.h"
#include "core/simulate.h"
#include "tests/support/gui_recording.h"

namespace {

constexpr int32_t START = 200;
constexpr int32_t A = 100; // B and C follow
const std::string NAMES[] = {"halt", "add", "sub",  "mult", "div", "cp",  "and", "or",   "not",
                             "sl",   "sr",  "cpfa", "cpta", "be",  "bne", "blt", "call", "ret"};

int32_t number_of(const std::string& word) {
    const auto* const name = std::ranges::find(NAMES, word);
    if (name != std::end(NAMES)) {
        return static_cast<int32_t>(name - NAMES);
    }
    const char letter = word.front();
    return letter >= 'X' ? MEMORY_SIZE + letter - 'X' : letter >= 'A' ? A + letter - 'A' : std::stoi(word);
}

// Runs one step. Returns the error, "|" for the end of a line in it, else the word at A and, if it jumps,
// where to.
std::string run_from(int32_t pc) {
    simulate_init();
    machine.pc = pc;
    simulator.step = 1;
    for (const std::string& call : run_until_stop(simulate_run)) {
        if (call.starts_with("error ")) {
            EXPECT_EQ(machine.pc, pc);
            EXPECT_EQ(machine.instr_count, 1U) << "a failed instruction counts";
            std::string error = call.substr(call.find('\n') + 1);
            std::ranges::replace(error, '\n', '|');
            return error;
        }
    }
    const std::string jump = machine.pc == pc + 4 ? "" : " PC " + std::to_string(machine.pc);
    return std::to_string(machine.memory[A]) + jump;
}

// An instruction, the words at B and C, and what comes of it where 1 is at A before. X, Y and Z are illegal:
// of several such operands the first that is touched is the one that the error names.
constexpr const char* CASES = R"(
add A B C 2147483647 1: -2147483648;  sub A B C 2 3: -1;  sub A B C -2147483648 1: 2147483647;
mult A B C -3 7: -21;  mult A B C 65537 65537: 131073;  div A B C -7 2: -3;  div A B C 7 -2: -3;
div A B C -7 -2: 3;  div A B C -2147483648 -1: -2147483648;  div A B C -2147483648 1: -2147483648;
div A B C 5 -2147483648: 0;  cp A B C 9 4: 9;  and A B C 12 10: 8;  or A B C 12 10: 14;  not A B C 5 0: -6;
sl A B C 1 31: -2147483648;  sl A B C 1 32: 0;  sl A X C 1 2147483647: 0;  sr A B C -1 1: 2147483647;
sr A B C -2147483648 31: 1;  sr A B C -1 32: 0;  cpfa A 90 C 5 11: 5;
cpta B -2147483648 C 55 -2147483548: 55;  be 7 B C 3 3: 1 PC 7;  be 7 B C 3 4: 1;  be -7 B C 3 3: 1 PC -7;
bne 7 B C 3 4: 1 PC 7;  bne 7 B C 3 3: 1;  blt 7 B C -1 0: 1 PC 7;  blt 7 B C 3 3: 1;
call X A 0 0 0: 204 PC 16384;  ret B 0 0 300 0: 1 PC 300;  halt 0 0 0 0 0: 1;
add Z X Y 0 0: illegal address 16384;  div Z X Y 0 0: illegal address 16384;
div Z B Y 8 0: illegal address 16385;  cp Y X 0 0 0: illegal address 16384;
cp Y B 0 0 0: illegal address 16385;  sl Z Y X 0 0: illegal address 16384;
cpfa Z Y X 0 0: illegal address 16384;  cpta Y Z X 0 0: illegal address 16384;
cpta X Z C 0 -1: illegal address 16384;  cpta A Z C 0 -1: illegal address 16385;
be Z X Y 0 0: illegal address 16384;  call Y X 0 0 0: illegal address 16384;
ret X 0 0 0 0: illegal address 16384;
div A B C 1 0: division by zero;  sl A B C 1 -1: negative shift amount;
sr A X C 1 -1: negative shift amount;  18 0 0 0 0 0: unknown opcode 18|;  -1 0 0 0 0 0: unknown opcode -1|;
cp A -2147483642 0 0 0: illegal address -2147483642|;
cp -2147483648 B 0 0 0: unsupported operation on address 0x80000000;)";

TEST(Interpreter, DoesWhatTheInstructionSays) {
    std::istringstream rows(CASES);
    for (std::string row; std::getline(rows >> std::ws, row, ';');) {
        clear_memory();
        reset_machine();
        std::istringstream words(row);
        std::string word;
        for (int32_t* const place :
             {&machine.memory[START], &machine.memory[START + 1], &machine.memory[START + 2],
              &machine.memory[START + 3], &machine.memory[A + 1], &machine.memory[A + 2]}) {
            words >> word;
            *place = number_of(word);
        }
        machine.memory[A] = 1;
        EXPECT_EQ(run_from(START), row.substr(row.find(':') + 2)) << row;
    }
}

// At the top of memory the fetch itself fails; below zero it reads the I/O bus, where the blocks without a
// device read as halt.
TEST(Interpreter, FetchesLikeAnyRead) {
    for (const auto& [pc, outcome] : {std::pair{MEMORY_SIZE - 1, "illegal address 16384"},
                                      {INT32_MAX, "illegal address 2147483647"},
                                      {INT32_MIN, "unsupported operation on address 0x80000001"}}) {
        reset_machine();
        EXPECT_EQ(run_from(pc), outcome);
    }
    reset_machine();
    run_from(INT32_MIN + 0xf0);
    EXPECT_TRUE(machine.halted);
}

} // namespace
