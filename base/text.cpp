#include "base/text.h"

#include <array>
#include <charconv>
#include <utility>

std::optional<int64_t> parse_number(std::string_view text, int64_t lowest, int64_t highest) {
    const bool is_hexadecimal = text.starts_with("0x");
    const std::string_view digits = is_hexadecimal ? text.substr(2) : text;
    uint64_t value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value, is_hexadecimal ? 16 : 10);
    if (error != std::errc{} || stop != end || std::cmp_less(value, lowest) ||
        std::cmp_greater(value, highest)) {
        return std::nullopt;
    }
    return static_cast<int64_t>(value);
}

std::string hexadecimal(uint64_t number) {
    std::array<char, 16> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number, 16).ptr;
    return "0x" + std::string(digits.data(), end);
}

std::string hexadecimal(int32_t word) { return hexadecimal(uint64_t{static_cast<uint32_t>(word)}); }
