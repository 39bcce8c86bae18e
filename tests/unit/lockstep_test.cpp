// Random programs on the engine that ships and on the reference, with a user who does random things: after
// each stop the whole machine record, all that the window was asked to show, and when, must be the same.
//
// TOVIK_LOCKSTEP_PROGRAMS sets how many programs run (default 100000, shared out among the kinds),
// TOVIK_LOCKSTEP_SEED the seed of the first of each kind. A failure names kind and seed of its program.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "base/gui.h"
#include "base/machine.h"
#include "base/noise.h"
#include "core/engine.h"
#include "core/reference.h"
#include "core/simulate.h"
#include "devices/audio.h"
#include "devices/io.h"
#include "devices/ledswitchtimer.h"
#include "devices/mouse.h"
#include "devices/ps2.h"
#include "devices/sd.h"
#include "devices/sdram.h"
#include "devices/serial.h"
#include "host/clock.h"
#include "host/sound.h"
#include "tests/support/bus.h"
#include "tests/support/gui_recording.h"
#include "tests/support/host_standin.h"
#include "tests/support/random_programs.h"
#include "tests/support/record.h"

namespace {

constexpr int MOST_STOPS = 4;
constexpr int32_t LOOK = 100000; // instructions between two looks at the window

// The longest runs, in instructions: beyond a frame of the camera, beyond a check of the throttle.
constexpr int32_t USUAL = 230000;
constexpr int32_t THROTTLED = 560000;

uint64_t setting(const char* name, uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 0);
}

// The program that is tried, and what is done to it.
struct session_t {
    random_t random; // as the next act finds it
    program_t program;
    int stops;
    int long_stop;   // the one that runs up to the looks at the window, or none
    int32_t longest; // its steps
    bool card;       // there is one in the SD card's slot
};

session_t session;

// What one engine made of the program up to one of its stops.
struct outcome_t {
    record_t record;
    std::vector<std::string> calls;
    std::vector<uint64_t> counts;
};

// Only the first: the framework's own comparison of thousands of calls would take minutes.
std::string first_difference(const outcome_t& expected) {
    const auto call_of = [](const auto& texts, const auto& counts, size_t i) {
        return i < texts.size() ? texts[i] + " at " + std::to_string(counts[i]) : "no call";
    };
    for (size_t i = 0; i < std::max(recording.calls.size(), expected.calls.size()); ++i) {
        const std::string other = call_of(expected.calls, expected.counts, i);
        if (std::string call = call_of(recording.calls, recording.counts, i); call != other) {
            return call.append(" instead of ").append(other);
        }
    }
    return "";
}

random_t lengths; // of passes

// A front end that owns its loop; where its passes end changes nothing.
void run_in_passes() {
    simulate_begin();
    for (;;) {
        const pass_t pass = simulate_pass(pick(lengths, 1, one_in(lengths, 2) ? 100 : LOOK));
        if (pass.idle) {
            gui_handle_event();
        } else if (pass.wait != nullptr) {
            pass.wait(1);
        } else if (pass.sleep_ms > 0) {
            wait_ms(pass.sleep_ms);
        }
    }
}

// Megabytes, compared only where they may have changed.
bool video_changed = false;

// A command that drew lasts; only a reset forgets it.
void note_video() { video_changed |= machine.vga_response_instr != 0 || machine.camera_response_instr != 0; }

int32_t pick_address(random_t& random) {
    const program_t& program = session.program;
    const int32_t instruction = program.code + 4 * pick(random, 0, program.instructions - 1);
    switch (pick(random, 0, 7)) {
    case 0:
        return pick_wild(random);
    case 1:
        return program.data + pick(random, 0, program.words - 1);
    case 2:
        return program.code + pick(random, 0, 4 * program.instructions);
    case 3:
    case 4: // what an instruction names
        return machine.memory[(instruction + pick(random, 1, 3)) % MEMORY_SIZE];
    default:
        return instruction;
    }
}

void rewrite_memory(random_t& random) {
    for (int words = pick(random, 1, 6); words > 0; --words) {
        const auto [from, to] = std::array{pick_address(random), pick_address(random)};
        if (from >= 0 && from < MEMORY_SIZE && to >= 0 && to < MEMORY_SIZE) {
            // Another word of the same program is likely to mean something there.
            machine.memory[to] = one_in(random, 2) ? machine.memory[from] : pick(random, 0, 18);
        }
    }
    forget_proofs();
}

void switch_speaker() { (simulator.speaker_on ? speaker_disconnect : speaker_connect)(); }

