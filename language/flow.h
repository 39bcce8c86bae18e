#pragma once

// The ways through a program: which instructions are reached, and where a way ends that should not.

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "language/program.h"

// An instruction behind which there is none, though the program goes on there.
struct run_off_t {
    uint32_t instruction = 0; // index
    int32_t into = 0;         // the address
};

// All calls with one return word, and the way back from the ret of that word.
struct return_t {
    std::vector<uint32_t> calls; // indices of those that are reached
    bool used = false;           // a ret of the word is reached
};

struct flow_t {
    std::vector<bool> reached;     // by index of the instruction
    std::vector<uint32_t> entries; // where it begins, and what has its address taken
    std::vector<run_off_t> run_offs;
    std::unordered_map<int32_t, return_t> returns; // by return word
    // The program jumps to what it computes, or makes instructions: nothing is certain of what is not
    // reached.
    bool unknown_jumps = false;
    // It is meant to be included by others: all labels of its code are entries. So are tables without code.
    bool library = false;
};

// How a ret of a word finds its way.
enum class ret_e {
    OF_CALLS, // only calls store there
    FIXED,    // nothing stores there, but the word is the address of an instruction from the start
    NOWHERE,  // nothing ever puts an address there
    UNKNOWN,
};
ret_e ret_of(const program_t& program, const instruction_t& ret);

flow_t find_ways(program_t& program);

// The instruction behind a call or another one; NOTHING when there is none.
uint32_t next_of(program_t& program, const instruction_t& instruction);

// The target of a branch or call; NOTHING when it is unknown or no instruction.
uint32_t target_of(program_t& program, const instruction_t& instruction);

// Whether the line was included: it belongs to the file of somebody else.
bool is_included(const program_t& program, uint32_t statement);
