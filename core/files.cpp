#include "core/files.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/machine.h"

namespace {

constexpr size_t ERROR_TEXT_LIMIT = 100;

// The file itself, also where the name is a symbolic link to it.
void remove_target(const std::string& name) {
    std::error_code error;
    const std::filesystem::path target = std::filesystem::canonical(name, error);
    if (!error) {
        std::filesystem::remove(target, error);
    }
}

} // namespace

std::string system_error_text(int error) {
    return std::string(std::strerror(error)).substr(0, ERROR_TEXT_LIMIT);
}

std::string cant_open_text(const std::string& name, int error) {
    return "can't open file " + name + ": " + system_error_text(error);
}

std::string cant_write_text(const std::string& name, int error) {
    return "Can't write file " + name + ": " + system_error_text(error);
}

int create_file(const std::string& name) {
    const int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
    const int descriptor = open(name.c_str(), flags | O_NONBLOCK, NEW_FILE_MODE);
    if (descriptor >= 0) {
        fcntl(descriptor, F_SETFL, flags);
    }
    return descriptor;
}

saved_file_t::saved_file_t(std::string name) : name_(std::move(name)), descriptor_(create_file(name_)) {
    if (descriptor_ < 0) {
        throw tovik_error("Can't open file " + name_ + ": " + system_error_text(errno));
    }
    struct stat status {};
    remove_ = fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode);
}

saved_file_t::~saved_file_t() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
    if (remove_) {
        remove_target(name_);
    }
}

void saved_file_t::write(std::string_view data) {
    if (const int error = write_all(descriptor_, data); error != 0) {
        throw tovik_error(cant_write_text(name_, error));
    }
}

void saved_file_t::close() {
    if (::close(std::exchange(descriptor_, -1)) != 0) {
        throw tovik_error(cant_write_text(name_, errno));
    }
    remove_ = false;
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
