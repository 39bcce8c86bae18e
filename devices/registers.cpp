#include "devices/registers.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace {

using enum direction_e;
using enum register_e;

constexpr board_register_t LAMPS[] = {
    {0x00, "switches", READ, PLAIN, "17-0", "bit i is switch i"},
    {0x01, "red LEDs", WRITE, PLAIN, "17-0", "bit i lights LED i"},
    {0x02, "green LEDs", WRITE, PLAIN, "7-0", "bit i lights LED i"},
    {0x03, "HEX3-HEX0", WRITE, PLAIN, "15-0", "shown as four hexadecimal digits"},
    {0x04, "HEX7-HEX4", WRITE, PLAIN, "15-0", "shown as four hexadecimal digits"},
    {0x05, "timer", READ, PLAIN, "31-0", "ticks of 833 instructions since the start or Reset"},
};

constexpr board_register_t LCD[] = {
    {0x10, "command", WRITE, COMMAND, "0", "a change from 0 to 1 shows the character"},
    {0x11, "response", READ, RESPONSE, "0", "equals the command"},
    {0x12, "column", WRITE, PARAMETER, "3-0", "0 to 15"},
    {0x13, "line", WRITE, PARAMETER, "0", "0 or 1"},
    {0x14, "character", WRITE, PARAMETER, "7-0", "its code"},
};

constexpr board_register_t KEYBOARD[] = {
    {0x20, "command", WRITE, COMMAND, "0", "1 asks for the oldest event, the change back to 0 removes it"},
    {0x21, "response", READ, RESPONSE, "0", "1 if the command is 1 and there is an event"},
    {0x22, "pressed", READ, RESULT, "0", "1 when the key went down, 0 when it went up"},
    {0x23, "character", READ, RESULT, "7-0", "its code"},
};

constexpr board_register_t SDRAM[] = {
    {0x30, "command", WRITE, COMMAND, "0", "a change from 0 to 1 reads or writes the word"},
    {0x31, "response", READ, RESPONSE, "0", "1 if the command is 1"},
    {0x32, "write", WRITE, PARAMETER, "0", "1 to write a word, 0 to read one"},
    {0x33, "address", WRITE, PARAMETER, "24-0", "of the word"},
    {0x34, "word to write", WRITE, PARAMETER, "31-0", "its new value"},
    {0x35, "word read", READ, RESULT, "31-0", "its value"},
};

constexpr board_register_t SPEAKER[] = {
    {0x40, "command", WRITE, COMMAND, "0", "a change from 0 to 1 gives the speaker the sample"},
    {0x41, "response", READ, RESPONSE, "0", "1 if the command is 1 and the sample has been played"},
    {0x42, "sample", WRITE, PARAMETER, "31-0", "with a sign"},
};

constexpr board_register_t MICROPHONE[] = {
    {0x50, "command", WRITE, COMMAND, "0", "1 asks for a sample, the change back to 0 gives it up"},
    {0x51, "response", READ, RESPONSE, "0", "1 if the command is 1 and there is a new sample"},
    {0x52, "sample", READ, RESULT, "31-0", "with a sign"},
};

constexpr board_register_t SCREEN[] = {
    {0x60, "command", WRITE, COMMAND, "0", "a change from 0 to 1 begins"},
    {0x61, "response", READ, RESPONSE, "0", "1 if the command is 1 and done"},
    {0x62, "write", WRITE, PARAMETER, "0", "1 to fill a rectangle, 0 to read a point"},
    {0x63, "x1", WRITE, PARAMETER, "9-0", "left column"},
    {0x64, "y1", WRITE, PARAMETER, "9-0", "top row"},
    {0x65, "x2", WRITE, PARAMETER, "9-0", "right column, which belongs to the rectangle"},
    {0x66, "y2", WRITE, PARAMETER, "9-0", "bottom row, which belongs to the rectangle"},
    {0x67, "color to write", WRITE, PARAMETER, "14-0", "red in bits 14-10, green in 9-5, blue in 4-0"},
    {0x68, "color read", READ, RESULT, "15-0", "that of the point x1, y1"},
};

