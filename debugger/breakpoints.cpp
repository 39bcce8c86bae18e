// Where a session stops, and what is asked there.

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include "base/arithmetic.h"
#include "base/machine.h"
#include "base/text.h"
#include "core/engine.h"
#include "core/instructions.h"
#include "debugger/ports.h"
#include "debugger/session_state.h"
#include "devices/io.h"

std::function<void(const std::string& text)> session_log = [](const std::string& /*text*/) {};

namespace session {
namespace {

constexpr size_t MOST_HITS_KEPT = 1000000;

// What is done beside an expression, in steps of one.
constexpr size_t WATCH_WORK = 5;
constexpr size_t LOG_WORK = 500;

// The record that is in force, if there is anything to stop at. The engine is told of each change.
stops_t in_force;

hits_t parse_hits(const std::string& text) {
    hits_t hits;
    std::string_view rest = text;
    const auto skip_blanks = [&] { rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size())); };
    rest = rest.substr(0, rest.find_last_not_of(' ') + 1);
    skip_blanks();
    if (rest.empty()) {
        return hits;
    }
    hits.kind = hits_t::kind_e::ONE;
    for (const auto& [sign, kind] :
         {std::pair{std::string_view(">="), hits_t::kind_e::FROM}, {"%", hits_t::kind_e::EACH}}) {
        if (rest.starts_with(sign)) {
            hits.kind = kind;
            rest.remove_prefix(sign.size());
        }
    }
    skip_blanks();
    const std::optional<int64_t> number = parse_number(rest, 1, INT64_MAX);
    if (!number) {
        throw tovik_error("'" + text + "' is no number of hits, such as 5, >= 5 or % 5");
    }
    hits.number = static_cast<uint64_t>(*number);
    return hits;
}

std::vector<log_part_t> parse_log(const std::string& text) {
    std::vector<log_part_t> parts;
    size_t begin = 0;
    while (begin < text.size()) {
        const size_t open = std::min(text.find('{', begin), text.size());
        parts.emplace_back(text.substr(begin, open - begin));
        const size_t close = text.find('}', open);
        if (open < text.size() && close == std::string::npos) {
            throw tovik_error("a '{' in the text has no '}'");
        }
        if (open < text.size()) {
            parts.emplace_back(parse(text.substr(open + 1, close - open - 1)));
        }
        begin = open < text.size() ? close + 1 : open;
    }
    return parts;
}

// Whether an expression is true. One that has no value stops, so that someone sees it.
bool holds(const std::optional<expression_t>& condition) {
    if (!condition) {
        return true;
    }
    state.work += condition->steps.size();
    try {
        return evaluate(*condition) != 0;
    } catch (const tovik_error&) {
        return true;
    }
}

bool is_the_one(const hits_t& hits, uint64_t number) {
    switch (hits.kind) {
    case hits_t::kind_e::ONE:
        return number == hits.number;
    case hits_t::kind_e::FROM:
        return number >= hits.number;
    case hits_t::kind_e::EACH:
        return number % hits.number == 0;
    default:
        return true;
    }
}

// Whether this hit is one at which to stop. What was hit before now, in the past, has its number.
bool counts(hits_t& hits, moment_t moment) {
    if (hits.kind == hits_t::kind_e::ALL) {
        return true;
    }
    const auto known = std::lower_bound(hits.met.begin(), hits.met.end(), moment);
    if (known != hits.met.end() && *known == moment) {
        return is_the_one(hits, hits.forgotten + static_cast<uint64_t>(known - hits.met.begin()) + 1);
    }
    if (state.collecting) {
        return false;
    }
    hits.met.push_back(moment);
    if (hits.met.size() > MOST_HITS_KEPT) {
        hits.met.pop_front();
        ++hits.forgotten;
    }
    return is_the_one(hits, hits.forgotten + hits.met.size());
}

std::string text_of(const std::vector<log_part_t>& parts) {
    std::string text;
    for (const log_part_t& part : parts) {
        if (const auto* const words = std::get_if<std::string>(&part)) {
            text += *words;
            continue;
        }
        try {
            const expression_t& expression = std::get<expression_t>(part);
            state.work += expression.steps.size();
            text += std::to_string(evaluate(expression));
        } catch (const tovik_error& error) {
            text += "(" + error.message + ")";
        }
    }
    return text;
}

// One more place is met, now or later than all before. Returns whether it counts.
bool meet(int id, moment_t moment) {
    if (state.collecting && moment >= state.motion.before) {
        return false;
    }
    if (state.met.moment != moment) {
        state.met = {};
        state.met.moment = moment;
    }
    state.met.ids.push_back(id);
    return true;
}

