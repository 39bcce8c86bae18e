#include "grade/process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/files.h"
#include "base/machine.h"
#include "grade/ending.h"
#include "host/clock.h"

namespace {

constexpr int EXIT_ANSWERED = 0;
constexpr int EXIT_FAILED = 1; // the answer says why
constexpr uint64_t US_PER_SECOND = 1'000'000;
constexpr uint64_t US_PER_MS = 1000;
constexpr int MOST_LOOKS = 200; // for processes that end
constexpr int MS_BETWEEN_LOOKS = 5;
constexpr size_t MOST_ANSWER = size_t{256} << 20; // bytes

// A sanitizer takes terabytes of addresses for itself.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool IS_CHECKED = true;
#else
constexpr bool IS_CHECKED = false;
#endif

struct child_t {
    size_t number;
    pid_t pid;
    int pipe;
    uint64_t deadline_us;
    std::string answer{};
    bool late = false;
};

// What begins from this process, as a command, may have more again.
void limit(__rlimit_resource resource, size_t most) {
    rlimit bound{};
    getrlimit(resource, &bound);
    // A verdict must not come from a limit that only this machine has. Without memory there is none.
    if (bound.rlim_max < most && resource != RLIMIT_AS) {
        throw tovik_error("here a process may use less than a run may need (ulimit)");
    }
    bound.rlim_cur = std::min<rlim_t>(most, bound.rlim_max);
    if (setrlimit(resource, &bound) != 0) {
        throw tovik_error("can't set a limit: " + system_error_text(errno));
    }
}

void set_limits(const bounds_t& bounds) {
    limit(RLIMIT_CPU, static_cast<size_t>(bounds.processor_seconds)); // its signal is SIGXCPU
    limit(RLIMIT_FSIZE, bounds.file_bytes);
    limit(RLIMIT_CORE, 0);
    if (!IS_CHECKED) {
        limit(RLIMIT_AS, bounds.memory_bytes);
    }
}

// Nothing may be thrown into what the other process has begun.
[[noreturn]] void be_child(const bounds_t& bounds, const work_t& work, int pipe, pid_t parent) noexcept {
    // Whoever waits for the answer may be ended.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(EXIT_FAILED);
    }
    // Ctrl+C is for the one that waits, and the terminal is nobody's here.
    setsid();
    forget_end();
    std::signal(SIGXCPU, SIG_DFL);
    int status = EXIT_FAILED;
    std::string answer;
    try {
        set_limits(bounds);
        answer = work();
        status = EXIT_ANSWERED;
    } catch (const tovik_error& error) {
        answer = error.message;
    } catch (const std::exception& error) {
        answer = error.what();
    }
    _exit(write_all(pipe, answer) == 0 ? status : EXIT_FAILED);
}

child_t begin_child(size_t number, const bounds_t& bounds, const work_t& work) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw tovik_error("can't make a pipe: " + system_error_text(errno));
    }
    auto [from, to] = ends;
    const pid_t self = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        be_child(bounds, work, to, self);
    }
    const int error = errno;
    close_file(to);
    if (pid < 0) {
        close_file(from);
        throw tovik_error("can't make a process: " + system_error_text(error));
    }
    return {number, pid, from, stopwatch_us() + static_cast<uint64_t>(bounds.seconds) * US_PER_SECOND};
}

uint64_t microseconds(const timeval& time) {
    return static_cast<uint64_t>(time.tv_sec) * US_PER_SECOND + static_cast<uint64_t>(time.tv_usec);
}

// The child has closed its pipe, or is to be ended.
ended_t end_child(child_t& child) {
    close_file(child.pipe);
    kill(-child.pid, SIGKILL); // what it has started, too; it itself has only to exit
    kill(child.pid, SIGKILL);  // it may not have come to be a group
    int status = 0;
    rusage used{};
    pid_t waited = 0;
    do {
        waited = wait4(child.pid, &status, 0, &used);
    } while (waited < 0 && errno == EINTR);
    if (waited < 0) {
        return {ending_e::FAILED, {}, "can't wait for a process: " + system_error_text(errno), 0};
    }
    ended_t ended{ending_e::FAILED, {}, {}, microseconds(used.ru_utime) + microseconds(used.ru_stime)};
    const int signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    if (child.late || signal == SIGXCPU) {
        ended.ending = ending_e::OUT_OF_TIME;
    } else if (signal != 0) {
        ended.why = std::string("ended by signal ") + sigabbrev_np(signal);
    } else if (WEXITSTATUS(status) != EXIT_ANSWERED) {
        ended.why =
            child.answer.empty() ? "exit status " + std::to_string(WEXITSTATUS(status)) : child.answer;
    } else {
        ended.ending = ending_e::ANSWERED;
        ended.answer = std::move(child.answer);
    }
    return ended;
}

// Returns whether there may be more.
bool take_some(child_t& child) {
    static std::array<char, 65536> buffer; // what a pipe holds
    const ssize_t count = read_some(child.pipe, buffer.data(), buffer.size());
    if (count > 0) {
        child.answer.append(buffer.data(), static_cast<size_t>(count));
    }
    return count > 0 && child.answer.size() <= MOST_ANSWER;
}

