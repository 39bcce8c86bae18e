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

#include <unistd.h>

#include "base/gui.h"
#include "base/machine.h"
#include "base/noise.h"
#include "core/engine.h"
#include "core/memory.h"
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

// Memory was written behind the engine's back.
void tell_engine() { forget_proofs(); }

// What one engine made of a program up to one of its stops.
struct outcome_t {
    record_t record;
    std::vector<std::string> calls;
    std::vector<uint64_t> counts;
    std::vector<uint64_t> looks;
};

std::string call_of(const std::vector<std::string>& texts, const std::vector<uint64_t>& counts, size_t i) {
    if (i >= texts.size()) {
        return "no call";
    }
    std::string call = texts[i];
    return call.append(" at ").append(std::to_string(counts[i]));
}

// Only the first: the framework's own comparison of thousands of calls would take minutes.
std::string first_difference(const std::vector<std::string>& calls, const outcome_t& expected) {
    for (size_t i = 0; i < std::max(calls.size(), expected.calls.size()); ++i) {
        const std::string call = call_of(calls, recording.counts, i);
        const std::string other = call_of(expected.calls, expected.counts, i);
        if (call != other) {
            return std::string(call).append(" instead of ").append(other);
        }
    }
    return "";
}

// A program and what is done to it.
struct session_t {
    random_t events;
    program_t program;
    int stops;
    int long_stop;   // the one that runs up to the looks at the window, or none
    int32_t longest; // its steps
    record_t start;
    bool card; // there is one in the SD card's slot
};

random_t lengths; // of passes

// A front end that owns its loop; where its passes end changes nothing.
void run_in_passes() {
    simulate_begin();
    for (;;) {
        const pass_t pass = simulate_pass(pick(lengths, 1, one_in(lengths, 2) ? 100 : LOOK));
        if (pass.idle) {
            gui_handle_event();
        } else if (pass.sound) {
            playback_room(1);
        } else if (pass.sleep_ms > 0) {
            wait_ms(pass.sleep_ms);
        }
    }
}

bool video_changed = false;

// A command that drew lasts; only a reset forgets it.
void note_video() { video_changed |= machine.vga_response_instr != 0 || machine.camera_response_instr != 0; }

