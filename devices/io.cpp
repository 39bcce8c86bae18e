// The I/O bus. An access costs the same wherever it goes: one look-up by offset, one indirect call.

#include "devices/io.h"

#include <array>
#include <sstream>
#include <string>

#include "core/machine.h"
#include "devices/audio.h"
#include "devices/camera.h"
#include "devices/fft.h"
#include "devices/lcd.h"
#include "devices/ledswitchtimer.h"
#include "devices/mouse.h"
#include "devices/ps2.h"
#include "devices/sd.h"
#include "devices/sdram.h"
#include "devices/serial.h"
#include "devices/touch.h"
#include "devices/vga.h"

namespace {

using handler_t = int32_t (*)(bool write, int32_t address, int32_t data);

struct block_t {
    int32_t first; // offsets, inclusive
    int32_t last;
    handler_t handler;
};

// Accepted without any device behind it.
int32_t io_silent(bool /*write*/, int32_t /*address*/, int32_t /*data*/) { return 0; }

// Devices without data to take or to give fit the common signature through these.
template <int32_t (*read)(bool, int32_t)> int32_t reading(bool write, int32_t address, int32_t /*data*/) {
    return read(write, address);
}

template <void (*act)(bool, int32_t, int32_t)> int32_t writing(bool write, int32_t address, int32_t data) {
    act(write, address, data);
    return 0;
}

constexpr block_t ADDRESS_MAP[] = {
    {0x00, 0x00, reading<io_sw>},        // switches
    {0x01, 0x01, writing<io_led_red>},   // red LEDs
    {0x02, 0x02, writing<io_led_green>}, // green LEDs
    {0x03, 0x03, writing<io_hex30>},     // HEX3-HEX0
    {0x04, 0x04, writing<io_hex74>},     // HEX7-HEX4
    {0x05, 0x05, reading<io_timer>},     // timer
    {0x10, 0x14, io_lcd},                // LCD
    {0x20, 0x23, io_ps2},                // PS/2 keyboard
    {0x30, 0x35, io_sdram},              // SDRAM controller
    {0x40, 0x42, io_speaker},            // speaker
    {0x50, 0x52, io_microphone},         // microphone
    {0x60, 0x68, io_vga},                // VGA controller
    {0x70, 0x76, io_mouse},              // mouse
    {0x80, 0x85, io_sd},                 // SD card
    {0x90, 0x92, io_serial_receive},     // serial receive
    {0xa0, 0xa2, io_serial_send},        // serial send
    {0xb0, 0xb5, io_camera},             // camera
    {0xc0, 0xc5, io_fft_send},           // FFT input
    {0xd0, 0xd3, io_fft_receive},        // FFT output
    {0xe0, 0xe4, io_touch},              // touch screen
    {0xf0, 0xf3, io_silent},             // none
    {0x100, 0x103, io_silent},           // none
};

constexpr int32_t SLOTS = 0x104;

constexpr auto HANDLERS = [] {
    std::array<handler_t, SLOTS> handlers{};
    for (const block_t& block : ADDRESS_MAP) {
        for (int32_t offset = block.first; offset <= block.last; ++offset) {
            handlers[static_cast<size_t>(offset)] = block.handler;
        }
    }
    return handlers;
}();

} // namespace

int32_t io(bool write, int32_t address, int32_t data) {
    const int32_t offset = io_offset(address);
    const handler_t handler = offset < SLOTS ? HANDLERS[static_cast<size_t>(offset)] : nullptr;
    if (handler == nullptr) {
        throw tovik_error("illegal address " + std::to_string(address) + "\n");
    }
    return handler(write, address, data);
}

void io_unsupported(int32_t address) {
    std::ostringstream message;
    message << "unsupported operation on address ";
    if (address < 0) {
        message << "0x" << std::hex;
    }
    message << address;
    throw tovik_error(message.str());
}

void check_response(int32_t response) {
    if (response == 0) {
        throw tovik_error("verify that response is 1 before reading response parameters");
    }
}

void update_port(int32_t& port, int32_t value, int32_t command) {
    if (command != 0 && value != port) {
        throw tovik_error("shouldn't change command parameters when command is 1");
    }
    port = value;
}

void check_valid(int32_t valid) {
    if (valid == 0) {
        throw tovik_error("shouldn't read port data when valid is 0");
    }
}

void check_command(int32_t command) {
    if (command == 0) {
        throw tovik_error("shouldn't read port data when command is 0");
    }
}
