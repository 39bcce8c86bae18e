#pragma once

// A task for a class: what is to be handed in, with what it is tried, and what is expected of it.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <nlohmann/json.hpp>

// Words of the memory by labels, each the first of some.
using labelled_words_t = std::vector<std::pair<std::string, std::vector<int32_t>>>;

// ---- What a run is to have shown

// A field of the report of `tovik-run`.
struct field_rule_t {
    std::string key;
    nlohmann::json value;
};

struct text_rule_t {
    enum class where_e { LCD, SERIAL } where;
    enum class how_e { EQUALS, CONTAINS, MATCHES } how;
    std::string text; // lines of the LCD have a line feed between them; MATCHES: an expression of RE2
};

struct words_rule_t {
    labelled_words_t words;
};

struct instructions_rule_t {
    int64_t most;
};

struct picture_rule_t {
    std::string file;                                 // a PNG file of 640x480 points; empty: the reference's
    std::array<int32_t, 4> region = {0, 0, 640, 480}; // x, y, width, height
    int32_t color = 0;                                // how far red, green and blue may be off, of 255
    int32_t distance = 0;                             // how far away the point may be, in points
    double share = 1;                                 // of the points that are to be equal
};

struct pitch_t {
    double from;      // seconds
    double to;        // seconds
    double hz;        // 0: silence
    double tolerance; // a part of the pitch
};

struct sound_rule_t {
    std::string file;              // a WAV file
    bool reference = false;        // like the reference's
    std::optional<double> seconds; // its length without the silence before and after
    double tolerance = 0.01;       // seconds, of lengths and places
    std::vector<pitch_t> pitches;
};

// Something that is to be seen after what is named before it.
struct moment_rule_t {
    std::vector<std::pair<std::string, nlohmann::json>> shows; // fields of the report, all at once
    std::optional<double> after_ms;                            // not sooner, counted from the one before
    std::optional<double> within_ms;                           // not later
};

// A program that does nothing but change a display makes millions.
constexpr uint64_t MOST_EVENTS = 100'000;

struct events_rule_t {
    std::vector<moment_rule_t> moments;
};

// A program of the instructor's.
struct command_rule_t {
    std::string name; // for people: of its file beside the task, or else of the program
    std::vector<std::string> words;
    double seconds = 10; // that it may take
};

// What the reference solution shows.
struct same_rule_t {
    std::vector<std::string> what;
};

using rule_t = std::variant<field_rule_t, text_rule_t, words_rule_t, instructions_rule_t, picture_rule_t,
                            sound_rule_t, events_rule_t, command_rule_t, same_rule_t>;

// ---- What a source is to be like

struct size_rule_t {
    int64_t most; // words of the image
};

struct forbidden_rule_t {
    std::vector<std::string> operations;
};

struct labels_rule_t {
    std::vector<std::string> labels; // that it must define and use
};

struct warnings_rule_t {
    std::vector<std::string> codes; // none: all
};

using source_rule_t = std::variant<size_rule_t, forbidden_rule_t, labels_rule_t, warnings_rule_t>;

// ---- The task

template <typename some_rule_t> struct task_check_t {
    std::string name; // as the results call it
    some_rule_t rule;
    double points = 1;
    std::string message; // for those who fail
    int line = 0;        // of the task's file
};

struct input_t {
    int32_t switches = 0;
    std::string script; // as `tovik-run` has it, with what is typed in the serial console at the start
    std::string serial; // that, for people
    std::string timed;  // the script without that
    std::vector<std::string> cards; // files
    std::vector<std::string> recordings;
    std::vector<std::string> movies;
    labelled_words_t set;
};

struct case_t {
    std::string name;
    std::optional<double> points; // what its checks together are worth; none: the sum of theirs
    bool hidden = false;
    int64_t limit = 0;
    std::vector<int64_t> seeds;
    std::string reference; // a source; empty: none
    input_t input;
    std::vector<task_check_t<rule_t>> checks;
};

struct task_t {
    std::string file;
    std::string folder; // of its file
    std::string title;
    std::string source;               // the name of what is handed in
    std::vector<std::string> library; // what it may include
    std::string visibility;           // of tests that are not hidden, as Gradescope calls it
    std::optional<double> points;     // what all checks together are worth; none: the sum of theirs
    std::vector<task_check_t<source_rule_t>> source_checks;
    std::vector<case_t> cases;
};

// Reads a task. Throws tovik_error with all that is wrong with it, one line each with file, line and column.
task_t read_task(const std::string& file_name);
