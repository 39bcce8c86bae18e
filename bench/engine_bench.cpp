// How fast the run loop executes instructions, compared with the reference, which keeps all books after each:
// millions of instructions of the simulated program a second, medians of interleaved repetitions.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "assembler/assemble.h"
#include "core/loader.h"
#include "core/machine.h"
#include "core/reference.h"
#include "core/simulate.h"
#include "tests/support/gui_recording.h"

namespace {

constexpr const char* PROGRAMS[] = {"primes", "sort", "fibonacci"};

using run_loop_t = void (*)();

void run_program(benchmark::State& state, const std::string& source, run_loop_t run_loop) {
    simulate_load(source);
    const std::vector<int32_t> image(std::begin(machine.memory), std::end(machine.memory));
    double instructions = 0;
    for (auto _ : state) {
        std::ranges::copy(image, machine.memory);
        machine.pc = 0;
        machine.instr_count = 0;
        machine.halted = false;
        simulator.step = -1;
        run_until_stop(run_loop);
        instructions += static_cast<double>(machine.instr_count);
    }
    state.counters["MIPS"] = benchmark::Counter(instructions / 1e6, benchmark::Counter::kIsRate);
}

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values.empty() ? 0 : values[values.size() / 2];
}

// Keeps every repetition's figure; the table is printed at the end.
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
        std::printf("%-12s %16s %16s %8s\n", "program", "reference MIPS", "run loop MIPS", "ratio");
        for (const std::string program : PROGRAMS) {
            const double reference = median(mips_["reference_" + program]);
            const double engine = median(mips_["engine_" + program]);
            std::printf("%-12s %16.1f %16.1f %8.2f\n", program.c_str(), reference, engine,
                        engine / reference);
        }
    }

  private:
    std::map<std::string, std::vector<double>> mips_;
};

// Examples are assembled on a copy: the benchmark leaves nothing in the source tree.
std::filesystem::path copy_examples() {
    std::string folder = (std::filesystem::temp_directory_path() / "tovik-bench-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) {
        std::perror(folder.c_str());
        std::exit(1);
    }
    std::filesystem::copy(TOVIK_EXAMPLES, folder, std::filesystem::copy_options::recursive);
    return folder;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<char*> arguments(argv, argv + argc);
    std::string interleaving = "--benchmark_enable_random_interleaving=true";
    std::string repetitions = "--benchmark_repetitions=9";
    std::string time = "--benchmark_min_time=0.2";
    arguments.insert(arguments.begin() + 1, {interleaving.data(), repetitions.data(), time.data()});
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());

    simulate_init();
    const std::filesystem::path folder = copy_examples();
    for (const std::string program : PROGRAMS) {
        const std::string source = folder / (program + ".k");
        if (!assemble(source)) {
            return 1;
        }
        benchmark::RegisterBenchmark(("reference_" + program).c_str(), run_program, source, reference_run);
        benchmark::RegisterBenchmark(("engine_" + program).c_str(), run_program, source, simulate_run);
    }
    table_reporter_t reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::filesystem::remove_all(folder);
    return 0;
}
