#include "core/script.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "base/files.h"
#include "base/machine.h"
#include "base/text.h"
#include "devices/ledswitchtimer.h"
#include "devices/mouse.h"
#include "devices/ps2.h"
#include "devices/serial.h"

namespace {

// Why a line is malformed.
struct malformed_t {
    std::string why;
};

// What is left of a line.
struct rest_t {
    std::string_view text;
};

// At the next word or at the end of the line, past white space and a comment.
void skip_blank(rest_t& rest) {
    rest.text.remove_prefix(std::min(rest.text.find_first_not_of(WHITE_SPACE), rest.text.size()));
}

bool at_end(rest_t& rest) {
    skip_blank(rest);
    return rest.text.empty() || rest.text.starts_with('#');
}

// Empty at the end of the line. The first characters, as many as `literal`, begin no comment.
std::string read_word(rest_t& rest, size_t literal = 0) {
    skip_blank(rest);
    const size_t white = std::min(rest.text.find_first_of(WHITE_SPACE), rest.text.size());
    const size_t length = std::min(rest.text.find('#', literal), white);
    std::string word(rest.text.substr(0, length));
    rest.text.remove_prefix(length);
    return word;
}

// The character that an escape stands for, from behind its backslash on; `at` comes to its last character.
char unescape(std::string_view text, size_t& at) {
    constexpr std::string_view NAMES = "nt\\\"";
    constexpr std::string_view CHARACTERS = "\n\t\\\"";
    const size_t place = NAMES.find(text[at]);
    if (place != std::string_view::npos) {
        return CHARACTERS[place];
    }
    const std::optional<int64_t> number =
        text[at] == 'x' && at + 2 < text.size()
            ? parse_number("0x" + std::string(text.substr(at + 1, 2)), 0, 0xff)
            : std::nullopt;
    if (!number) {
        throw malformed_t{std::string("'\\") + text[at] + R"(' is none of \n, \t, \\, \" and \xNN)"};
    }
    at += 2;
    return static_cast<char>(*number);
}

std::string read_text(rest_t& rest) {
    std::string text;
    for (size_t i = 1; i < rest.text.size(); ++i) {
        const char c = rest.text[i];
        if (c == '"') {
            rest.text.remove_prefix(i + 1);
            return text;
        }
        // Which character several bytes are depends on the encoding.
        if (static_cast<unsigned char>(c) > '~') {
            throw malformed_t{R"(a text holds characters of ASCII only; \xNN gives the others)"};
        }
        const bool escaped = c == '\\' && i + 1 < rest.text.size();
        text += escaped ? unescape(rest.text, ++i) : c;
    }
    throw malformed_t{"the text has no closing '\"'"};
}

int number_argument(const std::string& word, int64_t lowest, int64_t highest, const char* what) {
    const std::optional<int64_t> number = parse_number(word, lowest, highest);
    if (!number) {
        throw malformed_t{"'" + word + "' is not " + what};
    }
    return static_cast<int>(*number);
}

// 1 for the first word, 0 for the second.
int choice_argument(const std::string& word, const std::string& one, const std::string& zero) {
    if (word != one && word != zero) {
        throw malformed_t{"'" + word + "' is neither " + one + " nor " + zero};
    }
    return word == one ? 1 : 0;
}

int switch_number(const std::string& word) {
    return number_argument(word, 0, SWITCHES - 1, "a switch from 0 to 17");
}

int button_number(const std::string& word) { return number_argument(word, 1, 3, "a button from 1 to 3"); }

int coordinate(const std::string& word) {
    const bool negative = word.starts_with('-');
    const std::string_view distance = std::string_view(word).substr(negative ? 1 : 0);
    const std::optional<int64_t> number = parse_number(distance, 0, std::numeric_limits<int>::max());
    if (!number) {
        throw malformed_t{"'" + word + "' is not a coordinate"};
    }
    return static_cast<int>(negative ? -*number : *number);
}

// What the keys of the window give.
int key(const std::string& word) {
    constexpr std::pair<std::string_view, char> NAMED[] = {
        {"space", ' '}, {"return", '\n'}, {"tab", '\t'}, {"backspace", '\b'}, {"escape", '\x1b'}};
    if (word.size() == 1 && static_cast<unsigned char>(word[0]) <= '~') {
        return word[0];
    }
    const auto* const named = std::find_if(std::begin(NAMED), std::end(NAMED),
                                           [&word](const auto& one) { return one.first == word; });
    if (named != std::end(NAMED)) {
        return named->second;
    }
    if (!word.starts_with("0x")) {
        throw malformed_t{"'" + word + "' is not a key"};
    }
    return number_argument(word, 0, 0xff, "a key");
}

int on_off(const std::string& word) { return choice_argument(word, "on", "off"); }
int in_out(const std::string& word) { return choice_argument(word, "in", "out"); }
int down_up(const std::string& word) { return choice_argument(word, "down", "up"); }

void turn_switch(const event_t& event) {
    const auto [number, on] = event.values;
    if ((machine.sw >> number & 1) != on) {
        io_sw_toggle(number);
    }
}

void press(const event_t& event) { io_ps2_press(static_cast<char>(event.values[0])); }

void release(const event_t& event) { io_ps2_release(static_cast<char>(event.values[0])); }

void type(const event_t& event) {
    for (const char c : event.text) {
        io_ps2_press(c);
        io_ps2_release(c);
    }
}

void type_in_console(const event_t& event) {
    std::for_each(event.text.begin(), event.text.end(), io_serial_press);
}

void ctrl_m(const event_t& /*event*/) { io_ps2_ctrlm(); }

void focus(const event_t& event) {
    if (event.values[0] == 0) {
        io_mouse_deactivate();
    } else if (machine.mouse_active == 0) {
        io_mouse_activate();
    }
}

void move(const event_t& event) { io_mouse_motion(event.values[0], event.values[1]); }

void button(const event_t& event) {
    const auto [number, down] = event.values;
    (down == 1 ? io_mouse_press : io_mouse_release)(number - 1);
}

void stop(const event_t& /*event*/) { simulator.step = 0; }

// A '#' may be the argument of KEY, and anything may stand in a TEXT.
enum class form_e { WORDS, KEY, TEXT };

struct form_t {
    std::string_view name;
    const char* usage;
    void (*happen)(const event_t&);
    form_e form;
    std::array<int (*)(const std::string&), 2> arguments; // how to read each word
};

constexpr form_t FORMS[] = {
    {"switch", "switch I on|off", turn_switch, form_e::WORDS, {switch_number, on_off}},
    {"press", "press C", press, form_e::KEY, {key}},
    {"release", "release C", release, form_e::KEY, {key}},
    {"type", "type \"TEXT\"", type, form_e::TEXT, {}},
    {"serial", "serial \"TEXT\"", type_in_console, form_e::TEXT, {}},
    {"ctrl-m", "ctrl-m", ctrl_m, form_e::WORDS, {}},
    {"focus", "focus in|out", focus, form_e::WORDS, {in_out}},
    {"move", "move X Y", move, form_e::WORDS, {coordinate, coordinate}},
    {"button", "button B down|up", button, form_e::WORDS, {button_number, down_up}},
    {"stop", "stop", stop, form_e::WORDS, {}},
};

const form_t& find_form(const std::string& name) {
    if (name.empty()) {
        throw malformed_t{"expected an event after the instruction count"};
    }
    const auto* const form = std::find_if(std::begin(FORMS), std::end(FORMS),
                                          [&name](const form_t& one) { return one.name == name; });
    if (form == std::end(FORMS)) {
        throw malformed_t{"'" + name + "' is not an event"};
    }
    return *form;
}

uint64_t parse_count(const std::string& text) {
    const std::optional<int64_t> count = parse_number(text, 0, std::numeric_limits<int64_t>::max());
    if (!count) {
        throw malformed_t{"'" + text + "' is not an instruction count"};
    }
    return static_cast<uint64_t>(*count);
}

event_t parse_event(rest_t rest) {
    const uint64_t count = parse_count(read_word(rest));
    const std::string name = read_word(rest);
    const form_t& form = find_form(name);
    event_t event = {.count = count, .happen = form.happen, .values = {}, .text = {}};
    bool complete = true;
    if (form.form == form_e::TEXT) {
        skip_blank(rest);
        complete = rest.text.starts_with('"');
        event.text = complete ? read_text(rest) : "";
    }
    std::array<std::string, 2> words;
    for (size_t i = 0; i < words.size() && form.arguments[i] != nullptr; ++i) {
        words[i] = read_word(rest, form.form == form_e::KEY ? 1 : 0);
        complete &= !words[i].empty();
    }
    if (!complete || !at_end(rest)) {
        throw malformed_t{std::string("expected '") + form.usage + "'"};
    }
    for (size_t i = 0; i < words.size() && form.arguments[i] != nullptr; ++i) {
        event.values[i] = form.arguments[i](words[i]);
    }
    return event;
}

} // namespace

std::vector<event_t> read_script(const std::string& file_name) {
    std::ifstream file(file_name);
    return read_script(file, file_name);
}

std::vector<event_t> read_script(std::istream& file, const std::string& file_name) {
    std::vector<event_t> events;
    std::string line;
    int line_number = 0;
    try {
        while (std::getline(file, line)) {
            ++line_number;
            rest_t rest = {line};
            if (at_end(rest)) {
                continue;
            }
            events.push_back(parse_event(rest));
            if (events.size() > 1 && events.back().count < events[events.size() - 2].count) {
                throw malformed_t{"the count is lower than the one before"};
            }
        }
    } catch (const malformed_t& malformed) {
        throw tovik_error(file_name + ":" + std::to_string(line_number) + ": " + malformed.why);
    }
    if (!file.eof()) {
        throw tovik_error("can't read script " + file_name + ": " + system_error_text(errno));
    }
    return events;
}
