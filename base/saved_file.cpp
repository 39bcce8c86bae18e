#include "base/saved_file.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cassert>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "base/files.h"
#include "base/machine.h"

namespace {

constexpr size_t MOST_LINKS = 40; // that the system follows, too
constexpr int MOST_NAMES_TRIED = 100;
constexpr size_t COPIED_BYTES = 65536; // at a time

constexpr mode_t PERMISSIONS = 07777;
constexpr mode_t OWNER_ONLY = 0600; // until the new file has the mode of the old one

constexpr std::array ENDING_SIGNALS = {SIGTERM, SIGINT, SIGHUP};

// The names of the new files that are there: an image and its label list, at most; and the process whose they
// are, for a child that it starts has the list too. The handler of a signal reads both.
std::array<std::atomic<const char*>, 2> new_files{};
std::atomic<pid_t> owner{};

void end_by_signal(int signal) {
    remove_new_files();
    std::raise(signal);
}

// A signal that is ignored, under nohup for instance, stays so.
void remove_new_files_at_end() {
    static bool prepared = false;
    if (std::exchange(prepared, true)) {
        return;
    }
    std::atexit(remove_new_files);
    for (const int signal : ENDING_SIGNALS) {
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
            action.sa_handler = end_by_signal;
            action.sa_flags = static_cast<int>(SA_RESETHAND);
            sigaction(signal, &action, nullptr);
        }
    }
}

void add_to_list(const char* name) {
    if (owner.exchange(getpid()) != getpid()) {
        std::fill(new_files.begin(), new_files.end(), nullptr);
    }
    const auto is_free = [](const auto& entry) { return entry == nullptr; };
    const auto entry = std::find_if(new_files.begin(), new_files.end(), is_free);
    assert(entry != new_files.end());
    *entry = name;
}

void drop_from_list(const char* name) {
    for (auto& entry : new_files) {
        if (entry == name) {
            entry = nullptr;
        }
    }
}

// While one is there no signal ends the process: between a file and its entry in the list, for instance.
class ending_held_t {
  public:
    ending_held_t() {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int signal : ENDING_SIGNALS) {
            sigaddset(&signals, signal);
        }
        pthread_sigmask(SIG_BLOCK, &signals, &before_);
    }
    ending_held_t(const ending_held_t&) = delete;
    ending_held_t& operator=(const ending_held_t&) = delete;
    ~ending_held_t() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  private:
    sigset_t before_;
};

// A pipe that nobody reads is an error, where waiting for a reader would stop the window.
int open_to_write(const std::string& name, int flags) {
    const int descriptor = open(name.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK | flags, NEW_FILE_MODE);
    if (descriptor >= 0) {
        fcntl(descriptor, F_SETFL, O_WRONLY);
    }
    return descriptor;
}

// The name that a name leads to, links followed. Empty where there is none: a link may stand for an open
// file.
std::string target_of(const std::string& name) {
    std::error_code error;
    std::filesystem::path path = name;
    for (size_t i = 0; i < MOST_LINKS && path.has_filename(); ++i) {
        const std::filesystem::path given = path.has_parent_path() ? path.parent_path() : ".";
        std::filesystem::path folder = std::filesystem::canonical(given, error);
        if (error) {
            folder = given; // one above it may be closed to the user
        }
        if (folder.string().starts_with("/proc/")) {
            return "";
        }
        path = folder / path.filename();
        if (!std::filesystem::is_symlink(path, error)) {
            return path;
        }
        path = folder / std::filesystem::read_symlink(path, error);
    }
    return "";
}

std::string random_ending() {
    constexpr std::string_view CHARACTERS = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::random_device random;
    std::string ending(6, ' ');
    for (char& c : ending) {
        c = CHARACTERS[random() % CHARACTERS.size()];
    }
    return ending;
}

// Makes a new file beside another one. Returns its descriptor, or -1 with errno set.
int make_beside(const std::filesystem::path& file, mode_t mode, std::string& name) {
    for (int i = 0; i < MOST_NAMES_TRIED; ++i) {
        name = file.parent_path() / ("." + file.filename().string() + "." + random_ending());
        const int descriptor = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        if (descriptor >= 0 || errno != EEXIST) {
            return descriptor;
        }
    }
    return -1;
}

// Where the system has no room, writing into the old file would lose it.
bool is_shortage(int error) {
    constexpr std::array SHORTAGES = {ENOSPC, EDQUOT, EIO, ENOMEM, EMFILE, ENFILE};
    return std::find(SHORTAGES.begin(), SHORTAGES.end(), error) != SHORTAGES.end();
}

// A list of users who may access it cannot be told by the mode.
constexpr const char* ACCESS_LIST = "system.posix_acl_access";

bool has_access_list(int descriptor) { return fgetxattr(descriptor, ACCESS_LIST, nullptr, 0) > 0; }

bool give_owner_and_mode(int descriptor, const struct stat& old) {
    struct stat now {};
    const auto has_owner = [&] {
        return fstat(descriptor, &now) == 0 && now.st_uid == old.st_uid && now.st_gid == old.st_gid;
    };
    // The folder may give each new file a list that the old one has not.
    fremovexattr(descriptor, ACCESS_LIST);
    return (has_owner() || fchown(descriptor, old.st_uid, old.st_gid) == 0) &&
           fchmod(descriptor, old.st_mode & PERMISSIONS) == 0 && has_owner() && now.st_mode == old.st_mode &&
           !has_access_list(descriptor);
}

