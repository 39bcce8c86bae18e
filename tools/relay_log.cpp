#include "tools/relay.h"

#include <array>
#include <cstdio>
#include <ctime>

#include <unistd.h>

#include "base/files.h"

namespace {

constexpr std::array LEVEL_NAMES{"error", "warning", "info", "debug"};
constexpr long NANOSECONDS_PER_MILLISECOND = 1'000'000;

} // namespace

log_level_e log_limit = log_level_e::INFO;

void log_line(log_level_e level, const std::string& text) {
    if (level > log_limit) {
        return;
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm date{};
    gmtime_r(&now.tv_sec, &date);
    std::array<char, 32> time{};
    const size_t length = std::strftime(time.data(), time.size(), "%Y-%m-%dT%H:%M:%S", &date);
    std::snprintf(time.data() + length, time.size() - length, ".%03ldZ",
                  now.tv_nsec / NANOSECONDS_PER_MILLISECOND);
    const std::string name = LEVEL_NAMES.at(static_cast<size_t>(level));
    // One write, so that lines stay whole. A log that nobody can read is no reason to stop.
    static_cast<void>(write_all(STDERR_FILENO, std::string(time.data()) + " " + name + " " + text + "\n"));
}
