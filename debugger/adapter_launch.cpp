// The beginning and the end of a program.

#include <algorithm>
#include <limits>
#include <utility>

#include "base/gui.h"
#include "base/machine.h"
#include "debugger/adapter_internal.h"
#include "debugger/front.h"
#include "devices/ledswitchtimer.h"
#include "devices/sd.h"
#include "host/line.h"
#include "ui/screen.h"

namespace {

constexpr int64_t HIGHEST = std::numeric_limits<int64_t>::max();

constexpr const char* SUPPORTED[] = {
    "supportsConfigurationDoneRequest",
    "supportsConditionalBreakpoints",
    "supportsHitConditionalBreakpoints",
    "supportsLogPoints",
    "supportsInstructionBreakpoints",
    "supportsDataBreakpoints",
    "supportsEvaluateForHovers",
    "supportsStepBack",
    "supportsSetVariable",
    "supportsSetExpression",
    "supportsGotoTargetsRequest",
    "supportsCompletionsRequest",
    "supportsRestartRequest",
    "supportsExceptionInfoRequest",
    "supportsTerminateRequest",
    "supportsReadMemoryRequest",
    "supportsWriteMemoryRequest",
    "supportsDisassembleRequest",
    "supportsCancelRequest",
    "supportsLoadedSourcesRequest",
    "supportsSteppingGranularity",
    "supportsValueFormattingOptions",
    "supportsClipboardContext",
};

// One text, or a list of them.
std::vector<std::string> texts_in(const json& arguments, const char* name) {
    const json& texts = member(arguments, name);
    if (texts.is_null()) {
        return {};
    }
    if (texts.is_string()) {
        return {texts.get<std::string>()};
    }
    std::vector<std::string> result;
    const bool good = texts.is_array() && std::all_of(texts.begin(), texts.end(),
                                                      [](const json& text) { return text.is_string(); });
    if (!good) {
        throw refused_t{std::string(name) + " is neither a text nor a list of texts"};
    }
    for (const json& text : texts) {
        result.push_back(text);
    }
    return result;
}

session_options_t options_in(const json& arguments) {
    session_options_t options;
    options.program = text_in(arguments, "program");
    if (!options.program.ends_with(".k") && !options.program.ends_with(".mif")) {
        throw refused_t{"program: '" + options.program + "' ends neither in .k nor in .mif"};
    }
    if (!member(arguments, "limit").is_null()) {
        options.limit = number_in(arguments, "limit", 1, HIGHEST);
    }
    options.switches =
        static_cast<int32_t>(number_in(arguments, "switches", 0, (int64_t{1} << SWITCHES) - 1, 0));
    options.seed = static_cast<uint64_t>(number_in(arguments, "seed", 0, HIGHEST, 1));
    if (!member(arguments, "script").is_null()) {
        options.script = text_in(arguments, "script");
    }
    return options;
}

auto answers_in(const json& arguments) {
    decltype(front.answers) answers;
    for (const question_t& question : QUESTIONS) {
        std::vector<std::string>& texts = answers[std::string(question.title)];
        texts = texts_in(arguments, question.argument.data());
        for (const std::string& answer : texts) {
            check_answer(question, answer);
        }
    }
    return answers;
}

// Clients show the sources from these events.
void tell_new_sources(adapter_t& adapter) {
    for (const source_file_t& file : session_places().analysis.map.files) {
        if (adapter.sources_told.insert(file.name).second) {
            tell(adapter, "loadedSource", {{"reason", "new"}, {"source", source_of(file.name)}});
        }
    }
}

// The question can only be put as a failure: the protocol has no others.
bool card_goes_back_now(adapter_t& adapter) {
    if (adapter.card_goes_back) {
        return *adapter.card_goes_back;
    }
    if (!adapter.card_answer) {
        throw refused_t{"The program writes to the SD card later than now. Say \"card goes back\" or \"card "
                        "stays\" in the console, and then make the change again.",
                        refusal_e::CARD};
    }
    return *std::exchange(adapter.card_answer, std::nullopt);
}

// What the assembler and the loader have said belongs to the failure.
void begin(adapter_t& adapter, const json& arguments) {
    const session_options_t options = options_in(arguments);
    const std::optional<double> speed = speed_in(arguments);
    const bool ends_at_halt = flag_in(arguments, "noDebug") || !flag_in(arguments, "stopAtEnd", true);
    board_told_t board;
    board.wanted = flag_in(arguments, "board");
    board.sound = flag_in(arguments, "sound");
    board.screen = flag_in(arguments, "screen", true);
    const bool waits = flag_in(arguments, "waits");
    flag_in(arguments, "stopOnEntry");
    const bool asks_for_card = member(arguments, "cardGoesBack").is_null();
    const bool card_goes_back = flag_in(arguments, "cardGoesBack");
    const bool hears = front.hears;
    front = {};
    front.hears = hears;
    front.answers = answers_in(arguments);
    front.waits = waits;
    begin_sound(board.sound);

    line_failure_is_fault = true;
    screen_open = true;
    session_log = [&adapter](const std::string& text) { tell_output(adapter, "console", text + "\n"); };
    try {
        session_begin(options);
    } catch (const tovik_error& error) {
        std::string text;
        for (const front_message_t& message : std::exchange(front.messages, {})) {
            text += message.text;
            text += '\n';
        }
        throw refused_t{text + error.message};
    }
    vga_repaint();
    adapter.launch = arguments;
    adapter.ends_at_halt = ends_at_halt;
    adapter.speed = speed;
    adapter.wanted = "";
    adapter.board = std::move(board);
    adapter.card_goes_back = asks_for_card ? std::nullopt : std::optional(card_goes_back);
    adapter.card_answer.reset();
    session_card_goes_back = [&adapter] { return card_goes_back_now(adapter); };
    adapter.lcd_told = lcd_text();
    adapter.stop = {.why = stop_e::ENTRY, .ids = {}, .description = {}};
    set_phase(adapter, phase_e::LAUNCHED);
    if (const std::string& difference = session_places().difference; !difference.empty()) {
        tell_output(adapter, "important", difference + "\n");
    }
    tell_new_sources(adapter);
}

void end_session(adapter_t& adapter) {
    if (adapter.phase >= phase_e::LAUNCHED && adapter.phase != phase_e::ENDED) {
        tell_what_was_said(adapter);
        session_end();
        set_phase(adapter, phase_e::ENDED);
    }
}

void set_out(adapter_t& adapter) {
    if (flag_in(adapter.launch, "stopOnEntry")) {
        tell_stop(adapter, {.why = stop_e::ENTRY, .ids = {}, .description = {}});
    } else {
        begin_motion(adapter, motion_e::CONTINUE);
    }
}

} // namespace

