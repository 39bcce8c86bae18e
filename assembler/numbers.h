#pragma once

// Operands: numbers as they are written in a source, and the names of labels.

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

// From a label's name, compared bytewise, to its address.
using label_table_t = std::map<std::string, int32_t, std::less<>>;

// Whether a token is to be read as a number: it begins with a digit or a sign.
bool numeric(std::string_view text);

// The value of a decimal number from -2147483648 to 2147483647, or of a hexadecimal one from 0x0 to
// 0xffffffff with the same bits. Accepts exactly what it would print: no leading zeros, no "+", lower-case
// digits. Throws tovik_error "TEXT is a malformed number".
int32_t string_to_number(std::string_view text);

// The value of an operand: of a number, or the address of a label. Throws tovik_error for an empty one, a
// malformed number, and a name that the table does not have.
int32_t label_to_number(std::string_view text, const label_table_t& labels);
