#pragma once

// Lines of a source, split into tokens as the assembler splits them, and what stands at a place.

#include <array>
#include <cstddef>
#include <functional>
#include <string_view>

#include "assembler/source_map.h"
#include "language/protocol.h"

// A line that only a line feed ends.
struct source_line_t {
    size_t begin = 0;
    std::string_view text{}; // without the line feed
    statement_t statement{}; // its tokens, as bytes of the whole text; no more is filled in
    bool include = false;
    bool blank = false; // no tokens
    bytes_t comment{};  // empty when there is none
};

std::string_view text_in(std::string_view text, span_t span);

// The line that has the byte at an offset.
source_line_t line_at(std::string_view text, size_t offset);

// Each line in turn.
void for_each_line(std::string_view text, const std::function<void(const source_line_t&)>& act);

enum class token_e : uint8_t { NONE, LABEL, ORIGIN, OPERATION, NUMBER, NAME, INCLUDE, FILE_NAME, COMMENT };

struct token_t {
    token_e kind = token_e::NONE;
    span_t span{};
    int operand = -1; // which one, for NUMBER and NAME
};

// Tokens of a line in their order, at most six, without the comment.
struct tokens_t {
    std::array<token_t, 6> tokens{};
    size_t count = 0;
    const token_t* begin() const { return tokens.data(); }
    const token_t* end() const { return tokens.data() + count; }
};
tokens_t tokens_of(std::string_view text, const source_line_t& line);

// The token at an offset, also when that is just behind it.
token_t token_at(std::string_view text, const source_line_t& line, size_t offset);
