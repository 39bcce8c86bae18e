#include "language/lsp_stream.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace {

constexpr std::string_view LENGTH = "content-length:";
constexpr std::string_view HEADER_END = "\r\n\r\n";

// Longer ones hold garbage only.
constexpr size_t LONGEST_HEADER = 4096;

char small(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

// The length in a header; garbage in front of the field is no part of it.
std::optional<size_t> length_in(std::string_view header) {
    const auto found = std::find_end(header.begin(), header.end(), LENGTH.begin(), LENGTH.end(),
                                     [](char a, char b) { return small(a) == b; });
    if (found == header.end()) {
        return std::nullopt;
    }
    std::string_view number = header.substr(static_cast<size_t>(found - header.begin()) + LENGTH.size());
    number = number.substr(0, number.find('\r'));
    number.remove_prefix(std::min(number.find_first_not_of(" \t"), number.size()));
    size_t length = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), length);
    const bool blank_behind =
        number.find_first_not_of(" \t", static_cast<size_t>(end - number.data())) == std::string_view::npos;
    return error == std::errc{} && blank_behind ? std::optional(length) : std::nullopt;
}

void skip(lsp_stream_t& stream) {
    const size_t now = std::min(stream.to_skip, stream.bytes.size());
    stream.bytes.erase(0, now);
    stream.to_skip -= now;
}

} // namespace

void take_bytes(lsp_stream_t& stream, std::string_view bytes) {
    stream.bytes.append(bytes);
    skip(stream);
}

std::optional<std::string> next_message(lsp_stream_t& stream) {
    for (;;) {
        const size_t header_end = stream.bytes.find(HEADER_END);
        if (header_end == std::string::npos) {
            if (stream.bytes.size() > LONGEST_HEADER) {
                stream.bytes.erase(0, stream.bytes.size() - LONGEST_HEADER);
            }
            return std::nullopt;
        }
        const size_t begin = header_end + HEADER_END.size();
        const std::optional<size_t> length = length_in(std::string_view(stream.bytes).substr(0, header_end));
        if (!length) {
            stream.bytes.erase(0, begin);
            continue;
        }
        if (*length > LONGEST_MESSAGE) {
            stream.bytes.erase(0, begin);
            stream.to_skip = *length;
            skip(stream);
            return std::string();
        }
        if (stream.bytes.size() - begin < *length) {
            return std::nullopt;
        }
        std::string message = stream.bytes.substr(begin, *length);
        stream.bytes.erase(0, begin + *length);
        return message;
    }
}

std::string framed(std::string_view message) {
    std::string text = "Content-Length: " + std::to_string(message.size());
    return text.append(HEADER_END).append(message);
}
