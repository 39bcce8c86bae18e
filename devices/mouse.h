#pragma once

// Mouse: relative motion and three buttons, while it is active.

#include <cstdint>

// The register handler of the I/O bus.
int32_t io_mouse(bool write, int32_t address, int32_t data);

// For the table of registers.
int32_t read_mouse_response();

// Active, with its own cursor over the screen.
void io_mouse_activate();

// Inactive, unless the user switched it off: then it stays switched off. Forgets motion and buttons.
void io_mouse_deactivate();

// A button of the pointer went down or up over the screen: 0 left, 1 middle, 2 right; others are ignored. A
// press activates the mouse.
void io_mouse_press(int button);
void io_mouse_release(int button);

// The pointer moved to a position over the screen, in pixels. It may lie outside.
void io_mouse_motion(int x, int y);

// No command, inactive.
void reset_mouse();
