#include "core/reference.h"

#include <cassert>
#include <cstdint>
#include <iostream>
#include <string>

#include "base/gui.h"
#include "base/machine.h"
#include "core/interpreter.h"
#include "core/simulate.h"
#include "devices/audio.h"
#include "devices/camera.h"
#include "host/clock.h"
#include "host/sound.h"

namespace {

void execute_and_report() {
    const int32_t start = machine.pc;
    try {
        execute_instruction();
    } catch (const tovik_error& error) {
        gui_message("error at PC " + std::to_string(start) + "\n" + error.message, true);
        simulator.step = 0;
        machine.pc = start;
    } catch (const host_wait_t& wait) {
        machine.pc = start;
        while (!wait.ready(1000)) {
        }
        execute_and_report();
    }
}

int32_t throttle() {
    const uint64_t now = time_ms();
    int32_t delay = 0;
    if (machine.loop_throttle_count < machine.instr_count) {
        const uint64_t instructions = machine.instr_count - machine.loop_throttle_count;
        delay = static_cast<int32_t>(machine.loop_throttle_ms + instructions / 1000000 * 150 - now);
        machine.loop_throttle_ms = delay > 0 ? now + static_cast<uint64_t>(delay) : now;
    }
    machine.loop_throttle_count = machine.instr_count;
    machine.loop_throttle = 0;
    return delay;
}

void keep_books() {
    if (simulator.verbose) {
        std::cout << "PC\t\t\t" << machine.pc << std::endl;
    }
    ++machine.instr_count;
    assert(machine.instr_count != 0);
    if (++machine.loop_audio == 833) {
        advance_audio();
        while (speaker_waits()) {
            playback_room(1000);
        }
        machine.loop_audio = 0;
    }
    if (++machine.loop_camera == 222222) {
        advance_camera_file();
        machine.loop_camera = 0;
    }
    if (++machine.loop_time == 6666666) {
        gui_time_set(std::to_string(static_cast<uint32_t>(machine.instr_count / 1000000) * 150 / 1000) +
                     " sec");
        machine.loop_time = 0;
    }
    int32_t delay = 0;
    if (!simulator.speaker_on && ++machine.loop_throttle == 500000) {
        delay = throttle();
    }
    if (simulator.step > 0) {
        --simulator.step;
    }
    if (machine.halted) {
        gui_status_set("Halted  ");
        simulator.running = false;
    } else if (simulator.step == 0 || simulator.breakpoint == machine.pc) {
        gui_status_set("Stopped");
        simulator.running = false;
    }
    if (!simulator.running) {
        gui_runstop_set("Run ");
        speaker_disconnect();
        print_machine();
    }
    if (delay > 0) {
        wait_ms(delay);
    }
}

} // namespace

void reference_run() {
    machine.loop_look = machine.loop_audio = machine.loop_camera = machine.loop_time = machine.loop_throttle =
        0;
    machine.loop_throttle_ms = time_ms();
    machine.loop_throttle_count = 0;
    print_machine();
    for (;;) {
        if (++machine.loop_look == 100000) {
            while (gui_events_pending()) {
                gui_handle_event();
            }
            machine.loop_look = 0;
        }
        if (!simulator.running) {
            gui_handle_event();
            continue;
        }
        execute_and_report();
        keep_books();
    }
}
