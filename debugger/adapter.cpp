#include "debugger/adapter.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <utility>
#include <variant>

#include "base/machine.h"
#include "debugger/adapter_internal.h"
#include "debugger/front.h"
#include "host/capture.h"
#include "host/clock.h"
#include "host/line.h"
#include "host/sound.h"

namespace {

// What may take long is gone as a way.
using handler_t = std::variant<json (*)(adapter_t&, const json&), way_t<json> (*)(adapter_t&, json)>;

struct request_t {
    std::string_view command;
    handler_t handle;
};

const request_t REQUESTS[] = {
    {"initialize", initialize},
    {"launch", launch},
    {"attach", attach},
    {"configurationDone", configuration_done},
    {"restart", restart},
    {"terminate", terminate_program},
    {"disconnect", disconnect},
    {"setBreakpoints", set_breakpoints},
    {"setInstructionBreakpoints", set_instruction_breakpoints},
    {"setExceptionBreakpoints", set_exception_breakpoints},
    {"dataBreakpointInfo", data_breakpoint_info},
    {"setDataBreakpoints", set_data_breakpoints},
    {"threads", threads},
    {"stackTrace", stack_trace},
    {"continue", continue_program},
    {"next", next_instruction},
    {"stepIn", step_in},
    {"stepOut", step_out},
    {"stepBack", step_back},
    {"reverseContinue", reverse_continue},
    {"pause", pause_program},
    {"gotoTargets", goto_targets},
    {"goto", goto_target},
    {"exceptionInfo", exception_info},
    {"cancel", cancel},
    {"scopes", scopes},
    {"variables", variables},
    {"setVariable", set_variable},
    {"setExpression", set_expression},
    {"evaluate", evaluate_text},
    {"completions", completions},
    {"disassemble", disassemble},
    {"readMemory", read_memory},
    {"writeMemory", write_memory},
    {"source", source},
    {"loadedSources", loaded_sources},
    {"tovik/switch", board_switch},
    {"tovik/key", board_key},
    {"tovik/pointer", board_pointer},
    {"tovik/serial", board_serial},
    {"tovik/microphone", board_microphone},
    {"tovik/camera", board_camera},
    {"tovik/record", board_record},
    {"tovik/saveRecording", save_recording},
    {"tovik/speed", set_speed},
    {"tovik/answer", answer_question},
    {"tovik/card", board_card},
    {"tovik/goTo", go_to_moment},
    {"tovik/history", history_bounds},
    {"tovik/lastWrite", last_write},
};

void check_phase(const adapter_t& adapter, std::string_view command) {
    const bool begins = command == "initialize";
    if (adapter.phase == phase_e::STARTED && !begins && command != "disconnect") {
        throw refused_t{"initialize comes first"};
    }
    if (adapter.phase != phase_e::STARTED && begins) {
        throw refused_t{"initialize has been done"};
    }
}

way_t<json> handle(adapter_t& adapter, std::string command, json arguments) {
    check_phase(adapter, command);
    const auto* const request = std::find_if(std::begin(REQUESTS), std::end(REQUESTS),
                                             [&](const request_t& one) { return one.command == command; });
    if (request == std::end(REQUESTS)) {
        throw refused_t{"there is no request " + command};
    }
    if (!arguments.is_object() && !arguments.is_null()) {
        throw refused_t{"the arguments are not an object"};
    }
    if (arguments.is_null()) {
        arguments = json::object();
    }
    if (const auto* const short_one = std::get_if<0>(&request->handle)) {
        co_return (*short_one)(adapter, arguments);
    }
    co_return co_await std::get<1>(request->handle)(adapter, arguments);
}

// All kinds have the one form, which clients might translate.
json failure(json response, const std::string& message, refusal_e kind = refusal_e::GENERAL) {
    response["success"] = false;
    response["message"] = message;
    response["body"]["error"] = {{"id", static_cast<int>(kind)},
                                 {"format", "{text}"},
                                 {"variables", {{"text", message}}},
                                 {"showUser", kind != refusal_e::CANCELLED}};
    return response;
}

// The board has said it.
std::string text_of_host_failure() {
    return front.messages.empty() ? "the computer fails" : front.messages.back().text;
}

way_t<json> answer(adapter_t& adapter, json response, std::string command, json arguments) {
    try {
        json good = response;
        good["success"] = true;
        json body = co_await handle(adapter, command, arguments);
        if (!body.is_null()) {
            good["body"] = std::move(body);
        }
        co_return good;
    } catch (const refused_t& error) {
        co_return failure(response, error.message, error.kind);
    } catch (const tovik_error& error) {
        co_return failure(response, error.message);
    } catch (const host_failure_t&) {
        co_return failure(response, text_of_host_failure());
    } catch (const std::exception& error) {
        co_return failure(response, error.what());
    }
}

constexpr bool NO_EXCEPTIONS = false;

constexpr double BOARD_SPEED = 1e9 / NS_PER_INSTRUCTION;

json parse_message(std::string_view text) {
    constexpr int DEEPEST = 100; // what copies a value does it by recursion
    bool too_deep = false;
    const auto keep = [&](int depth, json::parse_event_t /*event*/, json& /*value*/) {
        too_deep |= depth > DEEPEST;
        return !too_deep;
    };
    json message = json::parse(text, keep, NO_EXCEPTIONS);
    return too_deep ? json(json::value_t::discarded) : message;
}

// Carries a message out. The answer comes before what the request leads to.
way_t<> take(adapter_t& adapter, json message) {
    json response = {{"type", "response"}, {"request_seq", 0}, {"command", ""}};
    if (message.is_discarded()) {
        adapter.messages.push_back(failure(response, "this is not JSON, or too deep"));
        co_return;
    }
    const json& type = member(message, "type");
    if (type == "response" || type == "event") {
        co_return;
    }
    const json& seq = member(message, "seq");
    const json& command = member(message, "command");
    response["request_seq"] = seq.is_number_integer() ? seq : json(0);
    if (type != "request" || !command.is_string() || !seq.is_number_integer()) {
        adapter.messages.push_back(
            failure(response, "a request has the type request, a number seq and a command"));
        co_return;
    }
    response["command"] = command;
    adapter.request = seq;
    adapter.answer_at = adapter.messages.size();
    json answered = co_await answer(adapter, response, command, member(message, "arguments"));
    adapter.messages.insert(adapter.messages.begin() + static_cast<std::ptrdiff_t>(adapter.answer_at),
                            std::move(answered));
}

// Goes on with what is under way, for about the time of a piece.
void go_on_with_way(adapter_t& adapter) {
    const uint64_t begin_us = stopwatch_us();
    while (!adapter.under_way->go_on()) {
        if (stopwatch_us() - begin_us >= adapter.piece_us) {
            return;
        }
    }
    way_t<> ended = std::move(*adapter.under_way);
    adapter.under_way.reset();
    ended.result();
}

void begin(adapter_t& adapter, way_t<> way) {
    adapter.under_way.emplace(std::move(way));
    go_on_with_way(adapter);
}

// Each when those before it have been carried out.
void take_waiting(adapter_t& adapter) {
    while (!adapter.under_way && !adapter.waiting.empty() && !adapter.over) {
        json message = std::move(adapter.waiting.front());
        adapter.waiting.pop_front();
        begin(adapter, take(adapter, std::move(message)));
    }
}

// ---- The run

constexpr int32_t FIRST_PIECE = 200'000;
constexpr double FIRST_US = 30'000;
constexpr int32_t LEAST_PIECE = 1000;
constexpr int32_t MOST_PIECE = 20'000'000;

// A front end that has slept gets no more than this at once.
constexpr double MOST_BEHIND_US = 500'000;

// So long that it takes about the time of a piece, judged by the last one.
void adapt_piece(adapter_t& adapter, uint64_t now_us) {
    if (adapter.piece_at_us != 0) {
        const uint64_t took = std::max<uint64_t>(now_us - adapter.piece_at_us, 1);
        const double better = static_cast<double>(adapter.piece) * static_cast<double>(adapter.piece_us) /
                              static_cast<double>(took);
        adapter.piece = static_cast<int32_t>(
            std::clamp(better, static_cast<double>(LEAST_PIECE),
                       std::min(static_cast<double>(MOST_PIECE), static_cast<double>(adapter.piece) * 2)));
    } else {
        adapter.piece = FIRST_PIECE;
    }
    adapter.piece_at_us = now_us;
}

constexpr double US_PER_SECOND = 1'000'000;

// At least one, of a speed in instructions a second.
int64_t instructions_in(double speed, double us) {
    return std::max<int64_t>(std::llround(speed * us / US_PER_SECOND), 1);
}

// How many instructions the clock is ahead of them.
int64_t owed(adapter_t& adapter, double speed, uint64_t clock_us) {
    const moment_t now = history_now();
    const bool is_new = adapter.paced_us == 0 || now < adapter.paced_moment || clock_us < adapter.paced_us;
    if (!is_new) {
        const double due = static_cast<double>(clock_us - adapter.paced_us) * speed / US_PER_SECOND;
        const int64_t behind = static_cast<int64_t>(due) - static_cast<int64_t>(now - adapter.paced_moment);
        if (behind <= instructions_in(speed, MOST_BEHIND_US)) {
            return behind;
        }
    }
    adapter.paced_us = clock_us;
    adapter.paced_moment = now;
    return std::min<int64_t>(FIRST_PIECE, instructions_in(speed, FIRST_US));
}

struct awaited_t {
    bool (*wait)(int most_ms);
    std::string_view name;
};

// What comes by itself when the computer has it.
constexpr awaited_t STREAMS[] = {
    {record_ready, "microphoneStream"}, {capture_settled, "cameraStream"}, {line_ready, "line"}};

std::string_view name_of_awaited(bool (*wait)(int)) {
    if (wait == front_answers) {
        return question_titled(front.wanted).argument;
    }
    const auto* const stream = std::find_if(std::begin(STREAMS), std::end(STREAMS),
                                            [&](const awaited_t& one) { return one.wait == wait; });
    return stream == std::end(STREAMS) ? "" : stream->name;
}

void tell_wanted(adapter_t& adapter, bool (*wait)(int)) {
    const std::string_view wanted = name_of_awaited(wait);
    if (front.waits && adapter.wanted != wanted) {
        adapter.wanted = wanted;
        tell(adapter, "tovik/wanted", {{"question", wanted.empty() ? json() : json(wanted)}});
    }
}

session_pass_t failed_pass(std::string description) {
    session_pass_t pass;
    pass.stop.why = stop_e::FAULT;
    pass.stop.description = std::move(description);
    return pass;
}

way_t<session_pass_t> pass_of_session(adapter_t& adapter, int32_t most) {
    const progress_t goes_on = [&](double share) { return go_on(adapter, share); };
    try {
        co_return co_await session_run(most, goes_on);
    } catch (const host_failure_t&) {
        co_return failed_pass(text_of_host_failure());
    } catch (const tovik_error& error) {
        co_return failed_pass(error.message);
    }
}

way_t<> run_piece(adapter_t& adapter, int32_t most) {
    const session_pass_t piece = co_await pass_of_session(adapter, most);
    const bool has_stopped = piece.stop.why != stop_e::NONE;
    adapter.wait = piece.wait;
    tell_wanted(adapter, has_stopped ? nullptr : piece.wait);
    if (has_stopped) {
        tell_stop(adapter, piece.stop);
    }
}

// Begins the next piece when it is time for it; else returns after how many milliseconds it will be.
std::optional<int> run(adapter_t& adapter, uint64_t now_us) {
    constexpr double LEAST_US = 16'000; // each piece is work for whoever shows the board
    constexpr double MS_PER_SECOND = 1'000;
    constexpr int LONGEST_SILENCE_MS = 500; // of a loudspeaker that asks for more
    if (adapter.phase != phase_e::RUNNING) {
        return std::nullopt;
    }
    int64_t most = MOST_PIECE;
    if (adapter.speed) {
        const bool is_heard = adapter.speaker_us && adapter.speed == BOARD_SPEED;
        most = owed(adapter, *adapter.speed, is_heard ? *adapter.speaker_us : now_us);
        if (const int64_t least = instructions_in(*adapter.speed, LEAST_US); most < least) {
            if (is_heard) {
                return LONGEST_SILENCE_MS;
            }
            const double ms = static_cast<double>(least - most) * MS_PER_SECOND / *adapter.speed;
            return static_cast<int>(ms) + 1;
        }
    }
    adapt_piece(adapter, now_us);
    begin(adapter, run_piece(adapter, static_cast<int32_t>(std::min<int64_t>(most, adapter.piece))));
    return adapter.phase == phase_e::RUNNING ? std::optional(0) : std::nullopt;
}

} // namespace