constexpr board_register_t MOUSE[] = {
    {0x70, "command", WRITE, COMMAND, "0", "1 asks for a report"},
    {0x71, "response", READ, RESPONSE, "0", "1 if the command is 1 and something has changed"},
    {0x72, "delta x", READ, RESULT, "31-0", "points moved to the right since the last report"},
    {0x73, "delta y", READ, RESULT, "31-0", "points moved downward since the last report"},
    {0x74, "button 1", READ, RESULT, "0", "1 while the left button is down"},
    {0x75, "button 2", READ, RESULT, "0", "1 while the middle button is down"},
    {0x76, "button 3", READ, RESULT, "0", "1 while the right button is down"},
};

constexpr board_register_t SD_CARD[] = {
    {0x80, "command", WRITE, COMMAND, "0", "a change from 0 to 1 begins"},
    {0x81, "response", READ, RESPONSE, "0", "1 if the command is 1 and done"},
    {0x82, "write", WRITE, PARAMETER, "31-0", "0 to read a word, anything else to write one"},
    {0x83, "address", WRITE, PARAMETER, "29-0", "of the word"},
    {0x84, "word to write", WRITE, PARAMETER, "31-0", "its new value"},
    {0x85, "word read", READ, RESULT, "31-0", "its value"},
};

constexpr board_register_t SERIAL_RECEIVE[] = {
    {0x90, "command", WRITE, COMMAND, "0", "1 asks for the oldest byte, the change back to 0 removes it"},
    {0x91, "response", READ, RESPONSE, "0", "1 if the command is 1 and there is a byte"},
    {0x92, "received byte", READ, RESULT, "7-0", "0 to 255"},
};

constexpr board_register_t SERIAL_SEND[] = {
    {0xa0, "command", WRITE, COMMAND, "0", "a change from 0 to 1 sends the byte"},
    {0xa1, "response", READ, RESPONSE, "0", "1 if the command is 1 and the port is not busy"},
    {0xa2, "byte to send", WRITE, PARAMETER, "7-0", "0 to 255"},
};

constexpr board_register_t CAMERA[] = {
    {0xb0, "command", WRITE, COMMAND, "0", "a change from 0 to 1 copies the newest picture"},
    {0xb1, "response", READ, RESPONSE, "0", "1 if the command is 1 and the camera is not busy"},
    {0xb2, "x", WRITE, PARAMETER, "9-0", "left column"},
    {0xb3, "y", WRITE, PARAMETER, "9-0", "top row"},
    {0xb4, "scale", WRITE, PARAMETER, "1-0",
     "3 for all points, 2 for half, 1 for a quarter, 0 for an eighth"},
    {0xb5, "flip", WRITE, PARAMETER, "0", "1 for a mirrored picture"},
};

constexpr board_register_t FFT_SEND[] = {
    {0xc0, "send command", WRITE, COMMAND, "0", "a change from 0 to 1 takes the point"},
    {0xc1, "send response", READ, RESPONSE, "0", "1 if the command is 1 and the unit is not busy"},
    {0xc2, "send real", WRITE, PARAMETER, "31-0", "-32768 to 32767"},
    {0xc3, "send imaginary", WRITE, PARAMETER, "31-0", "-32768 to 32767"},
    {0xc4, "send inverse", WRITE, PARAMETER, "0", "1 for the inverse transform"},
    {0xc5, "send end", WRITE, PARAMETER, "31-0", "not 0: this point is the last of the block"},
};

constexpr board_register_t FFT_RECEIVE[] = {
    {0xd0, "receive command", WRITE, COMMAND, "0",
     "1 asks for the result, the change back to 0 goes to the next"},
    {0xd1, "receive response", READ, RESPONSE, "0", "1 if the command is 1 and there is a result"},
    {0xd2, "receive real", READ, RESULT, "31-0", "-32768 to 32767"},
    {0xd3, "receive imaginary", READ, RESULT, "31-0", "-32768 to 32767"},
};

