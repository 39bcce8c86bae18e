// The I/O bus. An access costs the same wherever it goes: one look-up by offset, at most one indirect call.

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

struct block_t {
    int32_t first; // offsets, inclusive
    int32_t last;
    io_handler_t handler;
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

// Parameters and results are the same for all devices.
int32_t io_parameter(bool write, int32_t address, int32_t data) {
    if (!write) {
        io_unsupported(address);
    }
    const auto& [field, command, mask] = io_port(address).parameter;
    update_port(*field, data & mask, *command);
    return 0;
}

int32_t io_result(bool write, int32_t address, int32_t /*data*/) {
    if (write) {
        io_unsupported(address);
    }
    const result_t& result = io_port(address).result;
    check_response(*result.response);
    return result.value();
}

// Steady as long as nothing happens.
uint64_t until_event() { return UNTIL_EVENT; }

// Who owns what: first and last offset, handler.
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

struct register_t {
    int32_t offset;
    port_t port;
};

// The kinds of registers. A command, or another one that is written:
constexpr register_t written(int32_t offset, void (*write)(int32_t)) { return {offset, {.write = write}}; }

// One whose writing may fail or ask the user something:
constexpr register_t written(int32_t offset, bool (*take)(int32_t)) { return {offset, {.take = take}}; }

// A response, or another one that is read again and again; how, and until when it is steady:
constexpr register_t polled(int32_t offset, int32_t (*read)(), uint64_t (*steady_until)()) {
    return {offset, {.polled = {read, steady_until}}};
}

// A parameter of so many bits, and its command:
constexpr register_t parameter(int32_t offset, int32_t& field, int bits, const int32_t& command) {
    const auto mask = static_cast<int32_t>(UINT32_MAX >> (DATA_BITS - bits));
    return {offset, {.handler = io_parameter, .parameter = {&field, &command, mask}}};
}

// A result, and the response after which it may be read:
template <typename field_t>
constexpr register_t result(int32_t offset, const field_t& field, const int32_t& response) {
    static_assert(sizeof(field_t) == sizeof(int32_t) || sizeof(field_t) == sizeof(uint8_t));
    const bool is_byte = sizeof(field_t) == sizeof(uint8_t);
    return {offset, {.handler = io_result, .result = {&field, &response, is_byte}}};
}

// One whose reading may fail or ask the user something:
constexpr register_t result(int32_t offset, const int32_t* (*give)()) { return {offset, {.give = give}}; }

// A command that does nothing until its response is read takes any value at any time.
constexpr int32_t NO_COMMAND = 0;

// All registers that devices have, by offset. What a device does at the others is the handler's.
constexpr register_t REGISTERS[] = {
    // switches, LEDs, hexadecimal displays, timer
    polled(0x00, read_sw, until_event),
    written(0x01, write_led_red),
    written(0x02, write_led_green),
    written(0x03, write_hex30),
    written(0x04, write_hex74),
    polled(0x05, read_timer, timer_steady_until),
    // LCD
    written(0x10, write_lcd_command),
    polled(0x11, read_lcd_response, until_event),
    parameter(0x12, machine.lcd_x, 4, machine.lcd_command),
    parameter(0x13, machine.lcd_y, 1, machine.lcd_command),
    parameter(0x14, machine.lcd_ascii, 8, machine.lcd_command),
    // PS/2 keyboard
    written(0x20, write_ps2_command),
    polled(0x21, read_ps2_response, until_event),
    result(0x22, machine.ps2_event.pressed, machine.ps2_response),
    result(0x23, machine.ps2_event.ascii, machine.ps2_response),
    // SDRAM controller
    written(0x30, write_sdram_command),
    polled(0x31, read_sdram_response, until_event),
    parameter(0x32, machine.sdram_write, 1, machine.sdram_command),
    parameter(0x33, machine.sdram_address, 25, machine.sdram_command),
    parameter(0x34, machine.sdram_data_write, 32, machine.sdram_command),
    result(0x35, machine.sdram_data_read, machine.sdram_response),
    // speaker
    written(0x40, write_speaker_command),
    polled(0x41, read_speaker_response, until_event),
    parameter(0x42, machine.speaker_sample, 32, machine.speaker_command),
    // microphone
    written(0x50, write_microphone_command),
    polled(0x51, read_microphone_response, until_event),
    result(0x52, give_microphone_sample),
    // VGA controller
    written(0x60, write_vga_command),
    polled(0x61, read_vga_response, vga_steady_until),
    parameter(0x62, machine.vga_write, 1, machine.vga_command),
    parameter(0x63, machine.vga_x1, 10, machine.vga_command),
    parameter(0x64, machine.vga_y1, 10, machine.vga_command),
    parameter(0x65, machine.vga_x2, 10, machine.vga_command),
    parameter(0x66, machine.vga_y2, 10, machine.vga_command),
    parameter(0x67, machine.vga_color_write, 15, machine.vga_command),
    result(0x68, machine.vga_color_read, machine.vga_response),
    // mouse
    parameter(0x70, machine.mouse_command, 1, NO_COMMAND),
    polled(0x71, read_mouse_response, until_event),
    result(0x72, machine.mouse_deltax, machine.mouse_response),
    result(0x73, machine.mouse_deltay, machine.mouse_response),
    result(0x74, machine.mouse_button1, machine.mouse_response),
    result(0x75, machine.mouse_button2, machine.mouse_response),
    result(0x76, machine.mouse_button3, machine.mouse_response),
    // SD card
    written(0x80, take_sd_command),
    polled(0x81, read_sd_response, sd_steady_until),
    parameter(0x82, machine.sd_write, 32, machine.sd_command),
    parameter(0x83, machine.sd_address, 30, machine.sd_command),
    parameter(0x84, machine.sd_data_write, 32, machine.sd_command),
    result(0x85, machine.sd_data_read, machine.sd_response),
    // serial receive
    written(0x90, take_serial_receive_command),
    polled(0x91, nullptr, serial_receive_steady_until),
    result(0x92, give_serial_receive_data),
    // serial send
    written(0xa0, take_serial_send_command),
    polled(0xa1, nullptr, serial_send_steady_until),
    written(0xa2, take_serial_send_data),
    // camera
    written(0xb0, take_camera_command),
    polled(0xb1, read_camera_response, camera_steady_until),
    parameter(0xb2, machine.camera_x, 10, machine.camera_command),
    parameter(0xb3, machine.camera_y, 10, machine.camera_command),
    parameter(0xb4, machine.camera_scale, 2, machine.camera_command),
    parameter(0xb5, machine.camera_flip, 1, machine.camera_command),
    // FFT input
    written(0xc0, write_fft_send_command),
    polled(0xc1, read_fft_send_response, fft_steady_until),
    written(0xc2, take_fft_real),
    written(0xc3, take_fft_imaginary),
    parameter(0xc4, machine.fft_send_inverse, 1, machine.fft_send_command),
    parameter(0xc5, machine.fft_send_end, 32, machine.fft_send_command),
    // FFT output
    written(0xd0, write_fft_receive_command),
    polled(0xd1, read_fft_receive_response, fft_steady_until),
    result(0xd2, machine.fft_receive_real, machine.fft_receive_response),
    result(0xd3, machine.fft_receive_imaginary, machine.fft_receive_response),
    // touch screen
    parameter(0xe0, machine.touch_command, 1, NO_COMMAND),
    polled(0xe1, read_touch_response, until_event),
    result(0xe2, machine.touch_x, machine.touch_response),
    result(0xe3, machine.touch_y, machine.touch_response),
    result(0xe4, machine.touch_pressed, machine.touch_response),
};

constexpr port_t NOBODYS{};

} // namespace

constexpr std::array<port_t, IO_SLOTS> io_ports = [] {
    std::array<port_t, IO_SLOTS> ports{};
    for (const auto& [offset, port] : REGISTERS) {
        ports[static_cast<size_t>(offset)] = port;
    }
    for (const auto& [first, last, handler] : ADDRESS_MAP) {
        for (int32_t offset = first; offset <= last; ++offset) {
            io_handler_t& own = ports[static_cast<size_t>(offset)].handler;
            own = own == nullptr ? handler : own;
        }
    }
    return ports;
}();

const port_t& io_port(int32_t address) {
    const int32_t offset = io_offset(address);
    return offset < IO_SLOTS ? io_ports[static_cast<size_t>(offset)] : NOBODYS;
}

int32_t io(bool write, int32_t address, int32_t data) {
    const port_t& port = io_port(address);
    if (port.handler == nullptr) {
        throw tovik_error("illegal address " + std::to_string(address) + "\n");
    }
    return port.handler(write, address, data);
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
    if (!takes(port, value, command)) {
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
