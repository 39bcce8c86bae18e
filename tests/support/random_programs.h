#pragma once

// Random programs, each kind after something that an engine may get wrong.

#include <cstdint>
#include <iterator>

// Its only state is the seed and how many numbers were taken: cheap to copy and to start again.
struct random_t {
    uint64_t place;
};

int32_t pick(random_t& random, int32_t lowest, int32_t highest);
bool one_in(random_t& random, int32_t chances);

template <typename list_t> auto pick_from(random_t& random, const list_t& list) {
    return list[static_cast<size_t>(pick(random, 0, static_cast<int32_t>(std::size(list)) - 1))];
}

// Any number that may serve as an address: in memory, at its ends, a port, beyond everything.
int32_t pick_wild(random_t& random);

// Where in memory a program is.
struct program_t {
    int32_t code;
    int32_t instructions;
    int32_t data;
    int32_t words;
};

struct program_kind_t {
    const char* name;
    int32_t percent; // of all programs
    program_t (*make)(random_t& random);
};

// They write the program into the machine's memory, which is clear, set machine.pc, and preset devices
// relative to machine.instr_count.
extern const program_kind_t PROGRAM_KINDS[6];
