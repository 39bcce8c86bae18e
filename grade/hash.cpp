#include "grade/hash.h"

#include <array>
#include <cinttypes>
#include <cstdio>

namespace {

void add_byte(hash_t& hash, uint8_t byte) { hash.value = (hash.value ^ byte) * 0x100000001b3; }

} // namespace

void add_text(hash_t& hash, std::string_view text) {
    add_number(hash, static_cast<int64_t>(text.size()));
    for (const char c : text) {
        add_byte(hash, static_cast<uint8_t>(c));
    }
}

void add_number(hash_t& hash, int64_t number) {
    for (int shift = 0; shift < 64; shift += 8) {
        add_byte(hash, static_cast<uint8_t>(number >> shift));
    }
}

std::string digits_of(const hash_t& hash) {
    std::array<char, 17> text{};
    std::snprintf(text.data(), text.size(), "%016" PRIx64, hash.value);
    return text.data();
}
