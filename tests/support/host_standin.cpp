// What stands behind the host's doors in the unit tests, where the linker finds it first.

#include "tests/support/host_standin.h"

#include <string>

#include "base/machine.h"
#include "host/clock.h"
#include "host/platform.h"
#include "host/sound.h"
#include "tests/support/gui_recording.h"

host_standin_t host_standin;

namespace {

constexpr uint64_t INSTRUCTIONS_PER_MS = 50000; // a fast host
constexpr uint64_t START_MS = 1700000000000;

size_t room = 0; // for samples

} // namespace

uint64_t platform::time_ms() {
    record_call("look at the clock");
    return START_MS + machine.instr_count / INSTRUCTIONS_PER_MS + host_standin.slept_ms;
}

// Only how often copies of the board are made depends on it.
uint64_t stopwatch_us() { return host_standin.stopwatch_us += host_standin.stopwatch_step_us; }

void wait_ms(int32_t ms) {
    host_standin.slept_ms += static_cast<uint64_t>(ms);
    record_call("sleep " + std::to_string(ms));
}

void limit_processor_time() {}

void platform::playback_open() {
    if (!host_standin.has_sound) {
        throw tovik_error("no sound");
    }
}

size_t platform::playback_room(int most_ms) { return most_ms > 0 ? room = 7 : room; }

void platform::playback_write(std::span<const int16_t> samples) {
    host_standin.played.insert(host_standin.played.end(), samples.begin(), samples.end());
    room -= samples.size();
}

void platform::playback_close() {}
void platform::record_open() {}
bool platform::record_ready(int most_ms) { return host_standin.recorded |= most_ms > 0; }
int16_t platform::record_read() { return 5; }
void platform::record_close() {}