bool meet_breakpoints(int32_t pc) {
    bool stops_here = false;
    for (int32_t i = state.first_at[static_cast<size_t>(pc)]; i >= 0;) {
        stop_place_t& place = state.breakpoints[static_cast<size_t>(i)];
        i = place.next;
        ++state.work;
        if (!holds(place.condition) || (state.collecting && !place.told.log.empty()) ||
            !counts(place.hits, history_now())) {
            continue;
        }
        if (place.told.log.empty()) {
            stops_here |= meet(place.told.id, history_now());
        } else {
            const std::string text = text_of(place.log);
            state.work += LOG_WORK + text.size();
            session_log(text);
        }
    }
    return stops_here;
}

int32_t value_at(int32_t address) {
    return address >= 0 ? machine.memory[address] : *peek_register(address - IO_BASE);
}

std::string shown_address(int32_t address) {
    if (address < 0) {
        return register_name(address - IO_BASE);
    }
    const std::string label = nearest_label(address, state.places.labels);
    return label.empty() ? "[" + std::to_string(address) + "]" : label;
}

bool meet_watch(data_stop_t& watch, moment_t moment, int32_t before) {
    if (!holds(watch.condition) || !counts(watch.hits, moment) || !meet(watch.told.id, moment)) {
        return false;
    }
    state.met.is_watch = true;
    const int32_t now = watch.value;
    state.met.description +=
        (state.met.description.empty() ? "" : "; ") + shown_address(watch.told.address) +
        (before != now ? " was " + shown_value(before) + " and is now " + shown_value(now)
                       : " is " + shown_value(now));
    return true;
}

// What the instruction that is at machine.pc will do.
void look_ahead() {
    for (data_stop_t& watch : state.watches) {
        if (watch.detailed) {
            const accesses_t accesses = accesses_of(machine.pc, watch.told.address);
            watch.accessed = (watch.told.kind != access_kind_e::WRITE && accesses.reads) ||
                             (watch.told.kind != access_kind_e::READ && accesses.writes);
        }
    }
}

// What the instruction before machine.pc has done. Returns whether to stop.
bool look_back() {
    bool stops_here = false;
    for (data_stop_t& watch : state.watches) {
        if (!watch.detailed) {
            continue;
        }
        const int32_t before = std::exchange(watch.value, value_at(watch.told.address));
        const bool is_met = watch.told.kind == access_kind_e::CHANGE ? watch.value != before : watch.accessed;
        watch.accessed = false;
        stops_here |= is_met && meet_watch(watch, history_now(), before);
    }
    return stops_here;
}

bool target_reached() {
    const motion_t& motion = state.motion;
    return !state.collecting && machine.pc == motion.target &&
           (motion.return_word < 0 || machine.memory[motion.return_word] == motion.target);
}

// While the past is searched, nothing stops.
bool is_tired() { return state.work >= MOST_WORK && !state.collecting; }

bool at_breakpoint() {
    state.work += state.detailed ? state.watches.size() * WATCH_WORK : 0;
    bool stops_here = state.detailed && look_back();
    stops_here |= meet_breakpoints(machine.pc);
    stops_here = stops_here && !state.collecting;
    if (target_reached()) {
        state.met.is_target = true;
        stops_here = true;
    }
    if (state.detailed) {
        look_ahead();
    }
    return stops_here || is_tired();
}

bool at_write(int32_t address, uint64_t count) {
    const moment_t moment = history_now() - machine.instr_count + count;
    bool stops_here = false;
    for (data_stop_t& watch : state.watches) {
        if (watch.told.address != address || watch.detailed || !watch.told.fault.empty()) {
            continue;
        }
        const int32_t before = std::exchange(watch.value, machine.memory[address]);
        if (watch.told.kind != access_kind_e::CHANGE || before != watch.value) {
            stops_here |= meet_watch(watch, moment, before);
        }
    }
    state.work += state.watches.size();
    stops_here |= is_tired();
    state.met.by_write |= stops_here;
    return stops_here && !state.collecting;
}

auto asked_in(const breakpoint_t& one) { return std::tuple(one.address, one.condition, one.hits, one.log); }

auto asked_in(const watch_t& one) { return std::tuple(one.address, one.kind, one.condition, one.hits); }

// Those that are there, in their order, by what they ask.
template <typename stop_t> auto by_question(std::vector<stop_t>& stops_there) {
    std::multimap<decltype(asked_in(stops_there.front().told)), stop_t*> stops_by_question;
    for (stop_t& stop : stops_there) {
        stops_by_question.emplace(asked_in(stop.told), &stop);
    }
    return stops_by_question;
}

void parse_parts(stop_place_t& place) {
    if (place.told.address < 0 || place.told.address >= MEMORY_SIZE) {
        place.told.fault = "there is no instruction";
        return;
    }
    place.log = parse_log(place.told.log);
}

