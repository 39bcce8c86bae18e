#include "assembler/invisible.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <utility>

namespace {

// In the order of the code points.
struct kind_t {
    uint32_t first;
    uint32_t last;
    std::string_view name;
    bool separates;
};

constexpr uint32_t NO_BREAK_SPACE = 0xa0;

constexpr kind_t KINDS[] = {
    {NO_BREAK_SPACE, NO_BREAK_SPACE, "no-break space", true},
    {0xad, 0xad, "soft hyphen", false},
    {0x2000, 0x200a, "blank of another width", true},
    {0x200b, 0x200b, "zero-width space", false},
    {0x200c, 0x200f, "character without a width", false},
    {0x2028, 0x2029, "line separator", true},
    {0x202a, 0x202e, "mark of the direction of writing", false},
    {0x202f, 0x202f, "narrow no-break space", true},
    {0x205f, 0x205f, "blank of another width", true},
    {0x2060, 0x206f, "character without a width", false},
    {0x3000, 0x3000, "blank of another width", true},
    {0xfeff, 0xfeff, "byte order mark", false},
};

bool is_ascii(char c) { return static_cast<unsigned char>(c) < 0x80; }

bool continues(std::string_view text, size_t index) {
    return index < text.size() && (static_cast<unsigned char>(text[index]) & 0xc0) == 0x80;
}

// The code point that a text begins with, as far as those of the table: of two or three bytes. And its size.
std::pair<uint32_t, size_t> decode(std::string_view text) {
    constexpr uint32_t SIX_BITS = 0x3f;
    const auto byte = [&](size_t index) {
        return static_cast<uint32_t>(static_cast<unsigned char>(text[index]));
    };
    const uint32_t lead = byte(0);
    if (lead >= 0xc2 && lead <= 0xdf && continues(text, 1)) {
        return {(lead & 0x1f) << 6 | (byte(1) & SIX_BITS), 2};
    }
    if ((lead & 0xf0) == 0xe0 && continues(text, 1) && continues(text, 2)) {
        return {(lead & 0xf) << 12 | (byte(1) & SIX_BITS) << 6 | (byte(2) & SIX_BITS), 3};
    }
    if ((lead & 0xf8) == 0xf0 && continues(text, 1) && continues(text, 2) && continues(text, 3)) {
        return {0, 4};
    }
    return {lead == NO_BREAK_SPACE ? lead : 0, 1};
}

std::string name_of(const kind_t& kind, uint32_t code_point) {
    std::array<char, 8> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), code_point, 16).ptr;
    std::string number(digits.data(), end);
    std::transform(number.begin(), number.end(), number.begin(),
                   [](char c) { return c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c; });
    number.insert(0, 4 - number.size(), '0');
    return "a " + std::string(kind.name) + " (U+" + number + ")";
}

} // namespace

std::optional<invisible_t> find_invisible(std::string_view text, size_t from) {
    while (from < text.size()) {
        if (is_ascii(text[from])) {
            ++from;
            continue;
        }
        const auto [code_point, size] = decode(text.substr(from));
        const auto* const kind = std::find_if(std::begin(KINDS), std::end(KINDS),
                                              [&, point = code_point](const kind_t& candidate) {
                                                  return candidate.first <= point && point <= candidate.last;
                                              });
        if (kind != std::end(KINDS)) {
            return invisible_t{from, size, name_of(*kind, code_point), kind->separates};
        }
        from += size;
    }
    return std::nullopt;
}

std::string without_invisible(std::string_view text) {
    std::string result;
    size_t begin = 0;
    while (const std::optional<invisible_t> found = find_invisible(text, begin)) {
        result += text.substr(begin, found->begin - begin);
        begin = found->begin + found->size;
    }
    return result.append(text.substr(begin));
}
