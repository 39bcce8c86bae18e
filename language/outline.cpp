// What a file consists of: its symbols, what can be folded, and what its words are.

#include "language/features.h"

#include <algorithm>
#include <array>
#include <optional>
#include <unordered_map>
#include <utility>

#include "assembler/numbers.h"
#include "assembler/operations.h"
#include "language/protocol.h"

namespace {

// The protocol's numbers.
constexpr int SYMBOL_FILE = 1;
constexpr int SYMBOL_FUNCTION = 12;
constexpr int SYMBOL_VARIABLE = 13;
constexpr int SYMBOL_CONSTANT = 14;
constexpr int SYMBOL_KEY = 20;

int symbol_kind(const project_t& program, std::string_view name) {
    const definition_t found = definition_of(program, name);
    if (found.label == nullptr || found.content == nullptr || found.content->operation == nullptr) {
        return SYMBOL_VARIABLE;
    }
    const source_map_t& map = program.analysis.map;
    const auto has_role = [&](role_e role, const operation_t* only) {
        for (uint32_t i = 0; i < found.label->use_count; ++i) {
            const use_t use = map.uses[found.label->first_use + i];
            const operation_t* const operation = map.statements[use.statement].operation;
            if (operation != nullptr && (only == nullptr || operation == only) &&
                use.operand < operation->count && operation->operands[use.operand].role == role) {
                return true;
            }
        }
        return false;
    };
    if (is_data(*found.content->operation)) {
        return has_role(role_e::WRITTEN, nullptr) ? SYMBOL_VARIABLE : SYMBOL_CONSTANT;
    }
    return has_role(role_e::TARGET, find_operation("call")) ? SYMBOL_FUNCTION : SYMBOL_KEY;
}

struct symbol_t {
    std::string_view name;
    int kind;
    bytes_t selection;
    bytes_t range; // up to the next one, without the blank lines and comments before it
};

std::vector<symbol_t> symbols_of(const project_t& program, std::string_view text) {
    std::vector<symbol_t> symbols;
    std::unordered_map<std::string_view, int> kinds; // a name may be defined again and again
    for_each_line(text, [&](const source_line_t& line) {
        const size_t end = line.begin + line.text.size() - (line.text.ends_with('\r') ? 1 : 0);
        for (const token_t& token : tokens_of(text, line)) {
            const std::string_view name = text_in(text, token.span);
            if (token.kind == token_e::LABEL || token.kind == token_e::FILE_NAME) {
                int kind = SYMBOL_FILE;
                if (token.kind == token_e::LABEL) {
                    const auto [known, is_new] = kinds.try_emplace(name);
                    known->second = is_new ? symbol_kind(program, name) : known->second;
                    kind = known->second;
                }
                symbols.push_back({name, kind, bytes_of(token.span), {line.begin, end}});
            }
        }
        if (!line.blank && !symbols.empty()) {
            symbols.back().range.end = end;
        }
    });
    return symbols;
}

// Folding.

enum class row_e : uint8_t { EMPTY, COMMENT, INCLUDE, LABELLED, CODE };

row_e row_of(std::string_view text, const source_line_t& line) {
    if (line.blank) {
        return line.comment.begin < line.comment.end ? row_e::COMMENT : row_e::EMPTY;
    }
    if (line.include) {
        return row_e::INCLUDE;
    }
    return text_in(text, line.statement.label).empty() ? row_e::CODE : row_e::LABELLED;
}

// Whether a line belongs to the fold that began with another one.
bool goes_on(row_e first, row_e row) {
    if (first == row_e::LABELLED) {
        return row == row_e::LABELLED || row == row_e::CODE;
    }
    return row == first && (row == row_e::COMMENT || row == row_e::INCLUDE);
}

json fold_json(const server_t& server, const text_t& text, row_e first, bytes_t bytes) {
    json fold = {{"startLine", position_at(text, bytes.begin, server.client.encoding).line},
                 {"endLine", position_at(text, bytes.end, server.client.encoding).line}};
    if (first != row_e::LABELLED) {
        fold["kind"] = first == row_e::COMMENT ? "comment" : "imports";
    }
    return fold;
}

// Semantic tokens.

constexpr std::array<std::string_view, 7> TOKEN_TYPES = {"keyword", "function", "variable", "number",
                                                         "comment", "macro",    "string"};
enum token_type_e : int { KEYWORD, FUNCTION, VARIABLE, NUMBER, COMMENT, MACRO, STRING };

constexpr std::array<std::string_view, 2> TOKEN_MODIFIERS = {"declaration", "defaultLibrary"};
constexpr int DECLARATION = 1;
constexpr int DEFAULT_LIBRARY = 2; // a port of the board

struct colour_t {
    token_type_e type;
    int modifiers = 0;
};

bool is_port(std::string_view number) {
    const std::optional<int32_t> value = read_number(number);
    return value && port_at(*value) != nullptr;
}

std::optional<colour_t> colour_of(const project_t& program, const token_t& token, std::string_view word) {
    switch (token.kind) {
    case token_e::OPERATION:
        return find_operation(word) == nullptr ? std::nullopt : std::optional(colour_t{KEYWORD});
    case token_e::LABEL:
    case token_e::NAME: {
        const definition_t found = definition_of(program, word);
        const bool code = found.content != nullptr && found.content->operation != nullptr &&
                          !is_data(*found.content->operation);
        return colour_t{code ? FUNCTION : VARIABLE, token.kind == token_e::LABEL ? DECLARATION : 0};
    }
    case token_e::ORIGIN:
    case token_e::NUMBER:
        return colour_t{NUMBER, is_port(word) ? DEFAULT_LIBRARY : 0};
    case token_e::INCLUDE:
        return colour_t{MACRO};
    case token_e::FILE_NAME:
        return colour_t{STRING};
    case token_e::COMMENT:
    case token_e::NONE:
        break;
    }
    return std::nullopt;
}

// The list of numbers that the protocol wants: each token counts from the one before.
struct colours_t {
    const server_t& server;
    const text_t& text;
    json data = json::array();
    position_t last{};
};

void add_colour(colours_t& colours, bytes_t bytes, colour_t colour) {
    const position_t begin = position_at(colours.text, bytes.begin, colours.server.client.encoding);
    const position_t end = position_at(colours.text, bytes.end, colours.server.client.encoding);
    if (begin.line != end.line || begin.character == end.character) {
        return; // a lone carriage return divides it
    }
    const uint32_t lines = begin.line - colours.last.line;
    const uint32_t characters = begin.character - (lines == 0 ? colours.last.character : 0);
    for (const uint32_t number :
         {lines, characters, end.character - begin.character, static_cast<uint32_t>(colour.type),
          static_cast<uint32_t>(colour.modifiers)}) {
        colours.data.push_back(number);
    }
    colours.last = begin;
}

} // namespace

