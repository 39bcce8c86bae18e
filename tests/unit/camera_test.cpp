// Camera: its handshake, and the conversion of what a capture device gives.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "base/machine.h"
#include "devices/camera.h"
#include "tests/support/bus.h"

namespace {

using Camera = DeviceTest;

TEST_F(Camera, IsBusyForTheTimeOfAFrame) {
    machine.camera_ram_valid = true;
    EXPECT_EQ(perform("b4=7 b0=1 +222221 b1?0 b0=0"), "");
    machine.vga_ram[0][0] = 0xffff;
    EXPECT_EQ(perform("b0=1 +1 b1?1"), "") << "too early: it takes nothing";
    EXPECT_EQ(machine.vga_ram[0][0], 0xffff);
    EXPECT_EQ(perform("b2=5"), CHANGED);
}

TEST(Conversion, GivesWhatTheFormulaGives) {
    std::array<uint8_t, 4 * 128> yuyv{};
    std::array<uint16_t, 256> colors{};
    int64_t different = 0;
    for (int u = 0; u < 256; ++u) {
        for (int v = 0; v < 256; ++v) {
            for (int y = 0; y < 256; y += 2) {
                const size_t pair = static_cast<size_t>(y) * 2;
                yuyv[pair] = static_cast<uint8_t>(y);
                yuyv[pair + 1] = static_cast<uint8_t>(u);
                yuyv[pair + 2] = static_cast<uint8_t>(y + 1);
                yuyv[pair + 3] = static_cast<uint8_t>(v);
            }
            convert_yuyv(yuyv.data(), colors.data(), 128);
            for (int y = 0; y < 256; ++y) {
                const auto channel = [](double value) {
                    return std::clamp(static_cast<int>(value), 0, 255) >> 3;
                };
                const int red = channel(y + 1.370705 * (v - 128));
                const int green = channel(y - 0.698001 * (v - 128) - 0.337633 * (u - 128));
                const int blue = channel(y + 1.732446 * (u - 128));
                different += colors[static_cast<size_t>(y)] != (red << 10 | green << 5 | blue) ? 1 : 0;
            }
        }
    }
    EXPECT_EQ(different, 0) << "of 16777216";
}

} // namespace
