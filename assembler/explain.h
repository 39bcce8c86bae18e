#pragma once

// Words for a fault: what the writer may have meant, and the edit that makes it so.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "assembler/diagnostics.h"
#include "assembler/similar.h"
#include "assembler/source_map.h"

// What looking for similar names may cost in one program, and what has been prepared for it.
struct names_t {
    int64_t budget = 1'000'000;
    std::vector<name_t> labels;                         // all of them, once they are needed
    std::unordered_map<std::string, uint32_t> hidden{}; // those with invisible characters, by what is seen
};

// What is invisible in a line of code, as edits that mend it. Empty when nothing is.
std::vector<edit_t> edits_of_invisible(const source_map_t& map, const statement_t& statement);

// Each completes what has code, place and message already.
// Whether it comes of what is invisible in its line; only then something has been done.
bool explain_invisible(diagnostic_t& diagnostic, const source_map_t& map, const statement_t& statement);
void explain_comment(diagnostic_t& diagnostic, std::string_view comment);
void explain_number(diagnostic_t& diagnostic, std::string_view number, bool is_label);
void explain_label(diagnostic_t& diagnostic, const source_map_t& map, std::string_view name, names_t& names);
void explain_read(diagnostic_t& diagnostic); // what has been explained is read: a number there is an address
// Of an operation that is taken for a label.
void explain_first_column(diagnostic_t& diagnostic, const source_map_t& map, std::string_view operation);

// What stands before the operations of a file that have no label: as in its first such line.
std::string indentation_in(const source_map_t& map, uint32_t file);
void explain_count(diagnostic_t& diagnostic, const source_map_t& map, const statement_t& statement);
void explain_include(diagnostic_t& diagnostic, std::string_view name); // that cannot be opened

// How a line with an unknown operation was meant, as far as its other tokens tell.
enum class meant_e {
    UNKNOWN,
    LABEL,     // the operation is a label that is not in the first column, or has a colon
    OPERATION, // the label is an operation in the first column
    INCLUDE,   // an #include that is not in the first column, or not written so
};
meant_e meant_by(const source_map_t& map, const statement_t& statement);
void explain_opcode(diagnostic_t& diagnostic, const source_map_t& map, const statement_t& statement,
                    names_t& names);
