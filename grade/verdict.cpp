#include "grade/verdict.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <string_view>
#include <utility>

#include <re2/re2.h>

#include "base/text.h"
#include "grade/command.h"
#include "language/characters.h"

namespace {

// More than anyone reads in a table.
constexpr size_t LONGEST_TEXT = 200;

constexpr double PITCH_TOLERANCE = 0.02;
constexpr double PITCH_SECONDS = 0.5; // the stretches of which the pitches are compared

std::string number(double value, int digits) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f", digits, value);
    return text.data();
}

// As people write it: lines one after the other, without escapes.
std::string quoted(const std::string& text) {
    std::string result = "\"";
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        result += readable(text.substr(begin, end - begin)) + (end < text.size() ? "\u21b5" : "");
        begin = end + 1;
    }
    return result + "\"";
}

std::string shown(const nlohmann::json& value) {
    if (value.is_null()) {
        return "nothing";
    }
    return value.is_string() ? quoted(value.get<std::string>())
                             : value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// "5 (0 and 2 are lit)"
std::string lamps_text(const nlohmann::json& value) {
    std::vector<std::string> lit;
    for (int lamp = 0; value.is_number_integer() && lamp < 32; ++lamp) {
        if ((value.get<int64_t>() >> lamp & 1) != 0) {
            lit.push_back(std::to_string(lamp));
        }
    }
    std::string names;
    for (size_t i = 0; i < lit.size(); ++i) {
        names += (i == 0 ? "" : i + 1 == lit.size() ? " and " : ", ") + lit[i];
    }
    return shown(value) + " (" + (lit.empty() ? "none" : names) + (lit.size() < 2 ? " is lit)" : " are lit)");
}

// A field of the report as it is called on the board.
struct field_words_t {
    std::string_view key;
    std::string_view where; // behind the value
    std::string (*text)(const nlohmann::json& value);
};

std::string bare(const nlohmann::json& value) {
    return value.is_string() ? readable(value.get<std::string>()) : shown(value);
}

std::string ending_text(const nlohmann::json& reason) {
    const std::string text = bare(reason);
    return text == "halt"    ? "a halt"
           : text == "limit" ? "the limit of instructions"
           : text == "error" ? "an error"
                             : text;
}

constexpr std::array<field_words_t, 6> FIELDS = {{
    {"hex74", " on HEX7-HEX4", bare},
    {"hex30", " on HEX3-HEX0", bare},
    {"led_red", " on the red lamps", lamps_text},
    {"led_green", " on the green lamps", lamps_text},
    {"lcd", " on the LCD", shown},
    {"reason", "", ending_text},
}};

std::string value_text(const std::string& key, const nlohmann::json& value) {
    for (const field_words_t& field : FIELDS) {
        if (field.key == key) {
            return field.text(value);
        }
    }
    return shown(value);
}

std::string field_text(const std::string& key, const nlohmann::json& value) {
    for (const field_words_t& field : FIELDS) {
        if (field.key == key) {
            return field.text(value) + std::string(field.where);
        }
    }
    return shown(value) + " as " + key;
}

// Two texts that are not the same; of long ones what they have in common is left out.
std::pair<std::string, std::string> differing(const std::string& one, const std::string& other) {
    constexpr std::ptrdiff_t CONTEXT = 20;
    size_t begin = 0;
    if (std::max(one.size(), other.size()) > LONGEST_TEXT) {
        const auto same = std::mismatch(one.begin(), one.end(), other.begin(), other.end()).first;
        begin = static_cast<size_t>(std::max<std::ptrdiff_t>(same - one.begin() - CONTEXT, 0));
        while (begin > 0 && begin < one.size() && (one[begin] & 0xc0) == 0x80) {
            --begin;
        }
    }
    const auto part = [=](const std::string& text) {
        return text.empty() ? "nothing"
                            : (begin > 0 ? "..." : "") + quoted(shortened(text.substr(begin), LONGEST_TEXT));
    };
    return {part(one), part(other)};
}

std::string lines_of(const nlohmann::json& lcd) {
    return lcd.at(0).get<std::string>() + "\n" + lcd.at(1).get<std::string>();
}

std::string text_of(const text_rule_t& rule, const seen_t& seen) {
    if (rule.where == text_rule_t::where_e::SERIAL) {
        return seen.report.at("serial_output").get<std::string>();
    }
    return lines_of(seen.report.at("lcd"));
}

// "place.line" is a field of a field, "lcd.0" the first of several. Nothing where there is none.
nlohmann::json field_of(const nlohmann::json& report, const std::string& key) {
    std::string path = "/" + key;
    std::replace(path.begin(), path.end(), '.', '/');
    const nlohmann::json::json_pointer pointer(path);
    return report.contains(pointer) ? report.at(pointer) : nlohmann::json();
}

verdict_t judge_one(const field_rule_t& rule, const seen_t& seen, const seen_t* /*reference*/) {
    const nlohmann::json found = field_of(seen.report, rule.key);
    return {found == rule.value, field_text(rule.key, rule.value), value_text(rule.key, found)};
}

verdict_t judge_one(const text_rule_t& rule, const seen_t& seen, const seen_t* /*reference*/) {
    const std::string whole = text_of(rule, seen);
    const std::string text = without_blank_ends(whole);
    const std::string seen_text = text.empty() ? "nothing" : quoted(shortened(text, LONGEST_TEXT));
    const bool is_lcd = rule.where == text_rule_t::where_e::LCD;
    const std::string where = is_lcd ? " on the LCD" : " in the serial output";
    switch (rule.how) {
    case text_rule_t::how_e::EQUALS: {
        const std::string wanted = without_blank_ends(rule.text);
        const auto [expected, found] = differing(wanted, text);
        return {text == wanted, expected + where, found};
    }
    case text_rule_t::how_e::CONTAINS:
        return {text.find(rule.text) != std::string::npos || whole.find(rule.text) != std::string::npos,
                quoted(rule.text) + " somewhere" + where, seen_text};
    case text_rule_t::how_e::MATCHES:
        break;
    }
    return {RE2::PartialMatch(text, rule.text) || RE2::PartialMatch(whole, rule.text),
            "what matches " + quoted(rule.text) + where, seen_text};
}

std::string listed(const std::vector<int32_t>& values) {
    std::string text;
    for (const int32_t value : values) {
        text += (text.empty() ? "" : ", ") + std::to_string(value);
    }
    return shortened(text, LONGEST_TEXT);
}

// Of a long list the first word that differs.
std::pair<std::string, std::string> differing_words(const std::string& label,
                                                    const std::vector<int32_t>& expected,
                                                    const std::vector<int32_t>& seen) {
    constexpr size_t SHORT = 10;
    if (expected.size() <= SHORT || seen.size() < expected.size()) {
        return {listed(expected) + " at " + label, listed(seen)};
    }
    const auto place = std::mismatch(expected.begin(), expected.end(), seen.begin());
    return {std::to_string(*place.first) + " at " + label + " + " +
                std::to_string(place.first - expected.begin()),
            std::to_string(*place.second)};
}

// Tells of the first label whose words are others.
verdict_t judge_one(const words_rule_t& rule, const seen_t& seen, const seen_t* /*reference*/) {
    verdict_t verdict{true};
    for (const auto& [label, values] : rule.words) {
        const auto found = seen.words.find(label);
        if (found == seen.words.end()) {
            return {false, "a label " + label, "no such label"};
        }
        if (found->second != values && verdict.passed) {
            const auto [expected, seen_words] = differing_words(label, values, found->second);
            verdict = {false, expected, seen_words};
        }
        verdict.expected +=
            verdict.passed ? (verdict.expected.empty() ? "" : "; ") + listed(values) + " at " + label : "";
    }
    verdict.seen = verdict.passed ? "that" : verdict.seen;
    return verdict;
}

verdict_t judge_one(const instructions_rule_t& rule, const seen_t& seen, const seen_t* /*reference*/) {
    const auto count = seen.report.at("instructions").get<int64_t>();
    return {count <= rule.most, "at most " + std::to_string(rule.most) + " instructions",
            std::to_string(count) + " instructions"};
}

// Never rounded up to what it has not reached.
std::string percent(double share) { return number(std::floor(10000 * share) / 100, 2) + " %"; }

std::string picture_text(const picture_rule_t& rule) {
    const auto [x, y, width, height] = rule.region;
    if (rule.region == picture_rule_t{}.region) {
        return "the whole picture";
    }
    return "the picture from (" + std::to_string(x) + ", " + std::to_string(y) + ") to (" +
           std::to_string(x + width - 1) + ", " + std::to_string(y + height - 1) + ")";
}

verdict_t judge_one(const picture_rule_t& rule, const seen_t& seen, const seen_t* reference) {
    const picture_t file = rule.file.empty() ? picture_t{} : read_png(rule.file);
    const points_t expected = rule.file.empty() ? reference->picture : file;
    comparison_t comparison = compare(seen.picture, expected, rule);
    const bool passed = comparison.equal >= rule.share;
    verdict_t verdict{passed,
                      picture_text(rule) + (rule.share == 1 ? "" : ", at least " + percent(rule.share)),
                      percent(comparison.equal) + " of its points"};
    if (!passed) {
        verdict.pictures = {{expected.begin(), expected.end()},
                            {seen.picture.begin(), seen.picture.end()},
                            std::move(comparison.marked)};
    }
    return verdict;
}

// ---- Sound

struct remarks_t {
    std::string expected;
    std::string seen;
};

void remark(remarks_t& remarks, const std::string& expected, const std::string& seen) {
    remarks.expected += (remarks.expected.empty() ? "" : "; ") + expected;
    remarks.seen += (remarks.seen.empty() ? "" : "; ") + seen;
}

std::string hertz(double pitch) { return pitch == 0 ? "silence" : number(pitch, 0) + " Hz"; }

void check_pitch(const sound_t& sound, const pitch_t& pitch, remarks_t& remarks) {
    const double found = pitch_of(sound, pitch.from, std::min(pitch.to, seconds_of(sound)));
    if (std::abs(found - pitch.hz) > pitch.tolerance * pitch.hz) {
        const std::string at = " at " + number(pitch.from, 2) + " s";
        remark(remarks, hertz(pitch.hz) + at, hertz(found) + at);
    }
}

void check_seconds(const sound_t& sound, double seconds, double tolerance, remarks_t& remarks) {
    if (std::abs(seconds_of(sound) - seconds) > tolerance) {
        remark(remarks, number(seconds, 2) + " s of sound", number(seconds_of(sound), 2) + " s");
    }
}

void check_like(const sound_t& sound, const sound_t& expected, double tolerance, remarks_t& remarks) {
    check_seconds(sound, seconds_of(expected), tolerance, remarks);
    for (double from = 0; from + PITCH_SECONDS / 2 < seconds_of(expected); from += PITCH_SECONDS) {
        const double to = from + PITCH_SECONDS;
        check_pitch(sound, {from, to, pitch_of(expected, from, to), PITCH_TOLERANCE}, remarks);
    }
}

verdict_t judge_one(const sound_rule_t& rule, const seen_t& seen, const seen_t* reference) {
    remarks_t remarks;
    if (rule.seconds) {
        check_seconds(seen.sound, *rule.seconds, rule.tolerance, remarks);
    }
    for (const pitch_t& pitch : rule.pitches) {
        check_pitch(seen.sound, pitch, remarks);
    }
    if (rule.reference) {
        check_like(seen.sound, reference->sound, rule.tolerance, remarks);
    }
    if (!rule.file.empty()) {
        check_like(seen.sound, read_sound(rule.file), rule.tolerance, remarks);
    }
    const bool passed = remarks.expected.empty();
    return {passed, passed ? "the sound that was asked for" : shortened(remarks.expected, LONGEST_TEXT),
            passed                       ? "that"
            : seen.sound.samples.empty() ? "no sound"
                                         : shortened(remarks.seen, LONGEST_TEXT)};
}

// ---- Events

// What the displays and lamps show after an event.
void follow(nlohmann::json& shown_now, const nlohmann::json& event) {
    const std::string what = event.at("event").get<std::string>();
    if (event.contains("digits")) {
        shown_now[what] = event["digits"];
    } else if (event.contains("value")) {
        shown_now[what] = event["value"];
    } else if (event.contains("lines")) {
        shown_now[what] = without_blank_ends(lines_of(event["lines"]));
    }
}

bool shows_all(const nlohmann::json& shown_now, const moment_rule_t& moment) {
    return std::all_of(moment.shows.begin(), moment.shows.end(), [&](const auto& one) {
        return shown_now.value(one.first, nlohmann::json()) == one.second;
    });
}

std::string milliseconds(double ms) { return number(ms, ms == std::floor(ms) ? 0 : 1) + " ms"; }

std::string described(const moment_rule_t& moment) {
    std::string text;
    for (const auto& [key, value] : moment.shows) {
        text += (text.empty() ? "" : ", ") + field_text(key, value);
    }
    if (moment.after_ms) {
        text += " after " + milliseconds(*moment.after_ms) + " or more";
    }
    if (moment.within_ms) {
        text += (moment.after_ms ? ", within " : " within ") + milliseconds(*moment.within_ms);
    }
    return text;
}

// What is expected from one moment to the next, up to the one that has not come.
std::string described(const events_rule_t& rule, size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        text += (i == 0 ? "" : ", then ") + described(rule.moments[i]);
    }
    return text;
}

