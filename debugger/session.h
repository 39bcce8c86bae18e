#pragma once

// One program under a debugger: where it is to stop, steps forward and back, and what can be looked at.
// Everything is said in addresses, lines and expressions; how a front end asks and shows it is its own
// business.
//
// The board is a single one, so there is one session at a time. Nothing here waits: a run goes on piece by
// piece, as often as the front end calls session_run, and what may take long is a way of debugger/way.h, that
// pauses every few milliseconds. While one is under way the board is at any moment of its past, and nothing
// else may be done with the session.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "debugger/expressions.h"
#include "debugger/history.h"
#include "debugger/places.h"
#include "debugger/way.h"

// ---- Beginning and end

struct session_options_t {
    std::string program;          // NAME.k, assembled first, or NAME.mif
    std::optional<int64_t> limit; // instructions
    int32_t switches = 0;
    uint64_t seed = 1;
    std::optional<std::string> script; // as tovik-run has it
};

// Assembles and loads the program, and begins its history. What device files are chosen is the front end's
// business. Throws tovik_error with what is wrong; the session has then not begun.
void session_begin(const session_options_t& options);
void session_end();

[[nodiscard]] const places_t& session_places();

// ---- Where to stop

// How often a breakpoint lets the program pass, counted from when it was set, and only where its condition
// holds: "5" stops the fifth time, ">= 5" from then on, "% 5" each fifth time. Going back, what was counted
// later does not count; of the newest million that is known exactly. A condition that has no value, as with a
// division by zero, stops.
struct breakpoint_t {
    int id = 0;           // given by the session
    int32_t address = -1; // of an instruction; -1: not in the program
    std::string condition;
    std::string hits;
    std::string log;   // a text with {expressions}: it is shown, and nothing stops
    std::string fault; // why it can never be met: a condition that cannot be parsed; else empty
};

// Replace all breakpoints of one kind; each gets an id, those that stay as they are keep theirs.
std::vector<breakpoint_t> session_set_breakpoints(const std::string& file, std::vector<breakpoint_t> wanted);
std::vector<breakpoint_t> session_set_address_breakpoints(std::vector<breakpoint_t> wanted);

enum class access_kind_e : uint8_t { READ, WRITE, READ_WRITE, CHANGE };

struct watch_t {
    int id = 0;
    int32_t address = 0; // a word of memory, or a port (negative)
    access_kind_e kind = access_kind_e::WRITE;
    std::string condition;
    std::string hits;
    std::string fault;
};

std::vector<watch_t> session_set_watches(std::vector<watch_t> wanted);

// ---- Running

enum class motion_e : uint8_t {
    CONTINUE,
    STEP_IN,   // one instruction
    STEP_OVER, // a call and all until its return
    STEP_OUT,  // until the called code returns; session_step_out begins it
    RUN_TO,    // until an address is reached
    STEP_BACK, // one instruction; with `over` of a return and all since its call
    STEP_BACK_OVER,
    REVERSE_CONTINUE, // to the last stop before, or the beginning of the history
};

// Begins a motion; session_run carries it out.
void session_go(motion_e motion, int32_t address = -1);

// The same for the one that looks for the caller first: if the progress says that it is enough, it is
// guessed.
way_t<> session_step_out(progress_t progress = nullptr);

// The motion ends at the next instruction.
void session_pause();

enum class stop_e : uint8_t {
    NONE, // it still runs
    ENTRY,
    STEP,
    PAUSE,
    BREAKPOINT,
    WATCH,
    HALT,
    FAULT,
    LIMIT,
    BEGINNING, // of the history
};

struct session_stop_t {
    stop_e why = stop_e::NONE;
    std::vector<int> ids;    // of the breakpoints and watches
    std::string description; // of a fault or a watch: all that is known, in sentences
};

// Executes at most about so many instructions of the motion, without a pause; on the way back, one stretch of
// the history: progress is called meanwhile, with its share of the way to the beginning, and when it says
// that it is enough the motion ends as with session_pause. It pauses, too, to look for a reason to stop.
// Returns why it has ended, or NONE; without a motion, why the last one has ended. `wait` is what the program
// waits for at the computer, if it does, see pass_t.
struct session_pass_t {
    session_stop_t stop;
    bool (*wait)(int most_ms) = nullptr;
};
way_t<session_pass_t> session_run(int32_t most, progress_t progress = nullptr);

// Goes to a moment of the history. As history_go_to.
way_t<bool> session_go_to(moment_t moment, progress_t progress = nullptr);

// The next instruction is the one at an address: an act of the user's.
void session_set_pc(int32_t address);

// The user does something else at the board: an act. Throws what the act throws, and tovik_error while a
// motion searches the past.
void session_act(std::function<void()> what);

// Asked before an act in the past that leaves behind what the SD card got later: whether the card goes back,
// too, or stays as it is. What this throws comes out of the act, and nothing has changed. Without anybody to
// ask it goes back.
extern std::function<bool()> session_card_goes_back;

// ---- Looking

struct frame_t {
    int32_t address;          // the next instruction of the innermost, the call of the others
    std::string subroutine;   // the label that was called; empty for the main program
    int32_t return_word = -1; // where the call keeps its return address; -1 for the main program
    bool guessed = false;     // nobody has looked whether it was called from there
};

// The innermost first. Made of the calls and returns since the history began: a subroutine is there when the
// last that used its return word was its call, and when none that was under way then has returned or been
// called again since, as happens when it is left with a branch. The past is executed again from now back to
// the last use of each return word, as far as it is not known from before; when some subroutine was called
// but long ago, that takes its time. Where the program writes call instructions itself they may be missing.
// When the progress has said that it is enough, the callers are guessed from the return words; what was found
// out meanwhile shortens the next way. Throws as history_go_to.
way_t<std::vector<frame_t>> session_frames(progress_t progress = nullptr);

// The label list as variables: a label of one word, or an array that a label begins.
struct variable_t {
    std::string name;
    int32_t address;
    int32_t count = 1;    // words; more than one: an array
    bool changed = false; // since the run last stopped
};

[[nodiscard]] std::vector<variable_t> session_variables();

// Whether a word or a register is not what it was when the run last stopped.
[[nodiscard]] bool session_changed(int32_t address);

// A value in every way: "65 (0x41, 'A')".
[[nodiscard]] std::string shown_value(int32_t value);

// Changes a word of memory, or writes a register as the program would, or turns switches over: an act of the
// user's. Throws tovik_error.
void session_set_word(int32_t address, int32_t value);

// The text for a {log}, or an evaluation in the console: an expression, or "last write LABEL" and "when
// EXPRESSION", which say who wrote a word last and when a condition became true.
way_t<std::string> session_evaluate(std::string text, progress_t progress = nullptr);

struct change_t {
    moment_t moment;      // after the instruction that did it
    int32_t pc;           // of that instruction
    uint64_t count;       // machine.instr_count then
    bool by_user = false; // an act; `pc` is then the instruction that came next
};

// Who wrote a word of memory, or a port, last before now; none when nobody did since the history began. The
// board is afterwards where it was.
way_t<std::optional<change_t>> session_last_write(int32_t address, progress_t progress = nullptr);

// What made an expression true (not 0) last before now; none when it has not become true since the history
// began.
way_t<std::optional<change_t>> session_became_true(expression_t condition, progress_t progress = nullptr);

// Called with each sample that the speaker plays while the program runs, also where it goes through its past
// anew. nullptr: nobody listens.
extern void (*session_played)(int32_t sample);

// Called with the text of each log that is met.
extern std::function<void(const std::string& text)> session_log;
