// The picture on the screen, against the plainest way to paint it: every box and refresh at once, pixel by
// pixel.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <span>

#include "base/gui.h"
#include "base/machine.h"
#include "devices/vga.h"
#include "tests/support/random_programs.h"
#include "ui/screen.h"

namespace {

uint16_t picture[VGA_HEIGHT][VGA_WIDTH];  // what has been painted
uint16_t recorded[VGA_HEIGHT][VGA_WIDTH]; // what refreshes compare with
uint32_t shown[VGA_HEIGHT][VGA_WIDTH];    // what a window shows that follows the changes

void box(int32_t x1, int32_t y1, int32_t x2, int32_t y2, uint16_t color) {
    vga_box(x1, y1, x2, y2, color);
    for (int32_t y = y1; y <= y2; ++y) {
        for (int32_t x = x1; x <= x2; ++x) {
            picture[y][x] = color & COLOR_MASK;
            recorded[y][x] = y < y2 && x < x2 ? picture[y][x] : recorded[y][x];
        }
    }
}

void refresh(uint32_t x_start, uint32_t y_start, uint32_t x_size, uint32_t y_size) {
    vga_refresh(x_start, y_start, x_size, y_size);
    for (uint32_t i = 0; i < y_size * x_size; ++i) {
        const uint32_t y = (y_start + i / x_size) % 1024;
        const uint32_t x = (x_start + i % x_size) % 1024;
        const uint16_t color = machine.vga_ram[y][x] & COLOR_MASK;
        if (y < VGA_HEIGHT && x < VGA_WIDTH && recorded[y][x] != color) {
            recorded[y][x] = picture[y][x] = color;
        }
    }
}

void show() {
    const auto& [fills, copy, area] = take_screen_changes();
    for (int32_t y = area.y1; copy && y <= area.y2; ++y) {
        std::copy(machine.vga_picture[y] + area.x1, machine.vga_picture[y] + area.x2 + 1, shown[y] + area.x1);
    }
    for (const auto& [filled, color] : fills) {
        for (int32_t y = filled.y1; y <= filled.y2; ++y) {
            std::fill(shown[y] + filled.x1, shown[y] + filled.x2 + 1, true_color(color));
        }
    }
}

TEST(Screen, ShowsWhatWasPaintedHoweverOftenItIsLookedAt) {
    random_t random = {std::random_device{}()};
    SCOPED_TRACE(random.place);
    // From whatever other tests left: everything is painted once, and recorded by a refresh from equal
    // memory.
    std::ranges::fill(std::span(machine.vga_ram[0], 1024 * 1024), uint16_t{0x8001});
    refresh(0, 0, VGA_WIDTH, VGA_HEIGHT);
    box(0, 0, VGA_WIDTH - 1, VGA_HEIGHT - 1, 1);
    for (int round = 0; round < 300; ++round) {
        for (int boxes = one_in(random, 4) ? pick(random, 60, 200) : pick(random, 0, 5); boxes > 0; --boxes) {
            const bool whole = one_in(random, 30);
            const int32_t x1 = whole ? 0 : pick(random, 0, VGA_WIDTH - 1);
            const int32_t y1 = whole ? 0 : pick(random, 0, VGA_HEIGHT - 1);
            const int32_t x2 = std::clamp(x1 + (whole ? 999 : pick(random, -1, 40)), 0, VGA_WIDTH - 1);
            const int32_t y2 = std::clamp(y1 + (whole ? 999 : pick(random, -1, 40)), 0, VGA_HEIGHT - 1);
            box(x1, y1, x2, y2, static_cast<uint16_t>(pick(random, 0, 0xffff)));
        }
        if (one_in(random, 3)) {
            const auto place = [&](int32_t most) { return static_cast<uint32_t>(pick(random, 0, most)); };
            machine.vga_ram[place(1023)][place(1023)] = static_cast<uint16_t>(place(0xffff));
            refresh(place(1023), place(1023), place(1023), place(600));
        }
        show();
        ASSERT_TRUE(std::equal(&picture[0][0], &picture[0][0] + VGA_HEIGHT * VGA_WIDTH, &shown[0][0],
                               [](uint16_t color, uint32_t pixel) { return true_color(color) == pixel; }))
            << "round " << round;
    }
}

} // namespace
