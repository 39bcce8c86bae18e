// Formatting in the columns of the examples: operations in column 17, operands in column 25. The tokens stay
// what they are, and so does what stands between comment marks and the end of the line. Lines that are not
// understood stay whole: what they are meant to be is not known.

#include "language/features.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "assembler/operations.h"
#include "base/text.h"
#include "language/characters.h"
#include "language/protocol.h"

namespace {

// From 0.
constexpr size_t OPERATION_COLUMN = 16;
constexpr size_t OPERAND_COLUMN = 24;

constexpr size_t COMMENT_STEP = 4;
constexpr size_t COMMENT_GAP = 2; // at least, before a comment that is moved
constexpr size_t TAB_WIDTH = 8;

void pad_to(std::string& line, size_t column) {
    const size_t width = count_characters(line);
    const size_t least = line.empty() ? 0 : 1;
    line.append(column > width + least ? column - width : least, ' ');
}

// A line's tokens in their columns.
std::string code_of(std::string_view text, const source_line_t& line) {
    std::string code;
    for (const token_t& token : tokens_of(text, line)) {
        const bool first = code.empty();
        switch (token.kind) {
        case token_e::OPERATION:
            pad_to(code, OPERATION_COLUMN);
            break;
        case token_e::NUMBER:
        case token_e::NAME:
            token.operand == 0 ? pad_to(code, OPERAND_COLUMN) : pad_to(code, 0);
            break;
        default:
            if (!first) {
                code += ' ';
            }
        }
        code += text_in(text, token.span);
    }
    return code;
}

// The width of a text that begins a line.
size_t width_of(std::string_view text) {
    size_t column = 0;
    while (!text.empty()) {
        column = text.front() == '\t' ? (column / TAB_WIDTH + 1) * TAB_WIDTH : column + 1;
        text.remove_prefix(character_size(text));
    }
    return column;
}

// A line as it is to be, but for its comment's place.
struct row_t {
    bytes_t bytes; // of the old one, without what ends it
    std::string code{};
    std::string comment{};
    size_t column = 0; // of the comment, as it was
    bool kept = false; // stays as it is
};

// White space that is none for the first column, and carriage returns: who wrote them will know why. Bytes
// that are not UTF-8 cannot be sent.
bool is_odd(std::string_view line) {
    for (; !line.empty(); line.remove_prefix(character_size(line))) {
        const bool stray = static_cast<unsigned char>(line.front()) >= 0x80 && character_size(line) == 1;
        if (stray || std::string_view("\v\f\r").find(line.front()) != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

// Not a line whose operation is unknown, or that has more than an instruction: a note without comment marks.
bool is_understood(std::string_view text, const source_line_t& line) {
    const statement_t& statement = line.statement;
    return line.include ||
           (statement.extra.size == 0 &&
            (statement.opcode.size == 0 || find_operation(text_in(text, statement.opcode)) != nullptr));
}

row_t row_of(std::string_view text, const source_line_t& line) {
    std::string_view shown = line.text;
    if (shown.ends_with('\r')) {
        shown.remove_suffix(1);
    }
    row_t row{.bytes = {line.begin, line.begin + shown.size()}};
    const bool comment_only = line.blank && line.comment.begin < line.comment.end;
    row.kept = is_odd(shown) || comment_only || !is_understood(text, line);
    if (row.kept) {
        return row;
    }
    row.code = line.include ? "#include" : code_of(text, line);
    if (line.include) {
        // What follows the name is not looked at; it stays.
        const size_t after = line.statement.label.begin + line.statement.label.size;
        const size_t end = line.comment.begin < line.comment.end ? line.comment.begin : row.bytes.end;
        const std::string_view rest = text.substr(after, end - after);
        const size_t first = rest.find_first_not_of(WHITE_SPACE);
        if (first != std::string_view::npos) {
            row.code += ' ';
            row.code += rest.substr(first, rest.find_last_not_of(WHITE_SPACE) - first + 1);
        }
    }
    if (line.comment.begin < line.comment.end) {
        row.comment = text.substr(line.comment.begin, line.comment.end - line.comment.begin);
        row.comment.erase(row.comment.find_last_not_of(" \t") + 1);
        row.column = width_of(shown.substr(0, line.comment.begin - line.begin));
    }
    return row;
}

// Where the comments of rows that follow each other go: to one column, which stays if they share one already.
size_t comment_column(const std::vector<row_t>& rows, size_t begin, size_t end) {
    size_t widest = 0;
    bool share = true;
    for (size_t i = begin; i < end; ++i) {
        widest = std::max(widest, count_characters(rows[i].code));
        share = share && rows[i].column == rows[begin].column;
    }
    if (share && rows[begin].column > widest) {
        return rows[begin].column;
    }
    return (widest + COMMENT_GAP + COMMENT_STEP - 1) / COMMENT_STEP * COMMENT_STEP;
}

void place_comments(std::vector<row_t>& rows) {
    for (size_t begin = 0; begin < rows.size();) {
        size_t end = begin;
        while (end < rows.size() && !rows[end].comment.empty()) {
            ++end;
        }
        if (begin < end) {
            const size_t column = comment_column(rows, begin, end);
            for (size_t i = begin; i < end; ++i) {
                rows[i].code.append(column - count_characters(rows[i].code), ' ');
                rows[i].code += rows[i].comment;
            }
        }
        begin = std::max(end, begin + 1);
    }
}

json edits_between(server_t& server, const view_t& view, bytes_t lines) {
    std::vector<row_t> rows;
    const std::string_view text = view.text.bytes;
    for_each_line(text, [&](const source_line_t& line) { rows.push_back(row_of(text, line)); });
    place_comments(rows);
    json edits = json::array();
    for (const row_t& row : rows) {
        const bool same = text.substr(row.bytes.begin, row.bytes.end - row.bytes.begin) == row.code;
        // Whole lines are selected up to the beginning of the next one.
        const bool selected =
            row.bytes.end >= lines.begin && (row.bytes.begin < lines.end || row.bytes.begin <= lines.begin);
        if (!row.kept && !same && selected) {
            edits.push_back(edit_of(server, view.text, row.bytes, row.code));
        }
    }
    return edits;
}

} // namespace

json formatting(server_t& server, const json& params) {
    return edits_between(server, view_of(server, path_in(params)), {0, std::numeric_limits<size_t>::max()});
}

json range_formatting(server_t& server, const json& params) {
    const view_t view = view_of(server, path_in(params));
    const json& range = params.at("range");
    return edits_between(server, view,
                         {offset_at(view.text, position_in(range.at("start")), server.client.encoding),
                          offset_at(view.text, position_in(range.at("end")), server.client.encoding)});
}
