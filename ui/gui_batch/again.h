#pragma once

// A run that is over, done once more from its beginning to see what happened in it.

#include <cstdint>
#include <optional>

#include "debugger/reasons.h"

// Who wrote a word last in the run that has just ended. It is executed again, twice, in a process of its own,
// so nothing here changes, and nothing is shown or written. `begin` puts the board of that process back to
// where the run began, and returns whether it could. None where the run does not end in the same way again.
std::optional<writer_t> find_writer_again(int32_t address, bool (*begin)());