json set_speed(adapter_t& adapter, const json& arguments) {
    check_launched(adapter);
    adapter.speed = speed_in(arguments);
    adapter.paced_us = 0;
    return nullptr;
}

json answer_question(adapter_t& adapter, const json& arguments) {
    check_launched(adapter);
    const std::string name = text_in(arguments, "question");
    const auto* const question = std::find_if(QUESTIONS.begin(), QUESTIONS.end(),
                                              [&](const question_t& one) { return one.argument == name; });
    if (question == QUESTIONS.end()) {
        throw refused_t{"there is no question '" + name + "'"};
    }
    std::string answer = text_in(arguments, "answer");
    check_answer(*question, answer);
    front.answers[std::string(question->title)].push_back(std::move(answer));
    adapter.wanted.reset(); // it may not be the last that is needed
    return nullptr;
}

std::vector<std::string> take_messages(adapter_t& adapter) {
    std::vector<std::string> texts;
    texts.reserve(adapter.messages.size());
    for (json& message : adapter.messages) {
        message["seq"] = adapter.next_seq++;
        // Sources and serial bytes need not be UTF-8.
        texts.push_back(message.dump(-1, ' ', false, json::error_handler_t::replace));
    }
    adapter.messages.clear();
    adapter.answer_at = 0;
    return texts;
}

