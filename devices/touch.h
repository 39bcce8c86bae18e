#pragma once

// Touch screen: absolute position of the pointer, and whether it touches.

#include <cstdint>

// The register handler of the I/O bus.
int32_t io_touch(bool write, int32_t address, int32_t data);

// For the table of registers.
int32_t read_touch_response();

// The pointer is at a position over the screen, in pixels; one outside counts as the nearest inside.
void io_touch_motion(int x, int y);

// No command, no touch reported. Where the pointer is stays known.
void reset_touch();
