// Random programs with a user who does random things, and then a way back and forth in their history: at each
// moment the board must be what it was there when it ran straight on.
//
// TOVIK_HISTORY_PROGRAMS sets how many programs run (default 2000, shared out among the kinds),
// TOVIK_LOCKSTEP_SEED the seed of the first of each kind. A failure names kind and seed of its program.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

#include "base/gui.h"
#include "base/machine.h"
#include "core/engine.h"
#include "core/simulate.h"
#include "core/stops.h"
#include "debugger/history.h"
#include "devices/io.h"
#include "devices/ledswitchtimer.h"
#include "devices/mouse.h"
#include "devices/ps2.h"
#include "devices/sdram.h"
#include "devices/serial.h"
#include "devices/vga.h"
#include "host/journal.h"
#include "tests/support/bus.h"
#include "tests/support/gui_recording.h"
#include "tests/support/host_standin.h"
#include "tests/support/random_programs.h"
#include "tests/support/record.h"

namespace {

uint64_t setting(const char* name, uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 0);
}

// A moment of the straight run.
struct station_t {
    moment_t moment;
    record_t record;
    uint64_t pictures; // a number for all that is too large to keep
    std::string card;
};

const std::string card_name = testing::TempDir() + "tovik-history-card-" + std::to_string(getpid());

// A block far behind the others makes a card of gigabytes that holds nothing else.
std::string read_card() {
    constexpr std::streamoff END = 65536;
    std::ifstream file(card_name, std::ios::binary | std::ios::ate);
    const std::streamoff size = file.tellg();
    std::string content = std::to_string(size);
    for (const std::streamoff begin : {std::streamoff{0}, std::max(END, size - END)}) {
        std::string part(END, '\0');
        file.clear();
        file.seekg(begin).read(part.data(), END);
        content += part.substr(0, static_cast<size_t>(file.gcount()));
    }
    return content;
}

// A number for some bytes, made as fast as they can be read.
uint64_t sum_of(const void* bytes, size_t size) {
    uint64_t sum = 0;
    for (size_t i = 0; i < size; i += sizeof sum) {
        uint64_t word = 0;
        std::memcpy(&word, static_cast<const char*>(bytes) + i, sizeof word);
        sum += (word ^ i) * 0x9e3779b97f4a7c15;
    }
    return sum;
}

uint64_t sum_of_pictures() {
    vga_settle();
    uint64_t sum = 0;
    for (size_t page = 0; page < machine.sdram_filled.size(); ++page) {
        if (machine.sdram_filled[page]) {
            sum = 31 * sum + sum_of(machine.sdram_ram + page * 1024, 4096);
        }
    }
    // Megabytes, and few programs draw.
    if (machine.vga_response_instr == 0 && machine.camera_response_instr == 0) {
        return sum;
    }
    return sum + sum_of(machine.vga_ram, sizeof machine.vga_ram) +
           3 * sum_of(machine.vga_last, sizeof machine.vga_last) +
           5 * sum_of(machine.vga_picture, sizeof machine.vga_picture) +
           7 * sum_of(machine.camera_ram, sizeof machine.camera_ram);
}

// Some controls are the debugger's and not the board's; and a page of the SDRAM without its noise has no
// content.
void settle() {
    simulator.running = false;
    simulator.step = -1;
    if (!machine.sdram_filled[0]) {
        std::fill_n(machine.sdram_ram, 1024, 0);
    }
}

station_t station() {
    settle();
    station_t here = {history_now(), {}, sum_of_pictures(), read_card()};
    here.record.take();
    return here;
}

void poke(int32_t address, int32_t value) {
    machine.memory[address % MEMORY_SIZE] = value;
    forget_proofs();
}

// What a user does, chosen before it is done, so that it is the same when it is done again.
std::function<void()> pick_act(random_t& random, const program_t& program) {
    const int32_t some = pick(random, 0, 1000);
    const int32_t other = pick(random, 0, 1000);
    switch (pick(random, 0, 8)) {
    case 0:
        return [=] { io_sw_toggle(some % SWITCHES); };
    case 1:
        return [=] { io_ps2_press(static_cast<char>('a' + some % 4)); };
    case 2:
        return [=] { io_ps2_release(static_cast<char>('a' + some % 4)); };
    case 3:
        return [=] {
            (some % 2 == 0 ? io_mouse_press : io_mouse_release)(other % 4);
            io_mouse_motion(some, other);
        };
    case 4:
        return [=] { io_serial_press(static_cast<char>(some % 128)); };
    case 5:
        return [=] { io_ps2_ctrlm(); };
    case 6:
        return some % 4 != 0 ? std::function<void()>([] {}) : [] { reset_machine(); };
    case 7:
        return [=] { poke(program.code + some % (4 * program.instructions), some % 19); };
    default:
        return [=] {
            machine.pc = program.code + 4 * (some % program.instructions);
            machine.halted = false;
        };
    }
}