void tell(adapter_t& adapter, const char* event, json body) {
    adapter.messages.push_back({{"type", "event"}, {"event", event}, {"body", std::move(body)}});
}

// A breakpoint in a loop may say much in no time.
void tell_output(adapter_t& adapter, const char* category, const std::string& text) {
    if (!adapter.messages.empty()) {
        json& last = adapter.messages.back();
        if (member(last, "event") == "output" && last["body"]["category"] == category) {
            last["body"]["output"].get_ref<std::string&>() += text;
            return;
        }
    }
    tell(adapter, "output", {{"category", category}, {"output", text}});
}

void tell_what_was_said(adapter_t& adapter) {
    for (const front_message_t& message : std::exchange(front.messages, {})) {
        const bool ends = message.text.ends_with('\n');
        tell_output(adapter, message.error ? "stderr" : "console", message.text + (ends ? "" : "\n"));
    }
    if (!front.serial.empty()) {
        tell_output(adapter, "stdout", std::exchange(front.serial, {}));
    }
}

const json& member(const json& object, const char* name) {
    static const json nothing;
    if (!object.is_object()) {
        return nothing;
    }
    const auto found = object.find(name);
    return found == object.end() ? nothing : *found;
}

std::string text_in(const json& arguments, const char* name) {
    const json& text = member(arguments, name);
    if (!text.is_string()) {
        throw refused_t{std::string(name) + " is not a text"};
    }
    return text;
}

