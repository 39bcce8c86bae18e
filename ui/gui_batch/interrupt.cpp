#include "ui/gui_batch/interrupt.h"

#include <array>
#include <cerrno>
#include <csignal>

#include <poll.h>
#include <unistd.h>

#include "base/saved_file.h"

namespace {

constexpr std::array SIGNALS = {SIGINT, SIGTERM};

volatile std::sig_atomic_t interrupted = 0;
volatile std::sig_atomic_t next_ends = 0;

void note(int signal) {
    if (next_ends == 0) {
        next_ends = 1;
        interrupted = 1;
        return;
    }
    remove_new_files();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

struct input_t {
    std::array<unsigned char, 4096> bytes;
    size_t count;
    size_t next;
};

input_t input;

// Waits until there is something to read; a signal that comes before the waiting begins ends it, too. Returns
// false when the run is interrupted.
bool wait_for_input() {
    sigset_t held;
    sigset_t before;
    sigemptyset(&held);
    for (const int signal : SIGNALS) {
        sigaddset(&held, signal);
    }
    pthread_sigmask(SIG_BLOCK, &held, &before);
    pollfd descriptor = {.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
    int ready = 0;
    while (interrupted == 0 && ready <= 0) {
        ready = ppoll(&descriptor, 1, nullptr, &before);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return interrupted == 0;
}

} // namespace

void note_interrupts() {
    for (const int signal : SIGNALS) {
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            action = {};
            action.sa_handler = note;
            action.sa_flags = SA_RESTART; // what is being written goes on; ppoll ends all the same
            sigaction(signal, &action, nullptr);
        }
    }
}

void end_at_interrupts() { next_ends = 1; }

bool is_interrupted() { return interrupted != 0; }

int read_input_byte() {
    while (input.next == input.count) {
        if (!wait_for_input()) {
            return -1;
        }
        const ssize_t count = read(STDIN_FILENO, input.bytes.data(), input.bytes.size());
        if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) {
            return -1;
        }
        input.next = 0;
        input.count = count < 0 ? 0 : static_cast<size_t>(count);
    }
    return input.bytes[input.next++];
}
