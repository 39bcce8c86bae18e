#pragma once

// Texts as the protocol sees them: lines, positions, and files by their URIs.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// What a position's `character` counts.
enum class encoding_e : uint8_t { UTF8, UTF16 };

// Line and character, both from 0.
struct position_t {
    uint32_t line = 0;
    uint32_t character = 0;
    bool operator==(const position_t&) const = default;
};

// A text with the offsets of its lines' first bytes. To the protocol also a lone carriage return ends a line.
// There is always a first line.
struct text_t {
    std::string bytes{};
    std::vector<uint32_t> begins{0};
    // The same for the assembler, to which lone carriage returns end no line; empty when there are none.
    std::vector<uint32_t> begins_by_feed{};
};

text_t make_text(std::string bytes);

// Puts other bytes in the place of those from `begin` to `end`.
void replace(text_t& text, size_t begin, size_t end, std::string_view bytes);

// A byte that is no part of valid UTF-8 counts as one unit, as one character of Latin-1 does. Positions
// outside stand for the nearest one inside, those within a character for its beginning.
size_t offset_at(const text_t& text, position_t position, encoding_e encoding);
position_t position_at(const text_t& text, size_t offset, encoding_e encoding);

// The name of a file, of "file:///home/me/a%20b.k"; the URI itself where it is none of a file.
std::string name_of_uri(std::string_view uri);

// And back. Names that do not begin with a slash are taken for URIs.
std::string uri_of_name(std::string_view name);

// One form for all names of a file, such as /a/lib/../b.k; links are left alone.
std::string path_of_name(const std::string& name);

// What stands behind the last slash.
std::string_view base_name(std::string_view name);