void check_answer(const question_t& question, const std::string& answer) {
    // A file over a source would destroy a student's work.
    if (question.title == SD_QUESTION && answer.ends_with(".k")) {
        throw refused_t{"sd: " + answer + " is a source"};
    }
}

json initialize(adapter_t& adapter, const json& arguments) {
    adapter.client.first_line = flag_in(arguments, "linesStartAt1", true) ? 1 : 0;
    adapter.client.first_column = flag_in(arguments, "columnsStartAt1", true) ? 1 : 0;
    adapter.client.progress = flag_in(arguments, "supportsProgressReporting");
    adapter.client.invalidated = flag_in(arguments, "supportsInvalidatedEvent");
    if (text_in(arguments, "pathFormat", "path") != "path") {
        throw refused_t{"files are named by paths"};
    }
    set_phase(adapter, phase_e::INITIALIZED);
    json capabilities = {{"exceptionBreakpointFilters", json::array()},
                         {"completionTriggerCharacters", {".", "&", "["}},
                         {"tovikVersion", adapter.version}};
    for (const char* const supported : SUPPORTED) {
        capabilities[supported] = true;
    }
    return capabilities;
}

json launch(adapter_t& adapter, const json& arguments) {
    if (adapter.phase != phase_e::INITIALIZED) {
        throw refused_t{"a program has been launched"};
    }
    begin(adapter, arguments);
    // Breakpoints need the program.
    tell(adapter, "initialized");
    return nullptr;
}

json attach(adapter_t& /*adapter*/, const json& /*arguments*/) {
    throw refused_t{"the board belongs to the debugger: a program is launched, there is none to attach to"};
}

json configuration_done(adapter_t& adapter, const json& /*arguments*/) {
    if (adapter.phase != phase_e::LAUNCHED) {
        throw refused_t{"configurationDone comes once, after launch"};
    }
    set_out(adapter);
    return nullptr;
}

json restart(adapter_t& adapter, const json& arguments) {
    check_launched(adapter);
    const json& given = member(arguments, "arguments");
    const json with = member(given, "program").is_string() ? given : adapter.launch;
    options_in(with); // what is wrong with them leaves the program as it is
    answers_in(with);
    const bool configured = adapter.phase != phase_e::LAUNCHED;
    end_session(adapter);
    try {
        begin(adapter, with);
    } catch (const refused_t& error) {
        tell_output(adapter, "stderr", error.message + "\n");
        tell(adapter, "terminated");
        throw;
    }
    set_all_breakpoints(adapter);
    if (configured) {
        set_out(adapter);
    }
    if (adapter.phase == phase_e::RUNNING) {
        tell(adapter, "continued", {{"threadId", THREAD}, {"allThreadsContinued", true}});
    }
    return nullptr;
}

json terminate_program(adapter_t& adapter, const json& /*arguments*/) {
    check_launched(adapter);
    end_session(adapter);
    tell(adapter, "terminated");
    return nullptr;
}

json disconnect(adapter_t& adapter, const json& /*arguments*/) {
    end_session(adapter);
    adapter.over = true;
    return nullptr;
}

void set_phase(adapter_t& adapter, phase_e phase) {
    end_way(adapter);
    adapter.phase = phase;
    adapter.piece_at_us = 0;
    adapter.paced_us = 0;
}

void end_program(adapter_t& adapter) {
    end_session(adapter);
    tell(adapter, "exited", {{"exitCode", 0}});
    tell(adapter, "terminated");
}
