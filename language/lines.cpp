#include "language/lines.h"

#include <algorithm>

#include "assembler/numbers.h"
#include "assembler/source.h"

std::string_view text_in(std::string_view text, span_t span) { return text.substr(span.begin, span.size); }

source_line_t line_at(std::string_view text, size_t offset) {
    const size_t before = offset == 0 ? std::string_view::npos : text.rfind('\n', offset - 1);
    const size_t begin = before == std::string_view::npos ? 0 : before + 1;
    source_line_t line{.begin = begin};
    line.text = text.substr(begin, text.find('\n', begin) - begin);
    const size_t code = without_comment(line.text).size();
    if (code < line.text.size()) {
        line.comment = {begin + code, begin + line.text.size() - (line.text.ends_with('\r') ? 1 : 0)};
    }
    line.blank = !split_line({.begin = static_cast<uint32_t>(begin), .text = line.text}, line.statement);
    line.include = text_in(text, line.statement.label) == "#include";
    return line;
}

void for_each_line(std::string_view text, const std::function<void(const source_line_t&)>& act) {
    for (size_t begin = 0; begin <= text.size();) {
        const source_line_t line = line_at(text, begin);
        act(line);
        begin += line.text.size() + 1;
    }
}

tokens_t tokens_of(std::string_view text, const source_line_t& line) {
    tokens_t result;
    const auto add = [&](token_e kind, span_t span, int operand = -1) {
        if (span.size != 0) {
            result.tokens[result.count++] = {.kind = kind, .span = span, .operand = operand};
        }
    };
    const auto number_or = [&](token_e number, token_e other, span_t span) {
        return numeric(text_in(text, span)) ? number : other;
    };
    const statement_t& statement = line.statement;
    if (line.include) {
        add(token_e::INCLUDE, statement.label);
        add(token_e::FILE_NAME, statement.opcode);
        return result;
    }
    add(number_or(token_e::ORIGIN, token_e::LABEL, statement.label), statement.label);
    add(token_e::OPERATION, statement.opcode);
    for (int i = 0; i < 3; ++i) {
        const span_t span = statement.operands[static_cast<size_t>(i)].token;
        add(number_or(token_e::NUMBER, token_e::NAME, span), span, i);
    }
    add(number_or(token_e::NUMBER, token_e::NAME, statement.extra), statement.extra, 3);
    return result;
}

token_t token_at(std::string_view text, const source_line_t& line, size_t offset) {
    const tokens_t tokens = tokens_of(text, line);
    const auto* const found = std::find_if(tokens.begin(), tokens.end(), [&](const token_t& token) {
        return token.span.begin <= offset && offset <= token.span.begin + token.span.size;
    });
    if (found != tokens.end()) {
        return *found;
    }
    const bool in_comment = line.comment.begin < line.comment.end && offset >= line.comment.begin;
    return {.kind = in_comment ? token_e::COMMENT : token_e::NONE};
}
