#pragma once

// VGA controller.

#include <cstdint>

// The visible part of the video memory, its top left corner.
constexpr int VGA_WIDTH = 640;
constexpr int VGA_HEIGHT = 480;

// The video memory is square.
constexpr int VGA_RAM_SIZE = 1024;

// Red in bits 14 to 10, green in 9 to 5, blue in 4 to 0; the other bit of a word of video memory means
// nothing.
constexpr int32_t COLOR_MASK = 0x7fff;

// The register handler of the I/O bus.
int32_t io_vga(bool write, int32_t address, int32_t data);

// For the table of registers.
int32_t read_vga_response();
uint64_t vga_steady_until();
void write_vga_command(int32_t data);

// No command, all registers 0. The video memory stays as it is.
void reset_vga();

// Fills the video memory with noise and shows it.
void clear_vga();

// The "Save VGA" button: asks for a file and writes the whole video memory to it, row by row, each word low
// byte first. Shows failures in a dialog.
void save_vga();
