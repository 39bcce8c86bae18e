#include "core/simulate.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <iostream>
#include <limits>

#include "base/gui.h"
#include "base/machine.h"
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
#include "host/clock.h"
#include "host/sound.h"

namespace {

// One second of the simulated clock, rounded down to a whole number.
constexpr int32_t INSTRUCTIONS_PER_SECOND = 6666666;
constexpr uint32_t MS_PER_MILLION_INSTRUCTIONS = NS_PER_INSTRUCTION;

constexpr int32_t INSTRUCTIONS_PER_THROTTLE_CHECK = 500000;

// What flows comes far sooner. Where it has stopped, the window goes on.
constexpr int HOST_WAIT_MS = 100;

stop_t stop = {};

// The simulated time so far in whole seconds, rounded down at each stage and 32 bits wide.
void show_time() {
    const auto millions = static_cast<uint32_t>(machine.instr_count / 1000000);
    gui_time_set(std::to_string(millions * MS_PER_MILLION_INSTRUCTIONS / 1000) + " sec");
}

// Something that happens every so many instructions.
struct periodic_t {
    int32_t period;              // instructions
    int32_t machine_t::*elapsed; // instructions since it last happened
    void (*act)();
};

// In the order in which they happen when several fall on one instruction.
constexpr std::array<periodic_t, 3> PERIODICS = {
    {{INSTRUCTIONS_PER_AUDIO_TICK, &machine_t::loop_audio, advance_audio},
     {INSTRUCTIONS_PER_FRAME, &machine_t::loop_camera, advance_camera_file},
     {INSTRUCTIONS_PER_SECOND, &machine_t::loop_time, show_time}}};

void handle_events() {
    while (gui_events_pending()) {
        gui_handle_event();
    }
}

void look_at_window() {
    if (++machine.loop_look == TURNS_PER_LOOK) {
        handle_events();
        machine.loop_look = 0;
    }
}

// How many instructions lie before the next thing that must happen after one of them.
int32_t slice_length() {
    if (simulator.verbose || simulator.step == 0 || machine.halted) {
        return 1;
    }
    int32_t length = TURNS_PER_LOOK - machine.loop_look;
    for (const periodic_t& periodic : PERIODICS) {
        length = std::min(length, periodic.period - machine.*periodic.elapsed);
    }
    if (!simulator.speaker_on) {
        length = std::min(length, INSTRUCTIONS_PER_THROTTLE_CHECK - machine.loop_throttle);
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

// Returns for how many milliseconds to sleep.
int32_t check_throttle() {
    const uint64_t now = time_ms();
    int32_t sleep_ms = 0;
    if (machine.loop_throttle_count < machine.instr_count) {
        const uint64_t millions = (machine.instr_count - machine.loop_throttle_count) / 1000000;
        // Divided before it is multiplied, on purpose: at one check every 500000 instructions nothing is
        // ever owed, so a program without sound runs as fast as it can; only the instructions that ran while
        // the sound server set the pace add up to a delay.
        const auto delay_ms =
            static_cast<int32_t>(machine.loop_throttle_ms + millions * MS_PER_MILLION_INSTRUCTIONS - now);
        sleep_ms = std::max(delay_ms, 0);
        machine.loop_throttle_ms = now + static_cast<uint64_t>(sleep_ms);
    }
    machine.loop_throttle_count = machine.instr_count;
    machine.loop_throttle = 0;
    return sleep_ms;
}

// Everything that happens after an instruction, for all instructions of the slice in one go: by the choice
// of its length each of these things can only fall on its last instruction. Returns for how many milliseconds
// to sleep.
int32_t advance_time(const slice_t& slice, bool speaker_was_on) {
    if (simulator.verbose) {
        std::cout << "PC\t\t\t" << machine.pc << std::endl;
    }
    if (slice.faulted) {
        ++machine.instr_count;
    }
    // Reset may have been pressed in a dialog of the instruction that waits.
    assert(machine.instr_count != 0 || slice.wait != nullptr);

    for (const periodic_t& periodic : PERIODICS) {
        int32_t& elapsed = machine.*periodic.elapsed;
        elapsed += slice.executed;
        if (elapsed == periodic.period) {
            periodic.act();
            elapsed = 0;
        }
    }

    // The speaker can only have changed with the last instruction.
    machine.loop_throttle += speaker_was_on ? 0 : slice.executed - 1;
    machine.loop_throttle += simulator.speaker_on ? 0 : 1;
    const bool due = !simulator.speaker_on && machine.loop_throttle == INSTRUCTIONS_PER_THROTTLE_CHECK;
    return due ? check_throttle() : 0;
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
    const bool at_breakpoint = simulator.breakpoint == machine.pc || slice.stopped;
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

} // namespace

void simulate_init() {
    limit_processor_time();
    simulator.verbose = false;
    simulator.breakpoint = -1;
    simulator.watchpoint = -1;
    simulator.step = 0;
}

void simulate_begin() {
    stop = {};
    machine.loop_look = 0;
    for (const periodic_t& periodic : PERIODICS) {
        machine.*periodic.elapsed = 0;
    }
    machine.loop_throttle = 0;
    machine.loop_throttle_ms = time_ms();
    machine.loop_throttle_count = 0;
    print_machine();
}

pass_t simulate_pass(int32_t most) {
    int32_t sleep_ms = 0;
    while (most > 0 && sleep_ms == 0) {
        // A run that is to stop does not wait, so that the user can end one whose sound has stopped.
        if (simulator.step != 0 && speaker_waits()) {
            return {.idle = false, .sleep_ms = 0, .wait = playback_ready};
        }
        look_at_window();
        if (!simulator.running) {
            return {.idle = true, .sleep_ms = 0};
        }
        const bool speaker_was_on = simulator.speaker_on;
        watchpoint_hit = false;
        stop.error.clear();
        const slice_t slice = run_slice(std::min(most, slice_length()));
        most -= slice.executed;
        machine.loop_look += slice.executed - 1;
        if (slice.faulted) {
            show_fault(slice);
        }
        if (slice.executed > 0) {
            sleep_ms = advance_time(slice, speaker_was_on);
        }
        if (slice.executed > 0 || simulator.step == 0) {
            stop_if_due(slice);
        }
        if (slice.wait != nullptr) {
            return {.idle = false, .sleep_ms = sleep_ms, .wait = slice.wait};
        }
    }
    return {.idle = false, .sleep_ms = sleep_ms};
}

void simulate_run() {
    simulate_begin();
    for (;;) {
        const pass_t pass = simulate_pass(std::numeric_limits<int32_t>::max());
        if (pass.idle) {
            gui_handle_event();
        } else if (pass.wait != nullptr && !pass.wait(HOST_WAIT_MS)) {
            handle_events();
        }
        if (pass.sleep_ms > 0) {
            wait_ms(pass.sleep_ms);
        }
    }
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
