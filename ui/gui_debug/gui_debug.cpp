// The gui_* functions of base/gui.h for front ends of the debugger, which have no window of their own:
// questions are answered from debugger/front.h, and what is to be told is put there. Nothing waits for
// anybody.

#include <optional>
#include <string>
#include <utility>

#include "base/gui.h"
#include "debugger/front.h"
#include "host/journal.h"

bool gui_events_pending() { return false; }

void gui_handle_event() {}

void gui_message(std::string text, bool error) {
    if (!in_the_past()) {
        front.messages.push_back({error, std::move(text)});
    }
}

bool gui_choosefile(bool save, std::string title, std::string /*filter_name*/, std::string /*extension*/,
                    std::string& filename) {
    if (save) {
        return false;
    }
    if (const std::optional<std::string> answer = front_answer(title)) {
        filename = *answer;
        return true;
    }
    const std::string argument(question_titled(title).argument);
    gui_message("The launch has no further file for its argument \"" + argument + "\".", false);
    return false;
}

// Without an answer the serial port leads to the console.
std::string gui_gettext(std::string /*prompt*/, int max_length) {
    return front_answer(SERIAL_PORT).value_or("").substr(0, static_cast<size_t>(max_length));
}

void gui_serial_setup() {}

void gui_serial_append(char c) {
    if (c != '\r' && !in_the_past()) {
        front.serial += c;
    }
}

// What the user types comes when it comes.
void gui_serial_input() {}

// What these would show stands in the machine.
void gui_hex74_set(std::string /*text*/) {}
void gui_hex30_set(std::string /*text*/) {}
void gui_runstop_set(std::string /*text*/) {}
void gui_status_set(std::string /*text*/) {}
void gui_pc_set(std::string /*text*/) {}
void gui_time_set(std::string /*text*/) {}
void gui_sw_draw(int /*i*/) {}
void gui_led_red_draw(int /*i*/) {}
void gui_led_green_draw(int /*i*/) {}
void gui_lcd_set(std::string /*text*/) {}
void gui_vga_cursor(bool /*active*/) {}
void gui_camera_set(bool /*on*/) {}
void gui_mic_set(bool /*on*/) {}
void print_memory() {}
