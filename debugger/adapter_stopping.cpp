// How the program goes on, where it stops and why.

#include <utility>

#include "base/machine.h"
#include "debugger/adapter_internal.h"
#include "host/clock.h"

namespace {

struct reason_text_t {
    stop_e why;
    const char* reason; // of the protocol, where it has one
    const char* description;
};

constexpr reason_text_t REASONS[] = {
    {stop_e::ENTRY, "entry", "At the beginning"},
    {stop_e::STEP, "step", ""},
    {stop_e::PAUSE, "pause", "Paused"},
    {stop_e::BREAKPOINT, "breakpoint", "At a breakpoint"},
    {stop_e::WATCH, "data breakpoint", "At a data breakpoint"},
    {stop_e::HALT, "halt", "Halted"},
    {stop_e::FAULT, "exception", "Stopped by a fault"},
    {stop_e::LIMIT, "limit", "The limit of instructions is reached"},
    {stop_e::BEGINNING, "entry", "At the beginning of the history"},
};

// Editors ask for the callers at each stop, and some cannot show that it takes long.
constexpr uint64_t MOST_US_IN_SILENCE = 2'000'000;

constexpr const char* LOOKS_FOR_CALLER = "Looking for the callers";

json go(adapter_t& adapter, motion_e motion) {
    check_begun(adapter);
    begin_motion(adapter, motion);
    return nullptr;
}

void set_running(adapter_t& adapter) {
    set_phase(adapter, phase_e::RUNNING);
    begin_way(adapter, "Going back");
}

std::string first_line(const std::string& text) { return text.substr(0, text.find('\n')); }

json shown_frame(const adapter_t& adapter, const frame_t& frame, size_t index) {
    const where_t place = where(session_places(), frame.address);
    const std::string name = frame.subroutine.empty() ? "main" : frame.subroutine;
    json shown = {{"id", index + 1},
                  {"name", frame.guessed ? name + "?" : name},
                  {"line", 0},
                  {"column", 0},
                  {"instructionPointerReference", memory_reference(frame.address)}};
    if (place.line > 0) {
        shown["line"] = place.line - 1 + adapter.client.first_line;
        shown["column"] = adapter.client.first_column;
        shown["source"] = source_of(place.file);
        if (const std::string& difference = session_places().difference; !difference.empty()) {
            shown["source"]["origin"] = difference;
            shown["source"]["presentationHint"] = "deemphasize";
        }
    } else {
        shown["name"] = shown["name"].get<std::string>() + ", address " + std::to_string(frame.address);
    }
    return shown;
}

} // namespace

void begin_motion(adapter_t& adapter, motion_e motion) {
    adapter.went_at = history_now();
    session_go(motion);
    set_running(adapter);
}

void tell_stopped(adapter_t& adapter, const char* reason, const std::string& description,
                  const std::vector<int>& ids) {
    tell_what_was_said(adapter);
    tell_lcd(adapter);
    set_phase(adapter, phase_e::STOPPED);
    json body = {{"reason", reason}, {"threadId", THREAD}, {"allThreadsStopped", true}};
    if (!description.empty()) {
        body["description"] = first_line(description);
        body["text"] = description;
    }
    for (const int id : ids) {
        const auto told = adapter.ids.find(id);
        if (told != adapter.ids.end()) {
            body["hitBreakpointIds"].push_back(told->second);
        }
    }
    tell(adapter, "stopped", std::move(body));
    if (history_now() < adapter.went_at) {
        tell_changed(adapter, "all");
    }
}

void tell_stop(adapter_t& adapter, const session_stop_t& stop) {
    adapter.stop = stop;
    if (stop.why == stop_e::BEGINNING && history_first() > 0) {
        adapter.stop.description = "The history begins here, after instruction " +
                                   std::to_string(history_first()) + ": it had no room for more";
    }
    if (adapter.ends_at_halt && (stop.why == stop_e::HALT || stop.why == stop_e::LIMIT)) {
        tell_what_was_said(adapter);
        tell_lcd(adapter);
        end_program(adapter);
        return;
    }
    for (const reason_text_t& text : REASONS) {
        if (text.why == stop.why) {
            tell_stopped(adapter, text.reason,
                         adapter.stop.description.empty() ? text.description : adapter.stop.description,
                         stop.ids);
        }
    }
}

void tell_changed(adapter_t& adapter, const char* area) {
    if (adapter.client.invalidated) {
        tell(adapter, "invalidated", {{"areas", {area}}});
    }
}

json threads(adapter_t& /*adapter*/, const json& /*arguments*/) {
    return {{"threads", {{{"id", THREAD}, {"name", "K24"}}}}};
}

