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
// Up to 1024 received bytes wait in a queue; what comes when it is full is lost. Sending is busy for 462
// instructions, which is about one byte, with its start and stop bits, at 144300 bits a second. A command
// that comes earlier sends nothing, but is answered: the byte is lost, as with the real part.
//
// Not modelled: speed, parity and errors of the line.

#include "devices/serial.h"

#include "base/gui.h"
#include "base/machine.h"
#include "devices/io.h"
#include "devices/serial_connection.h"

namespace {

constexpr int32_t RECEIVE_COMMAND = 0x90;
constexpr int32_t RECEIVE_RESPONSE = 0x91;
constexpr int32_t RECEIVE_DATA = 0x92;
constexpr int32_t SEND_COMMAND = 0xa0;
constexpr int32_t SEND_RESPONSE = 0xa1;
constexpr int32_t SEND_DATA = 0xa2;

constexpr uint64_t INSTRUCTIONS_PER_BYTE = 462;

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

void write_send_command(int32_t command) {
    if (machine.serial_send_command == 0 && command == 1 &&
        machine.instr_count >= machine.serial_send_response_instr) {
        machine.serial_send_response_instr = machine.instr_count;
        const char byte = static_cast<char>(machine.serial_send_data & 0xff);
        if (write_size(&byte, 1) != 1) {
            throw tovik_error("error sending data to serial port");
        }
        machine.serial_send_response_instr += INSTRUCTIONS_PER_BYTE;
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
        serial_enqueue(c);
    }
}

void reset_serial() {
    machine.serial_send_command = 0;
    machine.serial_send_data = 0;
    machine.serial_send_response = 0;
    machine.serial_send_response_instr = 0;
    if (machine.serial_state != DISCONNECTED) {
        try {
            serial_discard();
        } catch (const tovik_error& error) {
            // No program waits for it, and the other devices are still to be reset.
            gui_message(error.message, true);
        }
    }
}
