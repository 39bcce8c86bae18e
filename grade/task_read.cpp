#include "grade/task.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <set>
#include <span>
#include <sstream>

#include <unistd.h>

#include <re2/re2.h>

#include "assembler/operations.h"
#include "base/machine.h"
#include "core/script.h"
#include "devices/ledswitchtimer.h"
#include "grade/pictures.h"
#include "grade/settings.h"
#include "grade/sounds.h"
#include "grade/verdict.h"
#include "language/characters.h"
#include "language/codes.h"

namespace {

constexpr int64_t LIMIT = 10'000'000; // instructions, of a case that says nothing
constexpr int64_t HIGHEST_NUMBER = std::numeric_limits<int64_t>::max();
constexpr int64_t HIGHEST_SWITCHES = (1 << SWITCHES) - 1;
constexpr size_t MOST_SERIAL = 1024; // bytes; the port's queue has no room for more
constexpr double MOST_POINTS = 1e6;
constexpr double LONGEST_MS = 1e9;
constexpr double LONGEST_S = 1e6;

constexpr size_t LCD_LINES = 2;
constexpr size_t LCD_COLUMNS = 16;

// How a run may end here.
constexpr std::string_view REASONS[] = {"halt", "limit", "error", "script"};

// The report's, save what only other options of `tovik-run` fill.
constexpr std::string_view REPORT_KEYS[] = {
    "status",           "reason", "message",     "pc",        "instructions",  "switches", "led_red",
    "led_green",        "hex74",  "hex30",       "lcd",       "serial_output", "messages", "serial_bytes",
    "serial_truncated", "place",  "reason_text", "waits_for", "source_differs"};

// What a reference solution shows, in the order of the results.
constexpr std::string_view SHOWN[] = {"reason", "hex74",  "hex30",   "led_red", "led_green",
                                      "lcd",    "serial", "picture", "sound"};

bool is_one_of(std::string_view text, const auto& texts) {
    return std::find(std::begin(texts), std::end(texts), text) != std::end(texts);
}

std::string listed(const auto& texts) {
    std::string all;
    for (const std::string_view text : texts) {
        all += (all.empty() ? "" : ", ") + std::string(text);
    }
    return all;
}

std::string in_quotes(const std::string& text) { return "\"" + text + "\""; }

// ---- Values

// A JSON value of a text, a number or a truth.
nlohmann::json read_value(settings_t& settings, std::string_view key) {
    const toml::node* const node = find(settings, key);
    if (node == nullptr) {
        return nullptr;
    }
    if (node->is_string()) {
        return *node->value<std::string>();
    }
    if (node->is_integer()) {
        return *node->value<int64_t>();
    }
    if (node->is_boolean()) {
        return *node->value<bool>();
    }
    add_fault(*settings.file, *node, std::string(key) + " is to be a text, a number, true or false");
    return nullptr;
}

labelled_words_t read_words(settings_t& settings, std::string_view key) {
    labelled_words_t words;
    std::optional<settings_t> table = read_table(settings, key);
    if (!table) {
        return words;
    }
    for (const auto& [label, node] : *table->table) {
        std::vector<int32_t> values;
        // Signed, or the bits of a word.
        for (const int64_t value : read_integers(*table, label.str(), std::numeric_limits<int32_t>::min(),
                                                 std::numeric_limits<uint32_t>::max())) {
            values.push_back(static_cast<int32_t>(value));
        }
        if (node.is_array() && node.as_array()->empty()) {
            add_fault(*settings.file, node, std::string(label.str()) + " has no value");
        }
        words.emplace_back(label.str(), std::move(values));
    }
    return words;
}

// The digits of a display, in small letters as the report has them.
nlohmann::json read_digits(settings_t& settings, std::string_view key) {
    constexpr size_t DIGITS = 4;
    const toml::node* const node = find(settings, key);
    std::string digits = node->is_string() ? node->as_string()->get() : "";
    std::transform(digits.begin(), digits.end(), digits.begin(),
                   [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c; });
    if (digits.size() != DIGITS || digits.find_first_not_of("0123456789abcdef") != std::string::npos) {
        add_fault(*settings.file, *node,
                  std::string(key) + R"( is to be a text of four hexadecimal digits, such as "00ff")");
    }
    return digits;
}

// Lines, or one of them.
std::string read_lines(settings_t& settings, std::string_view key) {
    std::string text;
    const std::vector<std::string> lines = read_texts(settings, key);
    for (const std::string& line : lines) {
        text += (&line == lines.data() ? "" : "\n") + line;
    }
    return text;
}

// What the LCD can show, without what is blank at the ends.
std::string read_lcd(settings_t& settings, std::string_view key) {
    const std::string text = read_lines(settings, key);
    std::istringstream lines(text);
    size_t count = 0;
    bool fits = true;
    for (std::string line; std::getline(lines, line); ++count) {
        fits = fits && count_characters(line) <= LCD_COLUMNS;
    }
    if (!fits || count > LCD_LINES) {
        add_fault(*settings.file, *find(settings, key),
                  "the LCD has " + std::to_string(LCD_LINES) + " lines of " + std::to_string(LCD_COLUMNS) +
                      " characters");
    }
    return without_blank_ends(text);
}

// What displays and lamps show; the key is there.
nlohmann::json read_shown(settings_t& settings, std::string_view key) {
    if (key == "lcd") {
        return read_lcd(settings, key);
    }
    if (key.starts_with("hex")) {
        return read_digits(settings, key);
    }
    const int lamps = key == "led_red" ? RED_LEDS : GREEN_LEDS;
    return read_integer(settings, key, 0, (1 << lamps) - 1).value_or(0);
}

// A file that the task names, beside its own. It must be there.
std::string read_file_name(settings_t& settings, std::string_view key, const std::string& name) {
    const std::filesystem::path path = std::filesystem::absolute(settings.file->name).parent_path() / name;
    std::error_code unknown;
    if (!std::filesystem::is_regular_file(path, unknown)) {
        add_fault(*settings.file, *find(settings, key), "there is no file " + path.string());
    }
    return path.string();
}

std::vector<std::string> read_file_names(settings_t& settings, std::string_view key) {
    std::vector<std::string> names;
    for (const std::string& name : read_texts(settings, key)) {
        names.push_back(read_file_name(settings, key, name));
    }
    return names;
}

std::string read_file_name(settings_t& settings, std::string_view key) {
    const std::optional<std::string> name = read_text(settings, key);
    return name ? read_file_name(settings, key, *name) : "";
}

// A file that some function can read.
void check_file(settings_t& settings, std::string_view key, const std::string& name, const auto& read) {
    std::error_code unknown;
    if (!std::filesystem::is_regular_file(name, unknown)) {
        return; // that is told
    }
    try {
        static_cast<void>(read(name));
    } catch (const tovik_error& error) {
        add_fault(*settings.file, *find(settings, key), error.message);
    }
}

int check_movie(const std::string& name) {
    std::error_code error;
    const auto size = std::filesystem::file_size(name, error);
    if (!error && size < sizeof machine.camera_ram) {
        throw tovik_error("movie " + name + " has no whole picture");
    }
    return 0;
}

// Each of the texts must be one of some, and there must be one.
std::vector<std::string> read_choices(settings_t& settings, std::string_view key, const auto& choices) {
    std::vector<std::string> texts = read_texts(settings, key);
    if (const toml::node* const node = find(settings, key);
        node != nullptr && node->is_array() && node->as_array()->empty()) {
        add_fault(*settings.file, *node, std::string(key) + " is to have some of " + listed(choices));
    }
    for (const std::string& text : texts) {
        if (!is_one_of(text, choices)) {
            add_fault(*settings.file, *find(settings, key),
                      in_quotes(text) + " is none of " + listed(choices));
        }
    }
    return texts;
}

// ---- Checks

rule_t read_reason(settings_t& settings, std::string_view key) {
    const std::vector<std::string> reasons = read_choices(settings, key, REASONS);
    if (reasons.size() > 1) {
        add_fault(*settings.file, *find(settings, key), "a run has one reason to end");
    }
    return field_rule_t{std::string(key), reasons.empty() ? "" : reasons.front()};
}

rule_t read_display(settings_t& settings, std::string_view key) {
    return field_rule_t{std::string(key), read_shown(settings, key)};
}

// A text, or several lines.
rule_t read_text_rule(settings_t& settings, std::string_view key) {
    text_rule_t rule = {key.starts_with("lcd") ? text_rule_t::where_e::LCD : text_rule_t::where_e::SERIAL,
                        key.ends_with("_contains")  ? text_rule_t::how_e::CONTAINS
                        : key.ends_with("_matches") ? text_rule_t::how_e::MATCHES
                                                    : text_rule_t::how_e::EQUALS,
                        key == "lcd" ? read_lcd(settings, key) : read_lines(settings, key)};
    const toml::node& node = *find(settings, key);
    if (rule.how == text_rule_t::how_e::MATCHES) {
        if (const RE2 expression(rule.text, RE2::Quiet); !expression.ok()) {
            add_fault(*settings.file, node, std::string(key) + ": " + expression.error());
        }
        return rule;
    }
    // The report has none.
    rule.text.erase(std::remove(rule.text.begin(), rule.text.end(), '\r'), rule.text.end());
    if (rule.how == text_rule_t::how_e::CONTAINS && rule.text.empty()) {
        add_fault(*settings.file, node, std::string(key) + " is empty, and so in every text");
    }
    return rule;
}

rule_t read_picture(settings_t& picture) {
    picture_rule_t rule;
    rule.file = read_file_name(picture, "file");
    check_file(picture, "file", rule.file, read_png);
    const std::vector<int64_t> region = read_integers(picture, "region", 0, 640);
    if (!region.empty() && (region.size() != 4 || region[0] + region[2] > 640 ||
                            region[1] + region[3] > 480 || region[2] * region[3] == 0)) {
        add_fault(*picture.file, *find(picture, "region"),
                  picture.path + ".region is to be [x, y, width, height] on the screen");
    } else if (!region.empty()) {
        std::transform(region.begin(), region.end(), rule.region.begin(),
                       [](int64_t number) { return static_cast<int32_t>(number); });
    }
    rule.color = static_cast<int32_t>(read_integer(picture, "color", 0, 255).value_or(rule.color));
    rule.distance = static_cast<int32_t>(read_integer(picture, "distance", 0, 16).value_or(rule.distance));
    rule.share = read_real(picture, "share", 0, 1).value_or(rule.share);
    return rule;
}

rule_t read_sound_rule(settings_t& sound) {
    sound_rule_t rule;
    rule.file = read_file_name(sound, "file");
    check_file(sound, "file", rule.file, read_sound);
    rule.reference = read_flag(sound, "reference").value_or(false);
    rule.seconds = read_real(sound, "seconds", 0, LONGEST_S);
    rule.tolerance = read_real(sound, "tolerance", 0, LONGEST_S).value_or(rule.tolerance);
    for (settings_t& pitch : read_tables(sound, "pitch")) {
        const pitch_t& one = rule.pitches.emplace_back(
            pitch_t{.from = read_real(pitch, "from", 0, LONGEST_S).value_or(0),
                    .to = read_real(pitch, "to", 0, LONGEST_S).value_or(LONGEST_S),
                    .hz = read_real(pitch, "hz", 0, 4000).value_or(0),
                    .tolerance = read_real(pitch, "tolerance", 0, 1).value_or(0.02)});
        if (find(pitch, "hz") == nullptr || one.from >= one.to) {
            add_fault(pitch, pitch.path + " is to have hz (0 is silence), and from before to");
        }
        end_settings(pitch);
    }
    if (rule.file.empty() && !rule.reference && !rule.seconds && rule.pitches.empty()) {
        add_fault(sound, sound.path + " says nothing: file, reference, seconds or pitch");
    }
    return rule;
}

rule_t read_events(settings_t& settings, std::string_view key) {
    constexpr std::string_view SEEN[] = {"hex74", "hex30", "led_red", "led_green", "lcd"};
    events_rule_t rule;
    if (const toml::node* const node = find(settings, key); node->is_array() && node->as_array()->empty()) {
        add_fault(*settings.file, *node, std::string(key) + " is empty");
    }
    for (settings_t& moment : read_tables(settings, key)) {
        moment_rule_t& now = rule.moments.emplace_back();
        for (const std::string_view field : SEEN) {
            if (find(moment, field) != nullptr) {
                now.shows.emplace_back(field, read_shown(moment, field));
            }
        }
        now.after_ms = read_real(moment, "after_ms", 0, LONGEST_MS);
        now.within_ms = read_real(moment, "within_ms", 0, LONGEST_MS);
        if (now.shows.empty()) {
            add_fault(moment, moment.path + " shows none of " + listed(SEEN));
        }
        if (now.after_ms && now.within_ms && *now.after_ms > *now.within_ms) {
            add_fault(moment, moment.path + ".after_ms is more than within_ms");
        }
        end_settings(moment);
    }
    return rule;
}

rule_t read_report(settings_t& report) {
    const std::optional<std::string> key = read_text(report, "key");
    nlohmann::json value = read_value(report, "equals");
    if (!key || value.is_null()) {
        add_fault(report, report.path + " is to have key and equals");
    }
    constexpr std::string_view WITH_FIELDS[] = {"lcd", "messages", "place", "waits_for"};
    if (key && is_one_of(*key, WITH_FIELDS)) {
        add_fault(*report.file, *find(report, "key"),
                  in_quotes(*key) + R"( is no single value; "place.line" and "lcd.0" are)");
    } else if (key && !is_one_of(key->substr(0, key->find('.')), REPORT_KEYS)) {
        add_fault(*report.file, *find(report, "key"), in_quotes(*key) + " is none of " + listed(REPORT_KEYS));
    }
    return field_rule_t{key.value_or(""), std::move(value)};
}

// As a shell looks for it.
bool is_program(const std::string& word) {
    const auto can_run = [](const std::filesystem::path& path) {
        std::error_code unknown;
        return std::filesystem::is_regular_file(path, unknown) && access(path.c_str(), X_OK) == 0;
    };
    if (word.find('/') != std::string::npos) {
        return can_run(word);
    }
    const char* const path = std::getenv("PATH");
    std::istringstream folders(path == nullptr ? "/bin:/usr/bin" : path);
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (can_run(std::filesystem::path(folder) / word)) {
            return true;
        }
    }
    return false;
}

