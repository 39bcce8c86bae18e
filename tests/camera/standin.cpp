// A stand-in for a capture device, to be preloaded: the machines that build and test have no camera, and none
// can be made there without a module of the kernel. It answers the calls on one path and keeps to the order
// that a driver would ask for; each frame has bytes of its own, so that a test knows which frame it sees, and
// where. All other paths that begin with /dev/video do not exist. 64-bit systems only.
//
//   STANDIN_PATH     the device; /dev/video0 by default
//   STANDIN_LOG      a file to which each call is added
//   STANDIN_FAIL     the call that fails: open, mmap, or a request such as S_FMT
//   STANDIN_AFTER    so many of these calls succeed before
//   STANDIN_ERRNO    the error of the call that fails; EIO by default
//   STANDIN_WIDTH, STANDIN_HEIGHT, STANDIN_FORMAT, STANDIN_BUFFERS, STANDIN_LENGTH, STANDIN_CAPABILITIES
//                    what is granted instead of what was asked for; numbers
//   STANDIN_LATE     milliseconds until the first frame is there; -1 for never
//   STANDIN_SKIP     after a frame, the device is so many times asked in vain for the next
//   STANDIN_GONE     the device vanishes after so many frames

#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <thread>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr unsigned ROW = 640 * 2;
constexpr unsigned FRAME = ROW * 480;
constexpr unsigned OFFSET = 65536; // of the buffer in the device; a multiple of every page size

int device = -1;
bool streaming, queued;
long frames, asked;
std::chrono::steady_clock::time_point first_frame;

std::string text_option(const char* name, const char* normally) {
    const char* text = std::getenv((std::string("STANDIN_") + name).c_str());
    return text != nullptr ? text : normally;
}

long option(const char* name, long normally) {
    const std::string text = text_option(name, "");
    return text.empty() ? normally : std::strtol(text.c_str(), nullptr, 0);
}

void note(const std::string& line) {
    const std::string name = text_option("LOG", "/dev/null");
    const long file = syscall(SYS_openat, AT_FDCWD, name.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0666);
    syscall(SYS_write, file, (line + "\n").c_str(), line.size() + 1);
    syscall(SYS_close, file);
}

int failure(int error) {
    errno = error;
    return -1;
}

// Notes the call; says whether it is to fail.
bool fails(const std::string& call) {
    static std::map<std::string, long> calls;
    note(call);
    return text_option("FAIL", "") == call && calls[call]++ >= option("AFTER", 0);
}

bool gone() { return frames >= option("GONE", 1000000); }

void fill(long seed) {
    static uint8_t bytes[FRAME];
    for (unsigned i = 0; i < FRAME; ++i) {
        bytes[i] = static_cast<uint8_t>((i * 167 + i / ROW * 59 + static_cast<unsigned>(seed) * 101) >> 1);
    }
    syscall(SYS_pwrite64, device, bytes, FRAME, OFFSET);
}

int is_capture(uint32_t type) { return type == V4L2_BUF_TYPE_VIDEO_CAPTURE ? 0 : failure(EINVAL); }

int open_device(const std::string& path, int flags) {
    note(path);
    if (path != text_option("PATH", "/dev/video0") || gone()) {
        return failure(ENOENT);
    }
    if (fails("open")) {
        return failure(static_cast<int>(option("ERRNO", EIO)));
    }
    if ((flags & O_ACCMODE) != O_RDWR || (flags & O_NONBLOCK) == 0 || device >= 0) {
        return failure(EBUSY);
    }
    device = static_cast<int>(syscall(SYS_memfd_create, "camera", 0));
    syscall(SYS_ftruncate, device, OFFSET + FRAME);
    streaming = queued = false;
    return device;
}

