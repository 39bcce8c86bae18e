#include "debugger/history.h"

#include <algorithm>
#include <cassert>
#include <deque>
#include <utility>

#include "base/files.h"
#include "base/machine.h"
#include "core/stops.h"
#include "debugger/checkpoints.h"
#include "host/clock.h"
#include "host/journal.h"
#include "host/storage_past.h"

namespace {

// How far apart copies are, in the time that the board runs: far enough that they take little of the time,
// near enough that the way from one to the next is short.
constexpr uint64_t LEAST_US_BETWEEN_COPIES = 15000;
constexpr uint64_t COPIES_SHARE = 20; // one part of so many is for copies

// Pieces in which the board runs, in instructions: the clock is looked at after each.
constexpr int32_t PIECE = 200000;

// A longer stretch of the past has at least one copy in it.
constexpr moment_t LONGEST_STRETCH = 20000000;

// After how long, about, a way pauses. Where every instruction is looked at, little is done then.
constexpr uint64_t US_BETWEEN_PAUSES = 2000;
constexpr moment_t FEWEST_BETWEEN_PAUSES = 1000;
constexpr moment_t PIECE_GROWS = 4;

// A stretch that takes longer to search is searched in parts, so that whoever asks it stretch by stretch gets
// his turn.
constexpr uint64_t MOST_SEARCH_US = 100000;
constexpr moment_t FIRST_LONGEST_SEARCH = 500000;

// No copies are made for a shorter way.
constexpr moment_t SHORT_WAY = 100000;

// So much of the room is for what came from outside.
constexpr size_t JOURNALS_SHARE = 3; // one part of so many

struct act_t {
    moment_t moment;
    std::function<void()> act;
};

struct history_t {
    size_t most_bytes = MOST_HISTORY_BYTES;
    moment_t offset = 0; // of moments against the instruction count, which Reset sets to 0
    moment_t newest = 0;
    std::deque<act_t> acts;
    uint32_t acts_forgotten = 0;
    uint64_t ran_us = 0;  // since the last copy was made
    uint64_t copy_us = 0; // that the last copy took
    moment_t longest_search = FIRST_LONGEST_SEARCH;
};

history_t history;

moment_t now() { return machine.instr_count + history.offset; }

uint32_t acts_done() { return journal_mark().acts - history.acts_forgotten; }

bool act_is_due() { return acts_done() < history.acts.size() && history.acts[acts_done()].moment <= now(); }

bool at_newest() { return now() == history.newest && acts_done() == history.acts.size(); }

void perform(const std::function<void()>& act) {
    const moment_t moment = now();
    journal_count_act();
    try {
        act();
    } catch (...) {
        history.offset = moment - machine.instr_count;
        throw;
    }
    history.offset = moment - machine.instr_count;
}

// What failed then fails again.
void perform_again() {
    try {
        perform(history.acts[acts_done()].act);
    } catch (const tovik_error&) {
    }
}

// What came from outside takes, about: what an act holds cannot be seen.
size_t outside_size() {
    constexpr size_t HELD = 160;
    return journal_size() + storage_size() + history.acts.size() * (sizeof(act_t) + HELD);
}

void forget_oldest() {
    const size_t most = history.most_bytes / JOURNALS_SHARE;
    while (outside_size() > most && checkpoint_count() > 2) {
        drop_checkpoints_before(*checkpoint_after(oldest_checkpoint()));
        const marks_t marks = oldest_marks();
        journal_forget_before(marks.journal);
        storage_forget_before(marks.storage);
        for (; history.acts_forgotten < marks.journal.acts; ++history.acts_forgotten) {
            history.acts.pop_front();
        }
    }
}

void thin() {
    const size_t others = outside_size();
    thin_checkpoints(history.most_bytes - std::min(others, history.most_bytes), now());
}

void copy() {
    const uint64_t begin = stopwatch_us();
    take_checkpoint(now());
    history.copy_us = stopwatch_us() - begin;
    history.ran_us = 0;
    forget_oldest();
    thin();
}

void copy_if_due() {
    if (history.ran_us >= std::max(LEAST_US_BETWEEN_COPIES, history.copy_us * COPIES_SHARE)) {
        copy();
    }
}

// A turn in which the run loop sees that nothing runs counts there, and is no part of the board's way.
pass_t run_piece(int32_t most) {
    simulator.step = -1;
    simulator.running = true;
    const uint64_t begin = machine.instr_count;
    const auto look = static_cast<uint64_t>(machine.loop_look);
    pass_t pass = simulate_pass(most);
    pass.idle = !simulator.running;
    machine.loop_look = static_cast<int32_t>((look + machine.instr_count - begin) % TURNS_PER_LOOK);
    return pass;
}

// How many instructions take about the time between two pauses, judged by the last piece.
moment_t next_piece(moment_t piece, uint64_t took_us) {
    const moment_t better = piece * US_BETWEEN_PAUSES / std::max<uint64_t>(took_us, 1);
    return std::clamp(better, FEWEST_BETWEEN_PAUSES, std::min<moment_t>(piece * PIECE_GROWS, PIECE));
}

// Executes the past up to a moment, with what the user did on the way and there. Copies of what lies just
// before it are made: who goes to a moment mostly goes on from there backwards.
way_t<bool> repeat_until(moment_t end, bool with_copies, progress_t progress) {
    const moment_t begin = now();
    moment_t piece = FEWEST_BETWEEN_PAUSES;
    const auto goes_on = [&] {
        return !progress || progress(static_cast<double>(now() - begin) / static_cast<double>(end - begin));
    };
    for (;;) {
        while (act_is_due()) {
            perform_again();
        }
        if (now() >= end || machine.halted) {
            break;
        }
        moment_t most = end - now();
        if (with_copies && most > SHORT_WAY) {
            most = most / 2;
        }
        if (acts_done() < history.acts.size()) {
            most = std::min(most, history.acts[acts_done()].moment - now());
        }
        const moment_t target = now() + std::min(most, LONGEST_STRETCH);
        while (now() < target && !machine.halted) {
            co_await pause_t{};
            if (!goes_on()) {
                co_return false;
            }
            const uint64_t begin_us = stopwatch_us();
            run_piece(static_cast<int32_t>(std::min(target - now(), piece)));
            piece = next_piece(piece, stopwatch_us() - begin_us);
        }
        if (with_copies && end - now() > SHORT_WAY / 2) {
            co_await pause_t{};
            take_checkpoint(now());
        }
    }
    co_return true;
}

void check_files() {
    if (const std::optional<std::string> name = storage_changed()) {
        throw tovik_error("can't go back: " + *name + " has been changed by another program");
    }
}

void restore(moment_t copy_moment) {
    restore_checkpoint(copy_moment);
    history.offset = copy_moment - machine.instr_count;
}

// With a copy of it there is no long way back to the newest moment, and nothing half done is lost.
void leave_newest() {
    if (at_newest()) {
        if (now() > 0) {
            drop_checkpoints_after(now() - 1);
        } else {
            clear_checkpoints();
        }
        take_checkpoint(now());
    }
}

void settle_present() { journal_go_to(journal_mark(), at_newest()); }

// However a way ends, the journal knows whether it has led to the newest moment.
class settling_t {
  public:
    settling_t() = default;
    settling_t(const settling_t&) = delete;
    settling_t& operator=(const settling_t&) = delete;
    ~settling_t() { settle_present(); }
};

// While the past is repeated, nobody's stops are in force.
class without_stops_t {
  public:
    without_stops_t() : controls_(simulator), stops_(std::exchange(stops, nullptr)) {
        simulator.breakpoint = -1;
        simulator.watchpoint = -1;
        simulator.verbose = false;
    }
    without_stops_t(const without_stops_t&) = delete;
    without_stops_t& operator=(const without_stops_t&) = delete;
    ~without_stops_t() {
        simulator.breakpoint = controls_.breakpoint;
        simulator.watchpoint = controls_.watchpoint;
        simulator.verbose = controls_.verbose;
        stops = stops_;
    }

