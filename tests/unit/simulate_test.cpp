// The run loop's bookkeeping over long runs, loading, Reset, and saving.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "base/machine.h"
#include "base/noise.h"
#include "base/saved_file.h"
#include "core/debug.h"
#include "core/engine.h"
#include "core/loader.h"
#include "core/memory.h"
#include "core/simulate.h"
#include "host/sound.h"
#include "tests/support/bus.h"
#include "tests/support/gui_recording.h"
#include "tests/support/record.h"

namespace {

TEST(RunLoop, ShowsTheSimulatedSeconds) {
    clear_memory();
    reset_machine();
    simulate_init();
    std::ranges::copy(std::array{K24_BE, K24_HALT, K24_HALT, K24_HALT}, machine.memory); // to itself
    const auto times_from = [](uint64_t instr_count, int seconds) {
        machine.instr_count = instr_count;
        simulator.step = seconds * 6666666;
        std::string times;
        for (const std::string& call : run_until_stop(simulate_run)) {
            times += call.starts_with("time") ? call.substr(5) + "," : "";
        }
        return times;
    };
    // Rounded down to millions of instructions, then to seconds: 6, 13, 19, 26 and 33 millions.
    EXPECT_EQ(times_from(0, 5), "0 sec,1 sec,2 sec,3 sec,4 sec,");
    EXPECT_EQ(machine.speaker_samples, (std::deque<sample_run_t>{{0, 5 * 6666666 / 833}}));
    EXPECT_EQ(times_from(24'000'000'000, 1), "3600 sec,");
    // The 150 ms of each million are counted with 32 bits, for 49 days.
    EXPECT_EQ(times_from(28'633'108'500'000, 2), "4294967 sec,0 sec,");
    EXPECT_DEATH(times_from(std::numeric_limits<uint64_t>::max() - 5, 1), "machine.instr_count != 0");
}

TEST(RunLoop, ExecutesAnInstructionAnewWhenTheHostHasWhatItWaitsFor) {
    clear_memory();
    reset_machine();
    simulate_init();
    constexpr int32_t SAMPLE = INT32_MIN + 0x52;
    std::ranges::copy(std::array<int32_t, 12>{K24_CP, 100, 0, 0, K24_CP, 101, SAMPLE, 0, K24_HALT},
                      machine.memory);
    forget_proofs();
    machine.microphone_response = 1;
    simulator.microphone_on = true;
    simulator.running = true;
    simulator.step = 3;
    simulate_begin();
    for (int turn = 0; turn < 2; ++turn) { // with something executed before it, and without
        const pass_t pass = simulate_pass(10);
        ASSERT_EQ(pass.wait, record_ready);
        EXPECT_EQ(std::pair(machine.pc, machine.instr_count), std::pair(4, uint64_t{1}));
        EXPECT_EQ(std::pair(simulator.step, machine.loop_look), std::pair(2, 1));
    }
    simulator.step = 0;
    EXPECT_EQ(simulate_pass(10).wait, record_ready);
    EXPECT_EQ(std::pair(simulator.running, last_stop().reason), std::pair(false, stop_reason_e::STOPPED));
    // The user presses Reset, and then "Mic", in a dialog of the instruction.
    machine.pc = 0;
    simulator.microphone_on = false;
    typed.chosen_file = "/nowhere";
    recording.at_message = [] {
        reset_machine();
        simulator.microphone_on = true;
    };
    simulator.running = true;
    simulator.step = -1;
    EXPECT_EQ(simulate_pass(10).wait, record_ready);
    EXPECT_EQ(std::pair(machine.pc, machine.instr_count), std::pair(0, uint64_t{0}));
    EXPECT_FALSE(simulator.running);
    recording = {};
    typed = {};
    machine.microphone_response = 1;
    simulator.running = true;
    simulator.step = -1;
    EXPECT_TRUE(record_ready(1));
    EXPECT_EQ(simulate_pass(10).wait, nullptr);
    EXPECT_EQ(std::pair(machine.memory[101], machine.instr_count), std::pair(5 * 65536, uint64_t{3}));
    EXPECT_TRUE(machine.halted);
    simulator.microphone_on = false;
}

using Loader = DeviceTest;

TEST_F(Loader, TellsTheEngineOfAnotherProgram) {
    simulate_init();
    const auto load_and_run = [&](int32_t opcode) {
        std::ofstream(folder / "x.mif") << "\n\n\n\n\nBEGIN\n0 : " << opcode << ";\nx\n\ny\nEND;\n0 : 5\n";
        const load_t load = simulate_load(folder / "x.k");
        EXPECT_TRUE(load.opened && load.begun && load.ended);
        EXPECT_EQ((std::vector{load.words, load.skipped, load.first_skipped}), (std::vector{1, 2, 8}));
        simulator.step = 1000;
        run_until_stop(simulate_run, false);
    };
    load_and_run(K24_BE);
    EXPECT_EQ(machine.instr_count, 1000U) << "a branch to itself";
    load_and_run(K24_HALT);
    EXPECT_TRUE(machine.halted);
}

using Debug = DeviceTest;

TEST_F(Debug, RunTakesWhatIsTyped) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "-1 -1 -1 ::"},
        {"\n5", "5 -1 -1 5::"},
        {"0", "-1 0 0 :0:0"},
        {"x", "-1 0 0 :0:0"},
        {" 12x", "12 12 12 12:12:12"},
        {"-3", "-1 -1 -1 ::"},
        {"2147483648", "2147483647 2147483647 2147483647 2147483647:2147483647:2147483647"}};
    for (const auto& [text, outcome] : cases) {
        typed.steps = typed.breakpoint = typed.watchpoint = text;
        simulator.running = false;
        recording.calls.clear();
        debug_runstop();
        std::ostringstream controls;
        controls << simulator.step << ' ' << simulator.breakpoint << ' ' << simulator.watchpoint << ' '
                 << typed.steps << ':' << typed.breakpoint << ':' << typed.watchpoint;
        EXPECT_EQ(controls.str(), outcome) << text;
        EXPECT_EQ(recording.calls.front(), "runstop Stop");
    }
    debug_runstop();
    EXPECT_EQ(simulator.step, 0) << "it stops what runs";
    machine.halted = true;
    simulator.running = false;
    debug_runstop();
    EXPECT_FALSE(simulator.running);
    pass_over_waiting(true);
}

