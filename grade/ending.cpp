#include "grade/ending.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>

#include <sys/eventfd.h>
#include <unistd.h>

#include "base/files.h"
#include "base/machine.h"

namespace {

constexpr std::array SIGNALS = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t asked = 0;
int descriptor = -1;

void note(int /*signal*/) {
    asked = 1;
    const int error = errno;
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(descriptor, &one, sizeof one); // it has room for billions
    errno = error;
    for (const int signal : SIGNALS) {
        std::signal(signal, SIG_DFL);
    }
}

// Gives all signals that are noted, or are to be, another handler.
void replace(void (*before)(int), void (*handler)(int)) {
    for (const int signal : SIGNALS) {
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == before) {
            action = {};
            action.sa_handler = handler;
            action.sa_flags = SA_RESTART; // what is being written goes on; poll ends all the same
            sigaction(signal, &action, nullptr);
        }
    }
}

} // namespace

void watch_for_end() {
    descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (descriptor < 0) {
        throw tovik_error("can't wait for signals: " + system_error_text(errno));
    }
    replace(SIG_DFL, note);
}

void forget_end() {
    replace(note, SIG_DFL);
    if (descriptor >= 0) {
        close_file(descriptor);
    }
}

bool is_end_asked() { return asked != 0; }

int end_descriptor() { return descriptor; }
