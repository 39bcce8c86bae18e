#pragma once

// Messages in a stream of bytes: a header with the length of what follows.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// What has come and is no whole message yet. After a header that is none it goes on at the next one.
struct lsp_stream_t {
    std::string bytes{};
    size_t to_skip = 0; // bytes still to come of a message that is too long
};

// A longer message is passed over.
constexpr size_t LONGEST_MESSAGE = 128 * 1024 * 1024;

void take_bytes(lsp_stream_t& stream, std::string_view bytes);

// The next whole message, if it has come. One that is too long comes empty.
std::optional<std::string> next_message(lsp_stream_t& stream);

// A message with its header.
std::string framed(std::string_view message);