int32_t pick_address(random_t& random, const program_t& program) {
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

void rewrite_memory(random_t& random, const program_t& program) {
    for (int words = pick(random, 1, 6); words > 0; --words) {
        const auto [from, to] = std::array{pick_address(random, program), pick_address(random, program)};
        if (from >= 0 && from < MEMORY_SIZE && to >= 0 && to < MEMORY_SIZE) {
            // Another word of the same program is likely to mean something there.
            machine.memory[to] = one_in(random, 2) ? machine.memory[from] : pick(random, 0, 18);
        }
    }
    tell_engine();
}

void press_or_release_key(random_t& random) {
    const char key = static_cast<char>(pick(random, 'a', 'd'));
    (one_in(random, 2) ? io_ps2_press : io_ps2_release)(key);
}

void use_mouse(random_t& random) {
    (one_in(random, 2) ? io_mouse_press : io_mouse_release)(pick(random, 0, 3));
    io_mouse_motion(pick(random, -5, 700), pick(random, -5, 500));
}

void switch_speaker() { (simulator.speaker_on ? speaker_disconnect : speaker_connect)(); }

void reset(random_t& random) {
    if (one_in(random, 4)) {
        note_video();
        reset_machine();
    }
}

enum act_e {
    TOGGLE,
    KEY,
    MOUSE,
    CONTROL_M,
    SERIAL,
    REWRITE,
    SHOW,
    SPEAKER,
    RESET,
    STOP,
    STEPS,
    BREAKPOINT,
    WATCHPOINT
};

// What a user, or the front end for him, does between two instructions or in a dialog.
void act(random_t& random, const program_t& program, act_e last = WATCHPOINT) {
    switch (pick(random, TOGGLE, last)) {
    case TOGGLE:
        return io_sw_toggle(pick(random, 0, SWITCHES - 1));
    case KEY:
        return press_or_release_key(random);
    case MOUSE:
        return use_mouse(random);
    case SERIAL:
        return io_serial_press(static_cast<char>(pick(random, 0, 127)));
    case REWRITE:
        return rewrite_memory(random, program);
    case SHOW:
        return print_memory();
    case BREAKPOINT:
        simulator.breakpoint = one_in(random, 3) ? -1 : pick_address(random, program);
        return;
    case WATCHPOINT:
        simulator.watchpoint = one_in(random, 3) ? -1 : pick_address(random, program);
        return;
    case STEPS:
        simulator.step = pick(random, -1, 2 * LOOK);
        return;
    case STOP:
        if (one_in(random, 2)) {
            simulator.running = false;
        } else {
            simulator.step = 0;
        }
        return;
    case SPEAKER:
        return switch_speaker();
    case RESET:
        return reset(random);
    default:
        return io_ps2_ctrlm();
    }
}

int32_t pick_steps(random_t& random) {
    switch (pick(random, 0, 9)) {
    case 0:
        return 0;
    case 1:
    case 2:
    case 3:
        return pick(random, 1, 60);
    case 4:
        return pick(random, 3000, 9000);
    default:
        return pick(random, 200, 2500);
    }
}

void set_controls(const session_t& session, random_t& random, int stop) {
    const program_t& program = session.program;
    if (stop == 0 || !one_in(random, 4)) { // or as they were
        simulator.breakpoint = one_in(random, 4) ? pick_address(random, program) : -1;
        simulator.watchpoint = one_in(random, 4) ? pick_address(random, program) : -1;
    }
    if (one_in(random, 30)) {
        simulator.breakpoint = machine.pc;
    }
    simulator.step = pick_steps(random);
    if (stop == session.long_stop) {
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

// Runs the program of the session from its start, stop after stop.
template <typename at_stop_t> void play(const session_t& session, void (*run_loop)(), at_stop_t at_stop) {
    reset_sd();
    session.start.put_back();
    if (session.card) {
        insert_card();
    }
    clear_sdram();
    recording.memory_window = false;
    print_machine();                       // also what the devices remember of the last drawing is as it was
    typed.serial_names = {"/nonexistent"}; // a dialog; after it the console
    host_standin.slept_us = 0;
    video_changed = false;
    tell_engine();

    random_t random = session.events;
    const auto act_sometimes = [&](act_e last) {
        for (int acts = pick(random, 0, 2); acts > 0; --acts) {
            act(random, session.program, last);
        }
    };
    recording.at_message = [&] {
        act_sometimes(WATCHPOINT);
        if (session.longest > USUAL) {
            switch_speaker(); // only such a run shows whether the throttle counted right
        }
    };
    recording.at_look = [&] {
        // Few runs would become longer than usual if the user could stop them.
        act_sometimes(session.longest == USUAL ? WATCHPOINT : SPEAKER);
        if (recording.looks.size() * LOOK >= static_cast<size_t>(session.longest)) {
            simulator.step = 0;
        }
    };
    for (int stop = 0; stop < session.stops && !testing::Test::HasFailure(); ++stop) {
        set_controls(session, random, stop);
        const std::vector<std::string> calls = run_until_stop(run_loop, false);
        note_video();
        at_stop(stop, calls);
        speaker_disconnect(); // after a reset that stopped the run
        if (one_in(random, 3)) {
            act(random, session.program);
        }
        if (one_in(random, 4)) {
            machine.pc = session.program.code + 4 * pick(random, 0, session.program.instructions - 1);
            machine.halted = false;
        }
    }
    speaker_disconnect();
}

// A start for the instruction count, from which nothing that is longest wraps.
uint64_t pick_count(random_t& random, int32_t longest) {
    constexpr uint64_t busy = 1000000; // no device is busy for longer
    const uint64_t last = std::numeric_limits<uint64_t>::max() - busy -
                          uint64_t{MOST_STOPS} * static_cast<uint64_t>(longest + 3 * LOOK);
    const auto near = [&](uint64_t limit) { return limit - static_cast<uint64_t>(pick(random, 0, 5000)); };
    switch (pick(random, 0, 9)) {
    case 0:
        return near(uint64_t{1} << 32);
    case 1:
        return near(uint64_t{1} << 63);
    case 2:
        return near(uint64_t{833} << 31); // the timer becomes negative
    case 3:
        return near(last);
    case 4:
    case 5:
        return static_cast<uint64_t>(pick(random, 0, INT32_MAX));
    default:
        return 0;
    }
}

// Seldom the long runs that see everything that happens every so many instructions.
int32_t pick_longest(random_t& random) {
    if (one_in(random, 5000)) {
        return 7000000;
    }
    return one_in(random, 300) ? THROTTLED : USUAL;
}

void make_session(session_t& session, const program_kind_t& kind, random_t random) {
    static const record_t blank;
    blank.put_back();
    simulate_init();
    reset_machine();
    session.longest = pick_longest(random);
    session.stops = pick(random, 1, MOST_STOPS);
    session.long_stop =
        session.longest > USUAL || one_in(random, 15) ? pick(random, 0, session.stops - 1) : -1;
    machine.instr_count = pick_count(random, session.longest);
    machine.sw = pick(random, 0, 0x3ffff);
    machine.halted = one_in(random, 50);
    machine.camera_ram_valid = one_in(random, 2); // a frame of nobody's film
    session.program = kind.make(random);
    machine.serial_state = session.longest > USUAL || one_in(random, 3) ? DISCONNECTED : WINDOW;
    session.card = machine.sd_command == 0 && one_in(random, 4);
    session.start.take();
    session.events = random;
}

using video_t = decltype(machine.vga_ram);

std::vector<std::byte> video() {
    const auto* const bytes = reinterpret_cast<const std::byte*>(machine.vga_ram);
    return {bytes, bytes + sizeof(video_t)};
}

class Lockstep : public testing::TestWithParam<program_kind_t> {
  protected:
    void SetUp() override {
        recording = {};
        host_standin.on = true;
        std::memset(machine.vga_ram, 0, sizeof(video_t));
        uint64_t place = 0;
        for (auto& row : machine.camera_ram) {
            std::ranges::generate(row, [&] { return static_cast<uint16_t>(noise_at(place++)); });
        }
    }

    void TearDown() override {
        recording = {};
        typed = {};
        host_standin.on = false;
        record_t{}.put_back();
        reset_machine();
        std::remove(card_name.c_str());
        simulate_init();
        pass_over_waiting(true);
        tell_engine();
    }

    void compare(const program_kind_t& kind, uint64_t seed) {
        random_t random{seed << 24}; // no program takes so many numbers
        make_session(session_, kind, random);
        play(session_, reference_run, [&](int stop, const std::vector<std::string>& calls) {
            outcome_t& expected = expected_[static_cast<size_t>(stop)];
            expected.record.take();
            expected.calls = calls;
            expected.counts = recording.counts;
            expected.looks = recording.looks;
        });
        const bool drawn = video_changed;
        const std::vector<std::byte> expected_video = drawn ? video() : std::vector<std::byte>();
        if (drawn) {
            std::memset(machine.vga_ram, 0, sizeof(video_t));
        }

        pass_over_waiting(seed % 4 != 0);
        lengths = random_t{seed << 24};
        const auto run_loop = seed % 3 == 0 ? run_in_passes : simulate_run;
        play(session_, run_loop, [&](int stop, const std::vector<std::string>& calls) {
            const outcome_t& expected = expected_[static_cast<size_t>(stop)];
            EXPECT_EQ(expected.record.difference(), "") << "stop " << stop;
            EXPECT_EQ(first_difference(calls, expected), "") << "stop " << stop;
            EXPECT_EQ(recording.looks, expected.looks) << "stop " << stop;
        });
        if (drawn) {
            EXPECT_TRUE(video() == expected_video);
            std::memset(machine.vga_ram, 0, sizeof(video_t));
        }
    }

  private:
    session_t session_;
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
