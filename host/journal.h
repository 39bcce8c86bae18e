#pragma once

// What came through the doors to the computer while the board ran, in order: with it, a stretch of a run can
// be executed again exactly. Off at first; then nothing is kept.
//
// A door notes what it gives, and gives it again where the journal stands in the past. What a device only
// asks for again and again (a byte, a frame) is noted when it is there, and is there again at the same
// instruction. Nothing reaches the computer from the past.

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "base/machine.h"

enum class door_e : uint8_t {
    CLOCK,
    PLAYBACK,
    RECORD,
    CAPTURE,
    LINE_OPEN,
    LINE,
    LINE_SENT,
    STORAGE,
    RECORDING,
    QUESTION,
    SAVE
};

struct passed_t {
    uint64_t count; // the instruction count, and how many acts of the user came before
    uint32_t acts;
    door_e door;
    bool failed; // `bytes` is the message of the tovik_error
    int64_t value;
    std::shared_ptr<const std::string> bytes; // nullptr for none
};

// Where the journal stands.
struct journal_mark_t {
    uint64_t position = 0; // how many entries came before
    uint32_t acts = 0;
};

// Begins an empty journal, and ends it.
void journal_begin();
void journal_end();

[[nodiscard]] bool journal_is_on();

// Whether the board is executing a part of its past: nothing may be shown to the user again, and nothing
// sent.
[[nodiscard]] bool in_the_past();

[[nodiscard]] journal_mark_t journal_mark();

// Goes to a mark, which is in the past unless `newest` says that the board is where it has never been
// farther.
void journal_go_to(const journal_mark_t& mark, bool newest);

// The user does something.
void journal_count_act();

// Forgets what came after where the journal stands, and before a mark.
void journal_cut();
void journal_forget_before(const journal_mark_t& mark);

// What it takes of memory, about, in bytes.
[[nodiscard]] size_t journal_size();

// The newest entry of a door before where the journal stands, also one that has been forgotten; nullptr when
// there is none.
[[nodiscard]] const passed_t* journal_last(door_e door);

// ---- For the doors

// The entry that was noted at this instruction, if it is of this door; then the journal goes on behind it.
[[nodiscard]] const passed_t* journal_due(door_e door);

// Whether there is one.
[[nodiscard]] bool journal_has_due(door_e door);

// The next entry, which must be of this door, while there is one.
[[nodiscard]] const passed_t* journal_next(door_e door);

void journal_note(door_e door, int64_t value, bool failed = false, std::string bytes = {});

// The bytes of an entry. Throws tovik_error when it is a failure.
[[nodiscard]] std::string text_of(const passed_t& passed);

struct given_t {
    int64_t value = 0;
    std::string bytes = {};
};

// What was noted of `take`, a function that gives given_t or throws tovik_error; at the newest moment, what
// it gives.
template <std::invocable take_t> given_t through_journal(door_e door, take_t take) {
    if (const passed_t* const passed = journal_next(door)) {
        return {passed->value, text_of(*passed)};
    }
    try {
        given_t given = take();
        journal_note(door, given.value, false, given.bytes);
        return given;
    } catch (const tovik_error& error) {
        journal_note(door, 0, true, error.message);
        throw;
    }
}
