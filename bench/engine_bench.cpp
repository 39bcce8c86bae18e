// How fast the run loop executes instructions: millions of instructions of the simulated program a second of
// processor time, medians of interleaved repetitions. It is compared with the reference, which keeps all
// books after each instruction, on programs that compute and on programs that use ports; and with itself, on
// programs that wait. Where devices have much to do, it is the same in both, and is measured apart and
// subtracted.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "assembler/assemble.h"
#include "base/machine.h"
#include "core/engine.h"
#include "core/loader.h"
#include "core/reference.h"
#include "core/simulate.h"
#include "devices/audio.h"
#include "devices/io.h"
#include "devices/lcd.h"
#include "tests/support/gui_recording.h"
#include "ui/screen.h"

namespace {

constexpr int UNTIL_HALT = -1;

// The waiting programs do not end: three seconds of the board's time.
constexpr int WAITING_STEPS = 20000000;

struct way_t {
    const char* name;
    void (*run_loop)();
    bool passes_over;
};

constexpr way_t REFERENCE = {"reference", reference_run, false};
constexpr way_t ENGINE = {"run loop", simulate_run, false};
constexpr way_t PASSING_OVER = {"passing over", simulate_run, true};

// The transforms, texts and ticks of fft_feed, lcd_text and sound, without their instructions.
void transform_blocks() {
    constexpr int32_t send_command = IO_BASE + 0xc0;
    for (int blocks = 100; blocks > 0; --blocks) {
        machine.fft_send_count = static_cast<int>(std::size(machine.fft_send)) - 1;
        io(true, send_command, 1);
        io(true, send_command, 0);
        machine.instr_count = machine.fft_response_instr;
    }
}

void show_texts() {
    for (int characters = 160000; characters > 0; --characters) {
        print_lcd();
    }
}

void tick() {
    for (int ticks = 4000; ticks > 0; --ticks) {
        ++machine.speaker_current_sample;
        advance_audio();
    }
}

struct program_t {
    const char* source;
    void (*device_work)() = nullptr;
};

struct table_t {
    const char* programs_are;
    std::vector<program_t> programs;
    int steps;
    way_t ways[2]; // compared with each other; the ratio is the second by the first
};

const table_t TABLES[] = {
    {"computing",
     {{"bench/programs/arithmetic.k"},
      {"bench/programs/sieve.k"},
      {"bench/programs/bubble_sort.k"},
      {"bench/programs/fibonacci.k"},
      {"bench/programs/self_modifying.k"},
      {"bench/programs/polling.k"}},
     UNTIL_HALT,
     {REFERENCE, ENGINE}},
    {"using ports",
     {{"bench/programs/pixels.k"},
      {"bench/programs/sdram_copy.k"},
      {"bench/programs/fft_feed.k", transform_blocks},
      {"bench/programs/lcd_text.k", show_texts},
      {"bench/programs/sound.k", tick}},
     UNTIL_HALT,
     {REFERENCE, ENGINE}},
    {"waiting",
     {{"examples/bounce.k"},
      {"examples/counter.k"},
      {"bench/programs/key_wait.k"},
      {"bench/window/fill.k"},
      {"bench/window/send.k"}},
     WAITING_STEPS,
     {ENGINE, PASSING_OVER}},
};

std::string program_name(const std::string& source) { return std::filesystem::path(source).stem(); }

std::string measurement_name(const std::string& source, const char* way) {
    return program_name(source) + " " + way;
}

constexpr const char* DEVICES = "devices";

// Every repetition starts from the same memory, devices and picture; what a Reset leaves in the video memory
// makes no difference to these programs.
void put_back(const std::vector<int32_t>& image, int steps) {
    std::ranges::copy(image, machine.memory);
    reset_machine();
    take_screen_changes();
    simulator.step = steps;
}

// A program that stopped early would be measured as something else.
void check_end(int steps) {
    const bool whole = steps == UNTIL_HALT
                           ? machine.halted
                           : !machine.halted && machine.instr_count == static_cast<uint64_t>(steps);
    if (!whole) {
        std::fprintf(stderr, "a program ended early, at PC %d\n", machine.pc);
        std::exit(1);
    }
}

void run_program(benchmark::State& state, const std::string& source, int steps, const way_t& way) {
    simulate_load(source);
    const std::vector<int32_t> image(std::begin(machine.memory), std::end(machine.memory));
    pass_over_waiting(way.passes_over);
    double instructions = 0;
    for (auto _ : state) {
        state.PauseTiming();
        put_back(image, steps);
        state.ResumeTiming();
        run_until_stop(way.run_loop);
        instructions += static_cast<double>(machine.instr_count);
        check_end(steps);
    }
    state.counters["MIPS"] = benchmark::Counter(instructions / 1e6, benchmark::Counter::kIsRate);
}

// After a run of the program, whose instructions are counted as if the devices had executed them.
void work_of_devices(benchmark::State& state, const std::string& source, void (*device_work)()) {
    simulate_load(source);
    simulator.step = UNTIL_HALT;
    run_until_stop(simulate_run);
    const auto instructions = static_cast<double>(machine.instr_count);
    double counted = 0;
    for (auto _ : state) {
        state.PauseTiming();
        recording.calls.clear();
        recording.counts.clear();
        machine.speaker_samples.clear();
        state.ResumeTiming();
        device_work();
        counted += instructions;
    }
    state.counters["MIPS"] = benchmark::Counter(counted / 1e6, benchmark::Counter::kIsRate);
}

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values.empty() ? 0 : values[values.size() / 2];
}