  private:
    simulator_t controls_;
    const stops_t* stops_;
};

// Goes to the last copy before the end of a stretch, after making some on the way where it is a long one.
// Returns false when the progress has said so.
way_t<bool> begin_search_before(moment_t end, progress_t progress) {
    const moment_t begin = *checkpoint_until(end - 1);
    restore(begin);
    if (end - begin > history.longest_search) {
        const without_stops_t quiet;
        if (!co_await repeat_until(end - 1, true, progress)) {
            co_return false;
        }
        co_await pause_t{};
        thin();
        restore(*checkpoint_until(end - 1));
    }
    co_return true;
}

void adapt_search(uint64_t took_us) {
    if (took_us > MOST_SEARCH_US) {
        history.longest_search = std::max(history.longest_search / 2, SHORT_WAY);
    } else if (took_us < MOST_SEARCH_US / 4) {
        history.longest_search = std::min(history.longest_search * 2, LONGEST_STRETCH);
    }
}

void forget_future(bool card_goes_back) {
    if (at_newest()) {
        return;
    }
    const bool card_stays = !card_goes_back && storage_has_future();
    const int error = storage_cut(card_goes_back);
    if (error != 0) {
        throw tovik_error("can't write the card back: " + system_error_text(error));
    }
    drop_checkpoints_after(now());
    journal_cut();
    while (history.acts.size() > acts_done()) {
        history.acts.pop_back();
    }
    history.newest = now();
    if (card_stays) {
        history_act([mark = storage_mark(), size = storage_card_size()] {
            storage_go_to(mark);
            machine.sd_filesize = machine.sd_file_open ? size : machine.sd_filesize;
        });
    }
}

} // namespace

