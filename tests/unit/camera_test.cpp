// Camera: copies of frames, movies, and the conversion of what a capture device gives.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <vector>

#include "core/machine.h"
#include "core/simulate.h"
#include "devices/camera.h"
#include "devices/camera_capture.h"
#include "devices/io.h"
#include "tests/support/gui_recording.h"

namespace {

constexpr int32_t COMMAND = IO_BASE + 0xb0;

class Camera : public testing::Test {
  protected:
    void SetUp() override {
        reset_machine();
        recording = {};
        std::string folder_name = testing::TempDir() + "camera_XXXXXX";
        folder = mkdtemp(folder_name.data());
    }

    void TearDown() override {
        reset_machine();
        typed.chosen_file.clear();
        std::filesystem::remove_all(folder);
    }

    // Frames of one colour each: 1, 2 and so on; and some bytes of another.
    void choose_movie(uint16_t frames, size_t more_bytes) {
        typed.chosen_file = folder / (std::to_string(frames) + ".kmovie");
        std::ofstream file(typed.chosen_file, std::ios::binary);
        for (uint16_t i = 1; i <= frames; ++i) {
            const std::vector<uint16_t> frame(307200, i);
            file.write(reinterpret_cast<const char*>(frame.data()), 614400);
        }
        file << std::string(more_bytes, 'x');
    }

    std::filesystem::path folder;
};

void take(int32_t x, int32_t y, int32_t scale, int32_t flip) {
    machine.instr_count += INSTRUCTIONS_PER_FRAME;
    io(true, COMMAND, 0);
    io(true, COMMAND + 2, x);
    io(true, COMMAND + 3, y);
    io(true, COMMAND + 4, scale);
    io(true, COMMAND + 5, flip);
    io(true, COMMAND, 1);
}

TEST_F(Camera, CopiesTheFrameReducedAndMirrored) {
    for (int row = 0; row < 480; ++row) {
        std::iota(machine.camera_ram[row], machine.camera_ram[row] + 640, static_cast<uint16_t>(row * 50));
    }
    const struct {
        int32_t x;
        int32_t y;
        int32_t scale;
        int32_t flip;
    } cases[] = {{0, 0, 3, 0},      {1000, 800, 3, 0}, {5, 6, 3, 1},
                 {700, 1000, 2, 0}, {1020, 9, 1, 1},   {9, 9, 8, 2}};
    for (const auto& c : cases) {
        machine.camera_ram_valid = true;
        std::memset(machine.vga_ram, 0xff, sizeof machine.vga_ram);
        take(c.x, c.y, c.scale, c.flip);
        std::vector<uint16_t> expected(1024 * 1024, 0xffff);
        const int32_t factor = 8 >> (c.scale & 3);
        for (int32_t row = 0; row < 480 / factor; ++row) {
            for (int32_t column = 0; column < 640 / factor; ++column) {
                const int32_t place = (c.flip & 1) == 0 ? column : 640 / factor - column;
                expected[static_cast<size_t>((row + c.y) % 1024 * 1024 + (place + c.x) % 1024)] =
                    machine.camera_ram[row * factor][column * factor];
            }
        }
        EXPECT_EQ(std::memcmp(machine.vga_ram, expected.data(), sizeof machine.vga_ram), 0)
            << c.x << " " << c.y << " " << c.scale << " " << c.flip;
    }
}

TEST_F(Camera, IsBusyForTheTimeOfAFrame) {
    machine.camera_ram_valid = true;
    take(0, 0, 0, 0);
    machine.instr_count += 222221;
    EXPECT_EQ(io(false, COMMAND + 1, 0), 0);
    io(true, COMMAND, 0);
    machine.vga_ram[0][0] = 0xffff;
    io(true, COMMAND, 1); // too early: takes nothing
    machine.instr_count += 1;
    EXPECT_EQ(io(false, COMMAND + 1, 0), 1);
    EXPECT_EQ(machine.vga_ram[0][0], 0xffff);
    EXPECT_THROW(io(true, COMMAND + 2, 5), tovik_error);
    EXPECT_THROW(io(false, COMMAND, 0), tovik_error);
}

TEST_F(Camera, PlaysMoviesToTheirEnds) {
    choose_movie(3, 614399);
    const std::string movie = typed.chosen_file;
    typed.chosen_file = folder / "none";
    recording.at_message = [&] { typed.chosen_file = movie; };
    std::vector<uint16_t> shown;
    for (int i = 0; i < 4; ++i) {
        take(0, 0, 0, 0);
        shown.push_back(machine.vga_ram[0][0]);
        advance_camera_file();
    }
    EXPECT_EQ(shown, (std::vector<uint16_t>{1, 2, 3, 1})) << "the movie is over, and chosen again";
    const std::string ask = "open Choose kmovie file *.kmovie ";
    EXPECT_EQ(recording.calls,
              (std::vector<std::string>{
                  ask, "error Can't open file " + folder.string() + "/none: No such file or directory",
                  ask + folder.string() + "/none", ask + movie}));
    advance_camera_file();
    advance_camera_file();
    typed.chosen_file.clear();
    EXPECT_THROW(
        {
            try {
                advance_camera_file();
                take(0, 0, 0, 0);
            } catch (const tovik_error& error) {
                EXPECT_EQ(error.message, "user cancelled camera file read");
                throw;
            }
        },
        tovik_error);
    EXPECT_EQ(machine.camera_command, 0);
}

TEST(Conversion, GivesWhatTheFormulaGives) {
    EXPECT_EQ(yuv_to_rgb15(0, 128, 128), 0);
    EXPECT_EQ(yuv_to_rgb15(255, 128, 128), 0x7fff);
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
