// Keyboard that delivers characters. Key events wait in a queue, oldest first; the program takes them one by
// one: command 1, poll response, read pressed and ascii, command 0.
//
//   offset  register  access  bits   meaning
//   0x20    command   write   0      1 to 0 removes the event at the front
//   0x21    response  read    0      1 when there is an event
//   0x22    pressed   read    0      1 for a press, 0 for a release
//   0x23    ascii     read    7..0   the character
//
// No busy time. Not modelled: scan codes, and the keyboard's own repetition and lamps.

#include "devices/ps2.h"

#include <cstddef>
#include <string_view>

#include "base/machine.h"
#include "devices/io.h"
#include "devices/mouse.h"

namespace {

constexpr int32_t COMMAND = 0x20;
constexpr int32_t RESPONSE = 0x21;

constexpr size_t CHARACTERS = 256;

// The keys of a US keyboard, each at the same place in both.
constexpr std::string_view UNSHIFTED = "`1234567890-=[]\\;',./abcdefghijklmnopqrstuvwxyz";
constexpr std::string_view SHIFTED = "~!@#$%^&*()_+{}|:\"<>?ABCDEFGHIJKLMNOPQRSTUVWXYZ";
static_assert(UNSHIFTED.size() == SHIFTED.size());

char exchange(char c, std::string_view from, std::string_view to) {
    const size_t place = from.find(c);
    return place == std::string_view::npos ? c : to[place];
}

std::vector<bool>::reference held(char c) { return machine.ps2_pressed[static_cast<uint8_t>(c)]; }

void append_event(char c, bool pressed) { machine.ps2_events.push_back({static_cast<uint8_t>(c), pressed}); }

} // namespace

void write_ps2_command(int32_t data) {
    const int32_t command = data & 1;
    if (machine.ps2_command == 1 && command == 0 && !machine.ps2_events.empty()) {
        machine.ps2_events.pop_front();
    }
    machine.ps2_command = command;
    if (command == 0) {
        machine.ps2_response = 0;
    }
}

int32_t read_ps2_response() {
    machine.ps2_response = machine.ps2_command == 1 && !machine.ps2_events.empty() ? 1 : 0;
    if (machine.ps2_response == 1) {
        machine.ps2_event = machine.ps2_events.front();
    }
    return machine.ps2_response;
}

int32_t io_ps2(bool write, int32_t address, int32_t data) {
    const int32_t offset = io_offset(address);
    if (write && offset == COMMAND) {
        write_ps2_command(data);
        return 0;
    }
    if (!write && offset == RESPONSE) {
        return read_ps2_response();
    }
    io_unsupported(address);
}

void io_ps2_press(char c) {
    if (c == 0 || held(ascii_to_upper(c)) || held(ascii_to_lower(c))) {
        return;
    }
    held(c) = true;
    append_event(c, true);
}

void io_ps2_release(char c) {
    if (c == 0) {
        return;
    }
    for (const char recorded : {ascii_to_upper(c), ascii_to_lower(c)}) {
        if (held(recorded)) {
            held(recorded) = false;
            append_event(recorded, false);
            return;
        }
    }
}

void io_ps2_ctrlm() {
    if (machine.mouse_active == 1) {
        io_mouse_deactivate();
        machine.mouse_active = -1;
    } else {
        io_mouse_activate();
    }
}

void reset_ps2() {
    machine.ps2_command = 0;
    machine.ps2_response = 0;
    machine.ps2_event = {};
    machine.ps2_events.clear();
    machine.ps2_pressed.assign(CHARACTERS, false);
}

char ascii_to_upper(char c) { return exchange(c, UNSHIFTED, SHIFTED); }

char ascii_to_lower(char c) { return exchange(c, SHIFTED, UNSHIFTED); }
