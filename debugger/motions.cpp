// The ways forward and back.

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "base/machine.h"
#include "core/instructions.h"
#include "core/simulate.h"
#include "debugger/reasons.h"
#include "debugger/session_state.h"
#include "devices/audio.h"
#include "host/clock.h"

namespace session {
namespace {

// The first count at or after one at which a run without a debugger looks for what happens at the window.
uint64_t look_at_or_after(uint64_t count) { return count + (TURNS_PER_LOOK - 1 - count % TURNS_PER_LOOK); }

// Those of the very beginning have happened then.
bool is_timed(const event_t& event) { return event.count > 0; }

// How far it is to what has to happen between two instructions.
uint64_t way_to_next(uint64_t most) {
    const uint64_t count = machine.instr_count;
    if (state.limit) {
        most = std::min(most, *state.limit - count);
    }
    if (state.script_stop) {
        most = std::min(most, *state.script_stop - history_now());
    }
    for (const event_t& event : state.events) {
        if (const uint64_t look = look_at_or_after(event.count); is_timed(event) && look > count) {
            return std::min(most, look - count);
        }
    }
    return most;
}

// The script's events of this moment, which nobody has reached before.
void deliver_events() {
    for (const event_t& event : state.events) {
        if (is_timed(event) && look_at_or_after(event.count) == machine.instr_count) {
            simulator.step = -1;
            history_act([event] { event.happen(event); });
            if (simulator.step == 0) {
                state.script_stop = history_now() + 1;
            }
        }
    }
}

session_stop_t stop_for(stop_e why, std::string description = {}) {
    return {.why = why, .ids = state.met.ids, .description = std::move(description)};
}

// Nobody waits longer for a reason.
constexpr uint64_t MOST_SEARCH_US = 500000;

way_t<std::optional<writer_t>> find_writer(int32_t address) {
    const uint64_t begin = stopwatch_us();
    bool gave_up = false;
    const progress_t goes_on = [&](double /*done*/) {
        gave_up = stopwatch_us() - begin >= MOST_SEARCH_US;
        return !gave_up;
    };
    const std::optional<change_t> written = co_await session_last_write(address, goes_on);
    if (gave_up || (written && written->by_user) || (!written && history_first() > 0)) {
        co_return std::nullopt;
    }
    co_return written ? writer_t{written->pc, written->count} : writer_t{NOBODY, 0};
}

// What is told of the board with the help of those who wrote its words. Who asks for one cannot wait until it
// has been found: it is found afterwards, and all is told once more.
way_t<std::string> told_with_writers(std::function<std::string(const last_writer_t&)> tell) {
    std::map<int32_t, std::optional<writer_t>> known;
    for (;;) {
        std::optional<int32_t> wanted;
        std::string text = tell([&](int32_t address) -> std::optional<writer_t> {
            const auto found = known.find(address);
            if (found == known.end()) {
                wanted = address;
                return std::nullopt;
            }
            return found->second;
        });
        if (!wanted) {
            co_return text;
        }
        const std::optional<writer_t> writer = co_await find_writer(*wanted);
        known.emplace(*wanted, writer);
    }
}

way_t<std::string> fault_text() {
    const stop_t stop = {last_stop().reason, last_stop().error}; // looking for a writer changes it
    const auto tell = [&](const last_writer_t& last_writer) {
        return reason_of(state.places, stop, last_writer).text;
    };
    const std::string reason = co_await told_with_writers(tell);
    const std::string place = shown(where(state.places, machine.pc));
    co_return stop.error + (stop.error.ends_with('\n') ? "" : "\n") + place + (reason.empty() ? "" : "\n") +
        reason;
}

way_t<std::string> halt_text() {
    const auto tell = [](const last_writer_t& last_writer) {
        return halt_in_words(state.places, last_writer);
    };
    const std::string reason = co_await told_with_writers(tell);
    co_return reason.empty() ? "" : "Halted. " + reason;
}

session_stop_t stop_before_run() {
    if (machine.halted) {
        return stop_for(stop_e::HALT);
    }
    if (state.motion.paused) {
        return stop_for(stop_e::PAUSE, waiting_in_words(state.places));
    }
    if (state.limit && machine.instr_count >= *state.limit) {
        return stop_for(stop_e::LIMIT, waiting_in_words(state.places));
    }
    if (state.script_stop && *state.script_stop <= history_now()) {
        state.script_stop.reset();
        return stop_for(stop_e::PAUSE, "the script stops the program");
    }
    return {};
}

session_stop_t stop_of_meeting() {
    if (state.met.is_watch) {
        return stop_for(stop_e::WATCH, state.met.description);
    }
    return stop_for(stop_e::BREAKPOINT);
}

bool is_single_step() {
    const motion_e kind = state.motion.kind;
    return kind == motion_e::STEP_IN || (kind == motion_e::STEP_OVER && state.motion.target < 0);
}

session_stop_t stop_after_run(const pass_t& pass) {
    if (pass.idle && machine.halted) {
        return stop_for(stop_e::HALT);
    }
    if (pass.idle && last_stop().reason == stop_reason_e::ERROR) {
        return stop_for(stop_e::FAULT);
    }
    if (state.met.by_write && is_breakpoint(machine.pc)) {
        ask_here();
    }
    const bool is_done = is_single_step() || state.met.is_target;
    if (state.met.is_watch || (!is_done && !state.met.ids.empty())) {
        return stop_of_meeting();
    }
    return is_done ? stop_for(stop_e::STEP) : session_stop_t{};
}

// Nobody hears what is executed on the way to somewhere else.
class hearing_t {
  public:
    hearing_t() { speaker_played = session_played; }
    hearing_t(const hearing_t&) = delete;
    hearing_t& operator=(const hearing_t&) = delete;
    ~hearing_t() { speaker_played = nullptr; }
};

pass_t run_heard(int32_t most) {
    const hearing_t hearing;
    return history_run(most);
}

// What a halt or a fault has to say is still missing.
session_pass_t run_piece(int32_t most) {
    settle_watches();
    state.work = 0;
    while (most > 0 && state.work < MOST_WORK) {
        state.met = {};
        if (const session_stop_t stop = stop_before_run(); stop.why != stop_e::NONE) {
            return {.stop = stop};
        }
        const uint64_t way = is_single_step() ? 1 : way_to_next(static_cast<uint64_t>(most));
        const moment_t newest = history_newest();
        const moment_t before = history_now();
        const pass_t pass = run_heard(static_cast<int32_t>(way));
        most -= static_cast<int32_t>(history_now() - before);
        if (history_newest() > newest) {
            deliver_events();
        }
        if (history_now() > before) {
            if (session_stop_t stop = stop_after_run(pass); stop.why != stop_e::NONE) {
                return {.stop = std::move(stop)};
            }
        }
        if (pass.wait != nullptr) {
            return {.stop = {}, .wait = pass.wait};
        }
    }
    return {};
}

way_t<session_pass_t> run_forward(int32_t most) {
    session_pass_t pass = run_piece(most);
    if (pass.stop.why == stop_e::HALT) {
        pass.stop.description = co_await halt_text();
    } else if (pass.stop.why == stop_e::FAULT) {
        pass.stop.description = co_await fault_text();
    }
    co_return pass;
}

way_t<bool> move_to(moment_t moment, progress_t progress = nullptr) {
    const bool arrived = co_await history_go_to(moment, progress);
    state.script_stop.reset();
    forget_hits_after(history_now());
    settle_watches();
    co_return arrived;
}

// The moment of the call from which the instruction before now, at machine.pc, returns, if it does and the
// call was one.
way_t<std::optional<moment_t>> call_returned_from(moment_t now, progress_t progress) {
    if (!whole_in_memory(machine.pc) || words_at(machine.pc).opcode != K24_RET) {
        co_return std::nullopt;
    }
    const int32_t return_word = words_at(machine.pc).arg1;
    if (!in_memory(return_word)) {
        co_return std::nullopt;
    }
    const int32_t behind = machine.memory[return_word];
    const std::optional<change_t> written = co_await session_last_write(return_word, progress);
    const bool is_call = written && written->moment < now && !written->by_user &&
                         written->pc == behind - WORDS_PER_INSTRUCTION && whole_in_memory(written->pc) &&
                         words_at(written->pc).opcode == K24_CALL;
    co_return is_call ? std::optional(written->moment - 1) : std::nullopt;
}

way_t<session_stop_t> step_back(bool over, progress_t progress) {
    session_stop_t stop;
    const moment_t now = history_now();
    if (now <= history_first()) {
        stop.why = stop_e::BEGINNING;
        co_return stop;
    }
    co_await move_to(now - 1);
    if (over) {
        const std::optional<moment_t> call = co_await call_returned_from(now, progress);
        if (call) {
            co_await move_to(*call);
        }
    }
    stop.why = stop_e::STEP;
    co_return stop;
}

// While it lives, nothing stops and what is met is kept.
struct collecting_t {
    collecting_t() { state.collecting = true; }
    collecting_t(const collecting_t&) = delete;
    collecting_t& operator=(const collecting_t&) = delete;
    ~collecting_t() { state.collecting = false; }
};

// What a share of the way that is left to the beginning of the history is of the whole motion.
double share_of_motion(double share_of_rest) {
    const auto whole = static_cast<double>(state.motion.before - history_first());
    const auto rest = static_cast<double>(state.motion.frontier - history_first());
    return 1 - (1 - share_of_rest) * rest / whole;
}

// Looks through one stretch of the past.
way_t<session_stop_t> search_stretch(progress_t progress) {
    motion_t& motion = state.motion;
    state.met = {};
    if (motion.paused) {
        co_await move_to(motion.frontier);
        co_return stop_for(stop_e::PAUSE);
    }
    if (motion.frontier <= history_first()) {
        co_await move_to(history_first());
        co_return stop_for(stop_e::BEGINNING);
    }
    moment_t begin = motion.frontier;
    {
        const collecting_t collecting;
        const std::function<bool()> found = [] { return true; };
        const std::function<void()> begins = [&] {
            begin = history_now();
            settle_watches();
        };
        const progress_t goes_on = [&](double share) {
            motion.paused |= progress && !progress(share_of_motion(share));
            return !motion.paused;
        };
        if (!co_await history_search(motion.frontier, found, goes_on, begins)) {
            co_return session_stop_t{};
        }
    }
    motion.frontier = begin;
    if (state.met.ids.empty()) {
        co_return session_stop_t{};
    }
    const meeting_t met = state.met;
    if (!co_await move_to(met.moment, progress)) {
        co_return stop_for(stop_e::PAUSE);
    }
    state.met = met;
    co_return stop_of_meeting();
}

way_t<session_pass_t> carry_out(int32_t most, progress_t progress) {
    session_pass_t pass;
    switch (state.motion.kind) {
    case motion_e::STEP_BACK:
        pass.stop = co_await step_back(false, progress);
        break;
    case motion_e::STEP_BACK_OVER:
        pass.stop = co_await step_back(true, progress);
        break;
    case motion_e::REVERSE_CONTINUE:
        pass.stop = co_await search_stretch(progress);
        break;
    default:
        pass = co_await run_forward(most);
        break;
    }
    co_return pass;
}

void aim_over() {
    const int32_t pc = machine.pc;
    if (whole_in_memory(pc) && words_at(pc).opcode == K24_CALL && in_memory(words_at(pc).arg2)) {
        state.motion.target = pc + WORDS_PER_INSTRUCTION;
        state.motion.return_word = words_at(pc).arg2;
    }
}

} // namespace
} // namespace session