// What a user, or the front end for him, does between two instructions or in a dialog.
constexpr void (*ACTS[])(random_t& random) = {
    [](random_t& random) { io_sw_toggle(pick(random, 0, SWITCHES - 1)); },
    [](random_t& random) { io_ps2_press(static_cast<char>(pick(random, 'a', 'd'))); },
    [](random_t& random) { io_ps2_release(static_cast<char>(pick(random, 'a', 'd'))); },
    [](random_t& random) {
        (one_in(random, 2) ? io_mouse_press : io_mouse_release)(pick(random, 0, 3));
        io_mouse_motion(pick(random, -5, 700), pick(random, -5, 500));
    },
    [](random_t& /*random*/) { io_ps2_ctrlm(); },
    [](random_t& random) { io_serial_press(static_cast<char>(pick(random, 0, 127))); }, rewrite_memory,
    [](random_t& /*random*/) { print_memory(); }, [](random_t& /*random*/) { switch_speaker(); },
    // From here on they may end a run.
    [](random_t& random) {
        if (one_in(random, 4)) {
            note_video();
            reset_machine();
        }
    },
    [](random_t& random) { simulator.running = simulator.running && one_in(random, 2); },
    [](random_t& random) { simulator.step = one_in(random, 3) ? 0 : pick(random, -1, 2 * LOOK); },
    [](random_t& random) { simulator.breakpoint = one_in(random, 3) ? -1 : pick_address(random); },
    [](random_t& random) { simulator.watchpoint = one_in(random, 3) ? -1 : pick_address(random); }};
constexpr int32_t ALL_ACTS = std::size(ACTS);
constexpr int32_t HARMLESS_ACTS = 9;

void act(int32_t acts) { ACTS[pick(session.random, 0, acts - 1)](session.random); }

void act_sometimes(int32_t acts) {
    for (int times = pick(session.random, 0, 2); times > 0; --times) {
        act(acts);
    }
}

void set_controls(bool first, bool is_long) {
    random_t& random = session.random;
    if (first || !one_in(random, 4)) { // or as they were
        simulator.breakpoint = one_in(random, 4) ? pick_address(random) : -1;
        simulator.watchpoint = one_in(random, 4) ? pick_address(random) : -1;
    }
    if (one_in(random, 30)) {
        simulator.breakpoint = machine.pc;
    }
    constexpr int32_t ranges[][2] = {{0, 0}, {3000, 9000}, {1, 60}, {1, 60}, {1, 10}, {200, 2500}};
    const auto& [lowest, highest] = ranges[std::min(pick(random, 0, 9), 5)];
    simulator.step = pick(random, lowest, highest);
    if (is_long) {
        simulator.step =
            one_in(random, 2) ? pick(random, INT32_MIN, -1) : pick(random, LOOK, session.longest);
        simulator.breakpoint = one_in(random, 5) ? simulator.breakpoint : -1;
        simulator.watchpoint = one_in(random, 5) ? simulator.watchpoint : -1;
    }
    if (one_in(random, session.longest > USUAL ? 2 : 10)) { // a dialog may then close it
        speaker_connect();
    }
    recording.memory_window = one_in(random, 3);
}

const std::string card_name = testing::TempDir() + "tovik-card-" + std::to_string(getpid());

// A block and a part of another, always the same; the part is in the buffer, and the card ready.
void insert_card() {
    constexpr size_t words = 200;
    std::ofstream(card_name, std::ios::binary)
        .write(reinterpret_cast<const char*>(machine.memory + 900), words * sizeof(int32_t));
    typed.chosen_file = card_name;
    machine.sd_address = 128;
    for (const int32_t command : {1, 0}) {
        io(true, IO_BASE + 0x80, command);
    }
    machine.sd_response_instr = machine.instr_count;
    typed.chosen_file.clear();
}

// What was drawn, as a number. The video memory is cleared for the next.
size_t take_video() {
    constexpr size_t bytes = sizeof machine.vga_ram;
    const std::string_view video(reinterpret_cast<const char*>(machine.vga_ram), bytes);
    const size_t hash = video_changed ? std::hash<std::string_view>{}(video) : 0;
    std::memset(machine.vga_ram, 0, video_changed ? bytes : 0);
    return hash;
}

// Runs the program from its start, stop after stop, and returns what it drew.
template <typename at_stop_t> size_t play(const record_t& start, void (*run_loop)(), at_stop_t at_stop) {
    reset_sd();
    start.put_back();
    if (session.card) {
        insert_card();
    }
    clear_sdram();
    recording.memory_window = false;
    print_machine();                       // also what the devices remember of the last drawing is as it was
    typed.serial_names = {"/nonexistent"}; // a dialog; after it the console
    host_standin.slept_ms = 0;
    video_changed = false;
    forget_proofs();

    const random_t before = session.random;
    int32_t looks = 0;
    recording.at_message = [] {
        act_sometimes(ALL_ACTS);
        if (session.longest > USUAL) {
            switch_speaker(); // only such a run shows whether the throttle counted right
        }
    };
    recording.at_look = [&looks] {
        // Few runs would become longer than usual if the user could stop them.
        act_sometimes(session.longest == USUAL ? ALL_ACTS : HARMLESS_ACTS);
        if (++looks * LOOK >= session.longest) {
            simulator.step = 0;
        }
    };
    for (int stop = 0; stop < session.stops && !testing::Test::HasFailure(); ++stop) {
        set_controls(stop == 0, stop == session.long_stop);
        looks = 0;
        run_until_stop(run_loop, false);
        note_video();
        at_stop(stop);
        speaker_disconnect(); // after a reset that stopped the run
        if (one_in(session.random, 2)) {
            act(ALL_ACTS);
        }
        if (one_in(session.random, 4)) {
            machine.pc = session.program.code + 4 * pick(session.random, 0, session.program.instructions - 1);
            machine.halted = false;
        }
    }
    speaker_disconnect();
    session.random = before;
    return take_video();
}

