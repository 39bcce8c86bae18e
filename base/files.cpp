#include "base/files.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr size_t ERROR_TEXT_LIMIT = 100;

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
