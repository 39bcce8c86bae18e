// What the history of a run costs: millions of instructions a second of processor time with and without it,
// the ratio, and how long a jump to any moment of the newest 10^9 instructions and a step back from there
// take.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "assembler/analyse.h"
#include "base/machine.h"
#include "core/engine.h"
#include "core/memory.h"
#include "core/simulate.h"
#include "debugger/history.h"
#include "devices/sdram.h"
#include "devices/vga.h"
#include "host/clock.h"
#include "tests/support/gui_recording.h"

namespace {

std::vector<int32_t> image;

void load() {
    clear_memory();
    std::copy(image.begin(), image.end(), machine.memory);
    forget_proofs();
    reset_machine();
}

void start(const std::string& source) {
    simulate_init();
    clear_vga();
    clear_sdram();
    image.clear();
    for (const word_t& word : analyse(source).map.words) {
        image.push_back(word.value);
    }
    load();
    simulate_begin();
    simulator.step = -1;
    simulator.running = true;
}

double processor_us() { return static_cast<double>(std::clock()) * (1e6 / CLOCKS_PER_SEC); }

void forget_calls() {
    recording.calls.clear();
    recording.counts.clear();
}

constexpr int32_t PIECE = 200000;

// A program that ends begins again.
double plain_us(uint64_t instructions) {
    const double begin = processor_us();
    uint64_t before = 0;
    while (before + machine.instr_count < instructions) {
        if (machine.halted) {
            before += machine.instr_count;
            load();
        }
        simulator.step = -1;
        simulator.running = true;
        simulate_pass(PIECE);
        forget_calls();
    }
    return processor_us() - begin;
}

double with_history_us(uint64_t instructions) {
    const double begin = processor_us();
    history_begin();
    while (history_now() < instructions) {
        if (machine.halted) {
            history_act(load);
        }
        history_run(PIECE);
        forget_calls();
    }
    return processor_us() - begin;
}

// The worst of some jumps, and of steps back from there, in milliseconds.
void measure_jumps() {
    uint64_t worst_jump = 0;
    uint64_t worst_step = 0;
    const moment_t newest = history_newest();
    const moment_t oldest = newest > 1'000'000'000 ? newest - 1'000'000'000 : 0;
    uint64_t place = 88172645463325252;
    for (int i = 0; i < 20; ++i) {
        place ^= place << 13;
        place ^= place >> 7;
        place ^= place << 17;
        const moment_t target = oldest + place % (newest - oldest);
        uint64_t begin = stopwatch_us();
        finish(history_go_to(target));
        worst_jump = std::max(worst_jump, stopwatch_us() - begin);
        for (int step = 0; step < 3; ++step) {
            begin = stopwatch_us();
            finish(history_go_to(history_now() - 1));
            worst_step = std::max(worst_step, stopwatch_us() - begin);
        }
        forget_calls();
    }
    std::printf("   jump %6.1f ms, step back %6.1f ms", static_cast<double>(worst_jump) / 1000,
                static_cast<double>(worst_step) / 1000);
}

void measure(const std::string& source, uint64_t instructions) {
    double plain = std::numeric_limits<double>::max();
    double kept = plain;
    for (int i = 0; i < 3; ++i) {
        start(source);
        plain = std::min(plain, plain_us(instructions));
        history_end();
        start(source);
        kept = std::min(kept, with_history_us(instructions));
    }
    const auto executed = static_cast<double>(history_now());
    std::printf("%-16s %7.1f M/s, with history %7.1f M/s: %5.3f, %4zu MiB",
                std::filesystem::path(source).stem().c_str(), executed / plain, executed / kept, plain / kept,
                history_size() >> 20);
    measure_jumps();
    std::printf("\n");
    std::fflush(stdout);
    history_end();
}

} // namespace

int main(int argc, char** argv) {
    const uint64_t instructions = argc > 1 ? std::strtoull(argv[1], nullptr, 0) : 1'000'000'000;
    std::vector<std::filesystem::path> sources;
    for (const auto& entry : std::filesystem::directory_iterator(TOVIK_SOURCES "/bench/programs")) {
        if (entry.path().extension() == ".k") {
            sources.push_back(entry.path());
        }
    }
    std::sort(sources.begin(), sources.end());
    for (const std::filesystem::path& source : sources) {
        if (argc < 3 || source.stem() == argv[2]) {
            measure(source, instructions);
        }
    }
}
