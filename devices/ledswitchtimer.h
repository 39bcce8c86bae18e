#pragma once

// Slide switches, LEDs, hexadecimal displays and the timer.

#include <cstdint>

constexpr int SWITCHES = 18;
constexpr int RED_LEDS = 18;
constexpr int GREEN_LEDS = 8;

// The register handlers of the I/O bus. Each throws tovik_error for the direction that it does not have.
int32_t io_sw(bool write, int32_t address);
void io_led_red(bool write, int32_t address, int32_t data);
void io_led_green(bool write, int32_t address, int32_t data);
void io_hex30(bool write, int32_t address, int32_t data);
void io_hex74(bool write, int32_t address, int32_t data);
int32_t io_timer(bool write, int32_t address);

// For the table of registers.
int32_t read_sw();
int32_t read_timer();
uint64_t timer_steady_until();
void write_led_red(int32_t data);
void write_led_green(int32_t data);
void write_hex30(int32_t data);
void write_hex74(int32_t data);

// Flips switch 0 to 17, as a click on it does, and redraws it.
void io_sw_toggle(int switch_number);

// All switches off, redrawn. Reset does not call it: switches stay as the user set them.
void reset_sw();

// Value 0; drawn by the next print function.
void reset_led();
void reset_hex30();
void reset_hex74();

// Redraw the LEDs that differ from what was last drawn.
void print_led_red();
void print_led_green();

// Show the four hexadecimal digits of the displays.
void print_hex30();
void print_hex74();
