#pragma once

// Numbers as they are written in a source.

#include <cstdint>
#include <optional>
#include <string_view>

// Whether a token is to be read as a number: it begins with a digit or a sign.
bool numeric(std::string_view text);

// The value of a decimal number from -2147483648 to 2147483647, or of a hexadecimal one from 0x0 to
// 0xffffffff with the same bits. Accepts exactly what it would print: no leading zeros, no "+", lower-case
// digits. Anything else has none.
std::optional<int32_t> read_number(std::string_view text);
