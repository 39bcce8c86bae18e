// The run loop's bookkeeping over long runs, assembling and loading, Reset, and the limit of processor time.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include <sys/resource.h>

#include "assembler/assemble.h"
#include "base/machine.h"
#include "base/messages.h"
#include "core/loader.h"
#include "core/memory.h"
#include "core/simulate.h"
#include "tests/support/bus.h"
#include "tests/support/gui_recording.h"
#include "tests/support/host_standin.h"

namespace {

constexpr int32_t LOOP = 0; // a loop of two instructions that counts in COUNT
constexpr int32_t BRANCH = 4;
constexpr int32_t COUNT = 50;
constexpr int32_t ONE = 51;

class RunLoop : public testing::Test {
  protected:
    void SetUp() override {
        recording = {};
        clear_memory();
        reset_machine();
        simulate_init();
        const int32_t program[] = {K24_ADD, COUNT, COUNT, ONE, K24_BE, LOOP, ONE, ONE};
        std::ranges::copy(program, machine.memory);
        machine.memory[ONE] = 1;
        simulator.step = -1;
    }
};

TEST_F(RunLoop, ShowsTheSimulatedSeconds) {
    const auto times_from = [](uint64_t instr_count, int seconds) {
        machine.instr_count = instr_count;
        simulator.step = seconds * 6666666;
        std::vector<std::string> times = run_until_stop(simulate_run);
        std::erase_if(times, [](const std::string& call) { return !call.starts_with("time"); });
        return times;
    };
    using times_t = std::vector<std::string>;
    host_standin.on = true; // the throttle would wait for a clock so far behind
    // Rounded down to millions of instructions, then to seconds: 6, 13, 19, 26 and 33 millions.
    EXPECT_EQ(times_from(0, 5),
              (times_t{"time 0 sec", "time 1 sec", "time 2 sec", "time 3 sec", "time 4 sec"}));
    EXPECT_EQ(machine.speaker_samples, (std::deque<sample_run_t>{{0, 5 * 6666666 / 833}}));
    EXPECT_EQ(times_from(24'000'000'000, 1), times_t{"time 3600 sec"});
    // The 150 ms of each million are counted with 32 bits, for 49 days.
    EXPECT_EQ(times_from(28'633'108'500'000, 2), (times_t{"time 4294967 sec", "time 0 sec"}));
    host_standin = {};
}

TEST_F(RunLoop, KeepsTheResetThatADialogMade) {
    machine.memory[BRANCH] = 18;
    recording.at_message = reset_machine;
    run_until_stop(simulate_run);
    EXPECT_EQ(machine.instr_count, 1U) << "the failed instruction counts after the reset";
    EXPECT_EQ(machine.pc, BRANCH);
}

TEST_F(RunLoop, AbortsWhenTheInstructionCountWraps) {
    machine.instr_count = std::numeric_limits<uint64_t>::max() - 5;
    EXPECT_DEATH(run_until_stop(simulate_run), "machine.instr_count != 0");
}

using Loader = DeviceTest;

TEST_F(Loader, TellsTheEngineOfAnotherProgram) {
    simulate_init();
    const std::string image = folder / "x.mif";
    const auto load_and_run = [&](int32_t opcode) {
        std::ofstream(image) << std::string(6, '\n') << "0 : " << opcode << ";\nEND;\n";
        simulate_load(folder / "x.k");
        simulator.step = 1000;
        run_until_stop(simulate_run, false);
    };
    load_and_run(K24_BE);
    EXPECT_EQ(machine.instr_count, 1000U) << "a branch to itself";
    load_and_run(K24_HALT);
    EXPECT_TRUE(machine.halted);
    // An image that cannot be read, though it can be opened, leaves the board as it is.
    std::filesystem::remove(image);
    std::filesystem::create_symlink("/proc/self/mem", image);
    machine.memory[2] = 1;
    graphical_display = true;
    simulate_load(folder / "x.k");
    graphical_display = false;
    EXPECT_EQ(recording.calls.back(), "error Can't read " + image + ": Input/output error");
    EXPECT_EQ(machine.memory[2], 1);
    EXPECT_TRUE(machine.halted);
}

using Assembler = DeviceTest;

TEST_F(Assembler, ReportsACloseThatFails) {
    const std::string program = folder / "prog";
    const auto write = [&](const char* ending, const char* text) { std::ofstream(program + ending) << text; };
    write(".k", "x halt\n");
    graphical_display = true;
    const char* const endings[] = {".mif", ".labels"};
    for (int i = 0; i < 2; ++i) {
        write(".mif", "old");
        write(".labels", "old");
        host_standin.failing_close = 3 + i; // after those of the two old files
        ASSERT_FALSE(assemble(program + ".k"));
        EXPECT_EQ(recording.calls.back(),
                  "error Can't write file " + program + endings[i] + ": Input/output error");
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 3)
            << "nothing else is left";
        EXPECT_EQ(std::filesystem::file_size(program + endings[0]), 3U) << "the old one";
        EXPECT_EQ(std::filesystem::file_size(program + endings[1]), 3U) << "the old one";
    }
    graphical_display = false;
    host_standin.failing_close = 0;
}

// What is 0 after Reset, and what Reset leaves alone. Of numbers that lie together, the first and the last.
struct numbers_t {
    int32_t* first;
    int32_t* last;
};

constexpr numbers_t CLEARED[] = {
    {&machine.pc, &machine.pc},
    {&machine.led_red, &machine.hex74},
    {&machine.lcd_command, &machine.lcd_ascii},
    {&machine.ps2_command, &machine.ps2_response},
    {&machine.sdram_command, &machine.sdram_data_read},
    {&machine.speaker_command, &machine.speaker_current_sample},
    {&machine.microphone_command, &machine.microphone_response},
    {&machine.vga_command, &machine.vga_color_read},
    {&machine.mouse_command, &machine.mouse_active},
    {&machine.touch_command, &machine.touch_response},
    {&machine.touch_pressed, &machine.touch_pressed},
    {&machine.sd_command, &machine.sd_response},
    {&machine.sd_address, &machine.sd_address},
    {&machine.sd_data_read, &machine.sd_data_read},
    {&machine.serial_send_command, &machine.serial_send_response},
    {&machine.fft_send_command, &machine.fft_send_inverse},
    {&machine.fft_receive_command, &machine.fft_receive_imaginary},
    {&machine.fft_send_count, &machine.fft_send_count},
    {&machine.camera_command, &machine.camera_flip},
};
uint64_t* const CLEARED_COUNTS[] = {&machine.instr_count,        &machine.vga_response_instr,
                                    &machine.sd_response_instr,  &machine.serial_send_response_instr,
                                    &machine.fft_response_instr, &machine.camera_response_instr};
bool* const CLEARED_FLAGS[] = {&machine.halted,           &machine.microphone_sample_avail,
                               &machine.sd_buffer_valid,  &machine.sd_buffer_dirty,
                               &machine.camera_ram_valid, &simulator.running};
constexpr numbers_t KEPT[] = {
    {&machine.memory[0], &machine.memory[MEMORY_SIZE - 1]},
    {&machine.sw, &machine.sw},
    {&machine.sdram_ram[0], &machine.sdram_ram[9]},
    {&machine.touch_x_private, &machine.touch_y_private},
    {&machine.sd_write, &machine.sd_write},
    {&machine.sd_data_write, &machine.sd_data_write},
    {&machine.serial_receive_command, &machine.serial_receive_data},
    {&machine.fft_send_inverse_first, &machine.fft_send_inverse_first},
    {&simulator.breakpoint, &simulator.watchpoint},
};

TEST(Reset, ClearsTheDevicesAndKeepsTheRest) {
    reset_machine();
    for (const auto& [first, last] : CLEARED) {
        std::fill(first, last + 1, 1);
    }
    for (uint64_t* const count : CLEARED_COUNTS) {
        *count = 1;
    }
    for (bool* const flag : CLEARED_FLAGS) {
        *flag = true;
    }
    for (const auto& [first, last] : KEPT) {
        std::fill(first, last + 1, 5);
    }
    machine.fft_receive_count = 1;
    machine.speaker_current_sample_played = false;
    recording = {};
    reset_machine();
    const std::string blank(16, ' ');
    EXPECT_EQ(recording.calls, (std::vector<std::string>{"runstop Run ", "status Stopped", "time 0 sec",
                                                         "cursor off", "pc PC 0", "memory", "hex30 0000",
                                                         "hex74 0000", "lcd " + blank + "\n" + blank}));
    for (size_t i = 0; i < std::size(CLEARED); ++i) {
        EXPECT_EQ(std::count(CLEARED[i].first, CLEARED[i].last + 1, 0),
                  CLEARED[i].last + 1 - CLEARED[i].first)
            << i;
    }
    for (size_t i = 0; i < std::size(KEPT); ++i) {
        EXPECT_EQ(std::count(KEPT[i].first, KEPT[i].last + 1, 5), KEPT[i].last + 1 - KEPT[i].first) << i;
    }
    const auto is_zero = [](const auto* number) { return *number == 0; };
    EXPECT_TRUE(std::ranges::all_of(CLEARED_COUNTS, is_zero));
    EXPECT_TRUE(std::ranges::all_of(CLEARED_FLAGS, is_zero));
    EXPECT_EQ(simulator.step, 0);
    EXPECT_EQ(machine.fft_receive_count, 1024);
    EXPECT_TRUE(machine.speaker_current_sample_played);
    clear_memory();
    simulate_init();
    machine.sw = 0;
}

// In a process of its own: a limit that was lowered does not rise again.
TEST(ProcessorTime, IsBounded) {
    const auto limits_become = [](rlim_t soft, rlim_t expected_soft, rlim_t expected_hard) {
        rlimit limit{};
        getrlimit(RLIMIT_CPU, &limit);
        limit.rlim_cur = std::min(soft, limit.rlim_max);
        setrlimit(RLIMIT_CPU, &limit);
        simulate_init();
        getrlimit(RLIMIT_CPU, &limit);
        std::exit(limit.rlim_cur == expected_soft && limit.rlim_max == expected_hard ? 0 : 1);
    };
    EXPECT_EXIT(limits_become(RLIM_INFINITY, 18000, 18010), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(limits_become(60, 60, 70), testing::ExitedWithCode(0), "");
}

} // namespace
