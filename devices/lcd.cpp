// 2x16 character display. Every command finishes at once.
//
//   offset  register  access  bits   meaning
//   0x10    command   write   0      0 to 1 shows `ascii` at (x, y)
//   0x11    response  read    0      mirrors the command
//   0x12    x         write   3..0   column
//   0x13    y         write   0      line
//   0x14    ascii     write   7..0   character
//
// Not modelled: the real part's cursor, scrolling and busy time.

#include "devices/lcd.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include "base/gui.h"
#include "base/machine.h"
#include "devices/io.h"

namespace {

constexpr int32_t COMMAND = 0x10;
constexpr int32_t RESPONSE = 0x11;

} // namespace

void write_lcd_command(int32_t data) {
    const int32_t command = data & 1;
    if (machine.lcd_command == 0 && command == 1) {
        machine.lcd_ram[machine.lcd_y][machine.lcd_x] = static_cast<uint8_t>(machine.lcd_ascii);
        print_lcd();
    }
    machine.lcd_command = command;
}

int32_t read_lcd_response() { return machine.lcd_command; }

int32_t io_lcd(bool write, int32_t address, int32_t data) {
    const int32_t offset = io_offset(address);
    if (write && offset == COMMAND) {
        write_lcd_command(data);
        return 0;
    }
    if (!write && offset == RESPONSE) {
        return read_lcd_response();
    }
    io_unsupported(address);
}

void reset_lcd() {
    machine.lcd_command = 0;
    machine.lcd_x = 0;
    machine.lcd_y = 0;
    machine.lcd_ascii = 0;
    for (auto& line : machine.lcd_ram) {
        std::fill(std::begin(line), std::end(line), ' ');
    }
}

void print_lcd() {
    const auto& [first, second] = machine.lcd_ram;
    std::string text(std::size(first) + 1 + std::size(second), '\n');
    // A carriage return in the display would break the two lines of the label.
    const auto second_line =
        std::replace_copy(std::begin(first), std::end(first), text.begin(), '\r', ' ') + 1;
    std::replace_copy(std::begin(second), std::end(second), second_line, '\r', ' ');
    gui_lcd_set(std::move(text));
}