std::string text_in(const json& arguments, const char* name, const std::string& otherwise) {
    return member(arguments, name).is_null() ? otherwise : text_in(arguments, name);
}

int64_t number_in(const json& arguments, const char* name, int64_t lowest, int64_t highest) {
    const json& number = member(arguments, name);
    const bool too_high =
        number.is_number_unsigned() && number.get<uint64_t>() > static_cast<uint64_t>(INT64_MAX);
    if (!number.is_number_integer() || too_high || number.get<int64_t>() < lowest ||
        number.get<int64_t>() > highest) {
        throw refused_t{std::string(name) + " is not a number from " + std::to_string(lowest) + " to " +
                        std::to_string(highest)};
    }
    return number;
}

int64_t number_in(const json& arguments, const char* name, int64_t lowest, int64_t highest,
                  int64_t otherwise) {
    return member(arguments, name).is_null() ? otherwise : number_in(arguments, name, lowest, highest);
}

std::optional<double> speed_in(const json& arguments) {
    constexpr int64_t HIGHEST_SPEED = 1'000'000'000;
    const json& speed = member(arguments, "speed");
    if (speed.is_null() || speed == "max") {
        return std::nullopt;
    }
    if (speed == "board") {
        return BOARD_SPEED;
    }
    if (speed.is_string()) {
        throw refused_t{"speed: '" + speed.get<std::string>() +
                        "' is neither max nor board nor a number of instructions a second"};
    }
    return static_cast<double>(number_in(arguments, "speed", 1, HIGHEST_SPEED));
}

