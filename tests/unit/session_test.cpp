// A session in commands, each with all that it says.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "base/machine.h"
#include "core/script.h"
#include "core/simulate.h"
#include "debugger/session.h"
#include "devices/io.h"
#include "tests/support/gui_recording.h"
#include "tests/support/record.h"

namespace {

// Doubles the elements of a list, shows its index, and fails.
constexpr const char* PROGRAM = R"(        cp      i zero
loop    cpfa    value list i
        call    double back
        cpta    value list i
        add     i i one
        bne     loop i three
        cp      0x80000001 i
        cp      sum 0x80000000
        div     i i zero
        halt
double  add     value value value
        ret     back
list    .data   10
        .data   20
        .data   30
i       .data   7
value   .data   0
back    .data   0
sum     .data   0
zero    .data   0
one     .data   1
three   .data   3
)";

// Counts turns until a switch is on.
constexpr const char* COUNTER = R"(loop    add     count count one
        cp      last 0x80000000
        be      loop last zero
        halt
count   .data   0
last    .data   0
one     .data   1
zero    .data   0
)";

const std::filesystem::path folder =
    testing::TempDir() + "tovik-session-" + std::to_string(getpid()) + "/";

std::string write(const std::string& name, const std::string& text) {
    std::filesystem::create_directories(folder);
    std::ofstream(folder / name) << text;
    return folder / name;
}

std::string said; // by log points

std::string place() {
    const where_t at = where(session_places(), machine.pc);
    return std::to_string(history_now()) + " " + at.label;
}

std::string told(const session_stop_t& stop) {
    constexpr const char* NAMES[] = {"none",  "entry", "step",  "pause", "breakpoint",
                                     "watch", "halt",  "fault", "limit", "beginning"};
    std::string text = said + NAMES[static_cast<size_t>(stop.why)];
    for (const int id : stop.ids) {
        text += " #" + std::to_string(id);
    }
    text += " at " + place();
    return text + (stop.description.empty() ? "" : ": " + stop.description);
}

int32_t address_of_text(const std::string& text) {
    return *address_of(parse_expression(text, [](std::string_view name) -> std::optional<int32_t> {
        const auto found = session_places().labels.find(name);
        return found == session_places().labels.end() ? std::nullopt : std::optional(found->second);
    }));
}

std::string go(motion_e motion, int32_t address) {
    said.clear();
    session_go(motion, address);
    for (;;) {
        // Pieces of odd lengths: where they end must make no difference.
        if (const session_pass_t pass = session_run(3); pass.stop.why != stop_e::NONE) {
            return told(pass.stop);
        }
    }
}

template <typename stop_t> std::string told(const std::vector<stop_t>& stops) {
    std::string text;
    for (const stop_t& stop : stops) {
        text += (text.empty() ? "#" : " #") + std::to_string(stop.id) + " " + std::to_string(stop.address) +
                stop.fault;
    }
    return text;
}

// "KIND WHERE [if CONDITION] [hits HITS] [log TEXT]", several with ';' in between.
template <typename stop_t> std::vector<stop_t> parse_stops(std::istream& words) {
    std::vector<stop_t> wanted;
    std::string text;
    while (std::getline(words >> std::ws, text, ';')) {
        stop_t stop;
        const auto cut = [&](const std::string& name) {
            const size_t begin = text.find(" " + name + " ");
            const std::string part = begin < text.size() ? text.substr(begin + name.size() + 2) : "";
            text.resize(std::min(begin, text.size()));
            return part;
        };
        if constexpr (std::is_same_v<stop_t, breakpoint_t>) {
            stop.log = cut("log");
        }
        stop.hits = cut("hits");
        stop.condition = cut("if");
        if constexpr (std::is_same_v<stop_t, breakpoint_t>) {
            stop.address = address_of_line(session_places(), folder / "program.k", std::stoi(text)).address;
        } else {
            const std::string kinds = "r w x c ";
            stop.kind = static_cast<access_kind_e>(kinds.find(text.substr(0, 2)) / 2);
            stop.address = address_of_text(text.substr(2));
        }
        wanted.push_back(stop);
    }
    return wanted;
}

std::string stack() {
    std::string text;
    for (const frame_t& frame : session_frames()) {
        text += (text.empty() ? "" : ", ") + frame.subroutine + "@" + std::to_string(frame.address);
    }
    return text;
}

std::string variables() {
    std::string text;
    for (const variable_t& variable : session_variables()) {
        text += (text.empty() ? "" : " ") + variable.name + ":" + std::to_string(variable.count) +
                (variable.changed ? "*" : "");
    }
    return text;
}

std::string obey(const std::string& line) {
    std::istringstream words(line);
    std::string command;
    std::string argument;
    words >> command;
    constexpr const char* MOTIONS[] = {"continue", "in", "over", "out", "to", "back", "back-over", "reverse"};
    for (size_t i = 0; i < std::size(MOTIONS); ++i) {
        if (command == MOTIONS[i]) {
            words >> argument;
            return go(static_cast<motion_e>(i), argument.empty() ? -1 : std::stoi(argument));
        }
    }
    if (command == "breakpoints") {
        return told(session_set_breakpoints("program.k", parse_stops<breakpoint_t>(words)));
    }
    if (command == "watch") {
        return told(session_set_watches(parse_stops<watch_t>(words)));
    }
    if (command == "stack") {
        return stack();
    }
    if (command == "variables") {
        return variables();
    }
    words >> argument;
    if (command == "goto") {
        session_go_to(std::stoull(argument));
        return place();
    }
    if (command == "pc") {
        session_set_pc(std::stoi(argument));
        return place();
    }
    if (command == "set") {
        int32_t value = 0;
        words >> value;
        session_set_word(address_of_text(argument), value);
        return place();
    }
    try {
        return session_evaluate(line.substr(2));
    } catch (const tovik_error& error) {
        return error.message;
    }
}

struct exchange_t {
    const char* command;
    const char* answer;
};

class session : public testing::Test {
  protected:
    void SetUp() override {
        session_log = [](const std::string& text) { said += text + "\n"; };
    }
    void TearDown() override {
        session_end();
        std::filesystem::remove_all(folder);
    }
};

TEST_F(session, answers_each_command) {
    constexpr exchange_t EXCHANGES[] = {
        {"? i", "7 (0x7)"},
    };
    session_begin({.program = write("program.k", PROGRAM), .limit = 40, .switches = 0x41, .script = {}});
    for (const auto& [command, answer] : EXCHANGES) {
        EXPECT_EQ(obey(command), answer) << command;
    }
}

// As a run without a window does it: at each look those that are due.
TEST_F(session, plays_a_script_like_a_run_without_a_debugger) {
    const std::string program = write("counter.k", COUNTER);
    const std::string script = write("script", "0 press a\n"
                                               "99999 type \"xy\"\n"
                                               "100000 switch 17 on\n"
                                               "250000 stop\n");
    session_begin({.program = program, .limit = {}, .script = script});
    record_t straight;
    record_t debugged;
    EXPECT_EQ(obey("continue"), "halt at 0 ");
}

} // namespace