// It runs elsewhere: what is a file beside the task is named with its folder.
rule_t read_command(settings_t& settings, std::string_view key) {
    command_rule_t rule;
    rule.words = read_texts(settings, key);
    for (std::string& word : rule.words) {
        const std::filesystem::path path =
            std::filesystem::absolute(settings.file->name).parent_path() / word;
        std::error_code unknown;
        if (std::filesystem::is_regular_file(path, unknown)) {
            rule.name = rule.name.empty() ? path.filename().string() : rule.name;
            word = path.string();
        }
    }
    if (rule.name.empty() && !rule.words.empty()) {
        rule.name = rule.words.front();
    }
    rule.seconds = read_real(settings, "seconds", 0.1, 3600).value_or(rule.seconds);
    if (rule.words.empty()) {
        add_fault(*settings.file, *find(settings, key), "command has no words");
    } else if (!is_program(rule.words.front())) {
        add_fault(*settings.file, *find(settings, key),
                  "there is no program " + rule.words.front() + " that can be started");
    }
    return rule;
}

rule_t read_words_rule(settings_t& settings, std::string_view key) {
    words_rule_t rule{read_words(settings, key)};
    if (const toml::node* const node = find(settings, key); node->is_table() && node->as_table()->empty()) {
        add_fault(*settings.file, *node, std::string(key) + " is empty");
    }
    return rule;
}