constexpr board_register_t TOUCH_SCREEN[] = {
    {0xe0, "command", WRITE, COMMAND, "0", "1 asks for a report"},
    {0xe1, "response", READ, RESPONSE, "0",
     "1 if the command is 1 and the finger came down, moved or went up"},
    {0xe2, "x", READ, RESULT, "9-0", "0 to 639"},
    {0xe3, "y", READ, RESULT, "8-0", "0 to 479"},
    {0xe4, "pressed", READ, RESULT, "0", "1 while the finger is down"},
};

constexpr std::string_view NO_HANDSHAKE = "none";
constexpr std::string_view DONE =
    "write the parameters, then 1 to the command; read the response until it is 1; write 0 to the command";
constexpr std::string_view DONE_WITH_RESULT = "write the parameters, then 1 to the command; read the "
                                              "response until it is 1; read the result; write 0 to the "
                                              "command";
constexpr std::string_view EVENT =
    "write 1 to the command; read the response until it is 1; read the results; write 0 to the command";
constexpr std::string_view REPORT = "write 1 to the command; read the response until it is 1; read the "
                                    "results; write 0 to the command; read the "
                                    "response until it is 0";

constexpr device_t DEVICES[] = {
    {"switches, LEDs, displays, timer", 0x00, 0x05, NO_HANDSHAKE, LAMPS},
    {"LCD", 0x10, 0x14, DONE, LCD},
    {"keyboard", 0x20, 0x23, EVENT, KEYBOARD},
    {"SDRAM", 0x30, 0x35, DONE_WITH_RESULT, SDRAM},
    {"speaker", 0x40, 0x42, DONE, SPEAKER},
    {"microphone", 0x50, 0x52, EVENT, MICROPHONE},
    {"screen", 0x60, 0x68, DONE_WITH_RESULT, SCREEN},
    {"mouse", 0x70, 0x76, REPORT, MOUSE, true},
    {"SD card", 0x80, 0x85, DONE_WITH_RESULT, SD_CARD},
    {"serial port, receiving", 0x90, 0x92, EVENT, SERIAL_RECEIVE},
    {"serial port, sending", 0xa0, 0xa2, DONE, SERIAL_SEND},
    {"camera", 0xb0, 0xb5, DONE, CAMERA},
    {"FFT unit, points in", 0xc0, 0xc5, DONE, FFT_SEND},
    {"FFT unit, results out", 0xd0, 0xd3, EVENT, FFT_RECEIVE},
    {"touch screen", 0xe0, 0xe4, REPORT, TOUCH_SCREEN, true},
    {"none", 0xf0, 0xf3, NO_HANDSHAKE, {}},
    {"none", 0x100, 0x103, NO_HANDSHAKE, {}},
};

constexpr uint8_t NONE = 0xff;
constexpr auto END = static_cast<size_t>(std::rbegin(DEVICES)->last) + 1;

// Index of the device that owns an offset.
constexpr auto OWNERS = [] {
    std::array<uint8_t, END> owners{};
    owners.fill(NONE);
    for (size_t i = 0; i < std::size(DEVICES); ++i) {
        std::fill(&owners[static_cast<size_t>(DEVICES[i].first)],
                  &owners[static_cast<size_t>(DEVICES[i].last)] + 1, static_cast<uint8_t>(i));
    }
    return owners;
}();

} // namespace

std::span<const device_t> board_devices() { return DEVICES; }

const device_t* find_device(int32_t offset) {
    const bool within = offset >= 0 && static_cast<size_t>(offset) < END;
    const uint8_t owner = within ? OWNERS[static_cast<size_t>(offset)] : NONE;
    return owner == NONE ? nullptr : &DEVICES[owner];
}

const board_register_t* find_register(int32_t offset) {
    const device_t* const device = find_device(offset);
    if (device == nullptr) {
        return nullptr;
    }
    const auto found = std::find_if(device->registers.begin(), device->registers.end(),
                                    [&](const board_register_t& one) { return one.offset == offset; });
    return found == device->registers.end() ? nullptr : &*found;
}
