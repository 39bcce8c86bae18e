#include "debugger/ports.h"

#include <algorithm>
#include <cctype>
#include <tuple>
#include <utility>

#include "base/machine.h"
#include "devices/io.h"
#include "devices/registers.h"

namespace {

// What a read of a response gives, with the fields that reading it changes as they were.
template <typename... field_t> int32_t peek_response(int32_t (*read)(), field_t&... fields) {
    const std::tuple before(fields...);
    const int32_t value = read();
    std::tie(fields...) = before;
    return value;
}

struct command_t {
    int32_t offset;
    const int32_t* field;
};

// Registers whose fields the table of the bus does not have.
constexpr command_t WRITTEN[] = {
    {0x01, &machine.led_red},
    {0x02, &machine.led_green},
    {0x03, &machine.hex30},
    {0x04, &machine.hex74},
    {0x10, &machine.lcd_command},
    {0x20, &machine.ps2_command},
    {0x30, &machine.sdram_command},
    {0x40, &machine.speaker_command},
    {0x50, &machine.microphone_command},
    {0x60, &machine.vga_command},
    {0x80, &machine.sd_command},
    {0x90, &machine.serial_receive_command},
    {0x92, &machine.serial_receive_data},
    {0xa0, &machine.serial_send_command},
    {0xa2, &machine.serial_send_data},
    {0xb0, &machine.camera_command},
    {0xc0, &machine.fft_send_command},
    {0xc2, &machine.fft_send_real},
    {0xc3, &machine.fft_send_imaginary},
    {0xd0, &machine.fft_receive_command},
};

int32_t peek_polled(int32_t offset, int32_t (*read)()) {
    switch (offset) {
    case 0x21:
        return machine.ps2_command == 1 && !machine.ps2_events.empty() ? 1 : 0;
    case 0x71:
        return peek_response(read, machine.mouse_response, machine.mouse_deltax, machine.mouse_deltay,
                             machine.mouse_button1, machine.mouse_button2, machine.mouse_button3,
                             machine.mouse_deltax_private, machine.mouse_deltay_private,
                             machine.mouse_available);
    case 0xe1:
        return peek_response(read, machine.touch_response, machine.touch_x, machine.touch_y,
                             machine.touch_pressed);
    case 0xd1:
        return peek_response(read, machine.fft_receive_response, machine.fft_receive_real,
                             machine.fft_receive_imaginary);
    default:
        return peek_response(read, machine.sdram_response, machine.microphone_response, machine.vga_response,
                             machine.sd_response);
    }
}

// But for the case of letters.
bool is_same_name(std::string_view one, std::string_view other) {
    const auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [lower](char left, char right) { return lower(left) == lower(right); });
}

} // namespace

std::optional<int32_t> peek_register(int32_t offset) {
    if (find_register(offset) == nullptr) {
        return std::nullopt;
    }
    const port_t& port = io_port(IO_BASE + offset);
    if (const auto* const written =
            std::find_if(std::begin(WRITTEN), std::end(WRITTEN),
                         [offset](const command_t& command) { return command.offset == offset; });
        written != std::end(WRITTEN)) {
        return *written->field;
    }
    if (port.parameter.field != nullptr) {
        return *port.parameter.field;
    }
    if (port.result.field != nullptr) {
        return port.result.value();
    }
    if (port.polled.read != nullptr) {
        return peek_polled(offset, port.polled.read);
    }
    switch (offset) {
    case 0x52:
        return machine.microphone_samples.empty() ? 0 : machine.microphone_samples.front();
    case 0x91:
        return machine.serial_receive_command != 0 && !machine.serial_queue.empty() ? 1 : 0;
    case 0xa1:
        return machine.serial_send_command != 0 && machine.instr_count >= machine.serial_send_response_instr
                   ? 1
                   : 0;
    default:
        return std::nullopt;
    }
}

std::string register_name(int32_t offset) {
    const device_t* const device = find_device(offset);
    const board_register_t* const found = find_register(offset);
    if (device == nullptr || found == nullptr) {
        return "";
    }
    // Of a device in two parts the first word names both, and each is known by what follows.
    std::string name(found->kind == register_e::PLAIN ? "" : device->name);
    name += name.empty() ? "" : ".";
    name += found->name;
    std::erase(name, ',');
    std::replace(name.begin(), name.end(), ' ', '_');
    std::replace(name.begin(), name.end(), '-', '_'); // it would be a minus
    return name;
}

std::optional<int32_t> find_register_name(std::string_view name) {
    for (const device_t& device : board_devices()) {
        for (const board_register_t& one : device.registers) {
            if (is_same_name(register_name(one.offset), name)) {
                return one.offset;
            }
        }
    }
    return std::nullopt;
}
