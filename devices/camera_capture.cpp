// Video4Linux2, with one buffer in memory that is shared with the driver.

#include "devices/camera_capture.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cmath>
#include <memory>
#include <string>
#include <utility>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "base/gui.h"
#include "base/machine.h"
#include "devices/camera.h"
#include "host/capture.h"

namespace {

int camera_fd = -1;
v4l2_buffer v4l2_buf;
void* v4l2_buf_data = nullptr;

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
        capture_close();
        return false;
    }
}

} // namespace

bool capture_open() {
    constexpr const char* PATHS[] = {"/dev/video", "/dev/video0", "/dev/video1"};
    return std::ranges::any_of(PATHS, linux_camera_open);
}

bool capture_ready(int most_ms) {
    assert(camera_fd >= 0);
    pollfd waiting = {camera_fd, POLLIN, 0};
    int result = 0;
    do {
        result = poll(&waiting, 1, most_ms);
    } while (result < 0 && errno == EINTR);
    return result != 0;
}

const uint8_t* capture_take() {
    try {
        ask(VIDIOC_DQBUF, &v4l2_buf, CAPTURE_NO_FRAME);
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

void capture_give_back() { ask(VIDIOC_QBUF, &v4l2_buf, "error re-queueing buffer"); }

bool capture_stop() {
    assert(camera_fd >= 0);
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    // A device that is gone cannot stop either.
    return ioctl(camera_fd, VIDIOC_STREAMOFF, &type) == 0 || errno == ENODEV;
}

void capture_close() {
    if (v4l2_buf_data != nullptr) {
        munmap(std::exchange(v4l2_buf_data, nullptr), v4l2_buf.length);
    }
    if (camera_fd >= 0) {
        close(std::exchange(camera_fd, -1));
    }
}

namespace {

constexpr int FIRST_FRAME_MS = 5000;

bool live_frame_is_there() {
    if (machine.camera_ram_valid) {
        return capture_ready(0);
    }
    if (!capture_ready(FIRST_FRAME_MS)) {
        throw tovik_error(CAPTURE_NO_FRAME);
    }
    return true;
}

void take_live_frame() {
    convert_yuyv(capture_take(), machine.camera_ram[0], size_t{CAPTURE_WIDTH} * CAPTURE_HEIGHT / 2);
    capture_give_back();
    machine.camera_ram_valid = true;
}

// What u and v add to y for each channel. A sum that is rounded toward zero is the rounded part plus y as
// long as it is not negative, and if it is, the channel is 0 anyway.
struct chroma_t {
    int16_t red[256];
    int16_t green[256][256]; // by u, then v
    int16_t blue[256];
};

double red_of(int v) { return 1.370705 * (v - 128); }
double green_of(int y, int u, int v) { return y - 0.698001 * (v - 128) - 0.337633 * (u - 128); }
double blue_of(int u) { return 1.732446 * (u - 128); }

std::unique_ptr<const chroma_t> make_chroma() {
    auto chroma = std::make_unique<chroma_t>();
    for (int u = 0; u < 256; ++u) {
        chroma->red[u] = static_cast<int16_t>(std::floor(red_of(u)));
        chroma->blue[u] = static_cast<int16_t>(std::floor(blue_of(u)));
        for (int v = 0; v < 256; ++v) {
            chroma->green[u][v] = static_cast<int16_t>(std::floor(green_of(255, u, v)) - 255);
        }
    }
    return chroma;
}

uint16_t channel(int value) { return static_cast<uint16_t>(std::clamp(value, 0, 255) >> 3); }

uint16_t pack(int red, int green, int blue) {
    return static_cast<uint16_t>(channel(red) << 10 | channel(green) << 5 | channel(blue));
}

} // namespace

uint16_t yuv_to_rgb15(int y, int u, int v) {
    return pack(static_cast<int>(y + red_of(v)), static_cast<int>(green_of(y, u, v)),
                static_cast<int>(y + blue_of(u)));
}

void convert_yuyv(const uint8_t* yuyv, uint16_t* colors, size_t pairs) {
    static const std::unique_ptr<const chroma_t> chroma = make_chroma();
    for (size_t i = 0; i < pairs; ++i) {
        const uint8_t* const pair = yuyv + 4 * i;
        const int red = chroma->red[pair[3]];
        const int green = chroma->green[pair[1]][pair[3]];
        const int blue = chroma->blue[pair[1]];
        colors[2 * i] = pack(pair[0] + red, pair[0] + green, pair[0] + blue);
        colors[2 * i + 1] = pack(pair[2] + red, pair[2] + green, pair[2] + blue);
    }
}

void camera_connect() {
    if (!simulator.camera_on && capture_open()) {
        simulator.camera_on = true;
        machine.camera_ram_valid = false;
        close_movie();
    }
    gui_camera_set(simulator.camera_on);
}

void camera_disconnect() {
    if (simulator.camera_on && capture_stop()) {
        capture_close();
        simulator.camera_on = false;
    }
    gui_camera_set(simulator.camera_on);
}

void camera_check() {
    assert(simulator.camera_on);
    try {
        if (live_frame_is_there()) {
            take_live_frame();
        }
    } catch (const tovik_error& error) {
        gui_message(error.message, true);
        // Whatever it says to being stopped: the program goes on without it.
        capture_close();
        simulator.camera_on = false;
        gui_camera_set(false);
    }
}
