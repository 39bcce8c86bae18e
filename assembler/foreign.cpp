#include "assembler/foreign.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "assembler/similar.h"
#include "assembler/source.h"
#include "base/text.h"

namespace {

constexpr size_t npos = std::string_view::npos;

bool is_digit(char c) { return c >= '0' && c <= '9'; }

struct digits_t {
    std::string_view digits;
    int base;
};

// The digits of a number in small letters, and how other languages would read them.
digits_t notation_of(std::string_view text) {
    if (text.starts_with("0x")) {
        return {text.substr(2), 16};
    }
    if (text.starts_with("0b") && !text.ends_with('h')) {
        return {text.substr(2), 2};
    }
    if (text.starts_with("0o")) {
        return {text.substr(2), 8};
    }
    if (text.ends_with('h')) {
        return {text.substr(0, text.size() - 1), 16};
    }
    return {text, 10};
}

// Offset in a token of what begins a comment elsewhere, or npos.
size_t comment_in(std::string_view token) {
    if (character(token)) {
        return npos;
    }
    const bool number_follows =
        token.size() > 1 &&
        is_digit(token.find_first_not_of("#-") == npos ? ' ' : token[token.find_first_not_of("#-")]);
    const bool hash = token.starts_with('#') && !is_include(token);
    if ((hash || token.starts_with("--")) && !number_follows) {
        return 0;
    }
    return token.find(';');
}

} // namespace

std::string right_form(std::string_view number) {
    std::string text = small(number);
    std::erase(text, '_');
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.erase(0, 1);
    }
    const auto [digits, base] = notation_of(text);
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
    if (digits.empty() || error != std::errc{} || end != digits.data() + digits.size()) {
        return {};
    }
    constexpr uint64_t MOST_POSITIVE = std::numeric_limits<int32_t>::max();
    if (negative) {
        return value > MOST_POSITIVE + 1 ? "" : (value == 0 ? "" : "-") + std::to_string(value);
    }
    if (value > std::numeric_limits<uint32_t>::max()) {
        return {};
    }
    return base == 16 || value > MOST_POSITIVE ? hexadecimal(value) : std::to_string(value);
}

std::optional<span_t> foreign_comment(const source_map_t& map, const statement_t& statement) {
    const auto& operands = statement.operands;
    for (const span_t token : {statement.label, statement.opcode, operands[0].token, operands[1].token,
                               operands[2].token, statement.extra}) {
        const size_t offset = comment_in(text_of(map, statement.file, token));
        if (offset != npos) {
            const auto begin = token.begin + static_cast<uint32_t>(offset);
            const auto end =
                static_cast<uint32_t>(without_comment(line_text(map, statement.file, statement.line_begin))
                                          .find_last_not_of(WHITE_SPACE) +
                                      1);
            return span_t{.begin = begin, .size = statement.line_begin + end - begin};
        }
    }
    return std::nullopt;
}

std::optional<int> character(std::string_view text) {
    if (text.size() < 3 || (text.front() != '\'' && text.front() != '"') || text.back() != text.front()) {
        return std::nullopt;
    }
    const std::string_view inner = text.substr(1, text.size() - 2);
    if (inner.size() == 1) {
        return static_cast<unsigned char>(inner.front());
    }
    constexpr std::string_view LETTERS = "ntr0";
    constexpr std::string_view CODES("\n\t\r\0", 4);
    const size_t which = inner.size() == 2 && inner.front() == '\\' ? LETTERS.find(inner.back()) : npos;
    return which == npos ? std::nullopt : std::optional<int>(CODES[which]);
}

bool is_include(std::string_view text) { return small(text.substr(0, 4)) == "#inc"; }

std::string_view help_for_others(std::string_view opcode) {
    struct other_t {
        std::string_view names; // each with a blank before and behind it
        std::string_view help;
    };
    constexpr other_t OTHERS[] = {
        {" mov move ld lda lw load st sta sw store ", "`cp a b` copies b to a"},
        {" li ldi movi let ", "`cpdata a N` puts the number N into a"},
        {" jmp jump goto j b br bra ", "`be a 0 0` goes on at a, always"},
        {" bgt ", "`blt a c b` goes on at a if b is greater than c"},
        {" bge ", "`blt a c b` and `be a b c` go on at a if b is not less than c"},
        {" ble ", "`blt a b c` and `be a b c` go on at a if b is not greater than c"},
        {" cmp tst ", "`be`, `bne` and `blt` compare by themselves"},
        {" inc ", "write `add`, with a word that holds 1"},
        {" dec ", "write `sub`, with a word that holds 1"},
        {" stop end exit quit ", "a program ends with `halt`"},
        {" jsr gosub ", "write `call`"},
        {" .word .byte .int .long .dw .db dw dd db dc data word byte int var const equ .equ ",
         "`.data N` makes one word that holds N"},
        {" org .org ", "a number in the first column is the address of the line"},
    };
    const std::string name = " " + small(opcode) + " ";
    for (const auto& [names, help] : OTHERS) {
        if (names.find(name) != npos) {
            return help;
        }
    }
    return {};
}
