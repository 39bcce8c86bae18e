#pragma once

// The board at every moment of a run: it can be put back to any of them, and is then exactly what it was
// there.
//
// Copies of the board are made while it runs, and all that comes from outside is kept: what comes through the
// doors to the computer, in the journal, and what the user does, here. A moment between two copies is reached
// from the first of them, by executing again what was executed; nothing is shown or sent meanwhile. When all
// that takes too much memory, copies go, the more the farther back; and when what came from outside takes too
// much, the oldest part of the history goes.
//
// The front end gives its answers to the board's questions through the journal (gui_choosefile, gui_gettext,
// gui_serial_input), shows no messages of the past, and gives the board no events while it runs: everything
// that the user does goes through history_act.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "core/simulate.h"
#include "debugger/pages.h"
#include "debugger/way.h"

constexpr size_t MOST_HISTORY_BYTES = size_t{256} << 20;

// The history begins with the board as it is, at moment 0, and takes so many bytes at most, about.
void history_begin(size_t most_bytes = MOST_HISTORY_BYTES);

// Nothing is kept any more, and the board stays as it is.
void history_end();

[[nodiscard]] moment_t history_now();
[[nodiscard]] moment_t history_first(); // the oldest that can be reached
[[nodiscard]] moment_t history_newest();

// Executes at most `most` instructions from where the board is: in the past, up to the newest moment at most,
// what was executed there; at the newest moment, what is new. Ends early where the run stops or waits, with
// the same answer as simulate_pass; `idle` says that it has stopped, for a reason that last_stop has. The
// step count of the controls has no meaning here.
pass_t history_run(int32_t most);

// Whether a change now would leave behind what the card got later.
[[nodiscard]] bool history_card_has_future();

// The user does something that changes the board: the act is done, and done again whenever the board comes
// this way. In the past, what came later is forgotten first. The card's file goes back to what it was at this
// moment, or stays as it is if `card_goes_back` is not set. Throws tovik_error when it cannot go back, and
// the act itself may throw; it has then been done as far as it was.
void history_act(std::function<void()> act, bool card_goes_back = true);

// Called during long ways with how much of the way is done, 0 to 1; whether to go on.
using progress_t = std::function<bool(double)>;

// Goes to a moment, or to the nearest that can be reached, after all that the user did there. Returns false,
// with the board at some moment on the way, when the progress has said so. Throws tovik_error when a file
// from which the board has read is no longer what it was.
//
// This way and the next pause every few milliseconds. The board is then at any moment, and nothing else may
// be done with the history before the end. One that is dropped leaves the board where it is.
way_t<bool> history_go_to(moment_t moment, progress_t progress = nullptr);

// Executes the past from where the board is up to a moment, with the stops in force that the caller has set,
// which must not stop it. Returns whether the progress has let it.
way_t<bool> history_repeat(moment_t end, progress_t progress = nullptr);

// The moment of the newest copy of the board that is not after one of the history: from there the way on is
// the shortest.
[[nodiscard]] moment_t history_copy_until(moment_t moment);

// Executes the past before a moment again, stretch by stretch, the newest first, with the stops of
// core/stops.h in force that the caller has set, until `found` says after a stretch that it was in there.
// Returns whether it was, and false, too, when the progress has said that it is enough: all of it would be
// the whole way to the beginning. `begins` is called where each stretch begins. The board is afterwards at
// any moment. Throws as history_go_to.
way_t<bool> history_search(moment_t before, std::function<bool()> found, progress_t progress = nullptr,
                           std::function<void()> begins = nullptr);

// What the history takes of memory, about, in bytes.
[[nodiscard]] size_t history_size();
