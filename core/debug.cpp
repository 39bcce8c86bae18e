#include "core/debug.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "assembler/assemble.h"
#include "base/gui.h"
#include "base/machine.h"
#include "core/engine.h"
#include "core/loader.h"
#include "devices/audio.h"
#include "devices/camera.h"

namespace {

// What the file button shows until a file is chosen.
const std::string NO_FILE = "Choose assembly file";

// The source to work on; NO_FILE when the user would not choose one.
std::string chosen_file() {
    if (gui_assemble_file_get() == NO_FILE) {
        debug_assemble_choose();
    }
    return gui_assemble_file_get();
}

// A number at the start of the text, after blanks; 0 when there is none. Beyond the range of 32 bits the
// nearest.
int32_t parse_entry(const std::string& text) {
    const long long number = std::strtoll(text.c_str(), nullptr, 10);
    return static_cast<int32_t>(std::clamp<long long>(number, INT32_MIN, INT32_MAX));
}

void read_steps() {
    simulator.step = parse_entry(gui_steps_get());
    if (simulator.step < 1) {
        simulator.step = -1;
        gui_steps_set("");
    } else {
        gui_steps_set(std::to_string(simulator.step));
    }
}

// An entry for an address: -1 when it is empty or negative; a text that is no number is the address 0.
int32_t read_address(std::string (*get)(), void (*set)(std::string)) {
    const std::string text = get();
    const int32_t address = text.empty() || text.front() == '\n' ? -1 : parse_entry(text);
    if (address < 0) {
        set("");
        return -1;
    }
    set(std::to_string(address));
    return address;
}

} // namespace

void debug_assemble_choose() {
    std::string name = gui_assemble_file_get();
    if (name == NO_FILE) {
        name.clear();
    }
    if (!gui_choosefile(false, NO_FILE, "K24 assembly file", "k", name)) {
        return;
    }
    if (!name.ends_with(".k")) {
        gui_message("unexpected error: " + name + " doesn't end in .k", true);
        throw host_failure_t{};
    }
    gui_assemble_file_set(name);
}

void debug_assemble() {
    if (const std::string name = chosen_file(); name != NO_FILE) {
        assemble(name);
    }
}

void debug_load() {
    if (const std::string name = chosen_file(); name != NO_FILE) {
        simulate_load(name);
    }
}

void debug_runstop() {
    if (simulator.running) {
        simulator.step = 0;
        return;
    }
    read_steps();
    simulator.breakpoint = read_address(gui_breakpoint_get, gui_breakpoint_set);
    simulator.watchpoint = read_address(gui_watchpoint_get, gui_watchpoint_set);
    if (machine.halted) {
        return;
    }
    simulator.running = true;
    gui_runstop_set("Stop");
    gui_status_set("Running");
    gui_pc_set("");
    speaker_connect();
    // Where the sound server does not set the pace, passing over would only make the board run yet farther
    // ahead of the user's time, and its recording grow as fast.
    pass_over_waiting(simulator.speaker_on);
}

void debug_camera() {
    if (gui_camera_get()) {
        camera_connect();
    } else {
        camera_disconnect();
    }
}

void debug_microphone() {
    if (gui_mic_get()) {
        microphone_connect();
    } else {
        microphone_disconnect();
    }
}