// Returns 0, or the errno of the failure.
int copy(int source, int destination) {
    std::vector<char> bytes(COPIED_BYTES);
    for (;;) {
        const ssize_t count = read_some(source, bytes.data(), bytes.size());
        if (count <= 0) {
            return count < 0 ? errno : 0;
        }
        if (const int error = write_all(destination, {bytes.data(), static_cast<size_t>(count)});
            error != 0) {
            return error;
        }
    }
}

} // namespace

void remove_new_files() {
    if (owner != getpid()) {
        return;
    }
    for (const auto& name : new_files) {
        if (name != nullptr) {
            unlink(name);
        }
    }
}

void take_names(saved_file_t& first, saved_file_t& second) {
    const ending_held_t held;
    first.take_name();
    second.take_name();
}

saved_file_t::saved_file_t(std::string name, std::string_view refusal) : name_(std::move(name)) {
    old_ = open_to_write(name_, 0);
    if (old_ >= 0 || errno == ENOENT) {
        target_ = target_of(name_);
        open_new();
        if (old_ < 0 && in_place()) {
            old_ = open_to_write(name_, O_CREAT);
            disposable_ = old_ >= 0 && fstat(old_, &found_) == 0;
        }
    }
    if (old_ < 0 && in_place()) {
        throw tovik_error(std::string(refusal) + name_ + ": " + system_error_text(errno));
    }
}

saved_file_t::~saved_file_t() { give_up(); }

void saved_file_t::write(std::string_view data) {
    prepare();
    if (const int error = write_all(in_place() ? old_ : new_, data); error != 0) {
        fail(error);
    }
}

void saved_file_t::finish() {
    prepare();
    if (::close(std::exchange(in_place() ? old_ : new_, -1)) != 0) {
        fail(errno);
    }
}

void saved_file_t::take_name() {
    if (!in_place()) {
        if (std::rename(new_name_.c_str(), target_.c_str()) == 0) {
            forget_new();
        } else {
            copy_into_place();
            remove_new();
        }
    }
    disposable_ = false;
}

void saved_file_t::open_new() {
    if (old_ >= 0) {
        if (fstat(old_, &found_) != 0 || !S_ISREG(found_.st_mode)) {
            return;
        }
        disposable_ = found_.st_size == 0;
        if (found_.st_nlink != 1 || has_access_list(old_)) {
            return;
        }
    }
    if (target_.empty()) {
        return;
    }
    remove_new_files_at_end();
    const ending_held_t held;
    new_ = make_beside(target_, old_ < 0 ? NEW_FILE_MODE : OWNER_ONLY, new_name_);
    if (new_ < 0) {
        no_room_ = old_ >= 0 && is_shortage(errno) ? errno : 0;
        new_name_.clear();
        return;
    }
    add_to_list(new_name_.c_str());
    if (old_ >= 0 && !give_owner_and_mode(new_, found_)) {
        ::close(std::exchange(new_, -1));
        remove_new();
    } else if (old_ >= 0) {
        ::close(std::exchange(old_, -1));
    }
}

// Where the file itself cannot be replaced: it may be mounted into a container.
void saved_file_t::copy_into_place() {
    chmod(new_name_.c_str(), OWNER_ONLY); // the old one's mode may not let its owner read
    const int source = open(new_name_.c_str(), O_RDONLY | O_CLOEXEC);
    if (source < 0) {
        fail(errno);
    }
    old_ = open_to_write(target_, O_CREAT);
    int error = old_ < 0 ? errno : truncate();
    if (error == 0) {
        error = copy(source, old_);
    }
    ::close(source);
    if (error == 0 && ::close(std::exchange(old_, -1)) != 0) {
        error = errno;
    }
    if (error != 0) {
        fail(error);
    }
}

void saved_file_t::prepare() {
    if (no_room_ != 0) {
        fail(no_room_);
    }
    if (const int error = in_place() ? truncate() : 0; error != 0) {
        fail(error);
    }
}

// Returns 0, or the errno of the failure. Only a regular file has an old content to lose; anything else
// refuses, and that is fine.
int saved_file_t::truncate() {
    if (std::exchange(truncated_, true)) {
        return 0;
    }
    if (ftruncate(old_, 0) == 0) {
        disposable_ = fstat(old_, &found_) == 0;
        return 0;
    }
    return errno == EINVAL ? 0 : errno;
}

void saved_file_t::remove_new() {
    if (!in_place()) {
        unlink(new_name_.c_str());
        forget_new();
    }
}

void saved_file_t::forget_new() {
    drop_from_list(new_name_.c_str());
    new_name_.clear();
}

void saved_file_t::give_up() {
    for (int* const descriptor : {&old_, &new_}) {
        if (*descriptor >= 0) {
            ::close(std::exchange(*descriptor, -1));
        }
    }
    remove_new();
    remove_itself();
}

// Another process may have put its own file there meanwhile, or written into this one.
void saved_file_t::remove_itself() {
    struct stat now {};
    if (std::exchange(disposable_, false) && !target_.empty() && stat(target_.c_str(), &now) == 0 &&
        now.st_dev == found_.st_dev && now.st_ino == found_.st_ino && (truncated_ || now.st_size == 0)) {
        unlink(target_.c_str());
    }
}

void saved_file_t::fail(int error) {
    give_up();
    throw tovik_error(cant_write_text(name_, error));
}
