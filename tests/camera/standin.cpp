// A stand-in for a capture device, to be preloaded: the machines that build and test have no camera, and none
// can be made there without a module of the kernel. It answers the calls on one path and keeps to the order
// that a driver would ask for; each frame has bytes of its own, so that a test knows which frame it sees, and
// where. All other paths that begin with /dev/video do not exist. What was tried, opened, mapped and given
// back stands in standin.log. 64-bit systems only.
//
//   STANDIN_PATH     the device; /dev/video0 by default
//   STANDIN_FAIL     the call that fails: open, mmap, or a request such as S_FMT
//   STANDIN_AFTER    so many of these calls succeed before
//   STANDIN_ERRNO    the error of the call that fails; EIO by default
//   STANDIN_WIDTH, STANDIN_HEIGHT, STANDIN_FORMAT, STANDIN_BUFFERS, STANDIN_LENGTH, STANDIN_CAPABILITIES
//                    what is granted instead of what was asked for; numbers
//   STANDIN_LATE     milliseconds until the first frame is there
//   STANDIN_FRAMES   so many frames come
//   STANDIN_GONE     the device vanishes after so many frames

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace {

constexpr unsigned ROW = 640;
constexpr unsigned FRAME = ROW * 2 * 480;
constexpr unsigned OFFSET = 65536; // of the buffer in the device; a multiple of every page size

int device = -1; // a timer, for it can be waited for
uint8_t* buffer = nullptr;
bool streaming, queued;
long frames;

std::string text_option(const std::string& name) {
    const char* text = std::getenv(("STANDIN_" + name).c_str());
    return text != nullptr ? text : "";
}

long option(const char* name, long normally) {
    const std::string text = text_option(name);
    return text.empty() ? normally : std::strtol(text.c_str(), nullptr, 0);
}

void grant(uint32_t& field, const char* name) { field = static_cast<uint32_t>(option(name, field)); }

void note(const char* line) {
    std::FILE* const log = std::fopen("standin.log", "a");
    std::fprintf(log, "%s\n", line);
    std::fclose(log);
}

int failure(int error) {
    errno = error;
    return -1;
}

bool fails(const std::string& call) {
    static std::map<std::string, long> calls;
    errno = static_cast<int>(option("ERRNO", EIO));
    return text_option("FAIL") == call && calls[call]++ >= option("AFTER", 0);
}

// Of a request that is right, or wrong with an error.
int answer(const char* request, bool right, int error = EINVAL) {
    return fails(request) ? -1 : right ? 0 : failure(error);
}

bool gone() { return frames >= option("GONE", 1000000); }

void fill(long seed) {
    for (unsigned i = 0; i < FRAME / 2; ++i) {
        buffer[2 * i] =
            static_cast<uint8_t>((i * 167 + i / ROW * 59 + static_cast<unsigned>(seed) * 101) >> 1);
        buffer[2 * i + 1] = 128; // no color
    }
}

int open_device(const std::string& path, int flags) {
    note(path.c_str());
    const std::string own = text_option("PATH");
    if (path != (own.empty() ? "/dev/video0" : own) || gone()) {
        return failure(ENOENT);
    }
    if (fails("open")) {
        return -1;
    }
    if ((flags & O_ACCMODE) != O_RDWR || (flags & O_NONBLOCK) == 0 || device >= 0) {
        return failure(EBUSY);
    }
    note("open");
    streaming = queued = false;
    return device = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK);
}

// Who still looks at the buffer then sees that it is the device's.
int queue(const v4l2_buffer& asked) {
    const bool right = !queued && asked.index == 0 && asked.memory == V4L2_MEMORY_MMAP;
    fill(-1);
    queued = true;
    return answer("QBUF", right);
}

int dequeue(v4l2_buffer& asked) {
    if (fails("DQBUF")) {
        return -1;
    }
    if (gone() || !streaming || !queued) {
        return failure(gone() ? ENODEV : EAGAIN);
    }
    fill(frames++);
    queued = false;
    asked.index = 0;
    uint64_t drained = 0;
    return frames == option("FRAMES", 0) && read(device, &drained, sizeof drained) < 0 ? failure(EAGAIN) : 0;
}