int open_any(const char* path, int flags, unsigned mode) {
    if (std::string(path).starts_with("/dev/video")) {
        return open_device(path, flags);
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int get_format(v4l2_format& format) {
    format.fmt.pix.width = 1280;
    format.fmt.pix.height = 720;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_MJPEG;
    return is_capture(format.type);
}

int set_format(v4l2_format& format) {
    format.fmt.pix.width = static_cast<uint32_t>(option("WIDTH", format.fmt.pix.width));
    format.fmt.pix.height = static_cast<uint32_t>(option("HEIGHT", format.fmt.pix.height));
    format.fmt.pix.pixelformat = static_cast<uint32_t>(option("FORMAT", format.fmt.pix.pixelformat));
    return is_capture(format.type);
}

int request_buffers(v4l2_requestbuffers& request) {
    request.count = static_cast<uint32_t>(option("BUFFERS", request.count));
    return request.memory == V4L2_MEMORY_MMAP ? is_capture(request.type) : failure(EINVAL);
}

int query_buffer(v4l2_buffer& buffer) {
    buffer.length = static_cast<uint32_t>(option("LENGTH", FRAME));
    buffer.m.offset = OFFSET;
    return is_capture(buffer.type);
}

// Who still looks at the buffer then sees that it is the device's.
int queue(const v4l2_buffer& buffer) {
    if (queued || buffer.index != 0 || buffer.memory != V4L2_MEMORY_MMAP) {
        return failure(EINVAL);
    }
    fill(-1);
    queued = true;
    return 0;
}

bool ready() {
    return streaming && queued && option("LATE", 0) >= 0 && std::chrono::steady_clock::now() >= first_frame &&
           (frames == 0 || asked > option("SKIP", 0));
}

int dequeue(v4l2_buffer& buffer) {
    if (gone()) {
        return failure(ENODEV);
    }
    if (!ready()) {
        return failure(EAGAIN);
    }
    fill(frames++);
    asked = 0;
    queued = false;
    buffer.index = 0;
    return 0;
}

int start() {
    streaming = true;
    first_frame = std::chrono::steady_clock::now() + std::chrono::milliseconds(option("LATE", 0));
    return 0;
}

int stop() {
    streaming = queued = false;
    return gone() ? failure(ENODEV) : 0;
}

const std::map<unsigned long, const char*> NAMES = {
    {VIDIOC_QUERYCAP, "QUERYCAP"}, {VIDIOC_G_FMT, "G_FMT"},       {VIDIOC_S_FMT, "S_FMT"},
    {VIDIOC_REQBUFS, "REQBUFS"},   {VIDIOC_QUERYBUF, "QUERYBUF"}, {VIDIOC_QBUF, "QBUF"},
    {VIDIOC_DQBUF, "DQBUF"},       {VIDIOC_STREAMON, "STREAMON"}, {VIDIOC_STREAMOFF, "STREAMOFF"}};

int control(unsigned long request, void* argument) {
    const auto name = NAMES.find(request & 0xffffffff);
    if (name == NAMES.end()) {
        note("another request");
        return failure(ENOTTY);
    }
    if (fails(name->second)) {
        return failure(static_cast<int>(option("ERRNO", EIO)));
    }
    switch (name->first) {
    case VIDIOC_QUERYCAP:
        static_cast<v4l2_capability*>(argument)->capabilities = static_cast<uint32_t>(
            option("CAPABILITIES", V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING | V4L2_CAP_READWRITE));
        return 0;
    case VIDIOC_S_FMT:
        return set_format(*static_cast<v4l2_format*>(argument));
    case VIDIOC_REQBUFS:
        return request_buffers(*static_cast<v4l2_requestbuffers*>(argument));
    case VIDIOC_QUERYBUF:
        return query_buffer(*static_cast<v4l2_buffer*>(argument));
    case VIDIOC_QBUF:
        return queue(*static_cast<v4l2_buffer*>(argument));
    case VIDIOC_DQBUF:
        return dequeue(*static_cast<v4l2_buffer*>(argument));
    case VIDIOC_STREAMON:
        return start();
    case VIDIOC_STREAMOFF:
        return stop();
    default: // VIDIOC_G_FMT
        return get_format(*static_cast<v4l2_format*>(argument));
    }
}

int wait_for_frame(pollfd& entry, int milliseconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    entry.revents = 0;
    ++asked;
    while (!gone() && !ready() && (milliseconds < 0 || std::chrono::steady_clock::now() < end)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (gone()) {
        entry.revents = POLLERR | POLLHUP;
    } else if (ready()) {
        entry.revents = POLLIN;
    }
    return entry.revents != 0 ? 1 : 0;
}

unsigned mode_of(int flags, va_list arguments) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, unsigned) : 0;
}

} // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = mode_of(flags, arguments);
    va_end(arguments);
    return open_any(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = mode_of(flags, arguments);
    va_end(arguments);
    return open_any(path, flags, mode);
}

int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return descriptor == device && device >= 0
               ? control(request, argument)
               : static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
}

void* mmap(void* address, size_t length, int protection, int flags, int descriptor, off_t offset) noexcept {
    if (descriptor >= 0 && descriptor == device && fails("mmap")) {
        errno = static_cast<int>(option("ERRNO", EIO));
        return MAP_FAILED;
    }
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    return reinterpret_cast<void*>(syscall(SYS_mmap, address, length, protection, flags, descriptor, offset));
}

void* mmap64(void* address, size_t length, int protection, int flags, int descriptor,
             off64_t offset) noexcept {
    return mmap(address, length, protection, flags, descriptor, offset);
}

int munmap(void* address, size_t length) noexcept {
    if (length == FRAME) {
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

// The system's own declaration of poll says that it only writes. The others are what functions are called in
// programs built with checks of their arguments.
int standin_poll(pollfd* entries, nfds_t count, int milliseconds) __asm__("poll");
int standin_poll_chk(pollfd* entries, nfds_t count, int milliseconds, size_t size) __asm__("__poll_chk");
int standin_open_2(const char* path, int flags) __asm__("__open_2");
int standin_open64_2(const char* path, int flags) __asm__("__open64_2");

int standin_poll(pollfd* entries, nfds_t count, int milliseconds) {
    if (count == 1 && device >= 0 && entries->fd == device) {
        return wait_for_frame(*entries, milliseconds);
    }
    timespec time = {milliseconds / 1000, milliseconds % 1000 * 1000000L};
    return static_cast<int>(
        syscall(SYS_ppoll, entries, count, milliseconds < 0 ? nullptr : &time, nullptr, 0));
}

int standin_poll_chk(pollfd* entries, nfds_t count, int milliseconds, size_t /*size*/) {
    return standin_poll(entries, count, milliseconds);
}

int standin_open_2(const char* path, int flags) { return open_any(path, flags, 0); }

int standin_open64_2(const char* path, int flags) { return open_any(path, flags, 0); }
}
