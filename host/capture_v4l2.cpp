// Video4Linux2, with one buffer in memory that is shared with the driver.

#include "host/capture.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "base/machine.h"
#include "host/platform.h"

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds PATIENCE(5000);
constexpr const char* NO_FRAME = "error dequeueing buffer";

int camera_fd = -1;
v4l2_buffer v4l2_buf;
void* v4l2_buf_data = nullptr;
std::optional<steady_clock::time_point> settles_at; // at the latest, while a program waits for a frame

// Asks the driver, and asks again where a signal came in between.
void ask(unsigned long request, void* argument, const char* failure) {
    int result = 0;
    do {
        result = ioctl(camera_fd, request, argument);
    } while (result < 0 && errno == EINTR);
    if (result < 0) {
        throw tovik_error(failure);
    }
}

void check_capabilities() {
    v4l2_capability capability{};
    ask(VIDIOC_QUERYCAP, &capability, "can't query capabilities");
    if ((capability.capabilities & V4L2_CAP_VIDEO_CAPTURE) == 0) {
        throw tovik_error("not a capture device");
    }
    if ((capability.capabilities & V4L2_CAP_STREAMING) == 0) {
        throw tovik_error("not a streaming device");
    }
}

void set_format() {
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    ask(VIDIOC_G_FMT, &format, "can't get format");
    format.fmt.pix.width = CAPTURE_WIDTH;
    format.fmt.pix.height = CAPTURE_HEIGHT;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
    format.fmt.pix.field = V4L2_FIELD_INTERLACED;
    ask(VIDIOC_S_FMT, &format, "can't set format");
    // A driver answers with what it can do instead.
    if (format.fmt.pix.width != CAPTURE_WIDTH || format.fmt.pix.height != CAPTURE_HEIGHT ||
        format.fmt.pix.pixelformat != V4L2_PIX_FMT_YUYV) {
        throw tovik_error("can't set format");
    }
}

void map_buffer() {
    v4l2_requestbuffers request{};
    request.count = 1;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    ask(VIDIOC_REQBUFS, &request, "doesn't support memory mapping");
    if (request.count != 1) {
        throw tovik_error("out of memory");
    }
    v4l2_buf = {};
    v4l2_buf.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    v4l2_buf.memory = V4L2_MEMORY_MMAP;
    v4l2_buf.index = 0;
    ask(VIDIOC_QUERYBUF, &v4l2_buf, "error querying buffer status");
    if (v4l2_buf.length != 640 * 480 * 2) {
        throw tovik_error("error querying buffer status");
    }
    assert(v4l2_buf.length == 640 * 480 * 2);
    void* const data =
        mmap(nullptr, v4l2_buf.length, PROT_READ | PROT_WRITE, MAP_SHARED, camera_fd, v4l2_buf.m.offset);
    if (data == MAP_FAILED) {
        throw tovik_error("memory map failed");
    }
    v4l2_buf_data = data;
}

void start_stream() {
    ask(VIDIOC_QBUF, &v4l2_buf, "error queueing buffer");
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    ask(VIDIOC_STREAMON, &type, "error enabling streaming");
}

bool linux_camera_open(const char* path) {
    try {
        camera_fd = open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (camera_fd < 0) {
            throw tovik_error("open failed");
        }
        check_capabilities();
        set_format();
        map_buffer();
        start_stream();
        return true;
    } catch (const tovik_error&) {
        platform::capture_close();
        return false;
    }
}

} // namespace

bool platform::capture_open() {
    constexpr const char* PATHS[] = {"/dev/video", "/dev/video0", "/dev/video1"};
    return std::ranges::any_of(PATHS, linux_camera_open);
}

bool platform::capture_ready(int most_ms) {
    assert(camera_fd >= 0);
    pollfd waiting = {camera_fd, POLLIN, 0};
    int result = 0;
    do {
        result = poll(&waiting, 1, most_ms);
    } while (result < 0 && errno == EINTR);
    return result != 0;
}

bool platform::capture_settled(int most_ms) {
    if (!settles_at) {
        settles_at = steady_clock::now() + PATIENCE;
    }
    return platform::capture_ready(most_ms) || steady_clock::now() >= *settles_at;
}

const uint8_t* platform::capture_take() {
    const bool was_waited_for = std::exchange(settles_at, std::nullopt).has_value();
    if (was_waited_for && !platform::capture_ready(0)) {
        throw tovik_error(NO_FRAME);
    }
    try {
        ask(VIDIOC_DQBUF, &v4l2_buf, NO_FRAME);
    } catch (const tovik_error&) {
        if (errno == EAGAIN) {
            throw tovik_error("ioctl interrupted by signal");
        }
        throw;
    }
    // The text is known so.
    // clang-format off
    assert(v4l2_buf.index==0);
    // clang-format on
    return static_cast<const uint8_t*>(v4l2_buf_data);
}

void platform::capture_give_back() { ask(VIDIOC_QBUF, &v4l2_buf, "error re-queueing buffer"); }

bool platform::capture_stop() {
    assert(camera_fd >= 0);
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    // A device that is gone cannot stop either.
    return ioctl(camera_fd, VIDIOC_STREAMOFF, &type) == 0 || errno == ENODEV;
}

void platform::capture_close() {
    settles_at.reset();
    if (v4l2_buf_data != nullptr) {
        munmap(std::exchange(v4l2_buf_data, nullptr), v4l2_buf.length);
    }
    if (camera_fd >= 0) {
        close(std::exchange(camera_fd, -1));
    }
}
