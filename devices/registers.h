#pragma once

// The devices of the board and their registers as a program sees them: words for checker, editors, debugger
// and documents. A test holds this table against the bus.

#include <cstdint>
#include <span>
#include <string_view>

enum class direction_e : uint8_t { READ, WRITE }; // no register has both

enum class register_e : uint8_t {
    PLAIN,     // stands for itself, without a handshake
    COMMAND,   // 1 begins and 0 ends, see the device's handshake
    RESPONSE,  // 1 when the device has done what the command asks for, or has something to report
    PARAMETER, // is written while the command is 0
    RESULT,    // is read while the response is 1
};

struct board_register_t {
    int32_t offset; // the address without its highest bit
    std::string_view name;
    direction_e access;
    register_e kind;
    std::string_view bits; // those that count, "9-0"; "31-0" for all
    std::string_view meaning;
};

struct device_t {
    std::string_view name; // "LCD", as it stands in a sentence
    int32_t first;         // offsets, inclusive
    int32_t last;
    std::string_view handshake; // one sentence without a full stop
    std::span<const board_register_t> registers;
    bool keeps_results = false; // when the command goes back to 0, until the response is next read
};

// In the order of their offsets. Two devices without registers come last: they own their addresses, give 0
// and take everything.
std::span<const device_t> board_devices();

// The device that owns an offset; nullptr when none does.
const device_t* find_device(int32_t offset);

// The register at an offset; nullptr when there is none, also within a device.
const board_register_t* find_register(int32_t offset);