rule_t read_instructions(settings_t& settings, std::string_view key) {
    return instructions_rule_t{read_integer(settings, key, 1, HIGHEST_NUMBER).value_or(0)};
}

rule_t read_same(settings_t& settings, std::string_view key) {
    return same_rule_t{read_choices(settings, key, SHOWN)};
}

// The rules of a case that have a table of their own.
template <rule_t (*read)(settings_t& table)> rule_t in_table(settings_t& settings, std::string_view key) {
    std::optional<settings_t> table = read_table(settings, key);
    if (!table) {
        return field_rule_t{};
    }
    rule_t rule = read(*table);
    end_settings(*table);
    return rule;
}

// ---- Checks of the source

source_rule_t read_size(settings_t& settings, std::string_view key) {
    return size_rule_t{read_integer(settings, key, 1, MEMORY_SIZE).value_or(MEMORY_SIZE)};
}

source_rule_t read_forbidden(settings_t& settings, std::string_view key) {
    std::vector<std::string_view> names;
    for (const operation_t& operation : operations()) {
        names.push_back(operation.name);
    }
    return forbidden_rule_t{read_choices(settings, key, names)};
}

source_rule_t read_must_use(settings_t& settings, std::string_view key) {
    return labels_rule_t{read_texts(settings, key)};
}

