#include "language/text.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "language/characters.h"
#include "language/uri.h"

namespace {

constexpr std::string_view FILE_SCHEME = "file://";

uint32_t units_of(size_t character_bytes, encoding_e encoding) {
    return encoding == encoding_e::UTF8 ? static_cast<uint32_t>(character_bytes)
                                        : (character_bytes == 4 ? 2U : 1U);
}

// A line without what ends it.
std::string_view line_of(const text_t& text, size_t line) {
    const size_t end = line + 1 < text.begins.size() ? text.begins[line + 1] : text.bytes.size();
    std::string_view bytes = std::string_view(text.bytes).substr(text.begins[line], end - text.begins[line]);
    for (const char ending : {'\n', '\r'}) {
        if (line + 1 < text.begins.size() && bytes.ends_with(ending)) {
            bytes.remove_suffix(1);
        }
    }
    return bytes;
}

// Where lines begin whose ends lie in a stretch of a text. Returns whether a lone carriage return is there.
bool append_begins(std::string_view text, size_t from, size_t to, std::vector<uint32_t>& begins) {
    bool lone_returns = false;
    for (size_t i = from; i < to; ++i) {
        const bool lone = text[i] == '\r' && !(i + 1 < text.size() && text[i + 1] == '\n');
        if (lone || text[i] == '\n') {
            begins.push_back(static_cast<uint32_t>(i + 1));
        }
        lone_returns |= lone;
    }
    return lone_returns;
}

int hexadecimal_digit(char c) {
    const size_t digit = std::string_view("0123456789abcdef0123456789ABCDEF").find(c);
    return digit == std::string_view::npos ? -1 : static_cast<int>(digit % 16);
}

} // namespace

text_t make_text(std::string bytes) {
    text_t text{.bytes = std::move(bytes)};
    if (append_begins(text.bytes, 0, text.bytes.size(), text.begins)) {
        text.begins_by_feed.push_back(0);
        for (const uint32_t begin : text.begins) {
            if (begin != 0 && text.bytes[begin - 1] == '\n') {
                text.begins_by_feed.push_back(begin);
            }
        }
    }
    return text;
}

// Of a long text it would take long to find all lines again for each of many changes. What can change are the
// lines from the one before, whose carriage return may come to stand before a line feed, up to the end of the
// new bytes.
void replace(text_t& text, size_t begin, size_t end, std::string_view bytes) {
    text.bytes.replace(begin, end - begin, bytes);
    auto first = std::upper_bound(text.begins.begin(), text.begins.end(), begin) - 1;
    first -= first == text.begins.begin() ? 0 : 1;
    const auto behind = std::upper_bound(first, text.begins.end(), end);
    std::vector<uint32_t> begins;
    const bool lone_returns = append_begins(text.bytes, *first, begin + bytes.size(), begins);
    if (lone_returns || !text.begins_by_feed.empty()) {
        text = make_text(std::move(text.bytes));
        return;
    }
    const auto shift = static_cast<uint32_t>(bytes.size()) - static_cast<uint32_t>(end - begin);
    std::for_each(behind, text.begins.end(), [&](uint32_t& offset) { offset += shift; });
    text.begins.insert(text.begins.erase(first + 1, behind), begins.begin(), begins.end());
}

size_t offset_at(const text_t& text, position_t position, encoding_e encoding) {
    if (position.line >= text.begins.size()) {
        return text.bytes.size();
    }
    const std::string_view line = line_of(text, position.line);
    size_t offset = ascii_size(line.substr(0, position.character));
    auto units = static_cast<uint32_t>(offset);
    while (offset < line.size()) {
        const size_t size = character_size(line.substr(offset));
        units += units_of(size, encoding);
        if (units > position.character) {
            break;
        }
        offset += size;
    }
    return text.begins[position.line] + offset;
}

position_t position_at(const text_t& text, size_t offset, encoding_e encoding) {
    const auto next = std::upper_bound(text.begins.begin(), text.begins.end(), offset);
    const auto index = static_cast<size_t>(next - text.begins.begin()) - 1;
    const std::string_view line = line_of(text, index);
    const size_t end = std::min(offset - text.begins[index], line.size());
    position_t position{.line = static_cast<uint32_t>(index)};
    // Most lines have nothing else, and one may be long.
    size_t i = ascii_size(line.substr(0, end));
    position.character = static_cast<uint32_t>(i);
    while (i < end) {
        const size_t size = character_size(line.substr(i));
        if (i + size > end) {
            break;
        }
        position.character += units_of(size, encoding);
        i += size;
    }
    return position;
}

std::string name_of_uri(std::string_view uri) {
    if (!uri.starts_with(FILE_SCHEME)) {
        return std::string(uri);
    }
    std::string_view rest = uri.substr(FILE_SCHEME.size());
    rest.remove_prefix(std::min(rest.find('/'), rest.size())); // the host, which is this one
    rest = rest.substr(0, rest.find_first_of("?#"));
    std::string name;
    for (size_t i = 0; i < rest.size(); ++i) {
        const bool escaped = rest[i] == '%' && i + 2 < rest.size() && hexadecimal_digit(rest[i + 1]) >= 0 &&
                             hexadecimal_digit(rest[i + 2]) >= 0;
        name += escaped
                    ? static_cast<char>(16 * hexadecimal_digit(rest[i + 1]) + hexadecimal_digit(rest[i + 2]))
                    : rest[i];
        i += escaped ? 2 : 0;
    }
    return path_of_name(name);
}

std::string uri_of_name(std::string_view name) {
    return name.starts_with('/') ? uri_reference(name) : std::string(name);
}

std::string path_of_name(const std::string& name) {
    return name.starts_with('/') ? std::filesystem::path(name).lexically_normal().string() : name;
}

std::string_view base_name(std::string_view name) { return name.substr(name.rfind('/') + 1); }
