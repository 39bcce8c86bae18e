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
    const std::vector<uint32_t>& begins = text.begins_by_feed.empty() ? text.begins : text.begins_by_feed;
    return static_cast<size_t>(line) <= begins.size() ? begins[static_cast<size_t>(line) - 1]
                                                      : text.bytes.size();
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

// Thousands of places go into a message. Filled in like this they take half the time that lists of names and
// values do.
json to_json(position_t position) {
    json result;
    result["line"] = position.line;
    result["character"] = position.character;
    return result;
}

json range_of(const server_t& server, const text_t& text, bytes_t bytes) {
    json range;
    range["start"] = to_json(position_at(text, bytes.begin, server.client.encoding));
    range["end"] = to_json(position_at(text, bytes.end, server.client.encoding));
    return range;
}

json location_of(const server_t& server, const std::string& path, const text_t& text, bytes_t bytes) {
    json location;
    location["uri"] = uri_of(server, path);
    location["range"] = range_of(server, text, bytes);
    return location;
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
