#pragma once

// What is wrong with a source, or doubtful in it: a list of places with words for them. Data for all above.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// A stretch of one line. Columns are bytes and count from 1, like lines; both ends belong to it, so as a
// half-open range of offsets it is [first - 1, last). An empty one, last = first - 1, lies before `first`.
// Line 0 stands for the file as a whole.
struct place_t {
    uint32_t file = 0; // index into the source map's files
    int32_t line = 0;
    uint32_t first = 1;
    uint32_t last = 0;
    bool operator==(const place_t&) const = default;
};

enum class severity_e : uint8_t { ERROR, WARNING, NOTE };

// Another place that has to do with it: the first definition, a second use.
struct related_t {
    place_t place{};
    std::string message{}; // a clause without a full stop, such as "first defined here"
};

// One replacement of what stands at a place.
struct edit_t {
    place_t place{};
    std::string text{};
};

// The codes of the assembler's faults. Others who add to the list bring their own.
namespace code {
constexpr std::string_view CANNOT_OPEN = "cannot-open";
constexpr std::string_view CANNOT_READ = "cannot-read";
constexpr std::string_view INCLUDE_CYCLE = "include-cycle";
constexpr std::string_view TOO_LONG = "too-long"; // too many lines or includes to go through
constexpr std::string_view CARRIAGE_RETURN = "carriage-return";
constexpr std::string_view TOO_LARGE = "too-large"; // behind the last word of memory
constexpr std::string_view LOW_ORIGIN = "low-origin";
constexpr std::string_view DUPLICATE_LABEL = "duplicate-label";
constexpr std::string_view UNKNOWN_OPCODE = "unknown-opcode";
constexpr std::string_view MALFORMED_NUMBER = "malformed-number";
constexpr std::string_view UNDEFINED_LABEL = "undefined-label";
constexpr std::string_view MISSING_OPERAND = "missing-operand";
constexpr std::string_view EXTRA_OPERAND = "extra-operand";
constexpr std::string_view FOREIGN_COMMENT = "foreign-comment";
constexpr std::string_view MORE = "more"; // the last of a list that is full
} // namespace code

// The texts are the system's own in ASCII, but for what they repeat of the source: its bytes, in whatever
// encoding, long tokens cut short.
struct diagnostic_t {
    place_t place{};
    severity_e severity = severity_e::ERROR;
    std::string_view code{}; // short, of constant storage
    std::string message{}; // what is wrong: one line, without a full stop. Names of the source in backquotes
    std::string help{};    // what to do about it, the same; may be empty
    std::vector<related_t> related{}; // at most MOST_RELATED
    size_t more_related = 0;          // places that have no room there
    std::vector<edit_t> fix{}; // edits that, made together, follow the help; often none, at most MOST_EDITS
};

constexpr size_t MOST_DIAGNOSTICS = 1000;
constexpr size_t MOST_RELATED = 20;
constexpr size_t MOST_EDITS = 100;

// Adds a related place. When there is no room, the words of the last one say how many more there are.
void add_related(diagnostic_t& diagnostic, related_t related);

// In the order in which they were found: pass 1 before pass 2, the first is what `assemble` reports.
struct diagnostics_t {
    std::vector<diagnostic_t> list{}; // at most MOST_DIAGNOSTICS
    size_t count = 0;                 // with those that have no room in the list
    size_t faults = 0;                // those of `count` that are errors
};

// Adds one. When the list is full, its last entry gives way to one that says how many more there are. A fix
// of too many edits is left out: a part of it would be none. Returns whether the new one is in the list.
bool add_diagnostic(diagnostics_t& diagnostics, diagnostic_t diagnostic);

// Whether one more would be in the list: what makes it need not be worked out otherwise.
bool has_room(const diagnostics_t& diagnostics);
