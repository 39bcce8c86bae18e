#pragma once

// The past of the files on which devices work, for whoever keeps a journal.

#include <array>
#include <cstddef>
#include <optional>
#include <string>

#include "host/storage.h"

// Where the files stand.
struct storage_mark_t {
    size_t opened = 0;                         // how many times a file was to be opened
    std::array<int, STORAGES> open = {-1, -1}; // which of these is in each place; -1 for none
    size_t writes = 0;                         // how many came before
};

[[nodiscard]] storage_mark_t storage_mark();
void storage_go_to(const storage_mark_t& mark);

// The name of a file in use that somebody else has written to, so that what was read from it cannot be read
// again.
[[nodiscard]] std::optional<std::string> storage_changed();

// Whether the card has been written to after where the files stand.
[[nodiscard]] bool storage_has_future();

// Forgets what came after where the files stand. The card's file gets back the bytes that it had, or, if it
// is not to go back, stays as it is: as if somebody had written to it just now. Returns the errno of a
// failure; the card's file is then only partly as it was.
[[nodiscard]] int storage_cut(bool card_goes_back);

// Forgets what was written before a mark: nobody goes back farther.
void storage_forget_before(const storage_mark_t& mark);

// Forgets all but the files that are open, and what it keeps from then on, unless a journal is begun.
void storage_forget();

// What it takes of memory, about, in bytes.
[[nodiscard]] size_t storage_size();

// The size of the card's file, in bytes.
[[nodiscard]] int64_t storage_card_size();
