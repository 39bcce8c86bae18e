#include "language/protocol.h"

#include <algorithm>
#include <limits>

namespace {

uint32_t unsigned_number(const json& number) {
    if (!number.is_number_integer() || (!number.is_number_unsigned() && number.get<int64_t>() < 0)) {
        throw request_error_t{error_code::INVALID_PARAMS, "a line or a character is not a number from 0 on"};
    }
    return static_cast<uint32_t>(
        std::min<uint64_t>(number.get<uint64_t>(), std::numeric_limits<int32_t>::max()));
}

// Offset of a line of the assembler's, from 1, which only a line feed ends.
size_t line_begin(const text_t& text, int32_t line) {
    if (!text.lone_returns) {
        return static_cast<size_t>(line) <= text.begins.size() ? text.begins[static_cast<size_t>(line) - 1]
                                                               : text.bytes.size();
    }
    size_t begin = 0;
    for (; line > 1 && begin != std::string::npos; --line) {
        begin = text.bytes.find('\n', begin);
        begin += begin == std::string::npos ? 0 : 1;
    }
    return std::min(begin, text.bytes.size());
}

} // namespace

bytes_t bytes_of(span_t span) { return {span.begin, size_t{span.begin} + span.size}; }

std::string path_in(const json& params) {
    return name_of_uri(params.at("textDocument").at("uri").get_ref<const std::string&>());
}

position_t position_in(const json& position) {
    return {.line = unsigned_number(position.at("line")),
            .character = unsigned_number(position.at("character"))};
}

json to_json(position_t position) { return {{"line", position.line}, {"character", position.character}}; }

json range_of(const server_t& server, const text_t& text, bytes_t bytes) {
    return {{"start", to_json(position_at(text, bytes.begin, server.client.encoding))},
            {"end", to_json(position_at(text, bytes.end, server.client.encoding))}};
}

json location_of(const server_t& server, const std::string& path, const text_t& text, bytes_t bytes) {
    return {{"uri", uri_of(server, path)}, {"range", range_of(server, text, bytes)}};
}

std::string uri_of(const server_t& server, const std::string& path) {
    const auto document = server.documents.find(path);
    return document == server.documents.end() ? uri_of_name(path) : document->second.uri;
}

json edit_of(const server_t& server, const text_t& text, bytes_t bytes, std::string_view new_text) {
    return {{"range", range_of(server, text, bytes)}, {"newText", new_text}};
}

bytes_t bytes_of(const text_t& text, const place_t& place) {
    if (place.line <= 0) {
        return {};
    }
    const size_t begin = line_begin(text, place.line);
    return {std::min(begin + place.first - 1, text.bytes.size()),
            std::min(begin + place.last, text.bytes.size())};
}
