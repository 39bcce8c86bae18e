// What a browser's engine has not got of a computer's system, or has in other words.

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <poll.h>
#include <sys/xattr.h>

namespace {

// The native programs' words, where the C library's here are others.
constexpr std::array<std::pair<int, const char*>, 7> ERROR_TEXTS = {{
    {EIO, "Input/output error"},
    {ELOOP, "Too many levels of symbolic links"},
    {EMFILE, "Too many open files"},
    {ENAMETOOLONG, "File name too long"},
    {ENFILE, "Too many open files in system"},
    {ENOMEM, "Cannot allocate memory"},
    {ESPIPE, "Illegal seek"},
}};

} // namespace

extern "C" {

// The linker puts it in the place of strerror.
const char* __real_strerror(int error);
const char* __wrap_strerror(int error) {
    const auto is_it = [error](const auto& entry) { return entry.first == error; };
    const auto* const text = std::find_if(ERROR_TEXTS.begin(), ERROR_TEXTS.end(), is_it);
    return text == ERROR_TEXTS.end() ? __real_strerror(error) : text->second;
}

// There is one process, and nothing comes to it from outside: reading waits itself.
int ppoll(pollfd* /*descriptors*/, nfds_t /*count*/, const timespec* /*most*/, const sigset_t* /*held*/) {
    return 1;
}

ssize_t fgetxattr(int /*file*/, const char* /*name*/, void* /*value*/, size_t /*size*/) {
    errno = ENOTSUP;
    return -1;
}

int fremovexattr(int /*file*/, const char* /*name*/) {
    errno = ENOTSUP;
    return -1;
}
}
