// PulseAudio, with the steps and settings of its simple interface, which itself can only wait. The failures
// are known by the names of that one's functions.

#include "host/platform.h"

#include <cassert>
#include <cstring>
#include <memory>
#include <string>

#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/rtclock.h>
#include <pulse/stream.h>
#include <pulse/thread-mainloop.h>
#include <pulse/timeval.h>

#include "base/machine.h"

namespace {

constexpr pa_sample_spec FORMAT = {PA_SAMPLE_S16LE, SAMPLES_PER_SECOND, 1};
constexpr auto FLAGS = static_cast<pa_stream_flags_t>(
    PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_ADJUST_LATENCY | PA_STREAM_AUTO_TIMING_UPDATE);

// The server is to deliver samples soon, not many at a time.
constexpr uint32_t SERVER_DEFAULT = UINT32_MAX;
constexpr pa_buffer_attr MICROPHONE_BUFFER = {.maxlength = 200,
                                              .tlength = SERVER_DEFAULT,
                                              .prebuf = SERVER_DEFAULT,
                                              .minreq = SERVER_DEFAULT,
                                              .fragsize = 100};

// A connection of its own for each stream, with a thread that exchanges the samples with the server.
struct connection_t {
    pa_threaded_mainloop* loop;
    pa_context* context;
    pa_stream* stream;
    std::span<const std::byte> fragment; // what has been recorded and is being read
    bool waited_enough;
};

connection_t speaker;
connection_t microphone;

using lock_t = std::unique_ptr<pa_threaded_mainloop, void (*)(pa_threaded_mainloop*)>;

// Keeps the thread away, but for the time of `wait`.
lock_t lock(const connection_t& connection) {
    pa_threaded_mainloop_lock(connection.loop);
    return {connection.loop, pa_threaded_mainloop_unlock};
}

void wait(const connection_t& connection) { pa_threaded_mainloop_wait(connection.loop); }

// In the thread: what is waited for may be there.
void wake(void* connection) { pa_threaded_mainloop_signal(static_cast<connection_t*>(connection)->loop, 0); }

void wake_enough(pa_mainloop_api* /*loop*/, pa_time_event* /*alarm*/, const timeval* /*now*/,
                 void* connection) {
    static_cast<connection_t*>(connection)->waited_enough = true;
    wake(connection);
}

[[noreturn]] void fail(const char* function, int error) {
    throw tovik_error(std::string(function) + " failed: " + pa_strerror(error));
}

void check_alive(const connection_t& connection, const char* function) {
    const pa_context_state_t context = pa_context_get_state(connection.context);
    const pa_stream_state_t stream = pa_stream_get_state(connection.stream);
    if (!PA_CONTEXT_IS_GOOD(context) || !PA_STREAM_IS_GOOD(stream)) {
        const bool failed = context == PA_CONTEXT_FAILED || stream == PA_STREAM_FAILED;
        fail(function, failed ? pa_context_errno(connection.context) : int{PA_ERR_BADSTATE});
    }
}

void check(const connection_t& connection, const char* function, int result) {
    if (result < 0) {
        fail(function, pa_context_errno(connection.context));
    }
}

bool connect_context(connection_t& connection) {
    while (pa_context_get_state(connection.context) != PA_CONTEXT_READY) {
        if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(connection.context))) {
            return false;
        }
        wait(connection);
    }
    return true;
}

bool connect_stream(connection_t& connection, bool records) {
    pa_stream* const stream = connection.stream;
    pa_stream_set_state_callback(
        stream, [](pa_stream*, void* waiting) { wake(waiting); }, &connection);
    const auto wake_for_samples = [](pa_stream*, size_t, void* waiting) { wake(waiting); };
    pa_stream_set_write_callback(stream, wake_for_samples, &connection);
    pa_stream_set_read_callback(stream, wake_for_samples, &connection);
    const int result = records
                           ? pa_stream_connect_record(stream, nullptr, &MICROPHONE_BUFFER, FLAGS)
                           : pa_stream_connect_playback(stream, nullptr, nullptr, FLAGS, nullptr, nullptr);
    if (result < 0) {
        return false;
    }
    while (pa_stream_get_state(stream) != PA_STREAM_READY) {
        if (!PA_STREAM_IS_GOOD(pa_stream_get_state(stream))) {
            return false;
        }
        wait(connection);
    }
    return true;
}

