#pragma once

// The Debug Adapter Protocol for a K24 program: messages in, messages out, and a run in pieces. It has no
// input, output or threads of its own: whoever carries the messages calls it.
//
// A program begins with the request `launch` and is then a session of debugger/session.h. What is not in the
// protocol, the board with its lamps, keys and screen, has requests and an event of its own:
// docs/tovik-dap.md.
//
// The board's addresses count words. Addresses in the protocol count bytes, in `memoryReference` and
// `instructionReference`: word N is the bytes 4 N to 4 N + 3, the lowest one first.

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "debugger/session.h"

enum class phase_e : uint8_t {
    STARTED,     // before `initialize`
    INITIALIZED, // before `launch`
    LAUNCHED,    // before `configurationDone`
    STOPPED,
    RUNNING,
    ENDED, // there is no program any more
};

struct client_says_t {
    int first_line = 1;
    int first_column = 1;
    bool invalidated = false; // takes the event of this name
    bool progress = false;    // and these
};

// What the front end has been told of the board.
struct board_told_t {
    bool wanted = false;
    bool sound = false;
    bool screen = true;
    uint64_t at_us = 0; // of the last event
    nlohmann::json members = nlohmann::json::object();
};

// A request that has set breakpoints, and the numbers that these have for the client.
struct breakpoints_told_t {
    nlohmann::json arguments{};
    std::vector<int> ids{};
};

// A long way through the history, as the client is told of it.
struct way_told_t {
    std::string title{};
    int64_t request = 0; // the number of the one that leads there
    uint64_t began_us = 0;
    uint64_t told_us = 0; // the last time; 0 for never
    std::string id{};     // once it has been told
    bool given_up = false;
};

struct adapter_t {
    std::string version{};

    // The time of what the loudspeaker has asked for so far, in microseconds from anywhere: where there is
    // one, it sets the pace of the board's own speed, and not the clock.
    std::optional<uint64_t> speaker_us{};

    uint64_t piece_us = 8'000; // how long a piece of a run, or of a long way, is to take

    bool gone = false; // nobody reads any more: long ways are given up
    bool over = false; // the client has disconnected, and the program that carries the messages is to end

    // The adapter's own.
    phase_e phase = phase_e::STARTED;
    client_says_t client{};
    int64_t next_seq = 1;
    int64_t request = 0; // the number of the last
    way_told_t way{};
    int next_way = 1;
    std::deque<nlohmann::json> waiting{};   // messages that have come while something was under way
    std::vector<nlohmann::json> messages{}; // to be sent
    size_t answer_at = 0;                   // where among them the answer to the last request comes
    nlohmann::json launch{};                // the arguments of this request, for `restart`
    bool ends_at_halt = false;
    std::optional<double> speed{};        // in instructions a second; none: as fast as possible
    std::optional<bool> card_goes_back{}; // with a change in the past; none: the user is asked
    std::optional<bool> card_answer{};    // his answer, for the next change
    session_stop_t stop{};                // where it has stopped
    std::map<std::string, breakpoints_told_t> breakpoints{}; // by file
    breakpoints_told_t address_breakpoints{};
    breakpoints_told_t watches{};
    std::map<int, int> ids{}; // from the session's numbers to those, which outlive it
    int next_id = 1;
    board_told_t board{};
    std::string lcd_told{};
    std::string lcd_seen{}; // the last time, and since when
    uint64_t lcd_seen_us = 0;
    std::set<std::string> sources_told{};
    moment_t went_at = 0;                // where the board was when it last went on
    std::optional<std::string> wanted{}; // what the program waits for, as the client has been told
    int32_t piece = 0;                   // instructions
    uint64_t piece_at_us = 0;            // when the last one began; 0 for none
    uint64_t paced_us = 0;               // when the board's clock and its instructions agreed; 0 for not yet
    moment_t paced_moment = 0;           // and where it was then
    bool (*wait)(int most_ms) = nullptr; // for what the last piece waits

    // A request, or a piece of the run, that is not at its end. The last member: when it is dropped, it still
    // finds the others.
    std::optional<way_t<>> under_way{};
};

// Whether the board is at any moment of its past, on the way to somewhere else: it is not to be shown.
[[nodiscard]] bool adapter_is_on_its_way(const adapter_t& adapter);

// Takes a message, and returns those to be sent. A message that cannot be understood or carried out has the
// answer that it failed; nothing that comes ends the adapter.
//
// What leads a long way through the history is only begun, and adapter_run goes on with it. Messages that
// come meanwhile wait for its end; one that asks for an end or a pause, or cancels the way, has it given up.
[[nodiscard]] std::vector<std::string> adapter_take(adapter_t& adapter, std::string_view message);

// What is to be done after a piece of a run.
struct adapter_pass_t {
    std::vector<std::string> messages; // to be sent

    // After how many milliseconds to call it again, unless a message comes before; none while nothing runs.
    std::optional<int> next_ms;

    // What the program waits for at the computer: until this returns true. It waits so many milliseconds at
    // most. Else nullptr.
    bool (*wait)(int most_ms) = nullptr;
};

// Goes on with what runs or is under way, for about piece_us; to be called after messages, too. `now_us` is
// the time on a clock that never goes back, in microseconds from anywhere.
[[nodiscard]] adapter_pass_t adapter_run(adapter_t& adapter, uint64_t now_us);
