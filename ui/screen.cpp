// The picture is kept apart from the video memory: the two differ where a rectangle's last row or column was
// painted, since those are not recorded as painted, and a later refresh may pass over them.

#include "ui/screen.h"

#include <algorithm>
#include <cassert>
#include <type_traits>
#include <utility>

#include "base/gui.h"
#include "base/machine.h"
#include "devices/vga.h"

bool screen_open = true;
void (*screen_painted)(const box_t& box, const uint16_t* color) = nullptr;

namespace {

constexpr uint32_t COORDINATES = VGA_RAM_SIZE;

// Beyond so many boxes one copy of the picture is cheaper to show.
constexpr size_t MOST_FILLS = 64;

static_assert(std::extent_v<decltype(machine.vga_picture), 0> == VGA_HEIGHT);
static_assert(std::extent_v<decltype(machine.vga_picture), 1> == VGA_WIDTH);

constexpr box_t WHOLE_SCREEN = {0, 0, VGA_WIDTH - 1, VGA_HEIGHT - 1};

screen_changes_t changes;

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

// Recorded is all up to the last row and column.
void paint_and_record(const colored_box_t& fill) {
    const auto& [box, color] = fill;
    const uint32_t pixel = true_color(color);
    for (int32_t y = box.y1; y <= box.y2; ++y) {
        uint32_t* const row = machine.vga_picture[y];
        std::fill(row + box.x1, row + box.x2 + 1, pixel);
    }
    for (int32_t y = box.y1; y < box.y2; ++y) {
        std::fill(machine.vga_last[y] + box.x1, machine.vga_last[y] + box.x2, color);
    }
}

void paint_pending() {
    for (const colored_box_t& fill : machine.vga_pending) {
        paint_and_record(fill);
    }
}

// From now on until the changes are taken, one copy will show them.
void switch_to_copy() {
    paint_pending();
    for (const colored_box_t& fill : machine.vga_pending) {
        add_to_area(fill.box);
    }
    machine.vga_pending.clear();
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
            if (machine.vga_last[y][x] != color) {
                machine.vga_last[y][x] = color;
                machine.vga_picture[y][x] = true_color(color);
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
    if (screen_painted != nullptr && y_size > 0) {
        const auto x = static_cast<int32_t>(x_start);
        const auto y = static_cast<int32_t>(y_start);
        screen_painted({x, y, x + static_cast<int32_t>(x_size) - 1, y + static_cast<int32_t>(y_size) - 1},
                       nullptr);
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
    if (screen_painted != nullptr) {
        screen_painted(fill.box, &fill.color);
    }
    if (fill.box == WHOLE_SCREEN) {
        machine.vga_pending.clear();
        changes.copy = false;
    }
    if (changes.copy) {
        paint_and_record(fill);
        add_to_area(fill.box);
        return;
    }
    machine.vga_pending.push_back(fill);
    if (machine.vga_pending.size() > MOST_FILLS) {
        switch_to_copy();
    }
}

screen_changes_t take_screen_changes() {
    paint_pending();
    changes.fills = std::move(machine.vga_pending);
    machine.vga_pending.clear();
    return std::exchange(changes, {});
}

void vga_settle() { switch_to_copy(); }

void vga_repaint() {
    switch_to_copy();
    add_to_area(WHOLE_SCREEN);
}
