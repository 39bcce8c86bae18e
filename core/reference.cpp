#include "core/reference.h"

#include <cassert>
#include <cstdint>
#include <iostream>
#include <string>

#include <unistd.h>

#include "base/gui.h"
#include "base/machine.h"
#include "core/interpreter.h"
#include "core/simulate.h"
#include "devices/audio.h"
#include "devices/camera.h"

namespace {

struct counters_t {
    int32_t events;
    int32_t audio;
    int32_t camera;
    int32_t time_label;
    int32_t throttle;
    uint64_t throttle_reference_ms;
    uint64_t throttle_reference_count;
};

void execute_and_report() {
    const int32_t start = machine.pc;
    try {
        execute_instruction();
    } catch (const tovik_error& error) {
        gui_message("error at PC " + std::to_string(start) + "\n" + error.message, true);
        simulator.step = 0;
        machine.pc = start;
    }
}

void throttle(counters_t& counters) {
    const uint64_t now = time_ms();
    if (counters.throttle_reference_count < machine.instr_count) {
        const uint64_t instructions = machine.instr_count - counters.throttle_reference_count;
        const auto delay =
            static_cast<int32_t>(counters.throttle_reference_ms + instructions / 1000000 * 150 - now);
        if (delay > 0) {
            usleep(static_cast<useconds_t>(delay) * 1000);
            counters.throttle_reference_ms = now + static_cast<uint64_t>(delay);
        } else {
            counters.throttle_reference_ms = now;
        }
    }
    counters.throttle_reference_count = machine.instr_count;
    counters.throttle = 0;
}

void keep_books(counters_t& counters) {
    if (simulator.verbose) {
        std::cout << "PC\t\t\t" << machine.pc << std::endl;
    }
    ++machine.instr_count;
    assert(machine.instr_count != 0);
    if (++counters.audio == 833) {
        advance_audio();
        counters.audio = 0;
    }
    if (++counters.camera == 222222) {
        advance_camera_file();
        counters.camera = 0;
    }
    if (++counters.time_label == 6666666) {
        gui_time_set(std::to_string(static_cast<uint32_t>(machine.instr_count / 1000000) * 150 / 1000) +
                     " sec");
        counters.time_label = 0;
    }
    if (!simulator.speaker_on && ++counters.throttle == 500000) {
        throttle(counters);
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
}

} // namespace

void reference_run() {
    counters_t counters{};
    counters.throttle_reference_ms = time_ms();
    print_machine();
    for (;;) {
        if (++counters.events == 100000) {
            while (gui_events_pending()) {
                gui_handle_event();
            }
            counters.events = 0;
        }
        if (!simulator.running) {
            gui_handle_event();
            continue;
        }
        execute_and_report();
        keep_books(counters);
    }
}