// "all", or the codes of some.
source_rule_t read_warnings(settings_t& settings, std::string_view key) {
    if (const toml::node* const node = find(settings, key); node->value<std::string>() == "all") {
        return warnings_rule_t{};
    }
    std::vector<std::string_view> codes;
    for (const code_info_t& info : all_codes()) {
        codes.push_back(info.code);
    }
    return warnings_rule_t{read_choices(settings, key, codes)};
}

// ---- Checks

// The keys of which a check has one.
template <typename some_rule_t> struct form_t {
    std::string_view key;
    some_rule_t (*read)(settings_t& settings, std::string_view key);
};

constexpr form_t<rule_t> CASE_FORMS[] = {
    {"reason", read_reason},
    {"hex74", read_display},
    {"hex30", read_display},
    {"led_red", read_display},
    {"led_green", read_display},
    {"lcd", read_text_rule},
    {"lcd_contains", read_text_rule},
    {"lcd_matches", read_text_rule},
    {"serial", read_text_rule},
    {"serial_contains", read_text_rule},
    {"serial_matches", read_text_rule},
    {"words", read_words_rule},
    {"instructions", read_instructions},
    {"picture", in_table<read_picture>},
    {"sound", in_table<read_sound_rule>},
    {"events", read_events},
    {"report", in_table<read_report>},
    {"command", read_command},
    {"same", read_same},
};