// Returns 0, or what went wrong.
int connect(connection_t& connection, const char* name, bool records) {
    connection.loop = pa_threaded_mainloop_new();
    if (connection.loop == nullptr) {
        return PA_ERR_INTERNAL;
    }
    connection.context = pa_context_new(pa_threaded_mainloop_get_api(connection.loop), name);
    if (connection.context == nullptr) {
        return PA_ERR_INTERNAL;
    }
    pa_context_set_state_callback(
        connection.context, [](pa_context*, void* waiting) { wake(waiting); }, &connection);
    if (pa_context_connect(connection.context, nullptr, PA_CONTEXT_NOFLAGS, nullptr) < 0) {
        return pa_context_errno(connection.context);
    }
    const lock_t locked = lock(connection);
    if (pa_threaded_mainloop_start(connection.loop) < 0) {
        return PA_ERR_INTERNAL;
    }
    if (connect_context(connection)) {
        connection.stream = pa_stream_new(connection.context, name, &FORMAT, nullptr);
        if (connection.stream != nullptr && connect_stream(connection, records)) {
            return 0;
        }
    }
    return pa_context_errno(connection.context);
}

void close_stream(connection_t& connection) {
    if (connection.loop != nullptr) {
        pa_threaded_mainloop_stop(connection.loop);
    }
    if (connection.stream != nullptr) {
        pa_stream_unref(connection.stream);
    }
    if (connection.context != nullptr) {
        pa_context_disconnect(connection.context);
        pa_context_unref(connection.context);
    }
    if (connection.loop != nullptr) {
        pa_threaded_mainloop_free(connection.loop);
    }
    connection = {};
}

void open_stream(connection_t& connection, const char* name, bool records) {
    assert(connection.loop == nullptr);
    const int error = connect(connection, name, records);
    if (error != 0) {
        close_stream(connection);
        fail("pa_simple_new", error);
    }
}

// The bytes that the stream can take or give, for which it waits at most so long. They are countless when it
// has failed.
size_t bytes_ready(connection_t& connection, size_t (*ready)(const pa_stream*), int most_ms) {
    if (most_ms <= 0 || ready(connection.stream) != 0) {
        return ready(connection.stream);
    }
    connection.waited_enough = false;
    const pa_usec_t end = pa_rtclock_now() + static_cast<pa_usec_t>(most_ms) * PA_USEC_PER_MSEC;
    pa_time_event* const alarm = pa_context_rttime_new(connection.context, end, wake_enough, &connection);
    while (alarm != nullptr && !connection.waited_enough && ready(connection.stream) == 0) {
        wait(connection);
    }
    if (alarm != nullptr) {
        pa_threaded_mainloop_get_api(connection.loop)->time_free(alarm);
    }
    return ready(connection.stream);
}

} // namespace

void platform::playback_open() { open_stream(speaker, "tovik-speaker", false); }

size_t platform::playback_room(int most_ms) {
    assert(speaker.stream != nullptr);
    const lock_t locked = lock(speaker);
    return bytes_ready(speaker, pa_stream_writable_size, most_ms) / sizeof(int16_t);
}

void platform::playback_write(std::span<const int16_t> samples) {
    assert(speaker.stream != nullptr);
    const lock_t locked = lock(speaker);
    check_alive(speaker, "pa_simple_write");
    check(
        speaker, "pa_simple_write",
        pa_stream_write(speaker.stream, samples.data(), samples.size_bytes(), nullptr, 0, PA_SEEK_RELATIVE));
}

void platform::playback_close() {
    assert(speaker.stream != nullptr);
    close_stream(speaker);
}

void platform::record_open() { open_stream(microphone, "tovik-microphone", true); }

bool platform::record_ready(int most_ms) {
    assert(microphone.stream != nullptr);
    const lock_t locked = lock(microphone);
    while (microphone.fragment.empty()) {
        if (bytes_ready(microphone, pa_stream_readable_size, most_ms) == 0) {
            return false;
        }
        const void* data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(microphone.stream, &data, &bytes) < 0) {
            return true;
        }
        if (data != nullptr) {
            microphone.fragment = {static_cast<const std::byte*>(data), bytes};
        } else if (bytes != 0) {
            pa_stream_drop(microphone.stream); // a hole
        }
    }
    return true;
}

int16_t platform::record_read() {
    assert(microphone.stream != nullptr);
    const lock_t locked = lock(microphone);
    check_alive(microphone, "pa_simple_read");
    assert(microphone.fragment.size() >= sizeof(int16_t));
    int16_t sample = 0;
    std::memcpy(&sample, microphone.fragment.data(), sizeof sample);
    microphone.fragment = microphone.fragment.subspan(sizeof sample);
    if (microphone.fragment.empty()) {
        check(microphone, "pa_simple_read", pa_stream_drop(microphone.stream));
    }
    return sample;
}

void platform::record_close() {
    assert(microphone.stream != nullptr);
    close_stream(microphone);
}