void history_begin(size_t most_bytes) {
    history = {};
    history.most_bytes = most_bytes;
    history.offset = moment_t{0} - machine.instr_count;
    storage_forget();
    journal_begin();
    clear_checkpoints();
    copy();
}

void history_end() {
    journal_end();
    storage_forget();
    clear_checkpoints();
    history = {};
}

moment_t history_now() { return now(); }

moment_t history_first() { return oldest_checkpoint(); }

moment_t history_newest() { return history.newest; }

pass_t history_run(int32_t most) {
    const bool is_past = !at_newest();
    int32_t piece = std::min(most, PIECE);
    if (is_past) {
        moment_t left = history.newest - now();
        if (acts_done() < history.acts.size()) {
            left = std::min(left, history.acts[acts_done()].moment - now());
        }
        piece = static_cast<int32_t>(std::min<moment_t>(left, static_cast<moment_t>(piece)));
    }
    const uint64_t begin_us = stopwatch_us();
    const pass_t pass = run_piece(piece);
    if (is_past) {
        while (act_is_due()) {
            perform_again();
        }
        settle_present();
    } else {
        history.newest = now();
        history.ran_us += stopwatch_us() - begin_us;
        copy_if_due();
    }
    return pass;
}

bool history_card_has_future() { return storage_has_future(); }

void history_act(std::function<void()> act, bool card_goes_back) {
    forget_future(card_goes_back);
    history.acts.push_back({now(), std::move(act)});
    perform(history.acts.back().act);
}

way_t<bool> history_go_to(moment_t moment, progress_t progress) {
    const moment_t target = std::clamp(moment, history_first(), history.newest);
    if (target == now()) {
        co_return true;
    }
    check_files();
    const without_stops_t quiet;
    leave_newest();
    const settling_t settling;
    const moment_t copy_moment = *checkpoint_until(target);
    if (target < now() || copy_moment > now()) {
        restore(copy_moment);
    }
    const bool arrived = co_await repeat_until(target, true, progress);
    thin();
    co_return arrived;
}

way_t<bool> history_repeat(moment_t end, progress_t progress) {
    const settling_t settling;
    co_return co_await repeat_until(end, false, progress);
}

moment_t history_copy_until(moment_t moment) { return *checkpoint_until(moment); }

way_t<bool> history_search(moment_t before, std::function<bool()> found, progress_t progress,
                           std::function<void()> begins) {
    check_files();
    leave_newest();
    const settling_t settling;
    moment_t end = std::min(before, history.newest);
    bool is_found = false;
    moment_t begin = end;
    // On the way to where a part of the search begins nothing is looked through.
    bool is_on_its_way = true;
    const auto of_all = [&](double share) {
        const double part = is_on_its_way ? 0 : share * static_cast<double>(end - begin);
        return progress((static_cast<double>(before - end) + part) /
                        static_cast<double>(before - history_first()));
    };
    const progress_t of_search = progress ? progress_t(of_all) : nullptr;
    while (!is_found && end > history_first()) {
        is_on_its_way = true;
        co_await pause_t{};
        if (!co_await begin_search_before(end, of_search)) {
            break;
        }
        is_on_its_way = false;
        begin = now();
        const uint64_t begin_us = stopwatch_us();
        if (begins) {
            begins();
        }
        if (!co_await repeat_until(end, false, of_search)) {
            break;
        }
        adapt_search(stopwatch_us() - begin_us);
        is_found = found();
        end = begin;
    }
    co_return is_found;
}

size_t history_size() { return outside_size() + checkpoints_size(); }
