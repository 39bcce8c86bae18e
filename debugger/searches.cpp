// Questions to the past: who wrote a word last, and when something became true.

#include <utility>

#include "base/arithmetic.h"
#include "base/machine.h"
#include "core/engine.h"
#include "core/instructions.h"
#include "debugger/session_state.h"

namespace session {

std::function<void(int32_t written)> act_done;

// Where indices lead is known before the instruction is executed: nothing comes in between.
accesses_t accesses_of(int32_t pc, int32_t address) {
    if (!whole_in_memory(pc)) {
        return {};
    }
    const auto [opcode, arg1, arg2, arg3] = words_at(pc);
    const bool is_copy = opcode == K24_CPFA || opcode == K24_CPTA;
    const int32_t element = is_copy && in_memory(arg3) ? wrap_add(arg2, machine.memory[arg3]) : INT32_MAX;
    accesses_t accesses;
    accesses.reads = (reads_left(opcode) && arg2 == address) || (reads_right(opcode) && arg3 == address) ||
                     (opcode == K24_RET && arg1 == address) || (opcode == K24_CPTA && arg1 == address) ||
                     (opcode == K24_CPFA && element == address);
    accesses.writes = ((computes(opcode) || opcode == K24_CPFA) && arg1 == address) ||
                      (opcode == K24_CALL && arg2 == address) || (opcode == K24_CPTA && element == address);
    return accesses;
}

other_stops_t::other_stops_t(const stops_t& others) : before_(std::exchange(stops, &others)) {
    forget_proofs();
}

other_stops_t::~other_stops_t() {
    stops = before_;
    forget_proofs();
    act_done = nullptr;
}

namespace {

struct search_t {
    int32_t address = 0;
    const expression_t* condition = nullptr;
    bool before = false; // the condition, or whether the instruction at machine.pc writes the port
    std::optional<moment_t> last;
    bool by_user = false;
};

search_t search;

void find(moment_t moment, bool by_user = false) {
    search.last = moment;
    search.by_user = by_user;
}

moment_t moment_of(uint64_t count) { return history_now() - machine.instr_count + count; }

bool is_true() {
    try {
        return evaluate(*search.condition) != 0;
    } catch (const tovik_error&) {
        return false;
    }
}

void look_at_condition(moment_t moment, bool by_user = false) {
    const bool now = is_true();
    if (now && !search.before) {
        find(moment, by_user);
    }
    search.before = now;
}

// Looks through the past until now, the newest first, and comes back. Returns whether something was found.
way_t<bool> search_past(const stops_t& question, std::function<void()> begins,
                        std::function<void(int32_t)> user_has, progress_t progress) {
    const moment_t here = history_now();
    const std::function<bool()> found = [] { return search.last.has_value(); };
    bool is_found = false;
    {
        const other_stops_t others(question);
        act_done = std::move(user_has);
        is_found = co_await history_search(here, found, progress, begins);
    }
    if (!is_found) {
        search.last.reset();
    }
    co_await history_go_to(here);
    co_return is_found;
}

// As search_past, with what was done at the moment that was found.
way_t<std::optional<change_t>> look_for_change(const stops_t& question, std::function<void()> begins,
                                               std::function<void(int32_t)> user_has, progress_t progress) {
    const moment_t here = history_now();
    if (!co_await search_past(question, begins, user_has, progress)) {
        co_return std::nullopt;
    }
    change_t change = {.moment = *search.last, .pc = -1, .count = 0, .by_user = search.by_user};
    co_await history_go_to(change.moment);
    change.count = machine.instr_count;
    if (!change.by_user) {
        co_await history_go_to(change.moment - 1);
    }
    change.pc = machine.pc;
    co_await history_go_to(here);
    co_return change;
}

void look_for_writes_to_word(stops_t& question) {
    question.watched.set(static_cast<size_t>(search.address));
    question.at_write = [](int32_t /*address*/, uint64_t count) {
        find(moment_of(count));
        return false;
    };
}

void look_ahead() { search.before = accesses_of(machine.pc, search.address).writes; }

void look_for_writes_to_port(stops_t& question) {
    question.breakpoints.set();
    question.at_breakpoint = [] {
        if (search.before) {
            find(history_now());
        }
        look_ahead();
        return false;
    };
}

} // namespace
} // namespace session

using namespace session;

way_t<std::optional<change_t>> session_last_write(int32_t address, progress_t progress) {
    if (address >= MEMORY_SIZE) {
        co_return std::nullopt;
    }
    search = {};
    search.address = address;
    stops_t question;
    if (address >= 0) {
        look_for_writes_to_word(question);
    } else {
        look_for_writes_to_port(question);
    }
    const std::function<void()> begins = look_ahead;
    const std::function<void(int32_t)> user_has = [](int32_t written) {
        if (written == search.address) {
            find(history_now(), true);
        }
        look_ahead();
    };
    co_return co_await look_for_change(question, begins, user_has, progress);
}

way_t<std::optional<change_t>> session_became_true(expression_t condition, progress_t progress) {
    search = {};
    search.condition = &condition;
    stops_t question;
    if (condition.reads_others) {
        question.breakpoints.set();
        question.at_breakpoint = [] {
            look_at_condition(history_now());
            return false;
        };
    } else {
        for (const int32_t word : condition.words) {
            question.watched.set(static_cast<size_t>(word));
        }
        question.at_write = [](int32_t /*address*/, uint64_t count) {
            look_at_condition(moment_of(count));
            return false;
        };
    }
    const std::function<void()> begins = [] { search.before = is_true(); };
    const std::function<void(int32_t)> user_has = [](int32_t /*written*/) {
        look_at_condition(history_now(), true);
    };
    co_return co_await look_for_change(question, begins, user_has, progress);
}
