#include "core/simulate.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <string_view>

#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include "base/gui.h"
#include "base/machine.h"
#include "base/saved_file.h"
#include "core/engine.h"
#include "core/memory.h"
#include "devices/audio.h"
#include "devices/camera.h"
#include "devices/fft.h"
#include "devices/lcd.h"
#include "devices/ledswitchtimer.h"
#include "devices/mouse.h"
#include "devices/ps2.h"
#include "devices/sd.h"
#include "devices/sdram.h"
#include "devices/serial.h"
#include "devices/touch.h"
#include "devices/vga.h"

namespace {

// Passes of the run loop, one an instruction, between two looks at the window.
constexpr int32_t PASSES_PER_LOOK = 100000;

// One second of the simulated clock, rounded down to a whole number.
constexpr int32_t INSTRUCTIONS_PER_SECOND = 6666666;
constexpr uint32_t MS_PER_MILLION_INSTRUCTIONS = NS_PER_INSTRUCTION;

constexpr int32_t INSTRUCTIONS_PER_THROTTLE_CHECK = 500000;

constexpr rlim_t CPU_LIMIT_SECONDS = 18000;
constexpr rlim_t CPU_GRACE_SECONDS = 10;

stop_t stop = {};

// Something that happens every so many instructions.
struct periodic_t {
    int32_t period;  // instructions
    int32_t elapsed; // instructions since it last happened
    void (*act)();
};

// The simulated time so far in whole seconds, rounded down at each stage and 32 bits wide.
void show_time() {
    const auto millions = static_cast<uint32_t>(machine.instr_count / 1000000);
    gui_time_set(std::to_string(millions * MS_PER_MILLION_INSTRUCTIONS / 1000) + " sec");
}

struct throttle_t {
    int32_t elapsed; // instructions, with the speaker off, since the last check
    uint64_t reference_ms;
    uint64_t reference_count;
};

struct run_loop_t {
    int32_t passes; // through the top of the loop since the last look at the window
    // In the order in which they happen when several fall on one instruction.
    std::array<periodic_t, 3> periodics;
    throttle_t throttle;
};

void look_at_window(run_loop_t& loop) {
    if (++loop.passes == PASSES_PER_LOOK) {
        while (gui_events_pending()) {
            gui_handle_event();
        }
        loop.passes = 0;
    }
}

// How many instructions lie before the next thing that must happen after one of them.
int32_t slice_length(const run_loop_t& loop) {
    if (simulator.verbose || simulator.step == 0 || machine.halted) {
        return 1;
    }
    int32_t length = PASSES_PER_LOOK - loop.passes;
    for (const periodic_t& periodic : loop.periodics) {
        length = std::min(length, periodic.period - periodic.elapsed);
    }
    if (!simulator.speaker_on) {
        length = std::min(length, INSTRUCTIONS_PER_THROTTLE_CHECK - loop.throttle.elapsed);
    }
    if (simulator.step > 0) {
        length = std::min(length, simulator.step);
    }
    const uint64_t before_wrap = std::numeric_limits<uint64_t>::max() - machine.instr_count;
    if (before_wrap < static_cast<uint64_t>(length)) {
        length = static_cast<int32_t>(before_wrap) + 1;
    }
    return length;
}

void show_fault(const slice_t& slice) {
    stop.error = "error at PC " + std::to_string(machine.pc) + "\n" + slice.fault;
    const int32_t start = machine.pc;
    gui_message(stop.error, true);
    simulator.step = 0;
    machine.pc = start;
}

void check_throttle(throttle_t& throttle) {
    const uint64_t now = time_ms();
    if (throttle.reference_count < machine.instr_count) {
        const uint64_t millions = (machine.instr_count - throttle.reference_count) / 1000000;
        // Divided before it is multiplied, on purpose: at one check every 500000 instructions nothing is
        // ever owed, so a program without sound runs as fast as it can; only the instructions that ran while
        // the sound server set the pace add up to a delay.
        const auto delay_ms =
            static_cast<int32_t>(throttle.reference_ms + millions * MS_PER_MILLION_INSTRUCTIONS - now);
        if (delay_ms > 0) {
            usleep(static_cast<useconds_t>(delay_ms) * 1000);
            throttle.reference_ms = now + static_cast<uint64_t>(delay_ms);
        } else {
            throttle.reference_ms = now;
        }
    }
    throttle.reference_count = machine.instr_count;
    throttle.elapsed = 0;
}

// Everything that happens after an instruction, for all instructions of the slice in one go: by the choice
// of its length each of these things can only fall on its last instruction.
void advance_time(run_loop_t& loop, const slice_t& slice, bool speaker_was_on) {
    if (simulator.verbose) {
        std::cout << "PC\t\t\t" << machine.pc << std::endl;
    }
    if (slice.faulted) {
        ++machine.instr_count;
    }
    assert(machine.instr_count != 0);

    for (periodic_t& periodic : loop.periodics) {
        periodic.elapsed += slice.executed;
        if (periodic.elapsed == periodic.period) {
            periodic.act();
            periodic.elapsed = 0;
        }
    }

    // The speaker can only have changed with the last instruction.
    loop.throttle.elapsed += speaker_was_on ? 0 : slice.executed - 1;
    loop.throttle.elapsed += simulator.speaker_on ? 0 : 1;
    if (!simulator.speaker_on && loop.throttle.elapsed == INSTRUCTIONS_PER_THROTTLE_CHECK) {
        check_throttle(loop.throttle);
    }
}

stop_reason_e reason_to_stop(bool faulted, bool at_breakpoint, bool steps_done) {
    if (faulted) {
        return stop_reason_e::ERROR;
    }
    if (machine.halted) {
        return stop_reason_e::HALT;
    }
    if (at_breakpoint) {
        return stop_reason_e::BREAKPOINT;
    }
    if (watchpoint_hit) {
        return stop_reason_e::WATCHPOINT;
    }
    return steps_done ? stop_reason_e::STEPS : stop_reason_e::STOPPED;
}

// Counts the step of the slice's last instruction and stops the run if it is over.
void stop_if_due(const slice_t& slice) {
    const bool counting = simulator.step > 0;
    if (counting) {
        --simulator.step;
    }
    const bool at_breakpoint = simulator.breakpoint == machine.pc;
    if (machine.halted || simulator.step == 0 || at_breakpoint) {
        gui_status_set(machine.halted ? "Halted  " : "Stopped");
        simulator.running = false;
    }
    if (simulator.running) {
        return;
    }
    stop.reason = reason_to_stop(slice.faulted, at_breakpoint, counting && simulator.step == 0);
    gui_runstop_set("Run ");
    speaker_disconnect();
    print_machine();
}

// Ends the process as the system would have done.
extern "C" void end_at_processor_time_limit(int signal) {
    constexpr std::string_view message = "processor time limit reached\n";
    // If nobody can be told, it ends all the same.
    [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, message.data(), message.size());
    remove_new_files();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

} // namespace

void simulate_init() {
    rlimit limit{};
    if (getrlimit(RLIMIT_CPU, &limit) != 0) {
        std::cout << "error: getrlimit failed" << std::endl;
        std::perror("getrlimit");
        std::exit(1);
    }
    // RLIM_INFINITY is the greatest rlim_t, so the comparisons hold for it too.
    limit.rlim_cur = std::min(limit.rlim_cur, CPU_LIMIT_SECONDS);
    limit.rlim_max = std::min(limit.rlim_max, limit.rlim_cur + CPU_GRACE_SECONDS);
    if (setrlimit(RLIMIT_CPU, &limit) != 0) {
        std::cout << "error: setrlimit failed" << std::endl;
        std::perror("setrlimit");
        std::exit(1);
    }
    std::signal(SIGXCPU, end_at_processor_time_limit);
    simulator.verbose = false;
    simulator.breakpoint = -1;
    simulator.watchpoint = -1;
    simulator.step = 0;
}

void simulate_run() {
    run_loop_t loop = {
        .passes = 0,
        .periodics = {{{INSTRUCTIONS_PER_AUDIO_TICK, 0, advance_audio},
                       {INSTRUCTIONS_PER_FRAME, 0, advance_camera_file},
                       {INSTRUCTIONS_PER_SECOND, 0, show_time}}},
        .throttle = {.elapsed = 0, .reference_ms = time_ms(), .reference_count = 0},
    };
    print_machine();
    for (;;) {
        look_at_window(loop);
        if (!simulator.running) {
            gui_handle_event();
            continue;
        }
        const bool speaker_was_on = simulator.speaker_on;
        watchpoint_hit = false;
        stop.error.clear();
        const slice_t slice = run_slice(slice_length(loop));
        loop.passes += slice.executed - 1;
        if (slice.faulted) {
            show_fault(slice);
        }
        advance_time(loop, slice, speaker_was_on);
        stop_if_due(slice);
    }
}

uint64_t time_ms() {
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) {
        std::perror("gettimeofday");
        std::exit(1);
    }
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

void reset_machine() {
    simulator.step = 0;
    simulator.running = false;
    machine.halted = false;
    gui_runstop_set("Run ");
    gui_status_set("Stopped");
    gui_time_set("0 sec");
    machine.pc = 0;
    machine.instr_count = 0;
    reset_led();
    reset_hex30();
    reset_hex74();
    reset_lcd();
    reset_sdram();
    reset_speaker();
    reset_microphone();
    reset_vga();
    reset_ps2();
    reset_mouse();
    reset_touch();
    reset_sd();
    reset_serial();
    reset_fft();
    reset_camera();
    print_machine();
}

void print_machine() {
    print_pc();
    print_memory();
    print_led_red();
    print_led_green();
    print_hex30();
    print_hex74();
    print_lcd();
}

void print_pc() { gui_pc_set("PC " + std::to_string(machine.pc)); }

const stop_t& last_stop() { return stop; }