void parse_parts(data_stop_t& watch) {
    const int32_t address = watch.told.address;
    if (address >= MEMORY_SIZE || (address < 0 && !peek_register(address - IO_BASE))) {
        watch.told.fault = "there is neither a word nor a register at this address";
        return;
    }
    watch.detailed = address < 0 || watch.told.kind == access_kind_e::READ ||
                     watch.told.kind == access_kind_e::READ_WRITE ||
                     (watch.condition && watch.condition->reads_others);
}

// One that is there already stays, and is taken out of `old`.
template <typename told_t, typename key_t, typename stop_t>
stop_t made_of(const told_t& told, std::multimap<key_t, stop_t*>& old) {
    const key_t question = asked_in(told);
    if (const auto same = old.lower_bound(question); same != old.end() && same->first == question) {
        stop_t stop = std::move(*same->second);
        old.erase(same);
        return stop;
    }
    stop_t stop;
    stop.told = told;
    stop.told.id = state.next_id++;
    stop.told.fault.clear();
    try {
        if (!told.condition.empty()) {
            stop.condition = parse(told.condition);
        }
        stop.hits = parse_hits(told.hits);
        parse_parts(stop);
    } catch (const tovik_error& error) {
        stop.told.fault = error.message;
    }
    return stop;
}

// Links the breakpoints of each address, in their order.
void find_places() {
    state.first_at.assign(MEMORY_SIZE, -1);
    for (size_t i = state.breakpoints.size(); i > 0; --i) {
        stop_place_t& place = state.breakpoints[i - 1];
        if (place.told.fault.empty()) {
            place.next = std::exchange(state.first_at[static_cast<size_t>(place.told.address)],
                                       static_cast<int32_t>(i - 1));
        }
    }
}

std::vector<breakpoint_t> set_breakpoints(const std::string& file, const std::vector<breakpoint_t>& wanted) {
    std::vector<stop_place_t> old;
    std::vector<stop_place_t> others;
    for (stop_place_t& place : state.breakpoints) {
        (place.file == file ? old : others).push_back(std::move(place));
    }
    auto there = by_question(old);
    std::vector<stop_place_t> made;
    std::vector<breakpoint_t> told;
    for (const breakpoint_t& breakpoint : wanted) {
        made.push_back(made_of(breakpoint, there));
        made.back().file = file;
        told.push_back(made.back().told);
    }
    others.insert(others.end(), made.begin(), made.end());
    state.breakpoints = std::move(others);
    find_places();
    return told;
}

} // namespace

bool ask_here() { return at_breakpoint(); }

void put_stops() {
    stops_t wanted;
    wanted.at_breakpoint = at_breakpoint;
    wanted.at_write = at_write;
    for (const stop_place_t& place : state.breakpoints) {
        if (place.told.fault.empty()) {
            wanted.breakpoints.set(static_cast<size_t>(place.told.address));
        }
    }
    if (in_memory(state.motion.target)) {
        wanted.breakpoints.set(static_cast<size_t>(state.motion.target));
    }
    state.detailed = false;
    for (const data_stop_t& watch : state.watches) {
        if (watch.told.fault.empty() && watch.detailed) {
            state.detailed = true;
            wanted.breakpoints.set();
        } else if (watch.told.fault.empty()) {
            wanted.watched.set(static_cast<size_t>(watch.told.address));
        }
    }
    const stops_t* const put = wanted.breakpoints.any() || wanted.watched.any() ? &in_force : nullptr;
    if (stops != put || wanted.breakpoints != in_force.breakpoints || wanted.watched != in_force.watched) {
        in_force = wanted;
        stops = put;
        forget_proofs();
    }
}

void settle_watches() {
    for (data_stop_t& watch : state.watches) {
        if (watch.told.fault.empty()) {
            watch.value = value_at(watch.told.address);
        }
    }
    look_ahead();
}

void forget_hits_after(moment_t moment) {
    const auto forget = [&](auto& places) {
        for (auto& place : places) {
            while (!place.hits.met.empty() && place.hits.met.back() > moment) {
                place.hits.met.pop_back();
            }
        }
    };
    forget(state.breakpoints);
    forget(state.watches);
}

} // namespace session

using namespace session;

std::vector<breakpoint_t> session_set_breakpoints(const std::string& file, std::vector<breakpoint_t> wanted) {
    return set_breakpoints(file, wanted);
}

std::vector<breakpoint_t> session_set_address_breakpoints(std::vector<breakpoint_t> wanted) {
    return set_breakpoints("", wanted);
}

std::vector<watch_t> session_set_watches(std::vector<watch_t> wanted) {
    auto there = by_question(state.watches);
    std::vector<data_stop_t> made;
    std::vector<watch_t> told;
    for (const watch_t& watch : wanted) {
        made.push_back(made_of(watch, there));
        told.push_back(made.back().told);
    }
    state.watches = std::move(made);
    settle_watches();
    return told;
}
