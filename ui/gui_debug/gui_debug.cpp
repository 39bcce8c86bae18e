// The gui_* functions of base/gui.h for front ends of the debugger, which have no window of their own:
// questions are answered from debugger/front.h, and what is to be told is put there. Nothing waits for
// anybody.

#include <array>
#include <string>
#include <utility>

#include "base/gui.h"
#include "debugger/front.h"
#include "devices/audio.h"
#include "devices/camera.h"
#include "devices/sd.h"
#include "host/journal.h"

namespace {

// How many answers each question has had are kept in the journal, a few bits each: after going back, and a
// change there, they are given again.
constexpr std::array<const char*, 3> TITLES = {SD_QUESTION, MICROPHONE_QUESTION, CAMERA_QUESTION};
constexpr std::array<const char*, 3> ARGUMENTS = {"sd", "microphone", "camera"}; // of the launch
constexpr int COUNT_BITS = 15;
constexpr int64_t MOST_ANSWERS = (int64_t{1} << COUNT_BITS) - 1;
constexpr int64_t ANSWERED = int64_t{1} << 62;

// The serial port's comes last.
size_t place_of(const std::string& title) {
    size_t place = 0;
    while (place < TITLES.size() && title != TITLES[place]) {
        ++place;
    }
    return place;
}

given_t take_answer(const std::string& title) {
    const passed_t* const last = journal_last(door_e::QUESTION);
    const int64_t counts = last == nullptr ? 0 : last->value & ~ANSWERED;
    const int shift = static_cast<int>(place_of(title)) * COUNT_BITS;
    const int64_t given = counts >> shift & MOST_ANSWERS;
    const auto answers = front.answers.find(title);
    if (answers == front.answers.end() || given >= static_cast<int64_t>(answers->second.size()) ||
        given == MOST_ANSWERS) {
        return {.value = counts};
    }
    return {.value = (counts + (int64_t{1} << shift)) | ANSWERED,
            .bytes = answers->second[static_cast<size_t>(given)]};
}

given_t answer_to(const std::string& title) {
    return through_journal(door_e::QUESTION, [&] { return take_answer(title); });
}

} // namespace

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
    const given_t given = answer_to(title);
    const bool answered = (given.value & ANSWERED) != 0;
    if (const size_t place = place_of(title); !answered && place < ARGUMENTS.size()) {
        gui_message("The launch has no further file for its argument \"" + std::string(ARGUMENTS[place]) +
                        "\".",
                    false);
    }
    filename = answered ? given.bytes : filename;
    return answered;
}

// Without an answer the serial port leads to the console.
std::string gui_gettext(std::string /*prompt*/, int max_length) {
    return answer_to(SERIAL_PORT).bytes.substr(0, static_cast<size_t>(max_length));
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