void run_for(int32_t instructions) {
    const moment_t end = history_now() + static_cast<moment_t>(instructions);
    while (history_now() < end && !machine.halted) {
        const pass_t pass = history_run(static_cast<int32_t>(end - history_now()));
        if (pass.wait != nullptr) {
            pass.wait(1);
        }
        if (last_stop().reason == stop_reason_e::ERROR && pass.idle) {
            return;
        }
    }
}

class History : public DeviceTest, public testing::WithParamInterface<program_kind_t> {
  protected:
    void TearDown() override {
        history_end();
        DeviceTest::TearDown();
        recording = {};
        host_standin = {};
        typed = {};
        std::remove(card_name.c_str());
        simulate_init();
    }
};

void expect_station(const station_t& expected) {
    settle();
    ASSERT_EQ(history_now(), expected.moment);
    ASSERT_EQ(expected.record.difference(), "");
    ASSERT_EQ(sum_of_pictures(), expected.pictures);
}

void run_straight(random_t& random, const program_t& program, std::vector<station_t>& stations) {
    for (int stops = pick(random, 2, 8); stops > 0; --stops) {
        run_for(one_in(random, 20) ? pick(random, 100000, 500000) : pick(random, 1, 4000));
        if (!stations.empty() && stations.back().moment == history_now()) {
            stations.pop_back();
        }
        stations.push_back(station());
        for (int acts = pick(random, 0, 2); acts > 0; --acts) {
            history_act(pick_act(random, program));
            stations.back() = station();
        }
    }
}

void try_program(const program_kind_t& kind, random_t random) {
    fill_record(0);
    clear_sdram();
    simulate_init();
    reset_machine();
    machine.serial_state = one_in(random, 3) ? DISCONNECTED : WINDOW;
    const program_t program = kind.make(random);
    forget_proofs();
    std::ofstream(card_name, std::ios::binary)
        .write(reinterpret_cast<const char*>(machine.memory + 900), 800);
    typed.chosen_file = one_in(random, 2) ? card_name : "";
    typed.only_once = true; // a card, or no movie and no recording
    typed.serial_names = {"/nonexistent"};
    host_standin.stopwatch_step_us = pick(random, 1, 30000);
    // Now and then so little room that most copies go.
    history_begin(one_in(random, 4) ? size_t{6} << 20 : MOST_HISTORY_BYTES);
    std::vector<station_t> stations;
    run_straight(random, program, stations);
    for (int futures = pick(random, 1, 3); futures > 0; --futures) {
        for (int ways = pick(random, 1, 4); ways > 0; --ways) {
            const station_t& there = pick_from(random, stations);
            if (one_in(random, 3)) {
                const int32_t newest = static_cast<int32_t>(history_newest());
                finish(history_go_to(static_cast<moment_t>(pick(random, 0, newest))));
            }
            if (there.moment >= history_first()) {
                finish(history_go_to(there.moment));
                expect_station(there);
            }
            if (testing::Test::HasFatalFailure()) {
                return;
            }
        }
        // The future begins anew.
        const moment_t now = history_now();
        const auto here = std::ranges::find(stations, now, &station_t::moment);
        const std::string card = here == stations.end() ? "" : here->card;
        std::erase_if(stations, [&](const station_t& later) { return later.moment >= now; });
        const std::string later = read_card();
        const bool card_goes_back = !one_in(random, 3);
        history_act(pick_act(random, program), card_goes_back);
        ASSERT_EQ(read_card(), !card_goes_back ? later : card.empty() ? read_card() : card);
        stations.push_back(station());
        run_straight(random, program, stations);
    }
}

TEST_P(History, IsExactBackAndForth) {
    const program_kind_t& kind = GetParam();
    const uint64_t programs =
        setting("TOVIK_HISTORY_PROGRAMS", 2000) * static_cast<uint64_t>(kind.percent) / 100;
    const uint64_t first = setting("TOVIK_LOCKSTEP_SEED", std::random_device{}());
    for (uint64_t seed = first; seed < first + programs && !HasFatalFailure(); ++seed) {
        SCOPED_TRACE(std::string(kind.name) + ", seed " + std::to_string(seed));
        try_program(kind, {seed << 20});
        if (HasFatalFailure()) {
            return;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Programs, History, testing::ValuesIn(PROGRAM_KINDS),
                         [](const auto& of) { return std::string(of.param.name); });

// The front end counts by them which file it gives next.
TEST(Journal, KeepsTheNewestOfEachDoor) {
    journal_begin();
    journal_note(door_e::QUESTION, 1);
    journal_note(door_e::QUESTION, 2);
    journal_note(door_e::LINE, 3);
    journal_forget_before(journal_mark());
    EXPECT_EQ(journal_last(door_e::QUESTION)->value, 2);
    EXPECT_EQ(journal_last(door_e::RECORDING), nullptr);
    journal_end();
}

} // namespace
