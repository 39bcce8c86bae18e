#pragma once

// FNV-1a of 64 bits, by Fowler, Noll and Vo (http://www.isthe.com/chongo/tech/comp/fnv/). It shows that a
// text is another one, and is no protection from somebody who looks for a second text with the same hash.

#include <cstdint>
#include <string>
#include <string_view>

struct hash_t {
    uint64_t value = 0xcbf29ce484222325;
};

// Adds a text and its length: two texts after each other are not one.
void add_text(hash_t& hash, std::string_view text);

void add_number(hash_t& hash, int64_t number);

// Sixteen hexadecimal digits.
std::string digits_of(const hash_t& hash);