TEST(Reset, ClearsTheDevicesAndKeepsTheRest) {
    fill_record(1);
    machine.serial_state = DISCONNECTED;
    machine.mouse_active = 1;
    machine.speaker_samples = {{1, 1}};
    machine.microphone_samples = {1};
    simulator = {};
    simulator.running = true;
    simulator.step = 1;
    simulator.breakpoint = simulator.watchpoint = 5;
    recording = {};
    reset_machine();
    const std::string blank(16, ' ');
    EXPECT_EQ(recording.calls, (std::vector<std::string>{"runstop Run ", "status Stopped", "time 0 sec",
                                                         "cursor off", "pc PC 0", "memory", "hex30 0000",
                                                         "hex74 0000", "lcd " + blank + "\n" + blank}));
    record_t after;
    after.take();
    fill_record(0);
    const auto keep = [](void* first, void* last) {
        std::memset(first, 1, static_cast<size_t>(static_cast<char*>(last) - static_cast<char*>(first)));
    };
    // From one field to another, the bytes between them included.
    keep(&machine.memory, &machine.pc);
    keep(&machine.pc + 1, &machine.instr_count);
    keep(&machine.run_start_time, &machine.halted);
    keep(&machine.modified, &machine.led_red);
    keep(&machine.ps2_event + 1, &machine.ps2_events);
    keep(&machine.sdram_ram, machine.sdram_ram + 1024);
    keep(&machine.speaker_current_sample_played + 1, &machine.speaker_samples);
    keep(&machine.microphone_sample_avail + 1, &machine.vga_command);
    keep(&machine.mouse_available, &machine.touch_command);
    keep(&machine.touch_x_private, &machine.touch_x);
    keep(&machine.sd_write, &machine.sd_address);
    keep(&machine.sd_data_write, &machine.sd_data_read);
    keep(&machine.sd_buffer_dirty + 1, &machine.sd_buffer_address);
    keep(&machine.serial_receive_command, &machine.serial_send_command);
    keep(&machine.fft_send_inverse_first, &machine.fft_receive_command);
    keep(&machine.fft_send, &machine.fft_send_count);
    keep(&machine.fft_send_count + 1, &machine.fft_receive_count);
    keep(&machine.camera_ram_valid + 1, &machine.camera_response_instr);
    keep(&machine.loop_look, &machine.serial_state);
    keep(&machine.speaker_batch, &machine.sdram_filled);
    simulator.breakpoint = simulator.watchpoint = 5;
    machine.ps2_pressed.assign(256, false);
    std::memset(machine.lcd_ram, ' ', sizeof machine.lcd_ram);
    machine.speaker_current_sample_played = true;
    machine.mouse_lastx = machine.mouse_lasty = machine.touch_x = machine.touch_y =
        machine.sd_buffer_address = -1;
    std::ranges::generate(machine.sd_buffer, [place = uint64_t{2} << 32]() mutable {
        return static_cast<int32_t>(noise_at(place++));
    });
    machine.fft_receive_count = 1024;
    EXPECT_EQ(after.difference(), "");
    fill_record(0);
    forget_proofs();
    reset_machine();
}

using SavedFile = DeviceTest;

TEST_F(SavedFile, OutlivesAChildOfTheProcess) {
    saved_file_t file(folder / "x");
    EXPECT_EXIT(std::exit(0), testing::ExitedWithCode(0), "");
    EXPECT_NO_THROW(file.close());
}

} // namespace
