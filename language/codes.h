#pragma once

// What can be wrong with a program or doubtful in it, a row for each code of a diagnostic: what it means, why
// that is a fault or is hardly ever meant, and what to do. For the checker's output, the editors and the
// documents.

#include <span>
#include <string>
#include <string_view>

#include "assembler/diagnostics.h"

// The codes of the warnings.
namespace code {
// Operands
constexpr std::string_view BARE_NUMBER = "bare-number";
constexpr std::string_view ILLEGAL_ADDRESS = "illegal-address";
// The way through the program
constexpr std::string_view BEGINS_WITH_DATA = "begins-with-data";
constexpr std::string_view NO_HALT = "no-halt";
constexpr std::string_view RUNS_INTO_DATA = "runs-into-data";
constexpr std::string_view BAD_TARGET = "bad-target";
constexpr std::string_view UNREACHED = "unreached";
constexpr std::string_view CODE_OVERWRITTEN = "code-overwritten";
// Labels
constexpr std::string_view UNUSED_LABEL = "unused-label";
constexpr std::string_view OPERATION_AS_LABEL = "operation-as-label";
constexpr std::string_view LABEL_COLON = "label-colon";
constexpr std::string_view LABEL_CASE = "label-case";
// Lines
constexpr std::string_view INVISIBLE_CHARACTER = "invisible-character";
constexpr std::string_view BAD_ALLOW = "bad-allow";
// Subroutines
constexpr std::string_view RETURN_MISMATCH = "return-mismatch";
constexpr std::string_view RETURN_WITHOUT_CALL = "return-without-call";
constexpr std::string_view RUNS_INTO_SUBROUTINE = "runs-into-subroutine";
constexpr std::string_view RECURSION = "recursion";
// Ports
constexpr std::string_view PORT_DIRECTION = "port-direction";
constexpr std::string_view COMMAND_NOT_CLEARED = "command-not-cleared";
constexpr std::string_view COMMAND_NOT_SET = "command-not-set";
constexpr std::string_view PARAMETER_TOO_LATE = "parameter-too-late";
constexpr std::string_view RESULT_TOO_EARLY = "result-too-early";
} // namespace code

struct code_info_t {
    std::string_view code;
    severity_e severity;
    std::string_view title;  // a noun phrase
    std::string_view why;    // sentences
    std::string_view remedy; // sentences
    // A program that gives this diagnostic alone, and one without any. Empty where no program of one file
    // shows it.
    std::string_view wrong;
    std::string_view right;
};

// The faults of the assembler, then the warnings.
std::span<const code_info_t> all_codes();

// "error", "warning" or "note".
const char* name_of(severity_e severity);

// The row of a code; nullptr when there is none.
const code_info_t* find_code(std::string_view code);

// A section of the manual, in Markdown: what the code means, with its examples.
std::string explanation(const code_info_t& info);
