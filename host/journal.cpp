#include "host/journal.h"

#include <algorithm>
#include <cassert>
#include <deque>
#include <map>
#include <string>
#include <utility>

namespace {

struct journal_t {
    bool on = false;
    bool newest = true; // the board is where it has never been farther
    std::deque<passed_t> entries;
    uint64_t forgotten = 0; // entries before the first of these
    journal_mark_t mark;
    size_t bytes = 0; // of all entries
    std::map<door_e, passed_t> last_forgotten;
};

journal_t journal;

size_t size_of(const passed_t& passed) {
    return sizeof passed + (passed.bytes == nullptr ? 0 : passed.bytes->size() + sizeof(std::string));
}

uint64_t end_of_entries() { return journal.forgotten + journal.entries.size(); }

const passed_t* present() {
    assert(journal.mark.position >= journal.forgotten);
    const auto index = static_cast<size_t>(journal.mark.position - journal.forgotten);
    return index < journal.entries.size() ? &journal.entries[index] : nullptr;
}

} // namespace

void journal_begin() {
    journal = {};
    journal.on = true;
}

void journal_end() { journal = {}; }

bool journal_is_on() { return journal.on; }

bool in_the_past() { return !journal.newest || journal.mark.position < end_of_entries(); }

journal_mark_t journal_mark() { return journal.mark; }

void journal_go_to(const journal_mark_t& mark, bool newest) {
    assert(mark.position >= journal.forgotten && mark.position <= end_of_entries());
    journal.mark = mark;
    journal.newest = newest;
}

void journal_count_act() { ++journal.mark.acts; }

void journal_cut() {
    while (end_of_entries() > journal.mark.position) {
        journal.bytes -= size_of(journal.entries.back());
        journal.entries.pop_back();
    }
    journal.newest = true;
}

void journal_forget_before(const journal_mark_t& mark) {
    for (; journal.forgotten < mark.position; ++journal.forgotten) {
        passed_t& oldest = journal.entries.front();
        journal.bytes -= size_of(oldest);
        journal.last_forgotten.insert_or_assign(oldest.door, std::move(oldest));
        journal.entries.pop_front();
    }
}

size_t journal_size() { return journal.bytes; }

const passed_t* journal_last(door_e door) {
    for (auto index = static_cast<size_t>(journal.mark.position - journal.forgotten); index > 0; --index) {
        if (journal.entries[index - 1].door == door) {
            return &journal.entries[index - 1];
        }
    }
    const auto forgotten = journal.last_forgotten.find(door);
    return forgotten == journal.last_forgotten.end() ? nullptr : &forgotten->second;
}

bool journal_has_due(door_e door) {
    const passed_t* const passed = present();
    return passed != nullptr && passed->door == door && passed->count == machine.instr_count &&
           passed->acts == journal.mark.acts;
}

const passed_t* journal_due(door_e door) { return journal_has_due(door) ? journal_next(door) : nullptr; }

const passed_t* journal_next(door_e door) {
    const passed_t* const passed = present();
    // Deterministic as the board is, it comes to the doors in the same order.
    assert(passed == nullptr || passed->door == door);
    journal.mark.position += passed == nullptr ? 0 : 1;
    return passed;
}

std::string text_of(const passed_t& passed) {
    std::string text = passed.bytes == nullptr ? "" : *passed.bytes;
    if (passed.failed) {
        throw tovik_error(std::move(text));
    }
    return text;
}

void journal_note(door_e door, int64_t value, bool failed, std::string bytes) {
    if (!journal.on) {
        return;
    }
    assert(!in_the_past());
    auto shared = bytes.empty() ? nullptr : std::make_shared<const std::string>(std::move(bytes));
    journal.entries.push_back(
        {machine.instr_count, journal.mark.acts, door, failed, value, std::move(shared)});
    journal.bytes += size_of(journal.entries.back());
    ++journal.mark.position;
}