// Waits until one of them has something to say or is out of time, or the end is asked for. Returns those that
// are over. What is there to be read counts, however late it is looked at: this process may have been
// stopped.
std::vector<child_t> wait_for_some(std::vector<child_t>& children) {
    std::vector<pollfd> pipes;
    uint64_t next_us = UINT64_MAX;
    for (const child_t& child : children) {
        pipes.push_back({child.pipe, POLLIN, 0});
        next_us = std::min(next_us, child.deadline_us);
    }
    pipes.push_back({end_descriptor(), POLLIN, 0});
    const uint64_t now_us = stopwatch_us();
    const uint64_t wait_ms = next_us <= now_us ? 0 : (next_us - now_us) / US_PER_MS + 1;
    poll(pipes.data(), pipes.size(), static_cast<int>(std::min<uint64_t>(wait_ms, 60000)));
    std::vector<child_t> over;
    for (size_t i = children.size(); i-- > 0;) {
        child_t& child = children[i];
        const bool is_silent = pipes[i].revents == 0;
        child.late = is_silent && stopwatch_us() >= child.deadline_us;
        if (child.late || (!is_silent && !take_some(child))) {
            over.push_back(std::move(child));
            children.erase(children.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
    return over;
}

// What is left when a process has ended becomes this one's own.
void take_orphans() { prctl(PR_SET_CHILD_SUBREAPER, 1); }

// This process's own, but those that it waits for.
std::vector<pid_t> find_orphans(const std::vector<child_t>& children) {
    std::vector<pid_t> orphans;
    std::ifstream own("/proc/thread-self/children");
    for (pid_t pid = 0; own >> pid;) {
        if (std::none_of(children.begin(), children.end(),
                         [&](const child_t& child) { return child.pid == pid; })) {
            orphans.push_back(pid);
        }
    }
    return orphans;
}

// The children of children that were ended end by themselves; what a command of the instructor's has started
// may not.
void end_orphans(const std::vector<child_t>& children) {
    if (children.empty() && waitpid(-1, nullptr, WNOHANG) < 0) {
        return; // as nearly always
    }
    for (int i = 0; i < MOST_LOOKS; ++i) {
        const std::vector<pid_t> orphans = find_orphans(children);
        if (orphans.empty()) {
            return;
        }
        bool have_ended = true;
        for (const pid_t pid : orphans) {
            kill(pid, SIGKILL);
            have_ended &= waitpid(pid, nullptr, WNOHANG) != 0;
        }
        if (!have_ended) {
            wait_ms(MS_BETWEEN_LOOKS);
        }
    }
}

// Those that are left when nobody waits for them any more are ended, with all that they have started: then
// nothing writes into their folders.
class children_t {
  public:
    children_t() = default;
    children_t(const children_t&) = delete;
    children_t& operator=(const children_t&) = delete;
    ~children_t() {
        if (!list.empty()) {
            for (child_t& child : list) {
                end_child(child);
            }
            end_orphans({});
        }
    }

    std::vector<child_t> list;
};

} // namespace

ended_t run_apart(const bounds_t& bounds, const work_t& work) {
    take_orphans();
    children_t children;
    try {
        children.list.push_back(begin_child(0, bounds, work));
    } catch (const tovik_error& error) {
        return {ending_e::FAILED, {}, error.message, 0};
    }
    std::vector<child_t> over;
    while (over.empty() && !is_end_asked()) {
        over = wait_for_some(children.list);
    }
    if (over.empty()) {
        return {ending_e::FAILED, {}, "the grading was ended", 0};
    }
    ended_t ended = end_child(over.front());
    end_orphans({});
    return ended;
}

void run_many(size_t count, int at_once, const bounds_t& bounds,
              const std::function<work_t(size_t number)>& work,
              const std::function<bool(size_t number, ended_t ended)>& done) {
    take_orphans();
    children_t children;
    size_t next = 0;
    bool goes_on = true;
    while (((goes_on && next < count) || !children.list.empty()) && !is_end_asked()) {
        std::vector<std::pair<size_t, ended_t>> over;
        while (goes_on && next < count && children.list.size() < static_cast<size_t>(at_once)) {
            try {
                children.list.push_back(begin_child(next, bounds, work(next)));
            } catch (const tovik_error& error) {
                // There may be room for it when others have ended.
                if (!children.list.empty()) {
                    break;
                }
                over.emplace_back(next, ended_t{ending_e::FAILED, {}, error.message, 0});
            }
            ++next;
        }
        bool are_whole = true;
        for (child_t& child : over.empty() ? wait_for_some(children.list) : std::vector<child_t>{}) {
            over.emplace_back(child.number, end_child(child));
            are_whole &= over.back().second.ending == ending_e::ANSWERED;
        }
        if (!are_whole) {
            end_orphans(children.list);
        }
        for (auto& [number, ended] : over) {
            goes_on &= done(number, std::move(ended));
        }
    }
}
