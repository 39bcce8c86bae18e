#pragma once

// What find_writer_again does with the board: for each platform's way to keep that from the run that is over.

#include <cstdint>
#include <optional>

#include "debugger/reasons.h"

// The answer of find_writer_again; afterwards the board is somewhere in the run.
std::optional<writer_t> search_writer(int32_t address, bool (*begin)());
