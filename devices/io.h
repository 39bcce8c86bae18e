#pragma once

// The I/O bus: which device owns which address, and the checks that all handshaking devices share.
//
// The common handshake: the program writes the parameter registers while command is 0, writes 1 to command,
// polls response until it reads 1, reads the result registers, and writes 0 to command to finish.

#include <array>
#include <cstdint>

#include "base/machine.h"

// The first I/O address, 0x80000000. A register's offset is counted from here.
constexpr int32_t IO_BASE = INT32_MIN;

// The offset of an I/O address, 0 to 0x7fffffff.
constexpr int32_t io_offset(int32_t address) { return address & INT32_MAX; }

// All offsets that devices own are below this.
constexpr int32_t IO_SLOTS = 0x104;

// One access to the bus (any negative address); returns what is read, 0 for a write. Parameters and results
// go straight to the machine record, all else to the device that owns the address. Throws tovik_error for an
// address that no device owns, for a parameter or result in the wrong order, and whatever the device throws.
int32_t io(bool write, int32_t address, int32_t data);

using io_handler_t = int32_t (*)(bool write, int32_t address, int32_t data);

// Instruction counts that are no counts.
constexpr uint64_t NOW = 0;
constexpr uint64_t UNTIL_EVENT = UINT64_MAX; // what the user does, an audio tick, or the program's next write

// A register that programs read again and again until it changes.
struct polled_t {
    // Reads it. nullptr when a read can do more than give a value: fail, or ask the user something.
    int32_t (*read)();
    // Before the instruction count that this returns, each further read gives what the next one gives and
    // changes nothing more. NOW when the device cannot tell.
    uint64_t (*steady_until)();
};

// A register that takes what a command needs: any value while the command is 0, otherwise only the one that
// it has.
struct parameter_t {
    int32_t* field;
    const int32_t* command;
    int32_t mask;
};

// A register that gives what a command has found, while its response is 1.
struct result_t {
    const void* field;
    const int32_t* response;
    bool is_byte;

    int32_t value() const {
        return is_byte ? *static_cast<const uint8_t*>(field) : *static_cast<const int32_t*>(field);
    }
};

// What is known of a register, so that most accesses need not go through its device's handler. What a
// register is not, or has not, is nullptr. None of the functions fails or asks the user something. Aligned so
// that a shift finds one.
struct alignas(128) port_t {
    // What `io` calls: the device's, save for parameters and results. nullptr: no device owns the address.
    io_handler_t handler = nullptr;
    parameter_t parameter = {};
    result_t result = {};
    polled_t polled = {};

    // Writes the register.
    void (*write)(int32_t data) = nullptr;

    // Writes the register if that can neither fail nor ask. Otherwise returns false and has done nothing: the
    // handler must do it.
    bool (*take)(int32_t data) = nullptr;

    // Where the value stands that is read; nullptr, and nothing done, when the handler must find it.
    const int32_t* (*give)() = nullptr;
};

// By offset.
extern const std::array<port_t, IO_SLOTS> io_ports;

// For any negative address.
const port_t& io_port(int32_t address);

// For a response that comes at an instruction count: until when it is steady.
inline uint64_t until_completion(uint64_t completion) {
    return machine.instr_count < completion ? completion : UNTIL_EVENT;
}

// Throws tovik_error: the device has no such register, or not in this direction.
[[noreturn]] void io_unsupported(int32_t address);

// Throws tovik_error when response is 0: a result register was read too early.
void check_response(int32_t response);

// Whether a parameter register takes a value.
inline bool takes(int32_t port, int32_t value, int32_t command) { return command == 0 || value == port; }

// Writes a parameter register. Throws tovik_error when it does not take the value.
void update_port(int32_t& port, int32_t value, int32_t command);

// Throws tovik_error when valid is 0.
void check_valid(int32_t valid);

// Throws tovik_error when command is 0.
void check_command(int32_t command);
