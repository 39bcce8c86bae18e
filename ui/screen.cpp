// The picture is kept apart from the video memory: the two differ where a rectangle's last row or column was
// painted, since those are not recorded as painted, and a later refresh may pass over them.

#include "ui/screen.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "base/gui.h"
#include "base/machine.h"

bool screen_open = true;

namespace {

constexpr uint32_t COORDINATES = VGA_RAM_SIZE;

// Beyond so many boxes one copy of the picture is cheaper to show.
constexpr size_t MOST_FILLS = 64;

constexpr box_t WHOLE_SCREEN = {0, 0, VGA_WIDTH - 1, VGA_HEIGHT - 1};

uint32_t own_pixels[VGA_HEIGHT * VGA_WIDTH];
uint32_t* picture = own_pixels;
int32_t pixels_per_picture_row = VGA_WIDTH;

// The colour last painted by a refresh or recorded by a box.
uint16_t vga_last[VGA_HEIGHT][VGA_WIDTH];

// Boxes that are not in the picture yet. A box over the whole screen makes all before it void, so that a
// program that fills the screen again and again costs one fill each time it is shown.
std::vector<colored_box_t> pending;
screen_changes_t changes;

uint32_t* picture_row(int32_t y) { return picture + y * pixels_per_picture_row; }

bool is_whole_screen(const box_t& box) {
    return box.x1 == 0 && box.y1 == 0 && box.x2 == VGA_WIDTH - 1 && box.y2 == VGA_HEIGHT - 1;
}

void add_to_area(const box_t& box) {
    if (!changes.copy) {
        changes.area = box;
        changes.copy = true;
        return;
    }
    box_t& area = changes.area;
    area = {std::min(area.x1, box.x1), std::min(area.y1, box.y1), std::max(area.x2, box.x2),
            std::max(area.y2, box.y2)};
}

// Up to the last row and column, which stay unrecorded.
void paint_and_record(const colored_box_t& fill) {
    const auto& [box, color] = fill;
    const uint32_t pixel = true_color(color);
    for (int32_t y = box.y1; y <= box.y2; ++y) {
        std::fill(picture_row(y) + box.x1, picture_row(y) + box.x2 + 1, pixel);
    }
    for (int32_t y = box.y1; y < box.y2; ++y) {
        std::fill(vga_last[y] + box.x1, vga_last[y] + box.x2, color);
    }
}

void paint_pending() {
    for (const colored_box_t& fill : pending) {
        paint_and_record(fill);
    }
}

// From now on until the changes are taken, one copy will show them.
void switch_to_copy() {
    paint_pending();
    for (const colored_box_t& fill : pending) {
        add_to_area(fill.box);
    }
    pending.clear();
}

// Whether any of the screen's pixels in the rectangle changed.
bool refresh_pixels(uint32_t x_start, uint32_t y_start, uint32_t x_size, uint32_t y_size) {
    bool changed = false;
    for (uint32_t row = 0; row < y_size; ++row) {
        const uint32_t y = (y_start + row) % COORDINATES;
        if (y >= VGA_HEIGHT) {
            continue;
        }
        for (uint32_t column = 0; column < x_size; ++column) {
            const uint32_t x = (x_start + column) % COORDINATES;
            if (x >= VGA_WIDTH) {
                continue;
            }
            const auto color = static_cast<uint16_t>(machine.vga_ram[y][x] & COLOR_MASK);
            if (vga_last[y][x] != color) {
                vga_last[y][x] = color;
                picture_row(static_cast<int32_t>(y))[x] = true_color(color);
                changed = true;
            }
        }
    }
    return changed;
}

} // namespace

void vga_refresh(unsigned x_start, unsigned y_start, unsigned x_size, unsigned y_size) {
    // The texts are known so.
    // clang-format off
    assert(x_start<1024);
    assert(y_start<1024);
    assert(x_size<1024);
    assert(y_size<1024);
    // clang-format on
    if (!screen_open) {
        return;
    }
    switch_to_copy();
    if (y_size == 0 || refresh_pixels(x_start, y_start, x_size, y_size)) {
        add_to_area(WHOLE_SCREEN);
    }
}

void vga_box(int32_t x1, int32_t y1, int32_t x2, int32_t y2, uint16_t color) {
    if (!screen_open) {
        return;
    }
    assert(x1 >= 0 && x1 < 640);
    assert(y1 >= 0 && y1 < 480);
    assert(x2 >= 0 && x2 < 640);
    assert(y2 >= 0 && y2 < 480);
    if (y2 < y1 || x2 < x1) {
        return;
    }
    const colored_box_t fill = {{x1, y1, x2, y2}, static_cast<uint16_t>(color & COLOR_MASK)};
    if (is_whole_screen(fill.box)) {
        pending.clear();
        changes.copy = false;
    }
    if (changes.copy) {
        paint_and_record(fill);
        add_to_area(fill.box);
        return;
    }
    pending.push_back(fill);
    if (pending.size() > MOST_FILLS) {
        switch_to_copy();
    }
}

screen_changes_t take_screen_changes() {
    paint_pending();
    changes.fills = std::move(pending);
    pending.clear();
    return std::exchange(changes, {});
}

const uint32_t* screen_row(int32_t y) { return picture_row(y); }

void keep_screen_in(uint32_t* pixels, int32_t pixels_per_row) {
    for (int32_t y = 0; y < VGA_HEIGHT; ++y) {
        std::copy_n(picture_row(y), VGA_WIDTH, pixels + y * pixels_per_row);
    }
    picture = pixels;
    pixels_per_picture_row = pixels_per_row;
}
