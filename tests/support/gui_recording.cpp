#include "tests/support/gui_recording.h"

#include <utility>

#include "base/gui.h"
#include "base/machine.h"
#include "base/noise.h"
#include "core/engine.h"
#include "host/journal.h"

recording_t recording;
typed_t typed;

namespace {

struct run_stopped_t {};

} // namespace

void record_call(std::string text) {
    recording.calls.push_back(std::move(text));
    recording.counts.push_back(machine.instr_count);
}

const std::vector<std::string>& run_until_stop(void (*run_loop)(), bool rewritten) {
    recording.calls.clear();
    recording.counts.clear();
    if (rewritten) {
        forget_proofs();
    }
    simulator.running = true;
    try {
        run_loop();
    } catch (const run_stopped_t&) { // as every run ends
    }
    return recording.calls;
}

bool gui_events_pending() {
    record_call("look");
    recording.at_look();
    return false;
}

void gui_handle_event() { throw run_stopped_t{}; }

void gui_message(std::string text, bool error) {
    record_call((error ? "error " : "message ") + text);
    recording.at_message();
}

void gui_runstop_set(std::string text) { record_call("runstop " + text); }

void gui_status_set(std::string text) { record_call("status " + text); }

void gui_pc_set(std::string text) { record_call("pc " + text); }

void gui_time_set(std::string text) { record_call("time " + text); }

void gui_hex74_set(std::string text) { record_call("hex74 " + text); }

void gui_hex30_set(std::string text) { record_call("hex30 " + text); }

void gui_sw_draw(int i) { record_call("sw " + std::to_string(i)); }

void gui_led_red_draw(int i) { record_call("red " + std::to_string(i)); }

void gui_led_green_draw(int i) { record_call("green " + std::to_string(i)); }

bool gui_choosefile(bool save, std::string title, std::string /*filter_name*/, std::string extension,
                    std::string& filename) {
    record_call((save ? "save " : "open ") + title + " *." + extension + " " + filename);
    const given_t answer = through_journal(door_e::QUESTION, [] {
        given_t chosen = {.bytes = typed.chosen_file};
        typed.chosen_file = typed.only_once ? "" : typed.chosen_file;
        return chosen;
    });
    if (answer.bytes.empty()) {
        return false;
    }
    filename = answer.bytes;
    return true;
}

std::string gui_assemble_file_get() { return typed.assemble_file; }

void gui_assemble_file_set(std::string text) { typed.assemble_file = std::move(text); }

std::string gui_steps_get() { return typed.steps; }

void gui_steps_set(std::string text) { typed.steps = std::move(text); }

std::string gui_breakpoint_get() { return typed.breakpoint; }

void gui_breakpoint_set(std::string text) { typed.breakpoint = std::move(text); }

std::string gui_watchpoint_get() { return typed.watchpoint; }

void gui_watchpoint_set(std::string text) { typed.watchpoint = std::move(text); }

void gui_lcd_set(std::string text) { record_call("lcd " + text); }

void print_memory() {
    record_call("memory");
    if (recording.memory_window) {
        uint64_t sum = 0;
        for (int32_t address = 0; address < MEMORY_SIZE; ++address) {
            if (std::exchange(machine.modified[address], false)) {
                sum += noise_at(static_cast<uint64_t>(address));
            }
        }
        forget_proofs();
        record_call("modified " + std::to_string(sum));
    }
}

void gui_vga_cursor(bool active) { record_call(active ? "cursor on" : "cursor off"); }

bool gui_mic_get() { return false; }

void gui_mic_set(bool on) { record_call(on ? "mic on" : "mic off"); }

std::string gui_gettext(std::string prompt, int max_length) {
    recording.prompts.push_back(std::to_string(max_length) + " " + prompt);
    return through_journal(door_e::QUESTION,
                           [] {
                               if (typed.serial_names.empty()) {
                                   return given_t{};
                               }
                               const std::string name = typed.serial_names.front();
                               typed.serial_names.erase(typed.serial_names.begin());
                               return given_t{.bytes = name};
                           })
        .bytes;
}

void gui_serial_setup() { recording.prompts.emplace_back("console"); }

void gui_serial_append(char c) { record_call(std::string("serial ") + c); }

void gui_serial_input() {}

bool gui_camera_get() { return false; }

void gui_camera_set(bool on) { record_call(on ? "camera on" : "camera off"); }
