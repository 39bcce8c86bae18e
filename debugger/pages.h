#pragma once

// The large memories of the board, page by page, as they were at the moments of its copies.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

// How many instructions have been executed since the first copy.
using moment_t = uint64_t;

// The numbers of pages.
using pages_t = std::vector<uint32_t>;

// Forgets all. What the board holds now is not known to be kept.
void clear_pages();

// Keeps what the pages hold, at a moment after which the next copy is that of `next`. The camera's frame is
// left out if `with_frame` is not set. What changed is no longer marked as touched, but for a frame that was
// left out. Returns the pages that have a new content from one of the two moments on, and the moment.
struct kept_t {
    pages_t now;
    pages_t next; // of which the copy that follows now has its own, because the one before it changed
};
kept_t keep_pages(moment_t moment, std::optional<moment_t> next, bool with_frame);

// Makes the pages what they were at the moment of a copy, and marks none as touched.
void load_pages(moment_t moment);

// The copy of a moment goes: what pages got at it they have from the moment of the next copy on, if there is
// one, and unless they get something else there. Returns the pages that now have it from there on.
pages_t drop_pages(moment_t moment, const pages_t& pages, std::optional<moment_t> next);

// What they take of memory, about, in bytes.
[[nodiscard]] size_t pages_size();
