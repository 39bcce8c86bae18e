// The files on which devices work. In the past a file is seen as it was: the bytes that were written since
// then are kept as they were before.

#include "host/storage.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <map>
#include <utility>
#include <vector>

#include "host/journal.h"
#include "host/platform.h"
#include "host/storage_past.h"

namespace {

constexpr int NO_FILE = -1;

struct file_t {
    int handle = NO_FILE;
    std::string name;
    platform::file_stamp_t stamp = {};
};

struct write_t {
    size_t file;
    int64_t offset;
    std::string before; // the bytes that were there, fewer where the file ended
    bool known;         // whether they could be read
    int64_t size;       // of the file, before
};

struct storages_t {
    std::vector<file_t> files; // all that have been opened; while nothing is kept, one a place
    std::deque<write_t> writes;
    size_t forgotten = 0;                                               // writes before the first of these
    std::map<std::pair<size_t, int64_t>, std::deque<size_t>> writes_at; // by file and offset, in order
    size_t bytes = 0;                                                   // of the writes
    storage_mark_t mark;
};

storages_t storages;

int& file_in(storage_e place) { return storages.mark.open[static_cast<size_t>(place)]; }

size_t writes_made() { return storages.forgotten + storages.writes.size(); }

void close(file_t& file) {
    if (file.handle >= 0) {
        platform::file_close(std::exchange(file.handle, NO_FILE));
    }
}

// The write that has replaced, first of those after where the journal stands, what was at a place of a file.
const write_t* first_write_after(size_t file, int64_t offset) {
    const auto found = storages.writes_at.find({file, offset});
    if (found == storages.writes_at.end()) {
        return nullptr;
    }
    const auto write = std::lower_bound(found->second.begin(), found->second.end(), storages.mark.writes);
    return write == found->second.end() ? nullptr : &storages.writes[*write - storages.forgotten];
}

// Keeps what a write is going to replace.
void keep_before(size_t file, int64_t offset, size_t count) {
    write_t write = {file, offset, std::string(count, '\0'), true, storages.files[file].stamp.size};
    const int64_t there = platform::file_read(storages.files[file].handle, write.before, offset);
    write.known = there >= 0;
    write.before.resize(static_cast<size_t>(std::max<int64_t>(there, 0)));
    storages.bytes += write.before.size() + sizeof write;
    storages.writes_at[{file, offset}].push_back(writes_made());
    storages.writes.push_back(std::move(write));
    storages.mark.writes = writes_made();
}

void forget_last_write() {
    const write_t& write = storages.writes.back();
    storages.bytes -= write.before.size() + sizeof write;
    storages.writes_at[{write.file, write.offset}].pop_back();
    storages.writes.pop_back();
}

int undo(const write_t& write) {
    if (!write.known) {
        return EIO;
    }
    file_t& file = storages.files[write.file];
    int error = platform::file_write(file.handle, write.before, write.offset);
    if (error == 0) {
        error = platform::file_resize(file.handle, write.size);
    }
    file.stamp = platform::file_stamp(file.handle);
    return error;
}

} // namespace

int64_t storage_open(storage_e place, const std::string& name) {
    storage_close(place);
    const auto open = [&] {
        file_t file = {platform::file_open(name, place == storage_e::CARD), name, {}};
        int64_t size_or_error = file.handle;
        if (file.handle >= 0) {
            file.stamp = platform::file_stamp(file.handle);
            size_or_error = file.stamp.size;
        }
        // What has no end can still be a movie.
        if (size_or_error < 0 && place == storage_e::CARD) {
            close(file);
        }
        storages.files.push_back(file);
        return given_t{.value = file.handle < 0 ? size_or_error : std::max<int64_t>(size_or_error, 0)};
    };
    const int64_t size = through_journal(door_e::STORAGE, open).value;
    const auto number = static_cast<int>(storages.mark.opened++);
    if (size >= 0) {
        file_in(place) = number;
    }
    return size;
}

