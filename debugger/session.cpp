// Beginning and end of a session, and what the user does in between.

#include "debugger/session.h"

#include <cerrno>
#include <utility>

#include "assembler/assemble.h"
#include "assembler/translate.h"
#include "base/files.h"
#include "base/machine.h"
#include "base/noise.h"
#include "core/engine.h"
#include "core/loader.h"
#include "core/memory.h"
#include "core/simulate.h"
#include "debugger/ports.h"
#include "debugger/session_state.h"
#include "devices/audio.h"
#include "devices/camera.h"
#include "devices/io.h"
#include "devices/ledswitchtimer.h"
#include "devices/registers.h"
#include "devices/sdram.h"
#include "devices/serial.h"
#include "devices/vga.h"

std::function<bool()> session_card_goes_back = [] { return true; };
void (*session_played)(int32_t sample) = nullptr;

namespace session {

state_t state;

namespace {

// The faults of a source are known before the assembler would show them in a dialog.
void assemble_source(const std::string& name) {
    if (const std::string report = translate(name).report; !report.empty()) {
        throw tovik_error(report);
    }
    if (!assemble(name)) {
        throw tovik_error("can't assemble " + name);
    }
}

void load(const std::string& base) {
    const std::string image = base + ".mif";
    const load_t load = simulate_load(base + ".k");
    if (!load.opened) {
        throw tovik_error("can't load " + image);
    }
    if (!load.ended && (load.words == 0 || !load.begun)) {
        throw tovik_error(image + " is not a memory image");
    }
}

// What is timed for the very beginning has happened before the program begins.
void deliver_first_events() {
    simulator.step = -1;
    for (const event_t& event : state.events) {
        if (event.count == 0) {
            event.happen(event);
        }
    }
    if (simulator.step == 0) {
        state.script_stop = moment_t{1};
    }
}

// What is done changes what comes later, and the copies of the board know it.
void act(std::function<void()> what, int32_t written) {
    // The board is then at some moment of the search.
    if (state.motion.going && state.motion.kind == motion_e::REVERSE_CONTINUE) {
        throw tovik_error("the program is going back");
    }
    const bool card_goes_back = !history_card_has_future() || session_card_goes_back();
    forget_uses_after(history_now());
    forget_hits_after(history_now());
    const auto act = [what = std::move(what), written] {
        what();
        if (act_done && stops != nullptr) { // else nobody looks at this part of the past
            act_done(written);
        }
    };
    history_act(act, card_goes_back);
    settle_watches();
}

// No program can write them, but a user turns them over.
constexpr int32_t SWITCHES_ADDRESS = IO_BASE;

void set_switches(int32_t value) {
    for (int i = 0; i < SWITCHES; ++i) {
        if (((machine.sw ^ value) >> i & 1) != 0) {
            io_sw_toggle(i);
        }
    }
}

// What cannot be done must not cost the future.
void check_word(int32_t address, int32_t value) {
    const board_register_t* const found = address < 0 ? find_register(io_offset(address)) : nullptr;
    if (address == SWITCHES_ADDRESS) {
        if (value < 0 || value >= 1 << SWITCHES) {
            throw tovik_error("there are but " + std::to_string(SWITCHES) + " switches");
        }
    } else if (found != nullptr && found->access == direction_e::READ) {
        throw tovik_error(register_name(found->offset) + " can only be read");
    }
}

} // namespace
} // namespace session

using namespace session;

void session_begin(const session_options_t& options) {
    session_end();
    const bool is_source = options.program.ends_with(".k");
    if (!is_source && !options.program.ends_with(".mif")) {
        throw tovik_error("'" + options.program + "' ends neither in .k nor in .mif");
    }
    std::vector<event_t> events = options.script ? read_script(*options.script) : std::vector<event_t>{};
    if (is_source) {
        assemble_source(options.program);
    }
    simulator = {};
    simulator.breakpoint = -1;
    simulator.watchpoint = -1;
    noise_seed = options.seed;
    clear_vga();
    clear_sdram();
    load(options.program.substr(0, options.program.rfind('.')));
    state.places = load_places(options.program);
    state.limit = options.limit ? std::optional(static_cast<uint64_t>(*options.limit)) : std::nullopt;
    state.events = std::move(events);
    state.first_at.assign(MEMORY_SIZE, -1);
    state.last.why = stop_e::ENTRY;
    machine.sw = options.switches;
    deliver_first_events();
    simulate_begin();
    history_begin();
    remember_values();
    state.begun = true;
}

void session_end() {
    if (state.begun) {
        history_end();
        serial_disconnect();
        microphone_disconnect();
        camera_disconnect();
    }
    stops = nullptr;
    forget_proofs();
    state = {};
}

const places_t& session_places() { return state.places; }

void session_set_pc(int32_t address) {
    if (address < 0 || address >= MEMORY_SIZE) {
        throw tovik_error("there is no instruction at " + std::to_string(address));
    }
    act(
        [address] {
            machine.pc = address;
            machine.halted = false;
        },
        -1);
}

void session_act(std::function<void()> what) { act(std::move(what), -1); }

void session_set_word(int32_t address, int32_t value) {
    check_word(address, value);
    act(
        [address, value] {
            if (address == SWITCHES_ADDRESS) {
                set_switches(value);
                return;
            }
            try {
                memwrite(address, value);
            } catch (const host_wait_t&) {
                throw tovik_error("the device waits for the computer");
            }
            forget_proofs();
        },
        address);
}
