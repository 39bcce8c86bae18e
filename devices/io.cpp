// The I/O bus. An access costs the same wherever it goes: one look-up by offset, one indirect call.

#include "devices/io.h"

#include <array>
#include <sstream>
#include <string>

#include "base/machine.h"
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

constexpr int32_t NO_REGISTER = -1;

struct block_t {
    int32_t first; // offsets, inclusive
    int32_t last;
    io_handler_t handler;
    int32_t polled_offset = NO_REGISTER; // of the register that programs poll
    polled_t polled = {};
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

// Steady as long as nothing happens.
uint64_t until_event() { return UNTIL_EVENT; }

// First and last offset, handler; the polled register's offset, how to read it, until when it is steady.
constexpr block_t ADDRESS_MAP[] = {
    {0x00, 0x00, reading<io_sw>, 0x00, {read_sw, until_event}},                        // switches
    {0x01, 0x01, writing<io_led_red>},                                                 // red LEDs
    {0x02, 0x02, writing<io_led_green>},                                               // green LEDs
    {0x03, 0x03, writing<io_hex30>},                                                   // HEX3-HEX0
    {0x04, 0x04, writing<io_hex74>},                                                   // HEX7-HEX4
    {0x05, 0x05, reading<io_timer>, 0x05, {read_timer, timer_steady_until}},           // timer
    {0x10, 0x14, io_lcd, 0x11, {read_lcd_response, until_event}},                      // LCD
    {0x20, 0x23, io_ps2, 0x21, {read_ps2_response, until_event}},                      // PS/2 keyboard
    {0x30, 0x35, io_sdram, 0x31, {read_sdram_response, until_event}},                  // SDRAM controller
    {0x40, 0x42, io_speaker, 0x41, {read_speaker_response, until_event}},              // speaker
    {0x50, 0x52, io_microphone, 0x51, {read_microphone_response, until_event}},        // microphone
    {0x60, 0x68, io_vga, 0x61, {read_vga_response, vga_steady_until}},                 // VGA controller
    {0x70, 0x76, io_mouse, 0x71, {read_mouse_response, until_event}},                  // mouse
    {0x80, 0x85, io_sd, 0x81, {read_sd_response, sd_steady_until}},                    // SD card
    {0x90, 0x92, io_serial_receive, 0x91, {nullptr, serial_receive_steady_until}},     // serial receive
    {0xa0, 0xa2, io_serial_send, 0xa1, {nullptr, serial_send_steady_until}},           // serial send
    {0xb0, 0xb5, io_camera, 0xb1, {read_camera_response, camera_steady_until}},        // camera
    {0xc0, 0xc5, io_fft_send, 0xc1, {read_fft_send_response, fft_steady_until}},       // FFT input
    {0xd0, 0xd3, io_fft_receive, 0xd1, {read_fft_receive_response, fft_steady_until}}, // FFT output
    {0xe0, 0xe4, io_touch, 0xe1, {read_touch_response, until_event}},                  // touch screen
    {0xf0, 0xf3, io_silent},                                                           // none
    {0x100, 0x103, io_silent},                                                         // none
};

struct writer_t {
    int32_t offset;
    io_writer_t write;
};

// Those that programs write often.
constexpr writer_t WRITERS[] = {
    {0x01, write_led_red}, {0x02, write_led_green},   {0x03, write_hex30},
    {0x04, write_hex74},   {0x20, write_ps2_command}, {0x60, write_vga_command},
};

struct slot_t {
    io_handler_t handler;
    polled_t polled;
    io_writer_t write;
};

constexpr auto SLOT_TABLE = [] {
    std::array<slot_t, IO_SLOTS> slots{};
    for (const block_t& block : ADDRESS_MAP) {
        for (int32_t offset = block.first; offset <= block.last; ++offset) {
            slots[static_cast<size_t>(offset)].handler = block.handler;
        }
        if (block.polled_offset != NO_REGISTER) {
            slots[static_cast<size_t>(block.polled_offset)].polled = block.polled;
        }
    }
    for (const auto& [offset, write] : WRITERS) {
        slots[static_cast<size_t>(offset)].write = write;
    }
    return slots;
}();

const slot_t* slot_of(int32_t address) {
    const int32_t offset = io_offset(address);
    return offset < IO_SLOTS ? &SLOT_TABLE[static_cast<size_t>(offset)] : nullptr;
}

} // namespace

int32_t io(bool write, int32_t address, int32_t data) {
    const io_handler_t handler = io_handler(address);
    if (handler == nullptr) {
        throw tovik_error("illegal address " + std::to_string(address) + "\n");
    }
    return handler(write, address, data);
}

io_handler_t io_handler(int32_t address) {
    const slot_t* const slot = slot_of(address);
    return slot == nullptr ? nullptr : slot->handler;
}

const polled_t* io_polled(int32_t address) {
    const slot_t* const slot = slot_of(address);
    return slot == nullptr || slot->polled.steady_until == nullptr ? nullptr : &slot->polled;
}

io_writer_t io_writer(int32_t address) {
    const slot_t* const slot = slot_of(address);
    return slot == nullptr ? nullptr : slot->write;
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