int64_t storage_read(storage_e place, std::span<char> bytes, int64_t offset) {
    if (file_in(place) == NO_FILE) {
        return -EBADF;
    }
    const auto number = static_cast<size_t>(file_in(place));
    if (const write_t* const write = first_write_after(number, offset)) {
        const auto count = static_cast<int64_t>(write->before.copy(bytes.data(), bytes.size()));
        return write->known ? count : -EIO;
    }
    if (in_the_past()) {
        if (const passed_t* const passed = journal_due(door_e::STORAGE)) {
            return passed->value;
        }
    }
    const int64_t count = platform::file_read(storages.files[number].handle, bytes, offset);
    if (count < 0 && !in_the_past()) {
        journal_note(door_e::STORAGE, count);
    }
    return count;
}

int storage_write(storage_e place, std::span<const char> bytes, int64_t offset) {
    if (file_in(place) == NO_FILE) {
        return EBADF;
    }
    const auto number = static_cast<size_t>(file_in(place));
    file_t& file = storages.files[number];
    if (!journal_is_on()) {
        return platform::file_write(file.handle, bytes, offset);
    }
    if (in_the_past()) {
        const passed_t* const passed = journal_due(door_e::STORAGE);
        ++storages.mark.writes;
        return passed == nullptr ? 0 : static_cast<int>(passed->value);
    }
    keep_before(number, offset, bytes.size());
    const int error = platform::file_write(file.handle, bytes, offset);
    file.stamp = platform::file_stamp(file.handle);
    if (error != 0) {
        journal_note(door_e::STORAGE, error);
    }
    return error;
}

void storage_close(storage_e place) {
    if (file_in(place) != NO_FILE && !journal_is_on()) {
        close(storages.files[static_cast<size_t>(file_in(place))]);
    }
    file_in(place) = NO_FILE;
}

storage_mark_t storage_mark() { return storages.mark; }

void storage_go_to(const storage_mark_t& mark) { storages.mark = mark; }

std::optional<std::string> storage_changed() {
    for (const file_t& file : storages.files) {
        if (file.handle >= 0 && platform::file_stamp(file.handle) != file.stamp) {
            return file.name;
        }
    }
    return std::nullopt;
}

bool storage_has_future() { return writes_made() > storages.mark.writes; }

int storage_cut(bool card_goes_back) {
    int error = 0;
    while (card_goes_back && error == 0 && storage_has_future()) {
        error = undo(storages.writes.back());
        if (error == 0) {
            forget_last_write();
        }
    }
    storages.mark.writes = writes_made();
    while (storages.files.size() > storages.mark.opened) {
        close(storages.files.back());
        storages.files.pop_back();
    }
    return error;
}

void storage_forget_before(const storage_mark_t& mark) {
    for (; storages.forgotten < mark.writes; ++storages.forgotten) {
        const write_t& write = storages.writes.front();
        const auto at = storages.writes_at.find({write.file, write.offset});
        at->second.erase(at->second.begin());
        if (at->second.empty()) {
            storages.writes_at.erase(at);
        }
        storages.bytes -= write.before.size() + sizeof write;
        storages.writes.pop_front();
    }
}

void storage_forget() {
    std::vector<file_t> kept;
    for (int& open : storages.mark.open) {
        if (open != NO_FILE) {
            kept.push_back(std::exchange(storages.files[static_cast<size_t>(open)], {}));
            open = static_cast<int>(kept.size()) - 1;
        }
    }
    for (file_t& file : storages.files) {
        close(file);
    }
    storage_mark_t mark = {.opened = kept.size(), .open = storages.mark.open, .writes = 0};
    storages = {};
    storages.files = std::move(kept);
    storages.mark = mark;
}

size_t storage_size() { return storages.bytes; }

int64_t storage_card_size() {
    const int card = file_in(storage_e::CARD);
    return card == NO_FILE ? 0 : storages.files[static_cast<size_t>(card)].stamp.size;
}
