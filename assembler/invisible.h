#pragma once

// Characters that look like a blank or like nothing. To the assembler they are letters of a name.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

struct invisible_t {
    size_t begin;     // offset of its first byte in the text
    size_t size;      // in bytes
    std::string name; // "a no-break space (U+00A0)"
    bool separates;   // it looks like a blank, and one is meant; otherwise nothing
};

// The first one of a text from an offset on, in UTF-8; the no-break space of Latin-1 is known, too.
std::optional<invisible_t> find_invisible(std::string_view text, size_t from = 0);

// A text without them.
std::string without_invisible(std::string_view text);
