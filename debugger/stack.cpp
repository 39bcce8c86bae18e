// The calls that have not returned. Nobody follows them while the program runs: when someone asks, the past
// is executed again from the last moment of which the stack is known, and each call and return on the way is
// looked at.

#include <algorithm>
#include <iterator>
#include <utility>

#include "base/machine.h"
#include "core/instructions.h"
#include "debugger/session_state.h"

namespace session {
namespace {

constexpr moment_t MOST_AT_ONCE = 5000000;
constexpr size_t MOST_STACKS = 1000;

// An instruction that is executed next, unless the user sets another.
struct upcoming_t {
    moment_t moment = 0;
    int32_t pc = -1; // -1: it is neither a call nor a return
    words_t words{};
};

struct following_t {
    std::vector<call_t> stack;
    upcoming_t upcoming;
    moment_t end = 0;
};

following_t following;

// A subroutine whose return word is used again cannot return from its first call any more.
void drop_from(int32_t return_word) {
    std::vector<call_t>& stack = following.stack;
    stack.erase(std::find_if(stack.begin(), stack.end(),
                             [&](const call_t& call) { return call.return_word == return_word; }),
                stack.end());
}

void follow_upcoming() {
    const upcoming_t upcoming = std::exchange(following.upcoming, {});
    if (upcoming.pc < 0 || upcoming.moment >= history_now()) {
        return;
    }
    drop_from(upcoming.words.opcode == K24_CALL ? upcoming.words.arg2 : upcoming.words.arg1);
    if (upcoming.words.opcode == K24_CALL) {
        following.stack.push_back({upcoming.pc, upcoming.words.arg1, upcoming.words.arg2});
    }
}

void look_at_next() {
    follow_upcoming();
    if (!whole_in_memory(machine.pc) || history_now() >= following.end) {
        return;
    }
    const words_t words = words_at(machine.pc);
    if (words.opcode == K24_CALL || words.opcode == K24_RET) {
        following.upcoming = {history_now(), machine.pc, words};
    }
}

void add_calls_in_memory(stops_t& question) {
    for (int32_t pc = 0; pc <= MEMORY_SIZE - WORDS_PER_INSTRUCTION; ++pc) {
        if (machine.memory[pc] == K24_CALL || machine.memory[pc] == K24_RET) {
            question.breakpoints.set(static_cast<size_t>(pc));
        }
    }
}

void keep() {
    if (state.stacks.size() >= MOST_STACKS) {
        state.stacks.erase(std::next(state.stacks.begin()));
    }
    state.stacks[history_now()] = following.stack;
}

// Executes on to the end, from a moment whose stack is known. Returns whether it got there.
bool follow_to(moment_t end, const stops_t& question, const progress_t& progress) {
    const other_stops_t others(question);
    act_done = [](int32_t /*written*/) { look_at_next(); };
    following.end = end;
    look_at_next(); // nobody asks where a run begins
    const moment_t begin = history_now();
    moment_t next = begin;
    while (history_now() < end) {
        next = std::min(next + MOST_AT_ONCE, end);
        while (history_now() < next) {
            history_run(static_cast<int32_t>(next - history_now()));
        }
        if (following.upcoming.moment < history_now()) {
            follow_upcoming();
        }
        if (history_now() < end) {
            keep();
        }
        if (progress &&
            !progress(static_cast<double>(history_now() - begin) / static_cast<double>(end - begin))) {
            return history_now() >= end;
        }
    }
    return true;
}

// Makes known the stack at this moment. Returns whether the progress has let it.
bool find_stack(const progress_t& progress) {
    const moment_t here = history_now();
    const auto after = state.stacks.upper_bound(here);
    const auto known = after == state.stacks.begin() ? state.stacks.end() : std::prev(after);
    if (known != state.stacks.end() && known->first == here) {
        return true;
    }
    // What was called before the history began is not known.
    const bool reaches = known != state.stacks.end() && known->first >= history_first();
    following = {};
    following.stack = reaches ? known->second : std::vector<call_t>{};
    stops_t question;
    question.at_breakpoint = [] {
        look_at_next();
        return false;
    };
    add_calls_in_memory(question);
    const bool begins = history_go_to(reaches ? known->first : history_first(), progress);
    add_calls_in_memory(question);
    if (!begins || !follow_to(here, question, progress)) {
        history_go_to(here);
        return false;
    }
    keep();
    return true;
}

// The subroutine in which an address probably is begins where the last call before it leads, and was called
// from where its return word says.
std::optional<call_t> probable_call(int32_t address) {
    std::optional<call_t> probable;
    for (int32_t pc = 0; pc <= MEMORY_SIZE - WORDS_PER_INSTRUCTION; ++pc) {
        const auto [opcode, target, return_word, unused] = words_at(pc);
        if (opcode == K24_CALL && target <= address && in_memory(return_word) &&
            machine.memory[return_word] == pc + WORDS_PER_INSTRUCTION &&
            (!probable || target > probable->target)) {
            probable = {pc, target, return_word};
        }
    }
    return probable;
}

// From the main program on, like one that is known.
std::vector<call_t> guess_stack() {
    std::vector<call_t> stack;
    int32_t address = machine.pc;
    const auto is_new = [&](const call_t& call) {
        return std::none_of(stack.begin(), stack.end(),
                            [&](const call_t& other) { return other.return_word == call.return_word; });
    };
    for (auto call = probable_call(address); call && is_new(*call); call = probable_call(call->address)) {
        stack.insert(stack.begin(), *call);
    }
    return stack;
}

std::string name_of(int32_t address) {
    for (const auto& [name, place] : state.places.labels) {
        if (place == address) {
            return name;
        }
    }
    return nearest_label(address, state.places.labels);
}

} // namespace
} // namespace session

using namespace session;

std::vector<frame_t> session_frames(const progress_t& progress) {
    const bool is_known = find_stack(progress);
    const std::vector<call_t> stack = is_known ? state.stacks[history_now()] : guess_stack();
    std::vector<frame_t> frames;
    int32_t address = machine.pc;
    for (size_t i = stack.size(); i > 0; --i) {
        const call_t& call = stack[i - 1];
        frames.push_back({address, name_of(call.target), call.return_word, !is_known});
        address = call.address;
    }
    frames.push_back({.address = address, .subroutine = "", .return_word = -1, .guessed = !is_known});
    return frames;
}
