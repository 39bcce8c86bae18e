// The picture on the screen, against the plainest way to paint it: every box and refresh at once, pixel by
// pixel.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "base/gui.h"
#include "base/machine.h"
#include "devices/vga.h"
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
            if (y < y2 && x < x2) {
                recorded[y][x] = color & COLOR_MASK;
            }
        }
    }
}

void refresh(uint32_t x_start, uint32_t y_start, uint32_t x_size, uint32_t y_size) {
    vga_refresh(x_start, y_start, x_size, y_size);
    for (uint32_t i = 0; i < y_size; ++i) {
        for (uint32_t j = 0; j < x_size; ++j) {
            const uint32_t y = (y_start + i) % 1024;
            const uint32_t x = (x_start + j) % 1024;
            if (y >= VGA_HEIGHT || x >= VGA_WIDTH) {
                continue;
            }
            const uint16_t color = machine.vga_ram[y][x] & COLOR_MASK;
            if (recorded[y][x] != color) {
                recorded[y][x] = color;
                picture[y][x] = color;
            }
        }
    }
}

void show() {
    const screen_changes_t changes = take_screen_changes();
    if (changes.copy) {
        for (int32_t y = changes.area.y1; y <= changes.area.y2; ++y) {
            std::copy(machine.vga_picture[y] + changes.area.x1, machine.vga_picture[y] + changes.area.x2 + 1,
                      shown[y] + changes.area.x1);
        }
    }
    for (const auto& [filled, color] : changes.fills) {
        for (int32_t y = filled.y1; y <= filled.y2; ++y) {
            std::fill(shown[y] + filled.x1, shown[y] + filled.x2 + 1, true_color(color));
        }
    }
}

TEST(Screen, ShowsWhatWasPaintedHoweverOftenItIsLookedAt) {
    const unsigned seed = std::random_device{}();
    std::mt19937 random(seed);
    const auto pick = [&](int32_t low, int32_t high) {
        return std::uniform_int_distribution(low, high)(random);
    };
    // From whatever other tests left: everything is painted once, and recorded by a refresh from equal
    // memory.
    for (auto& row : machine.vga_ram) {
        std::fill(std::begin(row), std::end(row), uint16_t{0x8001});
    }
    refresh(0, 0, VGA_WIDTH, VGA_HEIGHT);
    box(0, 0, VGA_WIDTH - 1, VGA_HEIGHT - 1, 1);
    show();
    for (int round = 0; round < 300; ++round) {
        const int boxes = pick(0, 3) == 0 ? pick(60, 200) : pick(0, 5);
        for (int i = 0; i < boxes; ++i) {
            const int32_t x1 = pick(0, VGA_WIDTH - 1);
            const int32_t y1 = pick(0, VGA_HEIGHT - 1);
            const auto color = static_cast<uint16_t>(pick(0, 0xffff));
            if (pick(0, 30) == 0) {
                box(0, 0, VGA_WIDTH - 1, VGA_HEIGHT - 1, color);
            } else {
                const int32_t x2 = std::min(x1 + pick(-1, 40), VGA_WIDTH - 1);
                const int32_t y2 = std::min(y1 + pick(-1, 40), VGA_HEIGHT - 1);
                box(x1, y1, std::max(x2, 0), std::max(y2, 0), color);
            }
        }
        if (pick(0, 2) == 0) {
            machine.vga_ram[pick(0, 1023)][pick(0, 1023)] = static_cast<uint16_t>(pick(0, 0xffff));
            refresh(static_cast<uint32_t>(pick(0, 1023)), static_cast<uint32_t>(pick(0, 1023)),
                    static_cast<uint32_t>(pick(0, 1023)), static_cast<uint32_t>(pick(0, 600)));
        }
        show();
        ASSERT_TRUE(std::equal(&picture[0][0], &picture[0][0] + VGA_HEIGHT * VGA_WIDTH, &shown[0][0],
                               [](uint16_t color, uint32_t pixel) { return true_color(color) == pixel; }))
            << "seed " << seed << ", round " << round;
    }
}

} // namespace
