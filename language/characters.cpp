#include "language/characters.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

bool continues(std::string_view text, size_t index, uint8_t lowest = 0x80, uint8_t highest = 0xbf) {
    const auto byte = static_cast<uint8_t>(index < text.size() ? text[index] : '\0');
    return byte >= lowest && byte <= highest;
}

bool is_control(std::string_view character) {
    const auto first = static_cast<uint8_t>(character.front());
    if (character.size() == 2) {
        return first == 0xc2 && static_cast<uint8_t>(character[1]) < 0xa0;
    }
    return character.size() == 1 && (first < 0x20 || (first >= 0x7f && first < 0xa0));
}

} // namespace

size_t character_size(std::string_view text) {
    const auto lead = static_cast<uint8_t>(text.front());
    if (lead >= 0xc2 && lead <= 0xdf && continues(text, 1)) {
        return 2;
    }
    // No longer form than needed, no surrogate, nothing above the last code point.
    if ((lead & 0xf0) == 0xe0 && continues(text, 1, lead == 0xe0 ? 0xa0 : 0x80, lead == 0xed ? 0x9f : 0xbf) &&
        continues(text, 2)) {
        return 3;
    }
    if (lead >= 0xf0 && lead <= 0xf4 &&
        continues(text, 1, lead == 0xf0 ? 0x90 : 0x80, lead == 0xf4 ? 0x8f : 0xbf) && continues(text, 2) &&
        continues(text, 3)) {
        return 4;
    }
    return 1;
}

size_t ascii_size(std::string_view text) {
    constexpr uint64_t HIGHEST_BITS = 0x8080808080808080;
    size_t size = 0;
    for (uint64_t eight = 0; text.size() - size >= sizeof eight; size += sizeof eight) {
        std::memcpy(&eight, text.data() + size, sizeof eight);
        if ((eight & HIGHEST_BITS) != 0) {
            break;
        }
    }
    while (size < text.size() && static_cast<uint8_t>(text[size]) < 0x80) {
        ++size;
    }
    return size;
}

size_t count_characters(std::string_view text) {
    size_t count = 0;
    while (!text.empty()) {
        const size_t ascii = ascii_size(text);
        count += std::max<size_t>(ascii, 1);
        text.remove_prefix(ascii > 0 ? ascii : character_size(text));
    }
    return count;
}

std::string shortened(std::string text, size_t most) {
    if (text.size() > most) {
        while (most > 0 && (text[most] & 0xc0) == 0x80) {
            --most;
        }
        text.resize(most);
        text += "...";
    }
    return text;
}

std::string readable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::string_view character = text.substr(0, character_size(text));
        const auto first = static_cast<uint8_t>(character.front());
        if (is_control(character)) {
            result += '?';
        } else if (character.size() == 1 && first >= 0x80) {
            result += {static_cast<char>(0xc0 | first >> 6), static_cast<char>(0x80 | (first & 0x3f))};
        } else {
            result += character;
        }
        text.remove_prefix(character.size());
    }
    return result;
}