way_t<json> stack_trace(adapter_t& adapter, json arguments) {
    check_stopped(adapter);
    const auto first = static_cast<size_t>(number_in(arguments, "startFrame", 0, INT32_MAX, 0));
    const auto levels = static_cast<size_t>(number_in(arguments, "levels", 0, INT32_MAX, 0));
    going_t going(adapter, LOOKS_FOR_CALLER);
    const uint64_t begin_us = stopwatch_us();
    // Who wants to see only where the program is does not wait until its callers are found.
    const bool only_first = first == 0 && levels == 1;
    const progress_t goes_on = [&](double share) {
        return !only_first && go_on(adapter, share) &&
               (adapter.client.progress || stopwatch_us() - begin_us < MOST_US_IN_SILENCE);
    };
    std::vector<frame_t> frames = co_await session_frames(goes_on);
    // The next instruction would be whatever stands behind the halt.
    if (machine.halted && !frames.empty() && frames.front().address >= WORDS_PER_INSTRUCTION) {
        frames.front().address -= WORDS_PER_INSTRUCTION;
    }
    json shown = json::array();
    for (size_t i = first; i < frames.size() && (levels == 0 || i - first < levels); ++i) {
        shown.push_back(shown_frame(adapter, frames[i], i));
    }
    co_return json({{"stackFrames", shown}, {"totalFrames", frames.size()}});
}

json continue_program(adapter_t& adapter, const json& /*arguments*/) {
    go(adapter, motion_e::CONTINUE);
    return {{"allThreadsContinued", true}};
}

json next_instruction(adapter_t& adapter, const json& /*arguments*/) {
    return go(adapter, motion_e::STEP_OVER);
}

json step_in(adapter_t& adapter, const json& /*arguments*/) { return go(adapter, motion_e::STEP_IN); }

way_t<json> step_out(adapter_t& adapter, json /*arguments*/) {
    check_begun(adapter);
    adapter.went_at = history_now();
    {
        going_t going(adapter, LOOKS_FOR_CALLER);
        co_await session_step_out(going.progress());
    }
    set_running(adapter);
    co_return nullptr;
}

// Line by line a call behind is gone over, instruction by instruction it is gone into.
json step_back(adapter_t& adapter, const json& arguments) {
    const bool into = text_in(arguments, "granularity", "statement") == "instruction";
    return go(adapter, into ? motion_e::STEP_BACK : motion_e::STEP_BACK_OVER);
}

json reverse_continue(adapter_t& adapter, const json& /*arguments*/) {
    return go(adapter, motion_e::REVERSE_CONTINUE);
}

json pause_program(adapter_t& adapter, const json& /*arguments*/) {
    check_launched(adapter);
    if (adapter.phase != phase_e::RUNNING) {
        throw refused_t{"the program does not run"};
    }
    session_pause();
    return nullptr;
}

json goto_targets(adapter_t& adapter, const json& arguments) {
    check_launched(adapter);
    const std::string file = text_in(member(arguments, "source"), "path");
    const auto line =
        static_cast<int32_t>(number_in(arguments, "line", adapter.client.first_line, HIGHEST_LINE));
    const line_address_t found =
        address_of_line(session_places(), file, line + 1 - adapter.client.first_line);
    json targets = json::array();
    if (found.address >= 0) {
        // The numbers of targets must not be 0 everywhere.
        targets.push_back({{"id", found.address + 1},
                           {"label", shown(where(session_places(), found.address))},
                           {"line", found.line - 1 + adapter.client.first_line},
                           {"instructionPointerReference", memory_reference(found.address)}});
    }
    return {{"targets", targets}};
}

json goto_target(adapter_t& adapter, const json& arguments) {
    check_begun(adapter);
    session_set_pc(static_cast<int32_t>(number_in(arguments, "targetId", 1, MEMORY_SIZE) - 1));
    tell_stopped(adapter, "goto", "");
    return nullptr;
}

json exception_info(adapter_t& adapter, const json& /*arguments*/) {
    check_stopped(adapter);
    if (adapter.stop.why != stop_e::FAULT) {
        throw refused_t{"no fault has stopped the program"};
    }
    // Clients show both, one below the other.
    const std::string& text = adapter.stop.description;
    const std::string id = first_line(text);
    return {{"exceptionId", id},
            {"description", id == text ? text : text.substr(id.size() + 1)},
            {"breakMode", "always"},
            {"details", {{"message", text}}}};
}

// What a request does at once has been given up when this is taken, or is done.
json cancel(adapter_t& adapter, const json& arguments) {
    const std::string way = text_in(arguments, "progressId", "");
    if (adapter.phase == phase_e::RUNNING && !way.empty() && way == adapter.way.id) {
        session_pause();
    }
    return nullptr;
}
