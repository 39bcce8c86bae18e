#pragma once

// What the files of the session share: `session` begins and ends it and has the user's acts, `breakpoints`
// the places to stop and the questions that are asked there, `motions` the ways forward and back, `searches`
// looks into the past, `stack` the calls, `variables` the values.

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "core/script.h"
#include "core/stops.h"
#include "debugger/session.h"

namespace session {

// ---- Where to stop

// The moments at which a place was met, for counts that hold after going back, too. Only the newest are kept.
struct hits_t {
    enum class kind_e : uint8_t { ALL, ONE, FROM, EACH };
    kind_e kind = kind_e::ALL;
    uint64_t number = 0;
    std::deque<moment_t> met;
    uint64_t forgotten = 0;
};

using log_part_t = std::variant<std::string, expression_t>;

struct stop_place_t {
    breakpoint_t told;
    std::string file; // empty for one by address
    std::optional<expression_t> condition;
    hits_t hits;
    std::vector<log_part_t> log;
    int32_t next = -1; // that has the same address
};

struct data_stop_t {
    watch_t told;
    std::optional<expression_t> condition;
    hits_t hits;
    int32_t value = 0;     // as it was last seen
    bool detailed = false; // every instruction is looked at, because it is no mere write to a word
    bool accessed = false; // by the instruction at machine.pc
};

// ---- The motion

struct motion_t {
    motion_e kind = motion_e::CONTINUE;
    bool going = false;
    bool paused = false;
    int32_t target = -1;      // where to stop, beside the breakpoints
    int32_t return_word = -1; // which must then hold the target; -1: no matter
    moment_t before = 0;      // where a way back began
    moment_t frontier = 0;    // how far it has come
};

// A meeting with places to stop.
struct meeting_t {
    moment_t moment = 0;
    std::vector<int> ids;
    bool is_watch = false;
    bool is_target = false;
    bool by_write = false; // so that nobody has asked yet what is at the next instruction
    std::string description;
};

struct call_t {
    int32_t address; // of the call
    int32_t target;
    int32_t return_word;
};

// The last use of a return word before all moments until one.
struct use_t {
    moment_t until = 0;
    int32_t call = -1; // where it was called; -1 for a return, or nobody since the history began
    int32_t target = -1;
};

// A stretch of the past in which nobody has used some return words.
struct vain_t {
    std::set<int32_t> words;
    moment_t from = 0;
    moment_t until = 0;
};

struct state_t {
    bool begun = false;
    std::optional<uint64_t> limit;
    std::vector<event_t> events;
    std::optional<moment_t> script_stop; // where the script's "stop" takes effect
    places_t places;
    int next_id = 1;
    std::vector<stop_place_t> breakpoints;
    std::vector<int32_t> first_at; // index of the first breakpoint at each address, or -1
    std::vector<data_stop_t> watches;
    bool detailed = false; // one of the watches is
    motion_t motion;
    meeting_t met;   // since the last piece began
    size_t work = 0; // that the questions have made since then, about in steps of expressions
    bool collecting =
        false; // the past is searched: nothing stops, and `met` is the last meeting before `before`
    session_stop_t last;
    std::map<int32_t, std::map<moment_t, use_t>> uses; // of return words, and from just behind each
    vain_t vain;
    std::vector<int32_t> memory_before; // as it was when the run last stopped
    std::vector<int32_t> registers_before;
};

extern state_t state;

// ---- breakpoints

// The stops of the session, and the motion's, come into force.
void put_stops();

// The board has got where it is on another way than by running: what watches know of the words is read anew.
void settle_watches();

// Going back, what was met later is forgotten.
void forget_hits_after(moment_t moment);

// Who asks so much in a piece ends it, so that one who waits for it gets his turn.
constexpr size_t MOST_WORK = 1000000;

// Asks what the engine asks where a run does not begin.
bool ask_here();

// ---- searches

// The instruction at pc reads or writes an address.
struct accesses_t {
    bool reads = false;
    bool writes = false;
};
accesses_t accesses_of(int32_t pc, int32_t address);

// While it lives these stops are in force, and afterwards the others again.
class other_stops_t {
  public:
    explicit other_stops_t(const stops_t& others);
    other_stops_t(const other_stops_t&) = delete;
    other_stops_t& operator=(const other_stops_t&) = delete;
    ~other_stops_t();

  private:
    const stops_t* before_;
};

// Whoever looks at the past hears of what the user did there, too: of a word that he wrote, or -1.
extern std::function<void(int32_t written)> act_done;

// ---- stack

void forget_uses_after(moment_t moment);

// ---- variables

// What session_changed compares with.
void remember_values();

expression_t parse(const std::string& text);

} // namespace session