// What was shown where something else was expected, in the order of time.
std::string shown_instead(const moment_rule_t& moment, const std::vector<nlohmann::json>& values) {
    constexpr size_t MOST = 8;
    if (moment.shows.size() > 1) {
        return "never all at once";
    }
    std::string text;
    for (size_t i = 0; i < std::min(values.size(), MOST); ++i) {
        text += (i == 0 ? "" : ", ") + value_text(moment.shows.front().first, values[i]);
    }
    return text.empty() ? "never" : "never, only " + text + (values.size() > MOST ? "..." : "");
}

verdict_t judge_one(const events_rule_t& rule, const seen_t& seen, const seen_t* /*reference*/) {
    constexpr double MS_PER_SECOND = 1000;
    nlohmann::json shown_now = {
        {"hex74", "0000"}, {"hex30", "0000"}, {"led_red", 0}, {"led_green", 0}, {"lcd", ""}};
    auto event = seen.events.begin();
    double then_ms = 0;
    for (size_t i = 0; i < rule.moments.size(); ++i) {
        const moment_rule_t& moment = rule.moments[i];
        const std::string& field = moment.shows.front().first;
        std::vector<nlohmann::json> values;
        double now_ms = then_ms;
        while (!shows_all(shown_now, moment) && event != seen.events.end()) {
            now_ms = event->at("time").get<double>() * MS_PER_SECOND;
            const nlohmann::json before = shown_now.at(field);
            follow(shown_now, *event);
            if (shown_now.at(field) != before) {
                values.push_back(shown_now.at(field));
            }
            ++event;
        }
        const double passed_ms = now_ms - then_ms;
        if (!shows_all(shown_now, moment)) {
            return {false, described(rule, i + 1),
                    shown_instead(moment, values) +
                        (seen.events.size() < MOST_EVENTS
                             ? ""
                             : " in the first " + std::to_string(MOST_EVENTS) + " changes")};
        }
        if (passed_ms < moment.after_ms.value_or(0) || (moment.within_ms && passed_ms > *moment.within_ms)) {
            return {false, described(rule, i + 1), "the last one after " + number(passed_ms, 1) + " ms"};
        }
        then_ms = now_ms;
    }
    return {true, described(rule, rule.moments.size()), "that"};
}

