#pragma once

// The picture on the VGA screen, as vga_refresh and vga_box of gui.h paint it. A front end takes from here
// what changed since it last did, when it is about to show it: painting itself asks nothing of any window
// system.

#include <cstdint>
#include <vector>

#include "base/machine.h"

// What changed on the screen. Either a few boxes to fill in this order, or, when there are too many of them,
// one box that has all changes in it, to be copied from machine.vga_picture.
struct screen_changes_t {
    std::vector<colored_box_t> fills;
    bool copy; // whether to copy `area` instead
    box_t area;
};

// Whether there is a screen to paint on; false once its window is closed. Painting does nothing then.
extern bool screen_open;

// Told of each box of one colour, and (with nullptr) of each picture of many, that is painted on the screen;
// its corners lie within 1024x1024. nullptr: nobody.
extern void (*screen_painted)(const box_t& box, const uint16_t* color);

// Takes what changed since the last call; `fills` is empty and `copy` false when nothing did. All of it is in
// machine.vga_picture then.
screen_changes_t take_screen_changes();

// A channel of 5 bits (0 to 31) widened to 16 by repeating its bits: 0 gives 0, 31 gives 0xffff.
constexpr uint16_t widen_channel(int32_t channel) {
    return static_cast<uint16_t>(channel << 11 | channel << 6 | channel << 1 | (channel & 1));
}

// A colour of 15 bits as 0xRRGGBB, each channel widened.
constexpr uint32_t true_color(uint16_t color) {
    const uint32_t red = widen_channel(color >> 10 & 0x1f) >> 8;
    const uint32_t green = widen_channel(color >> 5 & 0x1f) >> 8;
    const uint32_t blue = widen_channel(color & 0x1f) >> 8;
    return red << 16 | green << 8 | blue;
}
