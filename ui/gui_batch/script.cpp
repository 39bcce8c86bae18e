#include "ui/gui_batch/script.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <limits>
#include <optional>
#include <sstream>
#include <string_view>

#include "core/files.h"
#include "core/machine.h"
#include "devices/ledswitchtimer.h"
#include "ui/gui_batch/usage.h"

namespace {

using words_t = std::vector<std::string>;

// Why a line is malformed.
struct malformed_t {
    std::string why;
};

constexpr std::string_view EVENTS_TO_COME[] = {"press", "release", "type",   "ctrl-m",
                                               "focus", "move",    "button", "serial"};

words_t split(const std::string& line) {
    std::istringstream stream(line.substr(0, line.find('#')));
    words_t words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

uint64_t parse_count(const std::string& text) {
    const std::optional<int64_t> count = parse_number(text, 0, std::numeric_limits<int64_t>::max());
    if (!count) {
        throw malformed_t{"'" + text + "' is not an instruction count"};
    }
    return static_cast<uint64_t>(*count);
}

void expect_arguments(const words_t& words, size_t count, const char* usage) {
    if (words.size() != count + 2) {
        throw malformed_t{std::string("expected '") + usage + "'"};
    }
}

event_t parse_switch(const words_t& words, uint64_t count) {
    expect_arguments(words, 2, "switch I on|off");
    const std::optional<int64_t> number = parse_number(words[2], 0, SWITCHES - 1);
    if (!number) {
        throw malformed_t{"'" + words[2] + "' is not a switch from 0 to 17"};
    }
    if (words[3] != "on" && words[3] != "off") {
        throw malformed_t{"'" + words[3] + "' is neither on nor off"};
    }
    return {count, event_e::SWITCH, static_cast<int>(*number), words[3] == "on"};
}

event_t parse_event(const words_t& words) {
    const uint64_t count = parse_count(words[0]);
    if (words.size() == 1) {
        throw malformed_t{"expected an event after the instruction count"};
    }
    const std::string& name = words[1];
    if (name == "switch") {
        return parse_switch(words, count);
    }
    if (name == "stop") {
        expect_arguments(words, 0, "stop");
        return {count, event_e::STOP, 0, false};
    }
    if (std::ranges::find(EVENTS_TO_COME, name) != std::end(EVENTS_TO_COME)) {
        throw malformed_t{"'" + name + "' is not available yet"};
    }
    throw malformed_t{"'" + name + "' is not an event"};
}

} // namespace

std::vector<event_t> read_script(const std::string& file_name) {
    std::ifstream file(file_name);
    std::vector<event_t> events;
    std::string line;
    int line_number = 0;
    try {
        while (std::getline(file, line)) {
            ++line_number;
            const words_t words = split(line);
            if (words.empty()) {
                continue;
            }
            events.push_back(parse_event(words));
            if (events.size() > 1 && events.back().count < events[events.size() - 2].count) {
                throw malformed_t{"the count is lower than the one before"};
            }
        }
    } catch (const malformed_t& malformed) {
        usage_error(file_name + ":" + std::to_string(line_number) + ": " + malformed.why);
    }
    if (!file.eof()) {
        usage_error("can't read script " + file_name + ": " + system_error_text(errno));
    }
    return events;
}

void deliver(const event_t& event) {
    switch (event.kind) {
    case event_e::SWITCH:
        if (((machine.sw >> event.switch_number & 1) != 0) != event.on) {
            io_sw_toggle(event.switch_number);
        }
        break;
    case event_e::STOP:
        simulator.step = 0;
        break;
    }
}
