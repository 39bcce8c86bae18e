#pragma once

// A capture device of the host's: frames of 640x480 points in YUYV. Nothing waits behind this longer than it
// is told to.

#include <cstdint>

constexpr int CAPTURE_WIDTH = 640;
constexpr int CAPTURE_HEIGHT = 480;

// Opens the first device that gives such frames, and starts it. Returns whether there is one. The other
// functions need an open device.
[[nodiscard]] bool capture_open();

// Whether there is a frame to take. A failure of the device counts as one: taking the frame then names it.
// Waits for it so many milliseconds at most; a host that cannot wait answers at once.
[[nodiscard]] bool capture_ready(int most_ms);

// Whether a program that has no frame yet, and asks this again and again, need not wait on: there is one, or
// there was none for 5 s, and taking it then says so. Waits like capture_ready.
[[nodiscard]] bool capture_settled(int most_ms);

// The newest frame, row by row, each pair of points in four bytes: y of the first, u, y of the second, v. It
// can be read until it is given back, and must be before the next is taken. Both throw tovik_error.
[[nodiscard]] const uint8_t* capture_take();
void capture_give_back();

// Returns whether the device has stopped, so that it can be closed.
[[nodiscard]] bool capture_stop();

// Closes the device, if one is open, in whatever state it is.
void capture_close();
