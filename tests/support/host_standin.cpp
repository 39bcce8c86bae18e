// Functions of the libraries, which the linker finds here first.

#include "tests/support/host_standin.h"

#include <cerrno>
#include <ctime>
#include <string>

#include <fcntl.h>
#include <pulse/error.h>
#include <pulse/simple.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include "base/machine.h"
#include "tests/support/gui_recording.h"

host_standin_t host_standin;

namespace {

constexpr uint64_t INSTRUCTIONS_PER_US = 50; // a fast host
constexpr uint64_t START_US = 1700000000000000;

timespec timespec_of(uint64_t us) {
    return {.tv_sec = static_cast<time_t>(us / 1000000), .tv_nsec = static_cast<long>(us % 1000000) * 1000};
}

char stream; // its address stands for the only stream there is

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

int close(int descriptor) {
    const bool written =
        host_standin.failing_close > 0 && (fcntl(descriptor, F_GETFL) & O_ACCMODE) != O_RDONLY;
    const long result = syscall(SYS_close, descriptor);
    if (written && --host_standin.failing_close == 0) {
        errno = EIO;
        return -1;
    }
    return static_cast<int>(result);
}

pa_simple* pa_simple_new(const char* /*server*/, const char* /*name*/, pa_stream_direction_t /*direction*/,
                         const char* /*device*/, const char* /*stream_name*/, const pa_sample_spec* /*spec*/,
                         const pa_channel_map* /*map*/, const pa_buffer_attr* /*buffer*/, int* error) {
    *error = PA_ERR_CONNECTIONREFUSED;
    return host_standin.on ? reinterpret_cast<pa_simple*>(&stream) : nullptr;
}

int pa_simple_write(pa_simple* /*stream*/, const void* /*data*/, size_t /*bytes*/, int* /*error*/) {
    return 0;
}

void pa_simple_free(pa_simple* /*stream*/) {}

} // extern "C"
