// What one does not see in a line, and comments that are to silence warnings.

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "assembler/explain.h"
#include "assembler/invisible.h"
#include "assembler/similar.h"
#include "assembler/source.h"
#include "base/text.h"
#include "language/lines.h"
#include "language/warnings_internal.h"

namespace {

constexpr size_t npos = std::string_view::npos;
constexpr std::string_view NAME = "tovik";

void warn_of_characters(warnings_t& warnings) {
    const source_map_t& map = *warnings.map;
    for (uint32_t i = 0; i < map.statements.size(); ++i) {
        const statement_t& statement = map.statements[i];
        const std::string_view line = without_comment(line_text(map, statement.file, statement.line_begin));
        const std::optional<invisible_t> found = find_invisible(line);
        if (!found || statement.faulty || warnings.named.contains({statement.file, statement.line})) {
            continue;
        }
        const span_t token{.begin = statement.line_begin + static_cast<uint32_t>(found->begin),
                           .size = static_cast<uint32_t>(found->size)};
        if (!is_left_out(warnings, code::INVISIBLE_CHARACTER, i, token)) {
            diagnostic_t& diagnostic =
                warn(warnings, code::INVISIBLE_CHARACTER, i, token,
                     found->name + " stands here, and the assembler takes it for a letter",
                     found->separates ? "write a blank instead" : "leave it out");
            diagnostic.fix = edits_of_invisible(map, statement);
        }
    }
}

// A comment that names the checker.
struct mention_t {
    uint32_t file = 0;
    int32_t number = 0; // of the line
    source_line_t line{};
    size_t begin = 0; // in the line's text
};

// Where the checker's name stands from an offset on, in small or capital letters.
size_t find_name(std::string_view text, size_t from) {
    constexpr char SMALL = 'a' - 'A'; // the bit that makes a letter small
    const char* const end = text.data() + text.size();
    const char* const found =
        std::search(text.data() + from, end, NAME.data(), NAME.data() + NAME.size(),
                    [](char c, char letter) { return static_cast<char>(c | SMALL) == letter; });
    return found == end ? npos : static_cast<size_t>(found - text.data());
}

std::vector<mention_t> find_mentions(const source_map_t& map) {
    constexpr int MOST_IN_A_LINE = 4; // looking at more would take long in a line made for that
    std::vector<mention_t> mentions;
    for (uint32_t file = 0; file < map.files.size(); ++file) {
        const std::string_view text = map.files[file].text;
        mention_t mention{.file = file, .number = 1};
        size_t counted = 0; // the lines before it are
        for (size_t at = find_name(text, 0); at != npos;) {
            mention.line = line_at(text, at);
            const source_line_t& line = mention.line;
            const size_t end = line.begin + line.text.size();
            mention.number +=
                static_cast<int32_t>(std::count(text.data() + counted, text.data() + line.begin, '\n'));
            counted = line.begin;
            for (int i = 0; i < MOST_IN_A_LINE && at < end; ++i, at = find_name(text, at + NAME.size())) {
                mention.begin = at - line.begin;
                if (line.comment.begin < at && at < line.comment.end) {
                    mentions.push_back(mention);
                }
            }
            at = at < end ? find_name(text, end) : at;
        }
    }
    return mentions;
}

// Takes what stands before the next of some characters.
std::string_view take_until(std::string_view& text, std::string_view ends) {
    const std::string_view taken = text.substr(0, text.find_first_of(ends));
    text.remove_prefix(taken.size());
    return taken;
}

void skip(std::string_view& text, std::string_view characters) {
    text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
}

std::string_view nearest_code(std::string_view word, int64_t& budget) {
    static const std::vector<name_t> NAMES = [] {
        std::vector<name_t> names;
        for (const code_info_t& info : all_codes()) {
            if (info.severity == severity_e::WARNING) {
                names.push_back(to_compare(info.code));
            }
        }
        return names;
    }();
    return nearest(word, NAMES, budget);
}

struct finding_t {
    std::string_view text; // a part of the line
    std::string message;
    std::string help;
    std::string replacement{}; // of the text; empty for none
};

// What is wrong with a list of codes.
std::vector<finding_t> look_at_codes(std::string_view codes, int64_t& budget) {
    constexpr size_t MOST = 8; // who writes more does it on purpose
    std::vector<finding_t> findings;
    bool expected = true; // what follows a code without a comma may be words
    while (!codes.empty() && findings.size() < MOST) {
        const std::string_view between = codes.substr(0, codes.find_first_not_of(CODE_ENDS));
        expected = expected || between.find(',') != npos;
        skip(codes, CODE_ENDS);
        const std::string_view word = take_until(codes, CODE_ENDS);
        const code_info_t* const info = find_code(word);
        const bool is_warning = info != nullptr && info->severity == severity_e::WARNING;
        if (word.empty() || (!expected && !is_warning)) {
            break;
        }
        expected = false;
        if (is_warning) {
            continue;
        }
        if (info != nullptr) {
            findings.push_back(
                {word, quoted(word) + " is no warning, and only warnings can be silenced", "mend the line"});
        } else if (const std::string_view best = nearest_code(word, budget); !best.empty()) {
            findings.push_back({word, quoted(word) + " is no code of a warning: it silences nothing",
                                "did you mean " + quoted(best) + "?", std::string(best)});
        } else {
            findings.push_back({word, quoted(word) + " is no code of a warning: it silences nothing",
                                "the codes stand in brackets behind the warnings"});
        }
    }
    return findings;
}

// What is wrong with a comment, from the checker's name on.
std::vector<finding_t> look_at_comment(std::string_view comment, bool alone, int64_t& budget) {
    constexpr std::array<std::string_view, 6> VERBS = {"allow",   "allowed", "ignore",
                                                       "disable", "silence", "suppress"};
    std::string_view rest = comment.substr(NAME.size());
    skip(rest, " \t:-,");
    const std::string_view verb = take_until(rest, " \t:=(,");
    if (std::find(VERBS.begin(), VERBS.end(), small(verb)) == VERBS.end()) {
        return {};
    }
    const std::string_view head = comment.substr(0, comment.size() - rest.size());
    skip(rest, " \t:=(");
    std::string_view others = rest;
    const std::string_view first = take_until(others, ", \t)");
    const bool exact = comment.starts_with(ALLOW);
    if (first.empty()) {
        return head != ALLOW.substr(0, ALLOW.size() - 1)
                   ? std::vector<finding_t>()
                   : std::vector<finding_t>{{head, "this names no code, and silences nothing",
                                             "write the code behind it, such as `tovik: allow bare-number`"}};
    }
    if (!exact) {
        const std::string_view code = find_code(first) != nullptr ? first : nearest_code(first, budget);
        // Without a code, or the colon, it may be a sentence.
        if (code.empty() && comment[NAME.size()] != ':') {
            return {};
        }
        const std::string right = std::string(ALLOW) + std::string(code.empty() ? "CODE" : code);
        const auto size = static_cast<size_t>(first.data() + first.size() - comment.data());
        return {{comment.substr(0, size), "this silences nothing as it is written",
                 "write " + quoted(std::string_view(right)), code.empty() ? "" : right}};
    }
    std::vector<finding_t> findings = look_at_codes(comment.substr(ALLOW.size()), budget);
    if (findings.empty() && alone) {
        findings.push_back({head, "this silences nothing: the line has neither an instruction nor data",
                            "write it at the end of the line that is meant"});
    }
    return findings;
}

// Of each file, the lines of its statements, with their indices.
using places_t = std::unordered_map<uint32_t, std::vector<std::pair<int32_t, uint32_t>>>;

places_t places_of_statements(const source_map_t& map) {
    places_t places;
    for (uint32_t i = 0; i < map.statements.size(); ++i) {
        auto& lines = places[map.statements[i].file];
        if (lines.empty() || lines.back().first < map.statements[i].line) {
            lines.emplace_back(map.statements[i].line, i);
        }
    }
    return places;
}

void warn_of_allowances(warnings_t& warnings) {
    const source_map_t& map = *warnings.map;
    const std::vector<mention_t> mentions = find_mentions(map);
    places_t places = mentions.empty() ? places_t() : places_of_statements(map);
    int64_t budget = 1'000'000; // for names that are like others, see `nearest`
    for (const mention_t& mention : mentions) {
        const source_line_t& line = mention.line;
        std::string_view comment = line.text.substr(mention.begin);
        comment = comment.substr(0, comment.find_last_not_of(WHITE_SPACE) + 1);
        const std::string_view before = line.text.substr(0, mention.begin);
        const bool whole = before.find_last_not_of("/ \t") == npos;
        const auto& lines = places[mention.file];
        const auto next =
            std::lower_bound(lines.begin(), lines.end(), mention.number,
                             [](const auto& one, int32_t number) { return one.first < number; });
        for (finding_t& finding : look_at_comment(comment, whole || line.include, budget)) {
            const auto first = static_cast<uint32_t>(finding.text.data() - line.text.data()) + 1;
            const place_t place{.file = mention.file,
                                .line = mention.number,
                                .first = first,
                                .last = first + static_cast<uint32_t>(finding.text.size()) - 1};
            if (is_left_out(warnings, code::BAD_ALLOW, place, line.text)) {
                continue;
            }
            warnings.found.push_back({.statement = next == lines.end() ? NOTHING : next->second,
                                      .line = line.text,
                                      .diagnostic = {.place = place,
                                                     .severity = severity_e::WARNING,
                                                     .code = code::BAD_ALLOW,
                                                     .message = std::move(finding.message),
                                                     .help = std::move(finding.help)}});
            if (!finding.replacement.empty()) {
                warnings.found.back().diagnostic.fix = {{place, std::move(finding.replacement)}};
            }
        }
    }
}

} // namespace

void warn_of_lines(warnings_t& warnings) {
    warn_of_characters(warnings);
    warn_of_allowances(warnings);
}