constexpr form_t<source_rule_t> SOURCE_FORMS[] = {
    {"size", read_size},
    {"forbidden", read_forbidden},
    {"must_use", read_must_use},
    {"warnings", read_warnings},
};

template <typename some_rule_t>
void read_check(settings_t& settings, std::span<const form_t<some_rule_t>> forms,
                std::vector<task_check_t<some_rule_t>>& checks) {
    task_check_t<some_rule_t> check{};
    size_t rules = 0;
    for (const auto& [key, read] : forms) {
        if (find(settings, key) != nullptr) {
            ++rules;
            check.rule = read(settings, key);
            check.name = key;
        }
    }
    if (rules != 1) {
        std::string keys;
        for (const auto& [key, read] : forms) {
            keys += (keys.empty() ? "" : ", ") + std::string(key);
        }
        add_fault(settings,
                  settings.path + (rules == 0 ? " is to have one of " : " is to have only one of ") + keys);
    }
    check.name = read_text(settings, "name").value_or(check.name);
    check.points = read_real(settings, "points", 0, MOST_POINTS).value_or(check.points);
    check.message = read_text(settings, "message").value_or("");
    check.line = static_cast<int>(settings.table->source().begin.line);
    end_settings(settings);
    checks.push_back(std::move(check));
}

// ---- Cases

