#pragma once

// Sources are bytes. Where they are shown, or counted in characters, they are UTF-8, and a byte that is no
// part of that is a character of Latin-1.

#include <cstddef>
#include <string>
#include <string_view>

// Bytes of the character in front of a text that is not empty.
size_t character_size(std::string_view text);

// Bytes in front of a text that are a character each, with none above 0x7f among them.
size_t ascii_size(std::string_view text);

size_t count_characters(std::string_view text);

// A text of UTF-8 with at most so many bytes, cut in front of a character, and "..." where it was longer.
std::string shortened(std::string text, size_t most);

// For a screen: in UTF-8, with "?" for each control character, which could do things to a terminal.
std::string readable(std::string_view text);
