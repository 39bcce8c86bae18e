#pragma once

// Files of the user's on which a device works while the board runs. Each device has one place for them.

#include <cstdint>
#include <span>
#include <string>

enum class storage_e { CARD, MOVIE };
constexpr int STORAGES = 2;

// Puts a file that exists into a place, instead of the one that is there; one on the card's place is written
// to, too. Returns its size in bytes, or the negative errno; the place is then empty.
[[nodiscard]] int64_t storage_open(storage_e place, const std::string& name);

// Reads from an offset on. Returns how many bytes, fewer than there is room for only where the file ends, or
// the negative errno. Nothing can be read from an empty place: EBADF.
[[nodiscard]] int64_t storage_read(storage_e place, std::span<char> bytes, int64_t offset);

// Writes all of the bytes at an offset. Returns 0 or the errno.
[[nodiscard]] int storage_write(storage_e place, std::span<const char> bytes, int64_t offset);

void storage_close(storage_e place);