verdict_t judge_one(const command_rule_t& rule, const seen_t& /*seen*/, const seen_t* /*reference*/) {
    const command_result_t result = run_command(rule);
    const std::string status = "exit status " + std::to_string(result.status);
    return {result.status == 0, "exit status 0 of " + rule.name, result.text.empty() ? status : result.text};
}

// ---- Like the reference

verdict_t judge_same(const std::string& what, const seen_t& seen, const seen_t& reference) {
    if (what == "picture") {
        return judge_one(picture_rule_t{}, seen, &reference);
    }
    if (what == "sound") {
        sound_rule_t rule;
        rule.reference = true;
        return judge_one(rule, seen, &reference);
    }
    if (what == "lcd" || what == "serial") {
        text_rule_t rule{what == "lcd" ? text_rule_t::where_e::LCD : text_rule_t::where_e::SERIAL,
                         text_rule_t::how_e::EQUALS, ""};
        rule.text = text_of(rule, reference);
        return judge_one(rule, seen, nullptr);
    }
    return judge_one(field_rule_t{what, reference.report.at(what)}, seen, nullptr);
}

// Tells of all that differs.
verdict_t judge_one(const same_rule_t& rule, const seen_t& seen, const seen_t* reference) {
    verdict_t all{true};
    remarks_t remarks;
    std::string names;
    for (const std::string& what : rule.what) {
        verdict_t verdict = judge_same(what, seen, *reference);
        if (!verdict.passed) {
            remark(remarks, verdict.expected, verdict.seen);
            all.passed = false;
            all.pictures = what == "picture" ? std::move(verdict.pictures) : std::move(all.pictures);
        }
        names += (names.empty() ? "" : ", ") + what;
    }
    all.expected = all.passed ? "what the solution shows: " + names : remarks.expected;
    all.seen = all.passed ? "that" : remarks.seen;
    return all;
}

} // namespace

