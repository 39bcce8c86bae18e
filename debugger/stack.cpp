// The calls that have not returned. Nobody follows them while the program runs: when someone asks, it is
// looked up in the past who used each return word last. Most were used just now; the farther back, the fewer
// words are still sought, and the faster it is executed again.

#include <algorithm>
#include <set>
#include <utility>

#include "base/machine.h"
#include "core/instructions.h"
#include "debugger/session_state.h"

namespace session {
namespace {

constexpr moment_t FIRST_STRETCH = 1000;
constexpr moment_t STRETCH_GROWS = 4;
constexpr moment_t LONG_STRETCH = 1000000;     // it may as well begin at a copy of the board
constexpr moment_t LONGEST_STRETCH = 20000000; // so that little is lost when it is given up
constexpr size_t MOST_USES = 1000;             // of each word

using words_sought_t = std::set<int32_t>;

// An instruction that is executed next, unless the user sets another.
struct upcoming_t {
    moment_t moment = 0;
    int32_t pc = -1; // -1: none of the sought
    words_t words{};
};

struct looking_t {
    const words_sought_t* sought = nullptr;
    moment_t end = 0;
    upcoming_t upcoming;
    std::map<int32_t, upcoming_t> newest; // by return word
};

looking_t looking;

int32_t return_word_of(const words_t& words) { return words.opcode == K24_CALL ? words.arg2 : words.arg1; }

void keep_upcoming() {
    const upcoming_t upcoming = std::exchange(looking.upcoming, {});
    if (upcoming.pc >= 0 && upcoming.moment < history_now()) {
        looking.newest[return_word_of(upcoming.words)] = upcoming;
    }
}

void look_at_next() {
    keep_upcoming();
    if (!whole_in_memory(machine.pc) || history_now() >= looking.end) {
        return;
    }
    const words_t words = words_at(machine.pc);
    if ((words.opcode == K24_CALL || words.opcode == K24_RET) &&
        looking.sought->contains(return_word_of(words))) {
        looking.upcoming = {history_now(), machine.pc, words};
    }
}

stops_t stops_at_uses(const words_sought_t& sought) {
    stops_t question;
    question.at_breakpoint = [] {
        look_at_next();
        return false;
    };
    for (int32_t pc = 0; pc <= MEMORY_SIZE - WORDS_PER_INSTRUCTION; ++pc) {
        const words_t words = words_at(pc);
        if ((words.opcode == K24_CALL || words.opcode == K24_RET) && sought.contains(return_word_of(words))) {
            question.breakpoints.set(static_cast<size_t>(pc));
        }
    }
    return question;
}

// Executes a stretch of the past again and keeps the newest use of each word that is sought. Returns whether
// the progress has let it.
way_t<bool> look_through(moment_t begin, moment_t end, const words_sought_t& sought, progress_t progress) {
    // Who does not want to wait at all gets no board that has moved.
    if (progress && !progress(0)) {
        co_return false;
    }
    const progress_t way_there = [&](double /*share*/) { return !progress || progress(0); };
    if (!co_await history_go_to(begin, way_there)) {
        co_return false;
    }
    const stops_t question = stops_at_uses(sought);
    const other_stops_t others(question);
    act_done = [](int32_t /*written*/) { look_at_next(); };
    looking = {.sought = &sought, .end = end, .upcoming = {}, .newest = {}};
    look_at_next(); // nobody asks where a run begins
    if (!co_await history_repeat(end, progress)) {
        co_return false;
    }
    keep_upcoming();
    co_return true;
}

// The words of the calls in memory.
words_sought_t return_words() {
    words_sought_t words;
    for (int32_t pc = 0; pc <= MEMORY_SIZE - WORDS_PER_INSTRUCTION; ++pc) {
        if (machine.memory[pc] == K24_CALL && in_memory(words_at(pc).arg2)) {
            words.insert(words_at(pc).arg2);
        }
    }
    return words;
}

// The last use of a word before a moment, if it is known, with the moment just behind it.
std::optional<std::pair<moment_t, use_t>> known_use(int32_t word, moment_t moment) {
    const std::map<moment_t, use_t>& uses = state.uses[word];
    const auto after = uses.upper_bound(moment);
    if (after == uses.begin() || std::prev(after)->second.until < moment) {
        return std::nullopt;
    }
    return *std::prev(after);
}

void note_use(int32_t word, moment_t behind, const use_t& use) {
    std::map<moment_t, use_t>& uses = state.uses[word];
    if (uses.size() >= MOST_USES) {
        uses.erase(uses.begin());
    }
    use_t& known = uses.try_emplace(behind, use).first->second;
    known.until = std::max(known.until, use.until);
}

// Makes known the last use of each word before a moment. Returns whether the progress has let it.
way_t<bool> find_uses(moment_t moment, words_sought_t sought, progress_t progress) {
    const moment_t first = history_first();
    moment_t begin = moment;
    const auto is_known = [&](int32_t word) {
        const auto known = known_use(word, begin);
        if (known) {
            note_use(word, known->first, {moment, known->second.call, known->second.target});
        }
        return known.has_value();
    };
    // What has been looked through in vain, until it was given up, need not be again.
    const auto skip_vain = [&] {
        const vain_t& vain = state.vain;
        if (begin > vain.from && begin <= vain.until &&
            std::includes(vain.words.begin(), vain.words.end(), sought.begin(), sought.end())) {
            begin = vain.from;
        }
        std::erase_if(sought, is_known);
    };
    skip_vain();
    for (moment_t length = FIRST_STRETCH; !sought.empty() && begin > first;
         length = std::min(length * STRETCH_GROWS, LONGEST_STRETCH)) {
        const moment_t end = begin;
        begin = end - std::min(length, end - first);
        if (length >= LONG_STRETCH) {
            begin = history_copy_until(begin);
        }
        const auto of_all = [&](double done) {
            const double way = static_cast<double>(moment - end) + done * static_cast<double>(end - begin);
            return progress(way / static_cast<double>(moment - first));
        };
        const progress_t of_stretch = progress ? progress_t(of_all) : nullptr;
        if (!co_await look_through(begin, end, sought, of_stretch)) {
            state.vain = {sought, end, moment};
            co_return false;
        }
        for (const auto& [word, use] : looking.newest) {
            const bool is_call = use.words.opcode == K24_CALL;
            note_use(word, use.moment + 1, {moment, is_call ? use.pc : -1, is_call ? use.words.arg1 : -1});
            sought.erase(word);
        }
        skip_vain();
    }
    for (const int32_t word : sought) {
        note_use(word, first, {.until = moment});
    }
    co_return true;
}

// The last use of a word of those before a moment, and the moment just behind it.
struct last_use_t {
    moment_t behind;
    call_t call; // `address` is -1 when it was none
};

// The newest first.
std::vector<last_use_t> last_uses(const words_sought_t& words, moment_t moment) {
    std::vector<last_use_t> uses;
    for (const int32_t word : words) {
        if (const auto known = known_use(word, moment)) {
            uses.push_back({known->first, {known->second.call, known->second.target, word}});
        }
    }
    std::sort(uses.begin(), uses.end(),
              [](const last_use_t& one, const last_use_t& other) { return one.behind > other.behind; });
    return uses;
}

void cut_off(std::vector<call_t>& stack, int32_t return_word) {
    stack.erase(std::find_if(stack.begin(), stack.end(),
                             [=](const call_t& call) { return call.return_word == return_word; }),
                stack.end());
}

// Those that may be under way, the outermost first: whose last use was their call.
std::vector<call_t> open_calls(const words_sought_t& words, moment_t moment) {
    std::vector<call_t> calls;
    for (const last_use_t& use : last_uses(words, moment)) {
        if (use.call.address >= 0) {
            calls.insert(calls.begin(), use.call);
        }
    }
    return calls;
}

// Programs that leave subroutines with branches are followed so many calls back, beside those under way.
constexpr int DEEPEST = 3;

// The stack at a moment; none when the progress has said that it is enough. The board is afterwards at any
// moment.
way_t<std::optional<std::vector<call_t>>> find_stack(moment_t moment, const words_sought_t& words, int depth,
                                                     progress_t progress) {
    if (!co_await find_uses(moment, words, progress)) {
        co_return std::nullopt;
    }
    const std::vector<last_use_t> uses = last_uses(words, moment);
    std::vector<call_t> stack;
    for (const last_use_t& use : uses) {
        const moment_t call_moment = use.behind - 1;
        if (use.call.address < 0) {
            continue;
        }
        if (!co_await find_uses(call_moment, words, progress)) {
            co_return std::nullopt;
        }
        // It is over if one that was under way then has been used since.
        const auto is_used_since = [&](const call_t& other) {
            return std::any_of(uses.begin(), uses.end(), [&](const last_use_t& later) {
                return later.behind > use.behind && later.call.return_word == other.return_word;
            });
        };
        std::vector<call_t> under_way = open_calls(words, call_moment);
        if (depth > 0 && std::any_of(under_way.begin(), under_way.end(), is_used_since)) {
            std::optional<std::vector<call_t>> known =
                co_await find_stack(call_moment, words, depth - 1, progress);
            if (!known) {
                co_return std::nullopt;
            }
            under_way = std::move(*known);
        }
        cut_off(under_way, use.call.return_word);
        if (std::none_of(under_way.begin(), under_way.end(), is_used_since)) {
            stack.insert(stack.begin(), use.call);
        }
    }
    co_return stack;
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

void forget_uses_after(moment_t moment) {
    state.vain.until = std::min(state.vain.until, moment);
    for (auto& [word, uses] : state.uses) {
        uses.erase(uses.upper_bound(moment), uses.end());
        for (auto& [behind, use] : uses) {
            use.until = std::min(use.until, moment);
        }
    }
}

} // namespace session

using namespace session;

way_t<std::vector<frame_t>> session_frames(progress_t progress) {
    const moment_t here = history_now();
    const words_sought_t words = return_words();
    const std::optional<std::vector<call_t>> found = co_await find_stack(here, words, DEEPEST, progress);
    co_await history_go_to(here);
    const bool is_known = found.has_value();
    const std::vector<call_t> stack = is_known ? *found : guess_stack();
    std::vector<frame_t> frames;
    int32_t address = machine.pc;
    for (size_t i = stack.size(); i > 0; --i) {
        const call_t& call = stack[i - 1];
        frames.push_back({address, name_of(call.target), call.return_word, !is_known});
        address = call.address;
    }
    frames.push_back({.address = address, .subroutine = "", .return_word = -1, .guessed = !is_known});
    co_return frames;
}
