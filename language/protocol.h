#pragma once

// What requests have in common: errors, and places in both directions.

#include <cstdint>
#include <string>
#include <string_view>

#include "language/server.h"

// The protocol's codes of errors.
namespace error_code {
constexpr int PARSE = -32700;
constexpr int INVALID_REQUEST = -32600;
constexpr int METHOD_NOT_FOUND = -32601;
constexpr int INVALID_PARAMS = -32602;
constexpr int INTERNAL = -32603;
constexpr int NOT_INITIALIZED = -32002;
constexpr int REQUEST_FAILED = -32803;
} // namespace error_code

// Thrown by a handler, which has then changed nothing; the request is answered with it.
struct request_error_t {
    int code;
    std::string message;
};

// A half-open range of bytes.
struct bytes_t {
    size_t begin = 0;
    size_t end = 0;
};

bytes_t bytes_of(span_t span);

// The path of params.textDocument.
std::string path_in(const json& params);

position_t position_in(const json& position);

json to_json(position_t position);
json range_of(const server_t& server, const text_t& text, bytes_t bytes);
json location_of(const server_t& server, const std::string& path, const text_t& text, bytes_t bytes);
std::string uri_of(const server_t& server, const std::string& path);

// A text edit.
json edit_of(const server_t& server, const text_t& text, bytes_t bytes, std::string_view new_text);

// A place of the source map as bytes of its file's text.
bytes_t bytes_of(const text_t& text, const place_t& place);
