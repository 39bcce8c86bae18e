#include "core/files.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace {

constexpr size_t ERROR_TEXT_LIMIT = 100;

} // namespace

std::string system_error_text(int error) {
    return std::string(std::strerror(error)).substr(0, ERROR_TEXT_LIMIT);
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
