#pragma once

// PS/2 keyboard.

#include <cstdint>

// The register handler of the I/O bus.
int32_t io_ps2(bool write, int32_t address, int32_t data);

// For the table of registers.
int32_t read_ps2_response();
void write_ps2_command(int32_t data);

// A host key went down or up; 0 is a key without a character. Presses repeated by the host are dropped, and a
// release carries the character that its press had, also when Shift changed in between.
void io_ps2_press(char c);
void io_ps2_release(char c);

// The user's key for switching the mouse on and off, Control+M.
void io_ps2_ctrlm();

// No command, no event, no key held.
void reset_ps2();

// The character that a key of a US keyboard gives with Shift, and without. Others are returned unchanged.
char ascii_to_upper(char c);
char ascii_to_lower(char c);
