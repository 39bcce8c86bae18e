#include "host/clock.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <string_view>

#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include "base/machine.h"
#include "base/saved_file.h"
#include "host/platform.h"

namespace {

constexpr rlim_t CPU_LIMIT_SECONDS = 18000;
constexpr rlim_t CPU_GRACE_SECONDS = 10;

// Ends the process as the system would have done.
extern "C" void end_at_processor_time_limit(int signal) {
    constexpr std::string_view message = "processor time limit reached\n";
    // If nobody can be told, it ends all the same.
    [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, message.data(), message.size());
    remove_new_files();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

} // namespace

uint64_t platform::time_ms() {
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) {
        std::perror("gettimeofday");
        throw host_failure_t{};
    }
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

uint64_t stopwatch_us() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

void wait_ms(int32_t ms) { usleep(static_cast<useconds_t>(ms) * 1000); }

void limit_processor_time() {
    rlimit limit{};
    if (getrlimit(RLIMIT_CPU, &limit) != 0) {
        std::cout << "error: getrlimit failed" << std::endl;
        std::perror("getrlimit");
        throw host_failure_t{};
    }
    // RLIM_INFINITY is the greatest rlim_t, so the comparisons hold for it too.
    limit.rlim_cur = std::min(limit.rlim_cur, CPU_LIMIT_SECONDS);
    limit.rlim_max = std::min(limit.rlim_max, limit.rlim_cur + CPU_GRACE_SECONDS);
    if (setrlimit(RLIMIT_CPU, &limit) != 0) {
        std::cout << "error: setrlimit failed" << std::endl;
        std::perror("setrlimit");
        throw host_failure_t{};
    }
    std::signal(SIGXCPU, end_at_processor_time_limit);
}
