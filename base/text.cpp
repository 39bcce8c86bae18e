#include "base/text.h"

#include <charconv>
#include <utility>

std::optional<int64_t> parse_number(std::string_view text, int64_t lowest, int64_t highest) {
    const bool hexadecimal = text.starts_with("0x");
    const std::string_view digits = hexadecimal ? text.substr(2) : text;
    uint64_t value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value, hexadecimal ? 16 : 10);
    if (error != std::errc{} || stop != end || std::cmp_less(value, lowest) ||
        std::cmp_greater(value, highest)) {
        return std::nullopt;
    }
    return static_cast<int64_t>(value);
}
