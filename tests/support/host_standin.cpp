// Functions of the host's doors and of the C library, which the linker finds here first.

#include "tests/support/host_standin.h"

#include <ctime>
#include <string>

#include <sys/time.h>
#include <unistd.h>

#include "base/machine.h"
#include "host/sound.h"
#include "tests/support/gui_recording.h"

host_standin_t host_standin;

namespace {

constexpr uint64_t INSTRUCTIONS_PER_US = 50; // a fast host
constexpr uint64_t START_US = 1700000000000000;

timespec timespec_of(uint64_t us) {
    return {.tv_sec = static_cast<time_t>(us / 1000000), .tv_nsec = static_cast<long>(us % 1000000) * 1000};
}

size_t room = 0; // for samples

} // namespace

extern "C" {

int usleep(useconds_t us) {
    if (host_standin.on) {
        host_standin.slept_us += us;
        record_call("sleep " + std::to_string(us));
        return 0;
    }
    const timespec time = timespec_of(us);
    return nanosleep(&time, nullptr);
}

int gettimeofday(timeval* now, void* /*zone*/) noexcept {
    timespec time{};
    if (host_standin.on) {
        record_call("look at the clock");
        time = timespec_of(START_US + machine.instr_count / INSTRUCTIONS_PER_US + host_standin.slept_us);
    } else if (clock_gettime(CLOCK_REALTIME, &time) != 0) {
        return -1;
    }
    *now = {.tv_sec = time.tv_sec, .tv_usec = time.tv_nsec / 1000};
    return 0;
}

} // extern "C"

void playback_open() {
    if (!host_standin.on) {
        throw tovik_error("no sound");
    }
}

size_t playback_room(int most_ms) { return most_ms > 0 ? room = 7 : room; }

bool playback_ready(int most_ms) { return playback_room(most_ms) > 0; }

void playback_write(std::span<const int16_t> samples) {
    host_standin.played.insert(host_standin.played.end(), samples.begin(), samples.end());
    room -= samples.size();
}

void playback_close() {}
void record_open() {}
bool record_ready(int most_ms) { return host_standin.recorded |= most_ms > 0; }
int16_t record_read() { return 5; }
void record_close() {}