// A start for the instruction count, from which nothing that is longest wraps.
uint64_t pick_count(random_t& random, int32_t longest) {
    constexpr uint64_t busy = 1000000; // no device is busy for longer
    const uint64_t last = std::numeric_limits<uint64_t>::max() - busy -
                          uint64_t{MOST_STOPS} * static_cast<uint64_t>(longest + 3 * LOOK);
    // The timer becomes negative at the third.
    const std::array limits = {uint64_t{1} << 32, uint64_t{1} << 63, uint64_t{833} << 31, last};
    if (one_in(random, 3)) {
        return pick_from(random, limits) - static_cast<uint64_t>(pick(random, 0, 5000));
    }
    return one_in(random, 3) ? static_cast<uint64_t>(pick(random, 0, INT32_MAX)) : 0;
}

void make_session(const program_kind_t& kind, random_t random) {
    fill_record(0);
    simulate_init();
    reset_machine();
    // Seldom the long runs that see everything that happens every so many instructions.
    session.longest = one_in(random, 5000) ? 7000000 : one_in(random, 300) ? THROTTLED : USUAL;
    session.stops = pick(random, 1, MOST_STOPS);
    const bool is_long = session.longest > USUAL;
    session.long_stop = is_long || one_in(random, 15) ? pick(random, 0, session.stops - 1) : -1;
    machine.instr_count = pick_count(random, session.longest);
    machine.sw = pick(random, 0, 0x3ffff);
    machine.halted = one_in(random, 50);
    machine.camera_ram_valid = one_in(random, 2); // a frame of nobody's film
    session.program = kind.make(random);
    machine.serial_state = is_long || one_in(random, 3) ? DISCONNECTED : WINDOW;
    session.card = machine.sd_command == 0 && one_in(random, 4);
    session.random = random;
}

class Lockstep : public DeviceTest, public testing::WithParamInterface<program_kind_t> {
  protected:
    void SetUp() override {
        DeviceTest::SetUp();
        host_standin.has_sound = true;
        video_changed = true;
        take_video();
        uint64_t place = 0;
        for (auto& row : machine.camera_ram) {
            std::ranges::generate(row, [&] { return static_cast<uint16_t>(noise_at(place++)); });
        }
    }

    void TearDown() override {
        DeviceTest::TearDown();
        recording = {};
        host_standin = {};
        std::remove(card_name.c_str());
        simulate_init();
        pass_over_waiting(true);
    }

    void compare(const program_kind_t& kind, uint64_t seed) {
        make_session(kind, {seed << 24}); // no program takes so many numbers
        start_.take();
        const size_t expected_video = play(start_, reference_run, [&](int stop) {
            outcome_t& expected = expected_[static_cast<size_t>(stop)];
            expected.record.take();
            expected.calls = recording.calls;
            expected.counts = recording.counts;
        });
        pass_over_waiting(seed % 4 != 0);
        lengths = random_t{seed << 24};
        const size_t video = play(start_, seed % 3 == 0 ? run_in_passes : simulate_run, [&](int stop) {
            const outcome_t& expected = expected_[static_cast<size_t>(stop)];
            EXPECT_EQ(expected.record.difference(), "") << "stop " << stop;
            EXPECT_EQ(first_difference(expected), "") << "stop " << stop;
        });
        EXPECT_EQ(video, expected_video);
    }

  private:
    record_t start_;
    std::array<outcome_t, MOST_STOPS> expected_;
};

TEST_P(Lockstep, Programs) {
    const program_kind_t& kind = GetParam();
    const uint64_t first_seed = setting("TOVIK_LOCKSTEP_SEED", std::random_device{}());
    const uint64_t all = setting("TOVIK_LOCKSTEP_PROGRAMS", 100000);
    const uint64_t programs = std::max(all * static_cast<uint64_t>(kind.percent) / 100, uint64_t{1});
    std::cout << kind.name << ": first seed " << first_seed << ", " << programs << " programs" << std::endl;
    for (uint64_t seed = first_seed; seed < first_seed + programs; ++seed) {
        compare(kind, seed);
        ASSERT_FALSE(HasFailure()) << kind.name << ", seed " << seed;
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, Lockstep, testing::ValuesIn(PROGRAM_KINDS),
                         [](const auto& kind) { return kind.param.name; });

} // namespace
