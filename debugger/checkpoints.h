#pragma once

// Copies of the whole board at moments of a run, to go back to.
//
// Of the large memories only the pages that differ from those of the copy before are kept, of the SDRAM only
// those that were touched. A recording of the speaker is kept once, with its length in each copy, and so are
// the samples of a file at the microphone; a movie's frame is read again from its file.

#include <cstddef>
#include <optional>

#include "debugger/pages.h"
#include "host/journal.h"
#include "host/storage_past.h"

// None is left.
void clear_checkpoints();

// Copies the board as it is now, with the places where the journal and the files on which devices work stand.
// Where there is a copy of this moment, that stays.
void take_checkpoint(moment_t moment);

// The newest copy that is not after a moment, and the oldest that is; none when there is none.
[[nodiscard]] std::optional<moment_t> checkpoint_until(moment_t moment);
[[nodiscard]] std::optional<moment_t> checkpoint_after(moment_t moment);

// Makes the board what it was at the moment of a copy: the record, and of the controls what belongs to the
// board's devices. The journal and the files go to their places in the past. The engine and the screen know.
void restore_checkpoint(moment_t moment);

[[nodiscard]] moment_t oldest_checkpoint();

// Where the journal and the files stood at the oldest copy.
struct marks_t {
    journal_mark_t journal;
    storage_mark_t storage;
};
[[nodiscard]] marks_t oldest_marks();

void drop_checkpoints_after(moment_t moment);
void drop_checkpoints_before(moment_t moment);

// Drops copies until all take so many bytes at most, or only two are left: the farther from the newest, and
// from the moment where the board is, the wider apart are those that stay. The oldest stays.
void thin_checkpoints(size_t most_bytes, moment_t here);

// How many there are, and what they take of memory, about, in bytes.
[[nodiscard]] size_t checkpoint_count();
[[nodiscard]] size_t checkpoints_size();
