#include "base/files.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/machine.h"

namespace {

constexpr size_t ERROR_TEXT_LIMIT = 100;
constexpr int WITHOUT_WAITING = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// Why a file of this mode cannot be read from begin to end and again, or 0.
int kind_error(mode_t mode) {
    if (S_ISREG(mode)) {
        return 0;
    }
    return S_ISDIR(mode) ? EISDIR : ESPIPE;
}

// Gives up a file for a reason.
int refuse(int descriptor, int error) {
    close_file(descriptor);
    errno = error;
    return -1;
}

} // namespace

std::string system_error_text(int error) {
    return std::string(std::strerror(error)).substr(0, ERROR_TEXT_LIMIT);
}

std::string cant_open_text(const std::string& name, int error) {
    return "can't open file " + name + ": " + system_error_text(error);
}

std::string cant_read_text(const std::string& name, int error) {
    return "can't read file " + name + ": " + system_error_text(error);
}

std::string cant_write_text(const std::string& name, int error) {
    return "Can't write file " + name + ": " + system_error_text(error);
}

void hold_standard_streams() {
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDONLY);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    close(descriptor);
}

int open_seekable(const std::string& name, access_e access) {
    const int mode = access == access_e::READ ? O_RDONLY : O_RDWR;
    const int descriptor = open(name.c_str(), mode | WITHOUT_WAITING);
    if (descriptor >= 0 && lseek(descriptor, 0, SEEK_CUR) < 0) {
        return refuse(descriptor, errno);
    }
    return descriptor;
}

int open_regular(const std::string& name) {
    const int descriptor = open(name.c_str(), O_RDONLY | WITHOUT_WAITING);
    struct stat status {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0) {
        return refuse(descriptor, errno);
    }
    const int error = kind_error(status.st_mode);
    return error != 0 ? refuse(descriptor, error) : descriptor;
}

// Opening the stream of a pipe would wait for the other end.
std::ifstream open_stream(const std::string& name) {
    struct stat status {};
    int error = stat(name.c_str(), &status) != 0 ? errno : kind_error(status.st_mode);
    std::ifstream file;
    if (error == 0) {
        file.open(name, std::ios::binary);
        error = errno;
    }
    errno = error;
    return file;
}

std::string read_whole(const std::string& name) {
    std::ifstream file = open_stream(name);
    if (const int error = errno; !file.is_open()) {
        throw tovik_error(cant_open_text(name, error));
    }
    std::string text;
    for (std::array<char, 65536> part{}; file.read(part.data(), part.size()) || file.gcount() > 0;) {
        text.append(part.data(), static_cast<size_t>(file.gcount()));
    }
    if (file.bad()) {
        throw tovik_error(cant_read_text(name, errno));
    }
    return text;
}

void close_file(int& descriptor) {
    if (descriptor >= 0) {
        close(std::exchange(descriptor, -1));
    }
}

int write_all(int descriptor, std::string_view data) {
    while (!data.empty()) {
        const ssize_t count = write(descriptor, data.data(), data.size());
        if (count >= 0) {
            data.remove_prefix(static_cast<size_t>(count));
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

ssize_t read_some(int descriptor, char* buffer, size_t size) {
    ssize_t count = 0;
    do {
        count = read(descriptor, buffer, size);
    } while (count < 0 && errno == EINTR);
    return count;
}

ssize_t read_full(int descriptor, std::span<char> buffer, int64_t offset) {
    size_t filled = 0;
    while (filled < buffer.size()) {
        const ssize_t count = pread(descriptor, buffer.data() + filled, buffer.size() - filled,
                                    offset + static_cast<int64_t>(filled));
        if (count == 0) {
            break;
        }
        if (count > 0) {
            filled += static_cast<size_t>(count);
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return static_cast<ssize_t>(filled);
}

int64_t seek_end(int descriptor) { return lseek(descriptor, 0, SEEK_END); }

int write_at(int descriptor, std::span<const char> bytes, int64_t offset) {
    while (!bytes.empty()) {
        const ssize_t count = pwrite(descriptor, bytes.data(), bytes.size(), offset);
        if (count == 0) {
            return EIO;
        }
        if (count > 0) {
            bytes = bytes.subspan(static_cast<size_t>(count));
            offset += count;
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}