json document_symbols(server_t& server, const json& params) {
    const view_t view = view_of(server, path_in(params));
    json list = json::array();
    for (const symbol_t& symbol : symbols_of(program_of(server, view.path), view.text.bytes)) {
        json item = {{"name", symbol.name}, {"kind", symbol.kind}};
        if (server.client.nested_symbols) {
            item["range"] = range_of(server, view.text, symbol.range);
            item["selectionRange"] = range_of(server, view.text, symbol.selection);
        } else {
            item["location"] = location_of(server, view.path, view.text, symbol.range);
        }
        list.push_back(std::move(item));
    }
    return list;
}

json folding_ranges(server_t& server, const json& params) {
    const view_t view = view_of(server, path_in(params));
    json folds = json::array();
    row_e first = row_e::EMPTY;
    bytes_t bytes;
    size_t lines = 0;
    const auto finish = [&] {
        if (lines > 1) {
            folds.push_back(fold_json(server, view.text, first, bytes));
        }
    };
    for_each_line(view.text.bytes, [&](const source_line_t& line) {
        const row_e row = row_of(view.text.bytes, line);
        if (!goes_on(first, row)) {
            finish();
            first = row;
            bytes.begin = line.begin;
            lines = first == row_e::EMPTY || first == row_e::CODE ? 0 : 1;
        } else {
            ++lines;
        }
        bytes.end = line.begin;
    });
    finish();
    return folds;
}

json semantic_tokens(server_t& server, const json& params) {
    const view_t view = view_of(server, path_in(params));
    const project_t& program = program_of(server, view.path);
    colours_t colours{.server = server, .text = view.text};
    const std::string_view text = view.text.bytes;
    for_each_line(text, [&](const source_line_t& line) {
        for (const token_t& token : tokens_of(text, line)) {
            if (const auto colour = colour_of(program, token, text_in(text, token.span))) {
                add_colour(colours, bytes_of(token.span), *colour);
            }
        }
        if (line.comment.begin < line.comment.end) {
            add_colour(colours, line.comment, {COMMENT});
        }
    });
    return {{"data", std::move(colours.data)}};
}

json semantic_tokens_legend() { return {{"tokenTypes", TOKEN_TYPES}, {"tokenModifiers", TOKEN_MODIFIERS}}; }