std::string file_text(settings_t& settings, std::string_view key) {
    const std::string name = read_file_name(settings, key);
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// As a line of a script, with an escape for each byte.
std::string typed_at_start(const std::string& bytes) {
    constexpr std::string_view DIGITS = "0123456789abcdef";
    std::string line;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        line += std::string("\\x") + DIGITS[byte >> 4] + DIGITS[byte & 0xf];
    }
    return bytes.empty() ? "" : "0 serial \"" + line + "\"\n";
}

// A fault is told with its place in the file that has the script, of which that is line `first`.
void check_script(settings_t& input, std::string_view key, const std::string& script,
                  const std::string& file_name, int first) {
    std::istringstream lines(std::string(static_cast<size_t>(first - 1), '\n') + script);
    try {
        static_cast<void>(read_script(lines, file_name));
    } catch (const tovik_error& error) {
        input.file->faults.push_back({find(input, key)->source().begin, error.message});
    }
}

std::string read_own_script(settings_t& input) {
    const toml::node* const node = find(input, "script");
    std::string script = read_text(input, "script").value_or("");
    if (node != nullptr) {
        const std::optional<int> first = first_line_of(*input.file, *node);
        const std::string name = first ? input.file->name : place_of(*input.file, *node) + "script";
        check_script(input, "script", script, name, first.value_or(1));
    }
    return script;
}

std::string read_script_file(settings_t& input) {
    const std::string name = read_text(input, "script_file").value_or("");
    std::string script = file_text(input, "script_file");
    check_script(input, "script_file", script,
                 (std::filesystem::path(input.file->name).parent_path() / name).string(), 1);
    return script;
}

input_t read_input(settings_t& input) {
    input_t given;
    given.switches = static_cast<int32_t>(read_integer(input, "switches", 0, HIGHEST_SWITCHES).value_or(0));
    given.script = read_own_script(input);
    if (find(input, "script_file") != nullptr) {
        if (!given.script.empty()) {
            add_fault(input, input.path + " has both script and script_file");
        }
        given.script = read_script_file(input);
    }
    const std::string serial = read_text(input, "serial").value_or("");
    if (serial.size() > MOST_SERIAL) {
        add_fault(input, input.path + ".serial has more than " + std::to_string(MOST_SERIAL) + " bytes");
    }
    given.serial = serial;
    given.timed = given.script;
    given.script = typed_at_start(serial) + given.script;
    given.cards = read_file_names(input, "card");
    given.recordings = read_file_names(input, "microphone");
    given.movies = read_file_names(input, "camera");
    for (const std::string& name : given.recordings) {
        check_file(input, "microphone", name, read_sound);
    }
    for (const std::string& name : given.movies) {
        check_file(input, "camera", name, check_movie);
    }
    given.set = read_words(input, "set");
    end_settings(input);
    return given;
}

// What holds for all cases that do not say otherwise.
struct defaults_t {
    int64_t limit;
    std::vector<int64_t> seeds;
    bool hidden;
    std::string reference;
};

defaults_t read_defaults(settings_t& settings, const defaults_t& otherwise) {
    defaults_t defaults;
    defaults.limit = read_integer(settings, "limit", 1, HIGHEST_NUMBER).value_or(otherwise.limit);
    defaults.seeds = read_integers(settings, "seeds", 0, HIGHEST_NUMBER);
    if (defaults.seeds.empty()) {
        defaults.seeds = otherwise.seeds;
    }
    defaults.hidden = read_flag(settings, "hidden").value_or(otherwise.hidden);
    defaults.reference =
        find(settings, "reference") == nullptr ? otherwise.reference : read_file_name(settings, "reference");
    return defaults;
}

