// 18 slide switches, 18 red and 8 green LEDs, two groups of four hexadecimal displays, and a free-running
// timer. One register each, no handshake, no busy time.
//
//   offset  register   access  bits   meaning
//   0x00    switches   read    17..0  bit i is switch i
//   0x01    red LEDs   write   17..0  bit i lights LED i
//   0x02    green LEDs write   7..0   bit i lights LED i
//   0x03    HEX3-HEX0  write   15..0  shown as four digits
//   0x04    HEX7-HEX4  write   15..0  shown as four digits
//   0x05    timer      read    31..0  ticks of 833 instructions since Reset
//
// Not modelled: the segments of the displays; their digits are shown as text.

#include "devices/ledswitchtimer.h"

#include <bit>
#include <string>
#include <string_view>

#include "base/gui.h"
#include "base/machine.h"
#include "devices/io.h"

namespace {

constexpr int32_t RED_MASK = (1 << RED_LEDS) - 1;
constexpr int32_t GREEN_MASK = (1 << GREEN_LEDS) - 1;
constexpr int32_t HEX_MASK = 0xffff;

int32_t led_red_drawn = 0;
int32_t led_green_drawn = 0;

void print_leds(int32_t lit, int32_t& drawn, void (*draw)(int)) {
    auto changed = static_cast<uint32_t>(lit ^ drawn);
    for (; changed != 0; changed &= changed - 1) {
        draw(std::countr_zero(changed));
    }
    drawn = lit;
}

std::string four_digits(int32_t value) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (int shift = 12; shift >= 0; shift -= 4) {
        text += digits[static_cast<size_t>(value >> shift & 0xf)];
    }
    return text;
}

// The data is compared before it is masked: bits above the displays' 16 redraw them every time.
void show_hex(int32_t& shown, int32_t data, void (*print)()) {
    if (data != shown) {
        shown = data & HEX_MASK;
        print();
    }
}

void check_direction(bool supported, int32_t address) {
    if (!supported) {
        io_unsupported(address);
    }
}

} // namespace

int32_t read_sw() { return machine.sw; }

int32_t io_sw(bool write, int32_t address) {
    check_direction(!write, address);
    return read_sw();
}

void write_led_red(int32_t data) {
    machine.led_red = data & RED_MASK;
    print_led_red();
}

void io_led_red(bool write, int32_t address, int32_t data) {
    check_direction(write, address);
    write_led_red(data);
}

void write_led_green(int32_t data) {
    machine.led_green = data & GREEN_MASK;
    print_led_green();
}

void io_led_green(bool write, int32_t address, int32_t data) {
    check_direction(write, address);
    write_led_green(data);
}

void write_hex30(int32_t data) { show_hex(machine.hex30, data, print_hex30); }

void io_hex30(bool write, int32_t address, int32_t data) {
    check_direction(write, address);
    write_hex30(data);
}

void write_hex74(int32_t data) { show_hex(machine.hex74, data, print_hex74); }

void io_hex74(bool write, int32_t address, int32_t data) {
    check_direction(write, address);
    write_hex74(data);
}

int32_t read_timer() { return static_cast<int32_t>(machine.instr_count / INSTRUCTIONS_PER_TICK); }

uint64_t timer_steady_until() {
    return (machine.instr_count / INSTRUCTIONS_PER_TICK + 1) * INSTRUCTIONS_PER_TICK;
}

int32_t io_timer(bool write, int32_t address) {
    check_direction(!write, address);
    return read_timer();
}

void io_sw_toggle(int switch_number) {
    machine.sw ^= 1 << switch_number;
    gui_sw_draw(switch_number);
}

void reset_sw() {
    machine.sw = 0;
    for (int i = 0; i < SWITCHES; ++i) {
        gui_sw_draw(i);
    }
}

void reset_led() {
    machine.led_red = 0;
    machine.led_green = 0;
}

void reset_hex30() { machine.hex30 = 0; }

void reset_hex74() { machine.hex74 = 0; }

void print_led_red() { print_leds(machine.led_red, led_red_drawn, gui_led_red_draw); }

void print_led_green() { print_leds(machine.led_green, led_green_drawn, gui_led_green_draw); }

void print_hex30() { gui_hex30_set(four_digits(machine.hex30)); }

void print_hex74() { gui_hex74_set(four_digits(machine.hex74)); }
