#include "tests/support/gui_recording.h"

#include <utility>

#include "core/machine.h"
#include "ui/gui.h"

recording_t recording;

namespace {

struct run_stopped_t {};

} // namespace

std::vector<std::string> run_until_stop(void (*run_loop)()) {
    recording.calls.clear();
    recording.looks.clear();
    simulator.running = true;
    try {
        run_loop();
    } catch (const run_stopped_t&) {
        return std::move(recording.calls);
    }
    return {};
}

bool gui_events_pending() {
    recording.looks.push_back(machine.instr_count);
    if (recording.at_look) {
        recording.at_look();
    }
    return false;
}

void gui_handle_event() { throw run_stopped_t{}; }

void gui_message(std::string text, bool error) {
    recording.calls.push_back((error ? "error " : "message ") + text);
    if (recording.at_message) {
        recording.at_message();
    }
}

void gui_runstop_set(std::string text) { recording.calls.push_back("runstop " + text); }

void gui_status_set(std::string text) { recording.calls.push_back("status " + text); }

void gui_pc_set(std::string text) { recording.calls.push_back("pc " + text); }

void gui_time_set(std::string text) { recording.calls.push_back("time " + text); }

void gui_hex74_set(std::string text) { recording.calls.push_back("hex74 " + text); }

void gui_hex30_set(std::string text) { recording.calls.push_back("hex30 " + text); }

void gui_sw_draw(int i) { recording.calls.push_back("sw " + std::to_string(i)); }

void gui_led_red_draw(int i) { recording.calls.push_back("red " + std::to_string(i)); }

void gui_led_green_draw(int i) { recording.calls.push_back("green " + std::to_string(i)); }