// Keeps every repetition's figure; the tables are printed at the end.
class table_reporter_t : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context& /*context*/) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration) {
                mips_[run.run_name.function_name].push_back(run.counters.at("MIPS"));
            }
        }
    }

    void Finalize() override {
        for (const table_t& table : TABLES) {
            const auto& [first, second] = table.ways;
            std::printf("%-14s %14s %14s %8s   (MIPS)\n", table.programs_are, first.name, second.name,
                        "ratio");
            for (const program_t& program : table.programs) {
                const std::string source = program.source;
                const double before = without_devices(source, first);
                const double after = without_devices(source, second);
                std::printf("%-14s %14.1f %14.1f %8.2f\n", program_name(source).c_str(), before, after,
                            after / before);
            }
        }
    }

  private:
    double without_devices(const std::string& source, const way_t& way) {
        const double mips = median(mips_[measurement_name(source, way.name)]);
        const double devices = median(mips_[measurement_name(source, DEVICES)]);
        return devices == 0 ? mips : 1 / (1 / mips - 1 / devices);
    }

    std::map<std::string, std::vector<double>> mips_;
};

// The programs are assembled on a copy, in the same folders because of what they include: the benchmark
// leaves nothing in the source tree.
std::filesystem::path copy_programs() {
    std::string name = (std::filesystem::temp_directory_path() / "tovik-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        std::perror(name.c_str());
        std::exit(1);
    }
    std::filesystem::path folder = name;
    const std::filesystem::path sources = TOVIK_SOURCES;
    for (const char* part : {"examples", "bench/programs", "bench/window"}) {
        std::filesystem::create_directories(folder / part);
        std::filesystem::copy(sources / part, folder / part, std::filesystem::copy_options::recursive);
    }
    return folder;
}

// Whether all programs could be assembled.
bool register_measurements(const std::filesystem::path& folder) {
    for (const table_t& table : TABLES) {
        for (const program_t& program : table.programs) {
            const std::string source = folder / program.source;
            if (!assemble(source)) {
                return false;
            }
            for (const way_t& way : table.ways) {
                benchmark::RegisterBenchmark(measurement_name(source, way.name).c_str(), run_program, source,
                                             table.steps, way);
            }
            if (program.device_work != nullptr) {
                benchmark::RegisterBenchmark(measurement_name(source, DEVICES).c_str(), work_of_devices,
                                             source, program.device_work);
            }
        }
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<char*> arguments(argv, argv + argc);
    std::string interleaving = "--benchmark_enable_random_interleaving=true";
    std::string repetitions = "--benchmark_repetitions=9";
    std::string time = "--benchmark_min_time=0.15";
    arguments.insert(arguments.begin() + 1, {interleaving.data(), repetitions.data(), time.data()});
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());

    simulate_init();
    const std::filesystem::path folder = copy_programs();
    const bool assembled = register_measurements(folder);
    if (assembled) {
        table_reporter_t reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);
    }
    std::filesystem::remove_all(folder);
    return assembled ? 0 : 1;
}