bool flag_in(const json& arguments, const char* name, bool otherwise) {
    const json& flag = member(arguments, name);
    if (!flag.is_null() && !flag.is_boolean()) {
        throw refused_t{std::string(name) + " is neither true nor false"};
    }
    return flag.is_null() ? otherwise : flag.get<bool>();
}

void check_launched(const adapter_t& adapter) {
    if (adapter.phase < phase_e::LAUNCHED || adapter.phase == phase_e::ENDED) {
        throw refused_t{"there is no program"};
    }
}

void check_stopped(const adapter_t& adapter) {
    check_launched(adapter);
    if (adapter.phase == phase_e::RUNNING) {
        throw refused_t{"the program runs"};
    }
}

void check_begun(const adapter_t& adapter) {
    check_stopped(adapter);
    if (adapter.phase == phase_e::LAUNCHED) {
        throw refused_t{"configurationDone comes first"};
    }
}

bool adapter_is_on_its_way(const adapter_t& adapter) { return adapter.under_way.has_value(); }

std::vector<std::string> adapter_take(adapter_t& adapter, std::string_view message) {
    adapter.waiting.push_back(parse_message(message));
    take_waiting(adapter);
    return take_messages(adapter);
}

adapter_pass_t adapter_run(adapter_t& adapter, uint64_t now_us) {
    adapter_pass_t pass{};
    if (adapter.under_way) {
        go_on_with_way(adapter);
        take_waiting(adapter);
        pass.next_ms =
            adapter.under_way || adapter.phase == phase_e::RUNNING ? std::optional(0) : std::nullopt;
    } else {
        pass.next_ms = run(adapter, now_us);
    }
    pass.wait = std::exchange(adapter.wait, nullptr);
    const bool has_program = adapter.phase >= phase_e::LAUNCHED && adapter.phase != phase_e::ENDED;
    if (has_program && !adapter.under_way) {
        tell_what_was_said(adapter);
        tell_lcd_at_rest(adapter, now_us);
        const std::optional<int> board_ms = tell_board(adapter, now_us);
        if (board_ms && !pass.next_ms) {
            pass.next_ms = board_ms;
        }
    }
    pass.messages = take_messages(adapter);
    return pass;
}
