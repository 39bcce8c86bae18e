#pragma once

// Character display of two lines of 16 characters.

#include <cstdint>

// The register handler of the I/O bus.
int32_t io_lcd(bool write, int32_t address, int32_t data);

// For the table of registers.
void write_lcd_command(int32_t data);
int32_t read_lcd_response();

// No command, all spaces; drawn by the next print_lcd.
void reset_lcd();

// Shows the display's memory.
void print_lcd();
