// The FFT unit, by accesses to the I/O bus: its handshakes, and its results against the sum that defines
// them.

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <complex>
#include <iostream>
#include <numbers>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "base/machine.h"
#include "devices/io.h"
#include "tests/support/bus.h"

namespace {

constexpr int BLOCK_POINTS = 1024;

using point_t = std::array<int32_t, 2>; // real, imaginary

int32_t read(int32_t offset) { return io(false, IO_BASE + offset, 0); }

void write(int32_t offset, int32_t data) { io(true, IO_BASE + offset, data); }

void send_block(const std::vector<point_t>& points, bool inverse) {
    write(0xc4, inverse ? 1 : 2);
    for (size_t i = 0; i < points.size(); ++i) {
        write(0xc2, points[i][0]);
        write(0xc3, points[i][1]);
        write(0xc5, i + 1 == points.size() && i + 1 < BLOCK_POINTS ? -2 : 0);
        write(0xc0, 1);
        write(0xc0, 0);
    }
    machine.instr_count += 80;
}

// Takes all results that there are.
std::vector<point_t> receive() {
    std::vector<point_t> results;
    for (write(0xd0, 1); read(0xd1) == 1; write(0xd0, 1)) {
        const int32_t real = read(0xd2);
        results.push_back({real, read(0xd3)});
        write(0xd0, 0);
    }
    write(0xd0, 0);
    return results;
}

using Fft = DeviceTest;

TEST_F(Fft, RefusesMistakes) {
    const std::string range = "FFT data out of range";
    const std::string cases[][2] = {
        {"c2=32768", range},
        {"c2=-32769", range},
        {"c3=2147483647", range},
        {"c3=-2147483648", range},
        {"c2=32767 c2=-32768 c3=-32768 c3=32767 c4=3 c5=6 c0=3 c2=-32768 c3=32767 c4=9 c5=6", ""},
        {"c2=0", CHANGED},
        {"c2=32768", range},
        {"c3=0", CHANGED},
        {"c4=8", CHANGED},
        {"c5=7", CHANGED}};
    for (const auto& [accesses, fault] : cases) {
        EXPECT_EQ(perform(accesses), fault) << accesses;
    }
}

TEST_F(Fft, IsBusyFor80InstructionsAfterABlock) {
    for (const char* const accesses :
         {"+1000 c1?0 c2=2048 c0=1 c1?1 c0=1 d1?0 c0=0 c1?0",
          // The direction is that of the first point; the second one ends the block.
          "c2=0 c4=1 c5=8 d0=1 c0=1 c1?0 d1?0 +79 c1?0 d1?0",
          // A point that comes too early is not taken, though it is answered.
          "c0=0 c2=9 c0=1 c1?0 +1 c1?1 d1?1 d2?2 d3?0 d0=3 d1?1 d0=2 d1?0 d0=1 d1?1",
          // The next point throws the results away. The inverse flag counts now, and the end flag still
          // stands.
          "c0=0 d1?1 c0=1 d1?0 +80 c1?1 d1?1 d2?9 d0=0 d0=1 d1?1 d2?9",
          // It does so too when it is not the last of its block.
          "c0=0 c5=0 c0=1 d1?0"}) {
        EXPECT_EQ(perform(accesses), "") << accesses;
    }
}

TEST_F(Fft, HandsOutEachResultOnce) {
    const std::vector<point_t> points = {{0, 0}, {1024, 0}}; // no two results are the same
    send_block(points, true);
    const std::vector<point_t> all = receive();
    EXPECT_EQ(all.size(), BLOCK_POINTS);
    EXPECT_TRUE(receive().empty());
    send_block(points, true);
    EXPECT_EQ(perform("d0=1 d0=1 d0=0 d0=0 d0=1 d0=0"), ""); // two are passed by without a look
    EXPECT_EQ(receive(), std::vector<point_t>(all.begin() + 2, all.end()));
}

TEST_F(Fft, RoundsUpAboveZeroOnlyAndWraps) {
    // A block of one point is the same in all results, equal points add up in the first.
    const struct {
        bool inverse;
        size_t count;
        point_t point;
        point_t first;
        point_t others;
    } cases[] = {
        {false, 1, {511, -256}, {0, -1}, {0, -1}},   {false, 1, {512, -512}, {1, -1}, {1, -1}},
        {false, 1, {2560, -2560}, {3, -3}, {3, -3}}, {true, 1, {-32768, 1}, {-32768, 1}, {-32768, 1}},
        {false, 1024, {1024, 0}, {1024, 0}, {0, 0}}, {true, 1024, {32, -96}, {-32768, -32768}, {0, 0}}};
    for (const auto& c : cases) {
        send_block(std::vector<point_t>(c.count, c.point), c.inverse);
        std::vector<point_t> expected(BLOCK_POINTS, c.others);
        expected[0] = c.first;
        EXPECT_EQ(receive(), expected) << c.point[0] << " " << c.point[1];
    }
}

int32_t rounded(long double value) {
    return static_cast<int16_t>(static_cast<int32_t>(std::floor(value > 0 ? value + 0.5L : value)));
}

TEST_F(Fft, ComputesTheSumThatDefinesIt) {
    const unsigned seed = std::random_device{}();
    std::cout << "seed " << seed << std::endl;
    std::mt19937 random(seed);
    std::uniform_int_distribution part(-32768, 32767);
    std::uniform_int_distribution length(1, BLOCK_POINTS);
    for (int block = 0; block < 4; ++block) {
        const bool inverse = block % 2 == 1;
        std::vector<point_t> points(static_cast<size_t>(block < 2 ? BLOCK_POINTS : length(random)));
        for (point_t& point : points) {
            point = {part(random), part(random)};
        }
        send_block(points, inverse);
        const std::vector<point_t> results = receive();
        ASSERT_EQ(results.size(), BLOCK_POINTS);

        const long double turn = (inverse ? 2 : -2) * std::numbers::pi_v<long double> / BLOCK_POINTS;
        for (size_t k = 0; k < BLOCK_POINTS; ++k) {
            std::complex<long double> sum = 0;
            for (size_t n = 0; n < points.size(); ++n) {
                sum += std::complex<long double>(points[n][0], points[n][1]) *
                       std::polar(1.0L, turn * static_cast<long double>(k * n % BLOCK_POINTS));
            }
            sum /= inverse ? 1 : BLOCK_POINTS;
            // Both are right where the precision of the unit does not decide how to round.
            for (const auto& [actual, exact] :
                 {std::pair(results[k][0], sum.real()), {results[k][1], sum.imag()}}) {
                if (actual != rounded(exact - 1e-6L)) {
                    ASSERT_EQ(actual, rounded(exact + 1e-6L)) << "block " << block << ", result " << k;
                }
            }
        }
    }
}

} // namespace