std::string given_text(const input_t& input) {
    std::string text;
    const auto add = [&](const std::string& what) { text += (text.empty() ? "" : "; ") + what; };
    if (input.switches != 0) {
        add("switches " + hexadecimal(input.switches));
    }
    for (const auto& [label, values] : input.set) {
        add(listed(values) + " at " + label);
    }
    if (!input.serial.empty()) {
        add(quoted(shortened(input.serial, LONGEST_TEXT)) + " on the serial console");
    }
    const std::pair<const char*, const std::vector<std::string>&> files[] = {
        {"card ", input.cards}, {"microphone ", input.recordings}, {"camera ", input.movies}};
    for (const auto& [what, names] : files) {
        for (const std::string& name : names) {
            add(what + name.substr(name.rfind('/') + 1));
        }
    }
    if (!input.timed.empty()) {
        add("a script\n" + input.timed);
    }
    return text;
}

std::string without_blank_ends(const std::string& text) {
    std::string result;
    size_t visible = 0;
    for (const char c : text) {
        if (c == '\n') {
            result.resize(visible);
        }
        result += c;
        if (c != ' ' && c != '\t') {
            visible = result.size();
        }
    }
    result.resize(visible);
    while (result.ends_with('\n')) {
        result.pop_back();
    }
    return result;
}

verdict_t judge(const rule_t& rule, const seen_t& seen, const seen_t* reference) {
    return std::visit([&](const auto& one) { return judge_one(one, seen, reference); }, rule);
}
