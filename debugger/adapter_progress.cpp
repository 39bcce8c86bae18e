// Long ways through the history: the client is told how far they have come, and can give them up.

#include <algorithm>
#include <utility>

#include "debugger/adapter_internal.h"
#include "host/clock.h"

namespace {

// Shorter ways are not worth telling of, and a bar need not move more often.
constexpr uint64_t LEAST_US = 500'000;
constexpr uint64_t US_BETWEEN_UPDATES = 250'000;

json event(const adapter_t& adapter, const char* name, json body) {
    body["progressId"] = adapter.way.id;
    return {{"type", "event"}, {"event", name}, {"body", std::move(body)}};
}

// What is told on the way comes before the answer.
void tell_on_the_way(adapter_t& adapter, json message) {
    adapter.messages.push_back(std::move(message));
    adapter.answer_at = adapter.messages.size();
}

void tell_progress(adapter_t& adapter, double share) {
    constexpr double PERCENT = 100;
    way_told_t& way = adapter.way;
    const uint64_t now_us = stopwatch_us();
    const bool is_due =
        way.id.empty() ? now_us - way.began_us >= LEAST_US : now_us - way.told_us >= US_BETWEEN_UPDATES;
    if (!adapter.client.progress || !is_due) {
        return;
    }
    way.told_us = now_us;
    json body = {{"percentage", static_cast<int>(share * PERCENT)}};
    if (!way.id.empty()) {
        tell_on_the_way(adapter, event(adapter, "progressUpdate", std::move(body)));
        return;
    }
    way.id = "way " + std::to_string(adapter.next_way++);
    body["title"] = way.title;
    body["cancellable"] = true;
    if (adapter.phase != phase_e::RUNNING) {
        body["requestId"] = way.request;
    }
    tell_on_the_way(adapter, event(adapter, "progressStart", std::move(body)));
}

// Whether a message that waits is reason enough to give up the way.
bool interrupts(const adapter_t& adapter, const json& message) {
    const json& command = member(message, "command");
    if (command == "cancel") {
        const json& arguments = member(message, "arguments");
        const json& way = member(arguments, "progressId");
        return way.is_null() ? member(arguments, "requestId") == adapter.way.request : way == adapter.way.id;
    }
    return command == "pause" || command == "disconnect" || command == "terminate" || command == "restart";
}

} // namespace

going_t::going_t(adapter_t& adapter, const char* title) : adapter_(adapter) { begin_way(adapter, title); }

going_t::~going_t() { end_way(adapter_); }

progress_t going_t::progress() {
    return [this](double share) { return go_on(adapter_, share); };
}

void going_t::check() const {
    if (adapter_.way.given_up) {
        throw refused_t{"cancelled", refusal_e::CANCELLED};
    }
}

void begin_way(adapter_t& adapter, const char* title) {
    adapter.way = {};
    adapter.way.title = title;
    adapter.way.request = adapter.request;
    adapter.way.began_us = stopwatch_us();
}

bool go_on(adapter_t& adapter, double share) {
    tell_progress(adapter, share);
    adapter.way.given_up |=
        adapter.gone || std::any_of(adapter.waiting.begin(), adapter.waiting.end(),
                                    [&](const json& message) { return interrupts(adapter, message); });
    return !adapter.way.given_up;
}

void end_way(adapter_t& adapter) {
    if (!adapter.way.id.empty()) {
        adapter.messages.push_back(event(adapter, "progressEnd", json::object()));
    }
    adapter.way = {};
}
