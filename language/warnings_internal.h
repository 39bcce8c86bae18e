#pragma once

// What the chapters of warnings share. Nobody else includes it.

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "assembler/analyse.h"
#include "language/codes.h"
#include "language/flow.h"
#include "language/program.h"
#include "language/warnings.h"

struct found_t {
    uint32_t statement = 0; // index, for the order: that of the line, or the next one
    std::string_view line;  // what may allow it
    diagnostic_t diagnostic;
};

// How a comment begins that silences warnings of its line, and what stands between the codes behind that.
constexpr std::string_view ALLOW = "tovik: allow ";
constexpr std::string_view CODE_ENDS = ", \t\r";

using line_number_t = std::pair<uint32_t, int32_t>; // of a file

// Codes and places of which something has been said: file, line, column.
using said_t = std::set<std::tuple<std::string_view, uint32_t, int32_t, uint32_t>>;

struct warnings_t {
    const source_map_t* map = nullptr;
    program_t* program = nullptr;
    const diagnostics_t* faults = nullptr;
    const flow_t* flow = nullptr; // null when the program has faults: then it is not known
    std::vector<found_t> found;
    is_wanted_t is_wanted{};
    std::set<line_number_t> named{}; // lines that faults name besides their own
    said_t in_order{};               // those of the chapter at work that `is_left_out` let through
    size_t more = 0;                 // beyond those that can be shown
};

// For those that a chapter finds in the order of the lines, and of which there can be as many as lines:
// whether one need not be made, because it is not to be said, or because the list can show no more, which
// counts it.
bool is_left_out(warnings_t& warnings, std::string_view code, uint32_t statement, span_t token);
bool is_left_out(warnings_t& warnings, std::string_view code, const place_t& place, std::string_view line);

// Where an operand stands in the source.
struct operand_place_t {
    uint32_t statement = 0;
    span_t token{}; // empty for one that the source does not name
    uint32_t label = NOTHING;
};
operand_place_t place_of_operand(const program_t& program, const instruction_t& instruction, size_t operand);

// Adds a warning at a token of a line. The reference is good until the next one.
diagnostic_t& warn(warnings_t& warnings, std::string_view code, uint32_t statement, span_t token,
                   std::string message, std::string help);

// At the operation of an instruction.
diagnostic_t& warn(warnings_t& warnings, std::string_view code, const instruction_t& instruction,
                   std::string message, std::string help);

// `text`
std::string quoted(std::string_view text);

// The text of an operand in backquotes.
std::string quoted_operand(const warnings_t& warnings, const operand_place_t& place);

// "line 7", or "line 7 of lcd.k" when that is another file than that of the line `from`.
std::string line_name(const source_map_t& map, uint32_t statement, uint32_t from);

// What a word of memory is: "the first operand of the `add` in line 3".
std::string word_name(const source_map_t& map, int32_t address, uint32_t from);

// Addresses at which a `halt` stands as a label: what follows is its fault.
std::vector<int32_t> halts_as_labels(const source_map_t& map);

bool is_reached(const warnings_t& warnings, uint32_t instruction);

// Whether an instruction is never executed but read: a program copies it to another place.
bool is_template(const warnings_t& warnings, uint32_t instruction);

// The chapters.
void warn_of_lines(warnings_t& warnings);    // also without a flow
void warn_of_labels(warnings_t& warnings);   // also without a flow
void warn_of_operands(warnings_t& warnings); // also without a flow
void warn_of_ways(warnings_t& warnings);
void warn_of_subroutines(warnings_t& warnings);
void warn_of_ports(warnings_t& warnings);