using namespace session;

void session_go(motion_e motion, int32_t address) {
    remember_values();
    state.motion = {};
    state.motion.kind = motion;
    state.motion.before = history_now();
    state.motion.frontier = history_now();
    if (motion == motion_e::STEP_OVER) {
        aim_over();
    } else if (motion == motion_e::RUN_TO) {
        state.motion.target = address;
    }
    state.motion.going = true;
}

way_t<> session_step_out(progress_t progress) {
    const std::vector<frame_t> frames = co_await session_frames(progress);
    session_go(motion_e::STEP_OUT);
    if (frames.size() > 1) {
        state.motion.target = frames[1].address + WORDS_PER_INSTRUCTION;
        state.motion.return_word = frames[0].return_word;
    }
}

void session_pause() { state.motion.paused = true; }

way_t<session_pass_t> session_run(int32_t most, progress_t progress) {
    session_pass_t pass;
    if (!state.motion.going) {
        pass.stop = state.last;
        co_return pass;
    }
    put_stops();
    pass = co_await carry_out(most, progress);
    if (pass.stop.why != stop_e::NONE) {
        state.last = pass.stop;
        state.motion = {};
    }
    co_return pass;
}

way_t<bool> session_go_to(moment_t moment, progress_t progress) {
    remember_values();
    state.motion = {};
    co_return co_await move_to(moment, progress);
}