int start() {
    const long late = option("LATE", 0);
    const itimerspec first_frame = {{}, {late / 1000, late % 1000 * 1000000 + 1}};
    streaming = true;
    return answer("STREAMON",
                  option("FRAMES", 1) == 0 || timerfd_settime(device, 0, &first_frame, nullptr) == 0);
}

int control(unsigned long request, void* argument) {
    auto& capability = *static_cast<v4l2_capability*>(argument);
    auto& format = *static_cast<v4l2_format*>(argument);
    auto& buffers = *static_cast<v4l2_requestbuffers*>(argument);
    auto& asked = *static_cast<v4l2_buffer*>(argument);
    switch (request) {
    case VIDIOC_QUERYCAP:
        capability.capabilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING | V4L2_CAP_READWRITE;
        grant(capability.capabilities, "CAPABILITIES");
        return answer("QUERYCAP", true);
    case VIDIOC_G_FMT:
        format.fmt.pix = {1280, 720, V4L2_PIX_FMT_MJPEG, 0, 0, 0, 0, 0, 0, {}, 0, 0};
        return answer("G_FMT", format.type == V4L2_BUF_TYPE_VIDEO_CAPTURE);
    case VIDIOC_S_FMT:
        grant(format.fmt.pix.width, "WIDTH");
        grant(format.fmt.pix.height, "HEIGHT");
        grant(format.fmt.pix.pixelformat, "FORMAT");
        return answer("S_FMT", format.type == V4L2_BUF_TYPE_VIDEO_CAPTURE);
    case VIDIOC_REQBUFS:
        grant(buffers.count, "BUFFERS");
        return answer("REQBUFS",
                      buffers.memory == V4L2_MEMORY_MMAP && buffers.type == V4L2_BUF_TYPE_VIDEO_CAPTURE);
    case VIDIOC_QUERYBUF:
        asked.length = FRAME;
        grant(asked.length, "LENGTH");
        asked.m.offset = OFFSET;
        return answer("QUERYBUF", asked.type == V4L2_BUF_TYPE_VIDEO_CAPTURE);
    case VIDIOC_QBUF:
        return queue(asked);
    case VIDIOC_DQBUF:
        return dequeue(asked);
    case VIDIOC_STREAMON:
        return start();
    case VIDIOC_STREAMOFF:
        streaming = queued = false;
        return answer("STREAMOFF", !gone(), ENODEV);
    default:
        return failure(ENOTTY);
    }
}

} // namespace

// The system declares the first two with an ellipsis, through which all arguments go as they do here.
extern "C" {
int standin_open(const char* path, int flags, unsigned mode) __asm__("open");
int standin_ioctl(int descriptor, unsigned long request, void* argument) __asm__("ioctl");

int standin_open(const char* path, int flags, unsigned mode) {
    return std::string(path).starts_with("/dev/video")
               ? open_device(path, flags)
               : static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int standin_ioctl(int descriptor, unsigned long request, void* argument) {
    return descriptor == device && device >= 0
               ? control(request & 0xffffffff, argument)
               : static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
}

void* mmap(void* address, size_t length, int protection, int flags, int descriptor, off_t offset) noexcept {
    const bool ours = descriptor >= 0 && descriptor == device;
    if (ours && (fails("mmap") || length != FRAME || offset != OFFSET)) {
        return MAP_FAILED;
    }
    if (ours) {
        note("mmap");
        flags |= MAP_ANONYMOUS;
        descriptor = -1;
        offset = 0;
    }
    const long place = syscall(SYS_mmap, address, length, protection, flags, descriptor, offset);
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    void* const data = reinterpret_cast<void*>(place);
    buffer = ours ? static_cast<uint8_t*>(data) : buffer;
    return data;
}

int munmap(void* address, size_t length) noexcept {
    if (address == buffer) {
        note("munmap");
    }
    return static_cast<int>(syscall(SYS_munmap, address, length));
}

int close(int descriptor) {
    if (descriptor >= 0 && descriptor == device) {
        device = -1;
        note("close");
    }
    return static_cast<int>(syscall(SYS_close, descriptor));
}
}
