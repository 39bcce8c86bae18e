#include "devices/serial_connection.h"

#include <algorithm>
#include <cassert>
#include <chrono>
#include <optional>
#include <span>

#include "base/gui.h"
#include "base/machine.h"
#include "host/line.h"

namespace {

constexpr size_t QUEUE_BYTES = 1024;
constexpr int LONGEST_NAME = 20;

constexpr size_t PIECE_BYTES = 4096;

// A side that sends faster than bytes are taken from the line must not hold the program for ever.
constexpr size_t MOST_BYTES_AT_ONCE = 65536;
constexpr std::chrono::seconds LONGEST_DISCARD(1);

// A line that holds so many bytes may be full, and its sender, or the relay, wait with more of them.
constexpr size_t FULL_LINE_BYTES = 2048;
constexpr int SENDER_MS = 50; // in which they go on

constexpr int STEP_MS = 1000; // so long the wait for a step of a connection is at a time

const std::string PROMPT =
    "Enter the name of your serial port (e.g., COM1 on Windows, /dev/ttyS0 or /dev/ttyUSB0 on Linux).\n"
    "To use a virtual serial cable, enter your campusid.\n"
    "To show the serial output in the serial port window, leave the field blank.";

void connect_device(const std::string& name) {
    line_open_device(name);
    machine.serial_state = HW;
}

void connect_cable(const std::string& name) {
    line_open_cable(name);
    machine.serial_state = NET;
    std::optional<std::string> partner;
    while (!partner) {
        partner = line_connect(STEP_MS);
    }
    if (partner->empty()) {
        gui_message(
            "Connected to virtual serial port.  Next, run a second instance of tovik and connect it to "
            "serial port \"" +
                name + "\".\n",
            false);
    } else {
        gui_message("Connected to another instance of tovik, running on " + *partner + ".", false);
    }
}

bool names_device(const std::string& name) { return name.find_first_of("/0123456789") != std::string::npos; }

// One attempt. Only an error of the relay comes out of it.
void connect_to(const std::string& name) {
    if (name.empty()) {
        gui_serial_setup();
        machine.serial_state = WINDOW;
        return;
    }
    try {
        if (names_device(name)) {
            connect_device(name);
        } else {
            connect_cable(name);
        }
    } catch (const tovik_error& error) {
        serial_disconnect();
        if (!names_device(name)) {
            throw;
        }
        gui_message(error.message, true);
    }
}

size_t receive_waiting() {
    char piece[PIECE_BYTES];
    size_t total = 0;
    size_t count = 0;
    do {
        const size_t room = std::min(PIECE_BYTES, MOST_BYTES_AT_ONCE - total);
        count = static_cast<size_t>(read_size(piece, static_cast<int>(room)));
        for (const char byte : std::span(piece).first(count)) {
            serial_enqueue(byte);
        }
        total += count;
    } while (count > 0 && total < MOST_BYTES_AT_ONCE);
    return total;
}

} // namespace

void serial_enqueue(char byte) {
    if (machine.serial_queue.size() < QUEUE_BYTES) {
        machine.serial_queue.push(static_cast<uint8_t>(byte));
    }
}

void serial_connect(const std::string& message) {
    while (machine.serial_state == DISCONNECTED) {
        connect_to(gui_gettext(message + PROMPT, LONGEST_NAME));
    }
}

void serial_disconnect() {
    line_close();
    machine.serial_state = DISCONNECTED;
    machine.serial_queue = {};
}

size_t serial_receive() {
    assert(machine.serial_state != DISCONNECTED);
    if (machine.serial_state == WINDOW) {
        return 0;
    }
    try {
        return receive_waiting();
    } catch (const tovik_error&) {
        serial_disconnect();
        serial_connect("Reconnecting to serial port.\n");
        return 0;
    }
}

void serial_discard() {
    const auto end = std::chrono::steady_clock::now() + LONGEST_DISCARD;
    size_t count = serial_receive();
    const bool was_full = count >= FULL_LINE_BYTES;
    while (was_full && count > 0 && std::chrono::steady_clock::now() < end && line_ready(SENDER_MS)) {
        count = serial_receive();
    }
    machine.serial_queue = {};
}

int read_size(char* buffer, int size) {
    assert(machine.serial_state != DISCONNECTED);
    int count = 0;
    int piece = 1;
    while (piece > 0 && count < size && machine.serial_state != WINDOW) {
        piece = static_cast<int>(line_read({buffer + count, static_cast<size_t>(size - count)}));
        count += piece;
    }
    return count;
}

int write_size(const char* buffer, int size) {
    assert(machine.serial_state != DISCONNECTED);
    if (size < 1) {
        return 0;
    }
    if (machine.serial_state == WINDOW) {
        assert(size == 1);
        gui_serial_append(*buffer);
        return 1;
    }
    return static_cast<int>(line_write({buffer, static_cast<size_t>(size)}));
}
