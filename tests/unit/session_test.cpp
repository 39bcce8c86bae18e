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
#include "tests/support/host_standin.h"
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
        be      loop zero zero
        halt
count   .data   0
last    .data   0
one     .data   1
zero    .data   0
)";

const std::filesystem::path folder = testing::TempDir() + "tovik-session-" + std::to_string(getpid()) + "/";

std::string write(const std::string& name, const std::string& text) {
    std::filesystem::create_directories(folder);
    std::ofstream(folder / name) << text;
    return folder / name;
}

// Begins something and then counts for ever.
constexpr const char* NESTED = R"(        call    begin back1
        call    outer back2
outer   call    inner back3
        be      outer zero zero
inner   add     count count one
        ret     back3
begin   cp      begun one
        ret     back1
back1   .data   0
back2   .data   0
back3   .data   0
begun   .data   0
count   .data   0
one     .data   1
zero    .data   0
)";

// Goes back to the beginning out of two calls.
constexpr const char* LEFT = R"(loop    call    outer back1
outer   call    inner back2
inner   be      loop zero zero
back1   .data   0
back2   .data   0
zero    .data   0
)";

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
    if (motion == motion_e::STEP_OUT) {
        finish(session_step_out());
    } else {
        session_go(motion, address);
    }
    for (int32_t most = 3;; most = 70001) {
        // Pieces of odd lengths: where they end must make no difference.
        if (const session_pass_t pass = finish(session_run(most)); pass.stop.why != stop_e::NONE) {
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
            std::string part = begin < text.size() ? text.substr(begin + name.size() + 2) : "";
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

std::string stack(const progress_t& progress = nullptr) {
    std::string text;
    for (const frame_t& frame : finish(session_frames(progress))) {
        text += (text.empty() ? "" : ", ") + frame.subroutine + "@" + std::to_string(frame.address) +
                (frame.guessed ? "?" : "");
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

std::string obeyed(const std::string& line) {
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
    if (command == "guess") {
        return stack([](double /*share*/) { return false; });
    }
    if (command == "variables") {
        return variables();
    }
    words >> argument;
    if (command == "goto") {
        finish(session_go_to(std::stoull(argument)));
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
    return finish(session_evaluate(line.substr(2)));
}

std::string obey(const std::string& line) {
    try {
        std::string answer = obeyed(line);
        const size_t begin = answer.find(folder.string());
        return begin < answer.size() ? answer.erase(begin, folder.string().size()) : answer;
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
        session_log = [](const std::string& text) { said += text + "; "; };
        host_standin.stopwatch_step_us = 20000; // a copy of the board after each piece
    }
    void TearDown() override {
        session_end();
        host_standin = {};
        recording = {};
        std::filesystem::remove_all(folder);
    }
};

TEST_F(session, answers_each_command) {
    constexpr exchange_t EXCHANGES[] = {
        {"? i", "7 (0x7)"},
        {"breakpoints 3 if i == 1 ; 11 hits 2; 6 log i is {i}, {list[i] * 2}; 10; 99; 4 if i +",
         "#1 8 #2 40 #3 20 #4 36 #5 -1there is no instruction #6 12column 4: the expression ends too early"},
        {"continue", "i is 1, 40; breakpoint #1 at 9 loop+4"},
        {"stack", "@8"},
        {"variables", "back:1* i:1* list:3* one:1 sum:1 three:1 value:1* zero:1"},
        {"continue", "breakpoint #2 at 10 double"},
        {"out", "step at 12 loop+8"},
        {"continue", "i is 2, 60; i is 3, 6; fault at 25 loop+28: error at PC 32\ndivision by zero\nloop+28 "
                     "(address 32), program.k:9: div i i zero\nThe divisor, zero (address 55), holds 0. "
                     "Nothing has written it during the run."},
        {"reverse", "breakpoint #2 at 10 double"},
        {"reverse", "breakpoint #1 at 9 loop+4"},
        {"reverse", "beginning at 0 "},
        {"breakpoints 11 hits >= 3; 11 hits 2", "#7 40 #2 40"},
        {"continue", "breakpoint #2 at 10 double"},
        {"reverse", "beginning at 0 "},
        {"breakpoints 11 hits % 2", "#8 40"},
        {"continue", "breakpoint #8 at 10 double"},
        {"breakpoints", ""},
        {"goto 3", "3 double"},
        {"stack", "double@40, @8"},
        {"out", "step at 5 loop+8"},
        {"back-over", "step at 2 loop+4"},
        {"over", "step at 5 loop+8"},
        {"back", "step at 4 double+4"},
        {"in", "step at 5 loop+8"},
        {"over", "step at 6 loop+12"},
        {"over", "step at 7 loop+16"},
        {"goto 15", "15 loop"},
        {"back-over", "step at 14 loop+16"},
        {"to 32", "step at 24 loop+28"},
        {"continue", "fault at 25 loop+28: error at PC 32\ndivision by zero\nloop+28 (address 32), "
                     "program.k:9: div i i zero\nThe divisor, zero (address 55), holds 0. "
                     "Nothing has written it during the run."},
        {"? last write value",
         "double (address 40), program.k:11: double add value value value, instruction 18"},
        {"? last write keyboard.command", "nobody has written it since the history began"},
        {"? last write [0x80000001]", "loop+20 (address 24), program.k:7: cp 0x80000001 i, instruction 23"},
        {"? when i == 2", "after instruction 14, loop+12 (address 16), program.k:5: add i i one"},
        {"? when instructions == 9",
         "after instruction 9, loop (address 4), program.k:2: loop cpfa value list i"},
        {"? when [0x80000001]", "after instruction 23, loop+20 (address 24), program.k:7: cp 0x80000001 i"},
        {"? when one", "it has been true since the history began"},
        {"? when i == 99", "it has not become true since the history began"},
        {"? last write sum", "loop+24 (address 28), program.k:8: cp sum 0x80000000, instruction 24"},
        {"? i +", "column 4: the expression ends too early"},
        {"goto 0", "0 "},
        {"watch w list[1]; c i; r list[0] if pc == 8; w [0x80000001]; w back hits 3; r one hits >= 3; x "
         "[0x80000005]",
         "#9 49 #10 51 #11 48 #12 -2147483647 #13 53 #14 56 #15 -2147483643"},
        {"continue", "watch #10 at 1 loop: i was 7 (0x7) and is now 0 (0x0)"},
        {"continue", "watch #11 at 2 loop+4: list is 10 (0xa)"},
        {"continue", "watch #10 at 7 loop+16: i was 0 (0x0) and is now 1 (0x1)"},
        {"continue", "watch #9 at 13 loop+12: list+1 was 20 (0x14) and is now 40 (0x28, '(')"},
        {"continue", "watch #10 at 14 loop+16: i was 1 (0x1) and is now 2 (0x2)"},
        {"continue", "watch #13 at 17 double: back is 12 (0xc)"},
        {"continue", "watch #10 #14 at 21 loop+16: i was 2 (0x2) and is now 3 (0x3); one is 1 (0x1)"},
        {"continue", "watch #12 at 23 loop+24: red_LEDs was 0 (0x0) and is now 3 (0x3)"},
        {"reverse", "watch #10 #14 at 21 loop+16: i was 2 (0x2) and is now 3 (0x3); one is 1 (0x1)"},
        {"reverse", "watch #13 at 17 double: back is 12 (0xc)"},
        {"reverse", "watch #10 at 14 loop+16: i was 1 (0x1) and is now 2 (0x2)"},
        {"reverse", "watch #9 at 13 loop+12: list+1 was 20 (0x14) and is now 40 (0x28, '(')"},
        {"reverse", "watch #10 at 7 loop+16: i was 0 (0x0) and is now 1 (0x1)"},
        {"reverse", "watch #11 at 2 loop+4: list is 10 (0xa)"},
        {"reverse", "watch #10 at 1 loop: i was 7 (0x7) and is now 0 (0x0)"},
        {"reverse", "beginning at 0 "},
        {"reverse", "beginning at 0 "},
        {"watch", ""},
        {"to 16", "step at 6 loop+12"},
        {"set list[2] -1", "6 loop+12"},
        {"? last write list[2]",
         "the user, before loop+12 (address 16), program.k:5: add i i one, instruction 6"},
        {"? when list[2] == -1", "after instruction 6, by the user"},
        {"to 24", "step at 22 loop+20"},
        {"? list[2]", "-2 (0xfffffffe)"},
        {"? last write list[2]", "loop+8 (address 12), program.k:4: cpta value list i, instruction 20"},
        {"set red_LEDs 1", "22 loop+20"},
        {"set LCD.response 1", "LCD.response can only be read"},
        {"set switches 262144", "there are but 18 switches"},
        {"set switches 1", "22 loop+20"},
        {"? switches", "1 (0x1)"},
        {"? red_LEDs", "1 (0x1)"},
        {"? HEX3_HEX0", "0 (0x0)"},
        {"in", "step at 23 loop+24"},
        {"breakpoints 7", "#16 24"},
        {"back", "step at 22 loop+20"},
        {"set i 5", "22 loop+20"},
        {"continue", "fault at 25 loop+28: error at PC 32\ndivision by zero\nloop+28 (address 32), "
                     "program.k:9: div i i zero\nThe divisor, zero (address 55), holds 0. "
                     "Nothing has written it during the run."},
        {"back", "step at 24 loop+28"},
        {"pc 36", "24 loop+32"},
        {"continue", "halt at 25 double"},
        {"continue", "halt at 25 double"},
        {"? when i == 4", "it has not become true since the history began"},
        {"? when one", "it has been true since the history began"},
        {"pc 55", "25 zero"},
        {"continue",
         "halt at 26 three+2: Halted. The program has come to data at zero (address 55), program.k:20: zero "
         ".data 0."},
        {"pc 40", "26 double"},
        {"continue", "limit at 30 loop+16"},
        {"pc 16384", "there is no instruction at 16384"},
    };
    session_begin({.program = write("program.k", PROGRAM), .limit = 30, .switches = 0x41, .script = {}});
    for (const auto& [command, answer] : EXCHANGES) {
        EXPECT_EQ(obey(command), answer) << command;
    }
}

TEST_F(session, finds_what_was_long_ago) {
    constexpr exchange_t EXCHANGES[] = {
        {"continue", "limit at 6000002 inner+4"},
        {"guess", "inner@20?, outer@8?, @4?"},
        {"stack", "inner@20, outer@8, @4"},
        {"? last write begun", "begin (address 24), program.k:7: begin cp begun one, instruction 2"},
        {"? when begun", "after instruction 2, begin (address 24), program.k:7: begin cp begun one"},
        {"? when count == 1000",
         "after instruction 4002, inner (address 16), program.k:5: inner add count count one"},
        {"breakpoints 8", "#1 28"},
        {"reverse", "breakpoint #1 at 2 begin+4"},
        {"stack", "begin@28, @0"},
        {"out", "step at 3 "},
        {"breakpoints 3 hits 1500000", "#2 8"},
        {"continue", "breakpoint #2 at 6000000 outer"},
        {"? count", "1499999 (0x16e35f)"},
        {"to 0", "limit at 6000002 inner+4"},
        {"goto 4000001", "4000001 inner"},
        {"set begun 5", "4000001 inner"},
        {"breakpoints 3 if count == 1499999", "#3 8"},
        {"continue", "breakpoint #3 at 6000000 outer"},
        {"? when begun == 5", "after instruction 4000001, by the user"},
        {"? last write count",
         "inner (address 16), program.k:5: inner add count count one, instruction 5999998"},
        {"reverse", "beginning at 0 "},
    };
    session_begin({.program = write("program.k", NESTED), .limit = 6000002, .script = {}});
    for (const auto& [command, answer] : EXCHANGES) {
        EXPECT_EQ(obey(command), answer) << command;
    }
}

TEST_F(session, leaves_out_of_the_stack_what_was_left_with_a_branch) {
    constexpr exchange_t EXCHANGES[] = {
        {"to 8", "step at 2 inner"}, {"stack", "inner@8, outer@4, @0"}, {"to 4", "step at 4 outer"},
        {"stack", "outer@4, @0"},    {"to 8", "step at 5 inner"},       {"pc 4", "5 outer"},
        {"in", "step at 6 inner"},   {"stack", "inner@8, outer@4, @0"},
    };
    session_begin({.program = write("left.k", LEFT), .limit = {}, .script = {}});
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
    session_begin({.program = program, .limit = {}, .script = {}});
    session_end();
    const std::vector<event_t> events = read_script(script);
    size_t next = 0;
    recording.at_look = [&] {
        while (next < events.size() && events[next].count <= machine.instr_count) {
            events[next].happen(events[next]);
            ++next;
        }
    };
    recording.at_look();
    simulator.step = -1;
    run_until_stop(simulate_run);
    recording.at_look = [] {};
    record_t straight;
    simulator.step = -1;
    machine.loop_look = 0; // it has counted the turn in which it saw that nothing runs
    straight.take();

    session_begin({.program = program, .limit = {}, .script = script});
    session_go(motion_e::CONTINUE);
    while (finish(session_run(70001)).stop.why == stop_e::NONE) {
    }
    simulator.step = -1;
    simulator.running = false;
    EXPECT_EQ(straight.difference(), "");
    EXPECT_EQ(obey("goto 199998"), "199998 loop");
    EXPECT_EQ(obey("? last"), "0 (0x0)");
    EXPECT_EQ(obey("set [3] 0"), "199998 loop");
    EXPECT_EQ(obey("continue"), "pause at 300000 loop: the script stops the program");
    EXPECT_EQ(obey("? last"), "131072 (0x20000)");
}

} // namespace
