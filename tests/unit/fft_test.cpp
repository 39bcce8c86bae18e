// The FFT unit's results, against the sum that defines them.

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <complex>
#include <iostream>
#include <numbers>
#include <random>
#include <vector>

#include "base/machine.h"
#include "devices/io.h"
#include "tests/support/bus.h"

namespace {

constexpr int BLOCK_POINTS = 1024;

using point_t = std::array<int32_t, 2>; // real, imaginary

std::vector<point_t> transform(const std::vector<point_t>& points, bool inverse) {
    const auto read = [](int32_t offset) { return io(false, IO_BASE + offset, 0); };
    const auto write = [](int32_t offset, int32_t data) { io(true, IO_BASE + offset, data); };
    write(0xc4, inverse ? 1 : 2);
    for (size_t i = 0; i < points.size(); ++i) {
        write(0xc2, points[i][0]);
        write(0xc3, points[i][1]);
        write(0xc5, i + 1 == points.size() && i + 1 < BLOCK_POINTS ? -2 : 0);
        write(0xc0, 1);
        write(0xc0, 0);
    }
    machine.instr_count += 80;
    std::vector<point_t> results;
    for (write(0xd0, 1); read(0xd1) == 1; write(0xd0, 1)) {
        const int32_t real = read(0xd2);
        results.push_back({real, read(0xd3)});
        write(0xd0, 0);
    }
    write(0xd0, 0);
    return results;
}

// Up above zero only; what does not fit wraps.
int32_t rounded(long double value) {
    return static_cast<int16_t>(static_cast<int32_t>(std::floor(value > 0 ? value + 0.5L : value)));
}

using Fft = DeviceTest;

TEST_F(Fft, ComputesTheSumThatDefinesIt) {
    const unsigned seed = std::random_device{}();
    std::cout << "seed " << seed << std::endl;
    std::mt19937 random(seed);
    std::uniform_int_distribution part(-32768, 32767);
    for (int block = 0; block < 6; ++block) {
        const bool inverse = block % 2 == 1;
        // The last blocks have one point: all results are the same, forward a half that is rounded.
        std::vector<point_t> points(block < 2 ? BLOCK_POINTS : block < 4 ? random() % BLOCK_POINTS + 1 : 1);
        for (point_t& point : points) {
            point = block == 4 ? point_t{512, -512} : point_t{part(random), part(random)};
        }
        const std::vector<point_t> results = transform(points, inverse);
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
            const long double doubt = points.size() == 1 ? 0 : 1e-6L;
            for (const auto& [actual, exact] :
                 {std::pair(results[k][0], sum.real()), {results[k][1], sum.imag()}}) {
                if (actual != rounded(exact - doubt)) {
                    ASSERT_EQ(actual, rounded(exact + doubt)) << "block " << block << ", result " << k;
                }
            }
        }
    }
}

} // namespace