bool needs_reference(const task_check_t<rule_t>& check) {
    if (const auto* const picture = std::get_if<picture_rule_t>(&check.rule)) {
        return picture->file.empty();
    }
    if (const auto* const sound = std::get_if<sound_rule_t>(&check.rule)) {
        return sound->reference;
    }
    return std::holds_alternative<same_rule_t>(check.rule);
}

case_t read_case(settings_t& settings, const defaults_t& otherwise) {
    case_t one;
    one.name = read_text(settings, "name").value_or("");
    one.points = read_real(settings, "points", 0, MOST_POINTS);
    const defaults_t own = read_defaults(settings, otherwise);
    one.limit = own.limit;
    one.seeds = own.seeds;
    one.hidden = own.hidden;
    one.reference = own.reference;
    if (std::optional<settings_t> input = read_table(settings, "input")) {
        one.input = read_input(*input);
    }
    for (settings_t& check : read_tables(settings, "check")) {
        read_check<rule_t>(check, CASE_FORMS, one.checks);
        if (one.reference.empty() && needs_reference(one.checks.back())) {
            add_fault(check, check.path + " needs a reference");
        }
    }
    if (one.checks.empty() && one.reference.empty()) {
        add_fault(settings, settings.path + " has neither a check nor a reference");
    } else if (one.checks.empty()) {
        // All but the sound, which few programs make, and no two alike.
        one.checks.push_back({"same", same_rule_t{{std::begin(SHOWN), std::prev(std::end(SHOWN))}}, 1, "",
                              static_cast<int>(settings.table->source().begin.line)});
    }
    if (one.name.empty()) {
        add_fault(settings, settings.path + " has no name");
    }
    end_settings(settings);
    return one;
}

std::string read_source(settings_t& settings) {
    std::string source = read_text(settings, "source").value_or("");
    if (!source.ends_with(".k") || source.find('/') != std::string::npos) {
        add_fault(settings, "source is to be the name of a file that ends in .k");
    }
    return source;
}

task_t read_root(settings_t& root) {
    constexpr std::string_view VISIBILITIES[] = {"visible", "hidden", "after_due_date", "after_published"};
    task_t task;
    task.file = std::filesystem::absolute(root.file->name).string();
    task.folder = std::filesystem::path(task.file).parent_path().string();
    task.source = read_source(root);
    task.title = read_text(root, "title").value_or(task.source);
    task.library = read_texts(root, "library");
    static_cast<void>(read_file_names(root, "library")); // they must be there
    for (const std::string& name : task.library) {
        if (const std::filesystem::path path(name); path.is_absolute() || is_one_of("..", path)) {
            add_fault(*root.file, *find(root, "library"),
                      in_quotes(name) + " is to be a name without .., from the task's folder on");
        }
    }
    const std::vector<std::string> visibility = read_choices(root, "visibility", VISIBILITIES);
    task.visibility = visibility.empty() ? "visible" : visibility.front();
    task.points = read_real(root, "points", 0, MOST_POINTS);
    const defaults_t defaults = read_defaults(root, {LIMIT, {1}, false, ""});
    for (settings_t& check : read_tables(root, "source_check")) {
        read_check<source_rule_t>(check, SOURCE_FORMS, task.source_checks);
    }
    std::set<std::string> names;
    for (settings_t& one : read_tables(root, "case")) {
        task.cases.push_back(read_case(one, defaults));
        if (!names.insert(task.cases.back().name).second) {
            add_fault(one, "a second case has the name " + in_quotes(task.cases.back().name));
        }
    }
    if (task.cases.empty() && task.source_checks.empty()) {
        add_fault(root, "the task has neither a case nor a source_check");
    }
    end_settings(root);
    return task;
}

} // namespace

task_t read_task(const std::string& file_name) {
    settings_file_t file = read_settings(file_name);
    settings_t root = root_of(file);
    task_t task = read_root(root);
    if (!file.faults.empty()) {
        throw tovik_error(faults_text(file));
    }
    return task;
}
