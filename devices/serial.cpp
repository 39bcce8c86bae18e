// Serial port, 8 bits a character.
//
//   offset  register  access  bits  meaning
//   0x90    command   write   0     1 asks for a byte; 1 to 0 removes it from the queue
//   0x91    response  read    0     1 when a byte waits and command is 1
//   0x92    data      read    7..0  the byte
//
//   0xa0    command   write   0     0 to 1 sends the byte
//   0xa1    response  read    0     1 when the byte has been sent and command is 1
//   0xa2    data      write   7..0  the byte
//
// The first access asks the user where the port leads: to a serial device of the host, through the relay to
// another simulator, or to the console window.
//
// Up to 1024 received bytes wait in a queue; what comes when it is full is lost. Sending is busy for 462
// instructions, which is about one byte, with its start and stop bits, at 144300 bits a second. A command
// that comes earlier sends nothing, but is answered: the byte is lost, as with the real part.
//
// Not modelled: speed, parity and errors of the line.

#include "devices/serial.h"

#include <cassert>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "base/gui.h"
#include "base/machine.h"
#include "devices/io.h"
#include "host/clock.h"
#include "host/line.h"

void (*serial_sent)(char byte) = nullptr;

namespace {

constexpr int32_t RECEIVE_COMMAND = 0x90;
constexpr int32_t RECEIVE_RESPONSE = 0x91;
constexpr int32_t RECEIVE_DATA = 0x92;
constexpr int32_t SEND_COMMAND = 0xa0;
constexpr int32_t SEND_RESPONSE = 0xa1;
constexpr int32_t SEND_DATA = 0xa2;

constexpr uint64_t INSTRUCTIONS_PER_BYTE = 462;

constexpr size_t QUEUE_BYTES = 1024;
constexpr int LONGEST_NAME = 20;

// A side that sends faster than bytes are taken from the line must not hold the program for ever.
constexpr size_t MOST_BYTES_AT_ONCE = 65536;
constexpr uint64_t LONGEST_DISCARD_MS = 1000;

// A line that holds so many bytes may be full, and its sender, or the relay, wait with more of them.
constexpr size_t FULL_LINE_BYTES = 2048;
constexpr int SENDER_MS = 50; // in which they go on

const std::string PROMPT =
    "Enter the name of your serial port (e.g., COM1 on Windows, /dev/ttyS0 or /dev/ttyUSB0 on Linux).\n"
    "To use a virtual serial cable, enter your campusid.\n"
    "To show the serial output in the serial port window, leave the field blank.";

bool names_device(const std::string& name) { return name.find_first_of("/0123456789") != std::string::npos; }

// One attempt to open a device, or to begin with a cable. Only an error of the relay comes out of it.
void connect_to(const std::string& name) {
    if (name.empty()) {
        gui_serial_setup();
        machine.serial_state = WINDOW;
    } else if (names_device(name)) {
        try {
            line_open_device(name);
            machine.serial_state = HW;
        } catch (const tovik_error& error) {
            serial_disconnect();
            gui_message(error.message, true);
        }
    } else {
        machine.serial_cable = name;
        line_open_cable(name);
    }
}

// Goes on with a cable.
void connect_cable() {
    const std::optional<std::string> partner = line_connect();
    if (!partner) {
        throw host_wait_t{line_ready};
    }
    machine.serial_state = NET;
    const std::string name = std::exchange(machine.serial_cable, "");
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

// Unless the port is connected, asks where it leads, with the message above the question, until it is. Throws
// host_wait_t while a cable is being connected, and tovik_error, disconnected, when the relay cannot be
// reached or refuses.
void serial_connect(const std::string& message) {
    while (machine.serial_state == DISCONNECTED) {
        try {
            if (machine.serial_cable.empty()) {
                connect_to(gui_gettext(message + PROMPT, LONGEST_NAME));
            } else {
                connect_cable();
            }
        } catch (const tovik_error&) {
            serial_disconnect();
            throw;
        }
    }
}

void enqueue(char byte) {
    if (machine.serial_queue.size() < QUEUE_BYTES) {
        machine.serial_queue.push(static_cast<uint8_t>(byte));
    }
}

// Throws all away that waits to be received, also what a sender holds back because the line is full. Takes
// no more than about a second.
void discard() {
    const uint64_t start = time_ms();
    size_t count = serial_receive();
    const bool was_full = count >= FULL_LINE_BYTES;
    while (was_full && count > 0 && time_ms() - start < LONGEST_DISCARD_MS && line_ready(SENDER_MS)) {
        count = serial_receive();
    }
    machine.serial_queue = {};
}

void write_receive_command(int32_t command) {
    if (machine.serial_receive_command == 1 && command == 0 && !machine.serial_queue.empty()) {
        machine.serial_queue.pop();
    }
    machine.serial_receive_command = command;
    if (command == 0) {
        machine.serial_receive_response = 0;
    }
}

int32_t read_receive_response() {
    machine.serial_receive_response = 0;
    if (machine.serial_receive_command != 0) {
        if (machine.serial_queue.empty() && machine.serial_state == WINDOW) {
            gui_serial_input();
        }
        if (!machine.serial_queue.empty()) {
            machine.serial_receive_data = machine.serial_queue.front();
            machine.serial_receive_response = 1;
        }
    }
    return machine.serial_receive_response;
}

bool sends(int32_t command) {
    return machine.serial_send_command == 0 && command == 1 &&
           machine.instr_count >= machine.serial_send_response_instr;
}

void write_send_command(int32_t command) {
    if (sends(command)) {
        machine.serial_send_response_instr = machine.instr_count;
        const char byte = static_cast<char>(machine.serial_send_data & 0xff);
        if (write_size(&byte, 1) != 1) {
            throw tovik_error("error sending data to serial port");
        }
        machine.serial_send_response_instr += INSTRUCTIONS_PER_BYTE;
        if (serial_sent != nullptr) {
            serial_sent(byte);
        }
    }
    machine.serial_send_command = command;
}

int32_t read_send_response() {
    const bool sent =
        machine.serial_send_command != 0 && machine.instr_count >= machine.serial_send_response_instr;
    machine.serial_send_response = sent ? 1 : 0;
    return machine.serial_send_response;
}

} // namespace

void serial_disconnect() {
    line_close();
    machine.serial_state = DISCONNECTED;
    machine.serial_cable.clear();
    machine.serial_queue = {};
}

size_t serial_receive() {
    assert(machine.serial_state != DISCONNECTED);
    if (machine.serial_state == WINDOW) {
        return 0;
    }
    try {
        static char bytes[MOST_BYTES_AT_ONCE];
        const auto count = static_cast<size_t>(read_size(bytes, sizeof bytes));
        for (const char byte : std::span(bytes).first(count)) {
            enqueue(byte);
        }
        return count;
    } catch (const tovik_error&) {
        serial_disconnect();
        serial_connect("Reconnecting to serial port.\n");
        return 0;
    }
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

// The console's end of the line never fails, and there is nothing to ask or to receive.
bool take_serial_receive_command(int32_t data) {
    if (machine.serial_state != WINDOW) {
        return false;
    }
    write_receive_command(data & 1);
    return true;
}

const int32_t* give_serial_receive_data() {
    const bool is_there = machine.serial_state == WINDOW && machine.serial_receive_response != 0;
    return is_there ? &machine.serial_receive_data : nullptr;
}

// Only what sends nothing: the byte may go to a file.
bool take_serial_send_command(int32_t data) {
    const int32_t command = data & 1;
    if (machine.serial_state == DISCONNECTED || sends(command)) {
        return false;
    }
    write_send_command(command);
    return true;
}

bool take_serial_send_data(int32_t data) {
    const int32_t value = data & 0xff;
    if (machine.serial_state == DISCONNECTED ||
        !takes(machine.serial_send_data, value, machine.serial_send_command)) {
        return false;
    }
    machine.serial_send_data = value;
    return true;
}

// In the console's queue there is something new only after an event; of the other ends, and of what the
// answer to the first question will be, nothing can be told.
uint64_t serial_receive_steady_until() { return machine.serial_state == WINDOW ? UNTIL_EVENT : NOW; }

uint64_t serial_send_steady_until() {
    return machine.serial_state == DISCONNECTED ? NOW : until_completion(machine.serial_send_response_instr);
}

int32_t io_serial_receive(bool write, int32_t address, int32_t data) {
    serial_connect("");
    serial_receive();
    const int32_t offset = io_offset(address);
    if (write && offset == RECEIVE_COMMAND) {
        write_receive_command(data & 1);
        return 0;
    }
    if (!write && offset == RECEIVE_RESPONSE) {
        return read_receive_response();
    }
    if (!write && offset == RECEIVE_DATA) {
        check_response(machine.serial_receive_response);
        return machine.serial_receive_data;
    }
    io_unsupported(address);
}

int32_t io_serial_send(bool write, int32_t address, int32_t data) {
    serial_connect("");
    const int32_t offset = io_offset(address);
    if (write && offset == SEND_COMMAND) {
        write_send_command(data & 1);
    } else if (write && offset == SEND_DATA) {
        update_port(machine.serial_send_data, data & 0xff, machine.serial_send_command);
    } else if (!write && offset == SEND_RESPONSE) {
        return read_send_response();
    } else {
        io_unsupported(address);
    }
    return 0;
}

void io_serial_press(char c) {
    if (c != 0) {
        enqueue(c);
    }
}

void reset_serial() {
    machine.serial_send_command = 0;
    machine.serial_send_data = 0;
    machine.serial_send_response = 0;
    machine.serial_send_response_instr = 0;
    if (machine.serial_state != DISCONNECTED) {
        try {
            discard();
        } catch (const tovik_error& error) {
            // No program waits for it, and the other devices are still to be reset.
            gui_message(error.message, true);
        } catch (const host_wait_t&) {
            // Reset does not wait: the program's next access goes on with the new connection.
        }
    }
}
