// Files of the host's for storage.

#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

#include "base/files.h"
#include "host/platform.h"

int platform::file_open(const std::string& name, bool to_write) {
    const int file = open_seekable(name, to_write ? access_e::READ_AND_WRITE : access_e::READ);
    return file < 0 ? -errno : file;
}

platform::file_stamp_t platform::file_stamp(int file) {
    struct stat status {};
    if (fstat(file, &status) != 0) {
        return {};
    }
    constexpr int64_t NS_PER_SECOND = 1'000'000'000;
    const int64_t size = seek_end(file);
    return {status.st_dev, status.st_ino, status.st_mtim.tv_sec * NS_PER_SECOND + status.st_mtim.tv_nsec,
            size < 0 ? -errno : size};
}

int64_t platform::file_read(int file, std::span<char> bytes, int64_t offset) {
    const ssize_t count = read_full(file, bytes, offset);
    return count < 0 ? -errno : count;
}

int platform::file_write(int file, std::span<const char> bytes, int64_t offset) {
    return write_at(file, bytes, offset);
}

int platform::file_resize(int file, int64_t size) { return ftruncate(file, size) == 0 ? 0 : errno; }

void platform::file_close(int file) { close_file(file); }
