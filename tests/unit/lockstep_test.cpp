// Random programs on the engine that ships and on the reference: after each stop the whole machine record and
// all that the window was asked to show must be the same.
//
// TOVIK_LOCKSTEP_PROGRAMS sets how many programs of each kind run (default 10000), TOVIK_LOCKSTEP_SEED the
// seed of the first; a failure names the seed of its program.

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "core/machine.h"
#include "core/memory.h"
#include "core/reference.h"
#include "core/simulate.h"
#include "devices/sdram.h"
#include "tests/support/gui_recording.h"
#include "tests/support/record.h"

namespace {

using random_t = std::mt19937_64;

uint64_t setting(const char* name, uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 0);
}

int32_t pick(random_t& random, int32_t lowest, int32_t highest) {
    return std::uniform_int_distribution<int32_t>(lowest, highest)(random);
}

bool one_in(random_t& random, int32_t chances) { return pick(random, 1, chances) == 1; }

// Addresses and values at which something changes.
int32_t pick_edge(random_t& random) {
    constexpr int32_t edges[] = {-1,
                                 0,
                                 1,
                                 31,
                                 32,
                                 MEMORY_SIZE - 5,
                                 MEMORY_SIZE - 4,
                                 MEMORY_SIZE - 1,
                                 MEMORY_SIZE,
                                 MEMORY_SIZE + 1,
                                 INT32_MAX,
                                 INT32_MIN,
                                 INT32_MIN + 5,
                                 INT32_MIN + 6,
                                 INT32_MIN + 0xf0,
                                 INT32_MIN + 0x103,
                                 INT32_MIN + 0x104};
    return edges[pick(random, 0, std::size(edges) - 1)];
}

int32_t pick_wild(random_t& random) {
    switch (pick(random, 0, 7)) {
    case 0:
        return pick(random, INT32_MIN, INT32_MAX);
    case 1:
        return pick_edge(random);
    case 2:
        return INT32_MIN + pick(random, 0, 0x110);
    default:
        return pick(random, 0, MEMORY_SIZE - 1);
    }
}

// Anything anywhere: soon faults.
void make_wild(random_t& random) {
    // A thousand different words, over and over, fill the memory as well as all different ones would.
    std::array<int32_t, 1008> words;
    for (size_t i = 0; i < words.size(); ++i) {
        const bool is_opcode = i % WORDS_PER_INSTRUCTION == 0;
        words[i] = one_in(random, 6) ? pick_wild(random) : pick(random, 0, is_opcode ? 18 : MEMORY_SIZE - 1);
    }
    for (size_t i = 0; i < MEMORY_SIZE; ++i) {
        machine.memory[i] = words[i % words.size()];
    }
    machine.pc = one_in(random, 8) ? pick_wild(random) : 4 * pick(random, 0, MEMORY_SIZE / 4 - 1);
}

// A program that mostly stays within its own code and data, writes to both, and runs long.
void make_tame(random_t& random) {
    constexpr int32_t data = 1000; // the code is below; a branch may go to any word of it
    constexpr int32_t instructions = 60;
    const int32_t base = 4 * pick(random, 0, 3) + (one_in(random, 4) ? pick(random, 1, 3) : 0);
    const auto pick_operand = [&] {
        if (one_in(random, 40)) {
            constexpr int32_t ports[] = {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x10, 0x11, 0x14, 0x20,
                                         0x21, 0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x60, 0x61, 0x62,
                                         0x65, 0x66, 0x67, 0x68, 0x70, 0x71, 0x80, 0xe0, 0xe1, 0xf0};
            return INT32_MIN + ports[pick(random, 0, std::size(ports) - 1)];
        }
        return one_in(random, 20) ? base + pick(random, 0, 4 * instructions) : data + pick(random, 0, 63);
    };
    for (int32_t i = 0; i < instructions; ++i) {
        int32_t* const word = machine.memory + base + 4 * i;
        word[0] = pick(random, K24_ADD, K24_RET);
        word[1] = pick_operand();
        word[2] = pick_operand();
        word[3] = pick_operand();
        if (word[0] >= K24_BE && word[0] <= K24_CALL) {
            word[1] = base + 4 * pick(random, 0, instructions - 1);
        }
    }
    for (int32_t i = 0; i < 64; ++i) {
        machine.memory[data + i] =
            one_in(random, 2) ? base + 4 * pick(random, 0, instructions - 1) : pick(random, -40, 40);
    }
    machine.pc = base;
}

void make_controls(random_t& random) {
    machine.instr_count = one_in(random, 4) ? static_cast<uint64_t>(pick(random, 0, INT32_MAX)) : 0;
    simulator.step = one_in(random, 4) ? pick(random, 0, 50) : pick(random, 1000, 8000);
    if (one_in(random, 200)) {
        simulator.step = 220000; // beyond two looks at the window
    }
    simulator.breakpoint = one_in(random, 3) ? pick(random, -1, 300) : -1;
    simulator.watchpoint = one_in(random, 3) ? 1000 + pick(random, 0, 500) : -1;
    machine.sw = pick(random, 0, 0x3ffff);
}

void compare_engines(void (*make_program)(random_t&)) {
    const uint64_t first_seed = setting("TOVIK_LOCKSTEP_SEED", std::random_device{}());
    const uint64_t programs = setting("TOVIK_LOCKSTEP_PROGRAMS", 10000);
    std::cout << "first seed " << first_seed << ", " << programs << " programs" << std::endl;
    record_t start;
    record_t expected;
    uint64_t executed = 0;
    recording = {};

    for (uint64_t seed = first_seed; seed < first_seed + programs && !testing::Test::HasFailure(); ++seed) {
        random_t random(seed);
        clear_memory();
        reset_machine();
        simulate_init();
        make_program(random);
        make_controls(random);
        const int32_t step = simulator.step;
        // Each stop is compared; a run that stopped is taken up again unless it would only fail again.
        for (int stop = 0; stop < 4 && (stop == 0 || last_stop().reason != stop_reason_e::ERROR); ++stop) {
            simulator.step = step;
            const uint64_t before = machine.instr_count;
            print_machine();
            start.take();
            clear_sdram();
            const std::vector<std::string> shown = run_until_stop(reference_run);
            executed += machine.instr_count - before;
            const std::vector<uint64_t> looks = recording.looks;
            expected.take();
            start.put_back();
            clear_sdram();
            print_machine(); // also what the devices remember of the last drawing is as it was
            EXPECT_EQ(run_until_stop(simulate_run), shown) << "seed " << seed << ", stop " << stop;
            EXPECT_EQ(recording.looks, looks) << "seed " << seed << ", stop " << stop;
            EXPECT_EQ(expected.difference(), "") << "seed " << seed << ", stop " << stop;
        }
    }
    simulate_init();
    std::cout << executed << " instructions in all" << std::endl;
}

TEST(Lockstep, WildPrograms) { compare_engines(make_wild); }

TEST(Lockstep, TamePrograms) { compare_engines(make_tame); }

} // namespace
