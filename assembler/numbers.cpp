#include "assembler/numbers.h"

#include <array>
#include <charconv>

namespace {

// Room for the longest of them, "-2147483648".
using digits_t = std::array<char, 11>;

template <typename integer_t> std::string_view print(integer_t value, int base, digits_t& digits) {
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value, base).ptr;
    return {digits.data(), static_cast<size_t>(end - digits.data())};
}

// Reads a number and prints it again: only a text that survives this unchanged is well formed.
template <typename integer_t> bool reads_back(std::string_view text, int base, integer_t& value) {
    digits_t digits;
    const auto error = std::from_chars(text.data(), text.data() + text.size(), value, base).ec;
    return error == std::errc{} && print(value, base, digits) == text;
}

} // namespace

bool numeric(std::string_view text) {
    return !text.empty() && std::string_view("-+0123456789").find(text.front()) != std::string_view::npos;
}

std::optional<int32_t> read_number(std::string_view text) {
    if (text.starts_with("0x")) {
        uint32_t bits = 0;
        return reads_back(text.substr(2), 16, bits) ? std::optional(static_cast<int32_t>(bits))
                                                    : std::nullopt;
    }
    int32_t value = 0;
    return reads_back(text, 10, value) ? std::optional(value) : std::nullopt;
}
