// Camera: its frames, live and from movies, and the conversion of what a capture device gives.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <string>
#include <vector>

#include "base/machine.h"
#include "devices/camera.h"
#include "host/capture.h"
#include "host/platform.h"
#include "tests/support/bus.h"
#include "tests/support/gui_recording.h"

namespace {

// The tests' capture device.
std::vector<uint8_t> live_frame; // empty while there is no device
bool frame_waits = false;

} // namespace

bool platform::capture_open() { return !live_frame.empty(); }
bool platform::capture_ready(int /*most_ms*/) { return frame_waits; }
bool platform::capture_settled(int /*most_ms*/) { return true; }
const uint8_t* platform::capture_take() {
    return frame_waits ? live_frame.data() : throw tovik_error("error dequeueing buffer");
}
void platform::capture_give_back() { frame_waits = false; }
bool platform::capture_stop() { return true; }
void platform::capture_close() { live_frame.clear(); }

namespace {

using Camera = DeviceTest;
using calls_t = std::vector<std::string>;

TEST_F(Camera, CopiesTheFramesOfAMovie) {
    std::vector<uint16_t> frame(size_t{640} * 480);
    std::ranges::generate(frame, [word = uint16_t{0}]() mutable { return word++; });
    typed.chosen_file = folder / "x.kmovie";
    const auto* const bytes = reinterpret_cast<const char*>(frame.data());
    std::ofstream(typed.chosen_file, std::ios::binary).write(bytes, 614400).write("\1\2", 2);
    EXPECT_EQ(perform("b2=0x7e8 b3=0x7e9 b4=6 b5=3 b0=3 +222221 b1?0 b0=2 b5=0 b0=1 +1 b1?1 b2=0x3e8"), "");
    EXPECT_EQ(machine.vga_ram[27][296], frame[64000]) << "half the size, mirrored, around the corner";
    EXPECT_EQ(machine.vga_ram[1006][1001], frame[640 * 10 + 638]) << "too early: the second takes nothing";
    machine.vga_ram[1001][1000] = 0x8000;
    EXPECT_EQ(perform("b3=0"), CHANGED);
    EXPECT_EQ(perform("b0=0 b1?0 b4=0 b0=1"), "");
    EXPECT_EQ(machine.vga_ram[1001][1000], 0);
    EXPECT_EQ(machine.vga_ram[36][55], frame[640 * 472 + 632]);
    typed.chosen_file = "";
    advance_camera_file();
    EXPECT_EQ(perform("b0=0 +222222 b0=1"), "user cancelled camera file read") << "half a frame is none";
}

TEST_F(Camera, ShowsWhatADeviceGivesUntilItFails) {
    camera_connect();
    live_frame.assign(size_t{640} * 480 * 2, 0x80);
    live_frame[614398] = 0xff;
    frame_waits = true;
    camera_connect();
    EXPECT_EQ(recording.calls, (calls_t{"camera off", "camera on"}));
    EXPECT_EQ(perform("b4=3 b0=1"), "");
    EXPECT_EQ(machine.vga_ram[479][638], 0x4210);
    EXPECT_EQ(machine.vga_ram[479][639], 0x7fff);
    machine.vga_ram[479][639] = 0;
    advance_camera_file();
    EXPECT_EQ(perform("b0=0 +222222 b0=1"), "") << "the last one again";
    EXPECT_EQ(machine.vga_ram[479][639], 0x7fff);
    machine.camera_ram_valid = false;
    recording.calls.clear();
    EXPECT_EQ(perform("b0=0 +222222 b0=1"), "user cancelled camera file read");
    recording.calls.pop_back(); // the question for a movie
    EXPECT_EQ(recording.calls, (calls_t{"error error dequeueing buffer", "camera off"}));
    EXPECT_TRUE(live_frame.empty()) << "the device is closed";
}

TEST_F(Camera, ConvertsColorsAsTheFormulaDoes) {
    std::array<uint8_t, 4 * 128> yuyv{};
    std::array<uint16_t, 256> colors{};
    int64_t different = 0;
    for (int u = 0; u < 256; ++u) {
        for (int v = 0; v < 256; ++v) {
            for (size_t y = 0; y < 256; ++y) {
                yuyv[2 * y] = static_cast<uint8_t>(y);
                yuyv[2 * y + 1] = static_cast<uint8_t>(y % 2 == 0 ? u : v);
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
