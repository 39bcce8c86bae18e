#pragma once

// What the assembler knows of a program when it is done: which line each word came from, where labels are
// defined and used, which file included which. A plain record for checker, editors and debugger, filled by
// the two passes themselves. All strings are stretches of the kept texts; indices lead from one table to the
// other.

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "assembler/diagnostics.h"
#include "assembler/operations.h"

constexpr uint32_t NOTHING = UINT32_MAX; // an index that leads nowhere

// A file that was opened, once for each name.
struct source_file_t {
    std::string name{}; // as it was opened: includes are resolved against the folder of the including file
    std::string text{};
    int error = 0; // errno of the failure that ended the reading, 0 for none
};

// Bytes of a file's text.
struct span_t {
    uint32_t begin = 0;
    uint32_t size = 0; // 0 where the line has no such token
};

// One reading of a file. A file that is included twice has two. The first one is the main file's.
struct inclusion_t {
    uint32_t file = NOTHING;   // index into files; NOTHING for an include that was not opened
    uint32_t parent = NOTHING; // the inclusion that has the #include; NOTHING for the main file
    int32_t line = 0;          // of the #include in the parent's file
    uint32_t line_begin = 0;
    span_t name{}; // the file name behind #include
};

struct operand_t {
    span_t token{};
    uint32_t label = NOTHING; // index into labels when the operand is the name of one
    int32_t value = 0;        // 0 when it has none: missing, malformed, undefined
};

// A line that is neither blank nor an #include.
struct statement_t {
    uint32_t file = 0;      // index into files
    uint32_t inclusion = 0; // index into inclusions
    int32_t line = 0;       // from 1
    uint32_t line_begin = 0;
    span_t label{}; // what stands in the first column: a label, or a number, see `origin`
    span_t opcode{};
    std::array<operand_t, 3> operands{};    // as many as the line has, also those that are too many
    span_t extra{};                         // the fourth operand, which no operation has
    const operation_t* operation = nullptr; // null when there is none or it is unknown
    uint32_t defines = NOTHING;             // index into labels when the line defines one
    int32_t address = 0;                    // of its first word; not in memory after the fault "too-large"
    bool origin = false;                    // a well-formed number in the first column set the address
    bool broken = false; // it could not be understood: no words, but its label and its size count
    bool faulty = false; // a fault lies on the line: values of it may be 0 instead
};

enum class word_e : uint8_t {
    NONE, // no line sets it: it is 0 when the program is loaded
    OPCODE,
    OPERAND, // an operand of the source
    IMPLIED, // part of an instruction that the source does not name: 0, or the address that cpdata makes
    DATA,    // of a .data
};

constexpr uint8_t NO_OPERAND = 0xff;

struct word_t {
    int32_t value = 0;
    uint32_t statement = NOTHING;
    word_e kind = word_e::NONE;
    uint8_t operand = NO_OPERAND; // which operand of the statement: 0, 1 or 2
};

// Operand `operand` of statement `statement`.
struct use_t {
    uint32_t statement = 0;
    uint8_t operand = 0;
};

struct label_t {
    uint32_t statement = 0; // whose line defines it
    uint32_t file = 0;      // that of the statement
    int32_t address = 0;
    span_t name{};
    // Its uses are uses[first_use] and the use_count - 1 behind it, in the order of the lines.
    uint32_t first_use = 0;
    uint32_t use_count = 0;
};

struct label_slot_t {
    uint32_t label = NOTHING;
    uint32_t hash = 0;
};

struct source_map_t {
    std::deque<source_file_t> files{}; // the main file first
    std::vector<inclusion_t> inclusions{};
    std::vector<statement_t> statements{};   // in the order in which they are read, includes in their places
    std::vector<word_t> words{};             // MEMORY_SIZE of them, by address
    std::vector<label_t> labels{};           // in the order of their definitions
    std::vector<use_t> uses{};               // grouped by label
    std::vector<label_slot_t> label_index{}; // find_label's own: a table by hash
};

// What a span holds.
std::string_view text_of(const source_map_t& map, uint32_t file, span_t span);

// A line's text without its line feed, by the offset of its first byte.
std::string_view line_text(const source_map_t& map, uint32_t file, uint32_t line_begin);

std::string_view name_of(const source_map_t& map, const label_t& label);

// Index of the label of that name, or NOTHING.
uint32_t find_label(const source_map_t& map, std::string_view name);

// For the passes only: enters a label whose statement is in the map already and whose name is new. Returns
// its index.
uint32_t add_label(source_map_t& map, const label_t& label);

// Where a token of a statement stands. It must have one: an absent token has no place.
place_t place_of(const statement_t& statement, span_t token);

place_t place_of(const source_map_t& map, const label_t& label); // of its definition
place_t place_of(const source_map_t& map, const use_t& use);

// Where the #include of an inclusion names its file; line 0 for the main file.
place_t place_of(const source_map_t& map, const inclusion_t& inclusion);
