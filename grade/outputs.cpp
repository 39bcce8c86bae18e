#include "grade/outputs.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <string_view>

#include "grade/markdown.h"
#include "language/characters.h"

namespace {

using json_t = nlohmann::ordered_json;

std::string dumped(const json_t& value) {
    return value.dump(2, ' ', false, json_t::error_handler_t::replace) + "\n";
}

// Why a case has not run, if it has not.
std::string why_not(const case_result_t& one) { return one.fault.empty() ? one.trouble : one.fault; }

std::string failed_text(const check_result_t& check) {
    return check.name + ": " + check.seen + " instead of " + check.expected;
}

// Calls for each check that failed in a case that has run.
void for_each_failed(const std::vector<check_result_t>& checks,
                     const std::function<void(const check_result_t&)>& act) {
    for (const check_result_t& check : checks) {
        if (!check.passed) {
            act(check);
        }
    }
}

std::string case_text(const case_result_t& one) {
    if (std::string why = why_not(one); !why.empty()) {
        return why;
    }
    std::string text;
    for_each_failed(one.checks, [&](const check_result_t& check) {
        text += (text.empty() ? "" : "; ") + failed_text(check);
    });
    return text;
}

// A line for each check that failed, with what the instructor says to it.
std::string failed_lines(const std::vector<check_result_t>& checks) {
    std::string text;
    for_each_failed(checks, [&](const check_result_t& check) {
        text += (text.empty() ? "" : "\n") + failed_text(check) +
                (check.message.empty() ? "" : ". " + check.message);
    });
    return text;
}

bool has_passed(const case_result_t& one) {
    return why_not(one).empty() && std::all_of(one.checks.begin(), one.checks.end(),
                                               [](const check_result_t& check) { return check.passed; });
}

std::string replaced(std::string_view text, const std::function<std::string(char)>& by) {
    std::string result;
    for (const char c : text) {
        result += by(c);
    }
    return result;
}

bool is_control(char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }

std::string in_one_line(std::string_view text) {
    return replaced(text, [](char c) { return std::string(1, is_control(c) ? ' ' : c); });
}

// ---- Feedback

double worth(const std::vector<check_result_t>& checks) {
    double points = 0;
    for (const check_result_t& check : checks) {
        points += check.points;
    }
    return points;
}

// What a check shows in several lines stays so.
void add_seen(std::string& text, const std::string& seen) {
    if (seen.find('\n') == std::string::npos) {
        text += "  - seen: " + in_markdown(seen) + "\n";
        return;
    }
    const std::string lines = fenced(seen);
    text += "  - seen:\n\n";
    for (size_t begin = 0; begin < lines.size();) {
        const size_t end = lines.find('\n', begin) + 1;
        text += "    " + lines.substr(begin, end - begin);
        begin = end;
    }
    text += "\n";
}

// Its points are those of the case, shared out.
void add_check(std::string& text, const check_result_t& check, double share) {
    const double points = share * check.points;
    text += "- " + std::string(check.passed ? "right" : "**wrong**") + ": " + in_markdown(check.name) + ", " +
            points_text(check.passed ? points : 0) + " of " + points_text(points);
    if (check.passed) {
        text += ": " + in_markdown(check.expected) + "\n";
        return;
    }
    text += "\n  - expected: " + in_markdown(check.expected) + "\n";
    add_seen(text, check.seen);
    if (!check.message.empty()) {
        text += "  - " + in_markdown(check.message) + "\n";
    }
    if (check.pictures.size() == 3) {
        text += "\n  | expected | seen | what differs is red |\n  |---|---|---|\n  |";
        const std::array<std::string, 3> what = {"expected", "seen", "difference"};
        for (size_t i = 0; i < what.size(); ++i) {
            text += " ![" + what[i] + "](" + link_to(check.pictures[i]) + ") |";
        }
        text += "\n\n";
    }
}

// "The run ended after 16 instructions: halt (prog.k:5: halt)."
std::string how_it_ended(const case_result_t& one) {
    constexpr std::string_view LIMIT = "limit";
    constexpr std::string_view ERROR = "error: ";
    std::string how = one.ended;
    if (how.starts_with(LIMIT)) {
        how = "the limit of instructions" + how.substr(LIMIT.size());
    } else if (how.starts_with(ERROR)) {
        how.erase(0, ERROR.size()); // its message says so, too
    }
    return "The run ended after " + std::to_string(one.instructions) +
           (one.instructions == 1 ? " instruction" : " instructions") +
           (one.seed == 1 ? "" : ", with `--seed " + std::to_string(one.seed) + "`") + ": " +
           in_markdown(how) + (how.ends_with('.') ? "" : ".") + "\n\n";
}

void add_given(std::string& text, const std::string& given) {
    const size_t end = std::min(given.find('\n'), given.size());
    if (end > 0) {
        text += "Given: " + in_markdown(given.substr(0, end)) + (end < given.size() ? ":\n\n" : ".\n\n");
    }
    if (end < given.size()) {
        text += fenced(given.substr(end + 1)) + "\n";
    }
}

void add_case(std::string& text, const case_result_t& one) {
    text += "\n## " + in_markdown(one.name) + ": " + points_text(one.got) + " of " + points_text(one.points) +
            "\n\n";
    if (one.hidden) {
        text += std::string("A hidden case, which ") +
                (!one.trouble.empty() ? "could not be run"
                 : has_passed(one)    ? "is right"
                                      : "is not right") +
                ".\n";
        return;
    }
    add_given(text, one.given);
    if (const std::string why = why_not(one); !why.empty()) {
        text += "Nothing was tested: " + in_markdown(why) + ".\n";
        return;
    }
    text += how_it_ended(one);
    const double points = worth(one.checks);
    for (const check_result_t& check : one.checks) {
        add_check(text, check, points == 0 ? 0 : one.points / points);
    }
}

// The student's points, and how they come from those of the cases.
std::string points_line(const student_result_t& result) {
    std::string text = points_text(result.got) + " of " + points_text(result.points) + " points";
    double all = worth(result.source_checks);
    double got = 0;
    for (const check_result_t& check : result.source_checks) {
        got += check.passed ? check.points : 0;
    }
    for (const case_result_t& one : result.cases) {
        all += one.points;
        got += one.got;
    }
    if (all > 0 && points_text(all) != points_text(result.points)) {
        text += ": " + points_text(got) + " of the " + points_text(all) + " below, in proportion";
    }
    return text + ".\n";
}

// Of a hidden case only the name.
std::string not_graded_line(const student_result_t& result) {
    const auto first = std::find_if(result.cases.begin(), result.cases.end(),
                                    [](const case_result_t& one) { return !one.trouble.empty(); });
    const bool is_hidden = first != result.cases.end() && first->hidden;
    return "\nNot graded, and not your fault: " +
           in_markdown(is_hidden ? first->name + " could not be run" : result.trouble) + "\n";
}

// ---- Other programs

// XML has no U+FFFE and U+FFFF, however they are written.
std::string for_xml(std::string_view text) {
    std::string line = in_one_line(text);
    for (const std::string_view none : {"\xef\xbf\xbe", "\xef\xbf\xbf"}) {
        for (size_t at = line.find(none); at != std::string::npos; at = line.find(none, at)) {
            line.replace(at, none.size(), "?");
        }
    }
    return replaced(line, [](char c) -> std::string {
        switch (c) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '"':
            return "&quot;";
        default:
            return std::string(1, c);
        }
    });
}

std::string lines_for_xml(std::string_view text) {
    std::string lines;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        lines += for_xml(text.substr(begin, end - begin)) + (end < text.size() ? "\n" : "");
        begin = end + 1;
    }
    return lines;
}

// One test for the source, if it is looked at, and one for each case.
struct test_t {
    std::string name;
    bool passed;
    bool hidden;
    double points;
    double got;
    std::string text; // of one that failed
    std::string trouble;
};

std::vector<test_t> tests_of(const task_t& task, const student_result_t& result) {
    std::vector<test_t> tests;
    if (!result.fault.empty() || (!result.trouble.empty() && result.cases.empty())) {
        tests.push_back({task.source, false, false, result.points, 0,
                         result.fault + (result.assembly.empty() ? "" : "\n") + result.assembly,
                         result.trouble});
        return tests;
    }
    for (const check_result_t& check : result.source_checks) {
        tests.push_back({check.name,
                         check.passed,
                         false,
                         check.points,
                         check.passed ? check.points : 0,
                         failed_lines({check}),
                         {}});
    }
    for (const case_result_t& one : result.cases) {
        const std::string why = why_not(one);
        tests.push_back({one.name, has_passed(one), one.hidden, one.points, one.got,
                         why.empty() ? failed_lines(one.checks) : why, one.trouble});
    }
    return tests;
}

} // namespace

std::string points_text(double points) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.3f", points);
    std::string result = text.data();
    result.erase(result.find_last_not_of('0') + 1);
    return result.ends_with('.') ? result.substr(0, result.size() - 1) : result;
}

std::string quoted_for_csv(std::string_view text) {
    const bool is_formula =
        !text.empty() && std::string_view("=+-@").find(text.front()) != std::string_view::npos;
    return (is_formula ? "\"'" : "\"") +
           replaced(in_one_line(text), [](char c) { return c == '"' ? "\"\"" : std::string(1, c); }) + "\"";
}

std::string remarks(const student_result_t& result) {
    if (!result.trouble.empty()) {
        return "not graded: " + in_one_line(result.trouble);
    }
    std::string text = in_one_line(result.fault);
    const auto add = [&](const std::string& remark) {
        text += (text.empty() ? "" : "; ") + in_one_line(remark);
    };
    for_each_failed(result.source_checks, [&](const check_result_t& check) { add(failed_text(check)); });
    for (const case_result_t& one : result.cases) {
        if (!has_passed(one)) {
            add(one.name + ": " + case_text(one));
        }
    }
    return text;
}

std::string table(const std::vector<student_result_t>& results, bool aligned) {
    size_t student_width = 0;
    size_t points_width = 0;
    for (const student_result_t& result : results) {
        student_width = std::max(student_width, count_characters(in_one_line(result.student)));
        points_width = std::max(points_width, points_text(result.got).size());
    }
    std::string text;
    for (const student_result_t& result : results) {
        const std::string student = in_one_line(result.student);
        const std::string points = points_text(result.got);
        const std::string why = remarks(result);
        text += student;
        if (aligned) {
            text.append(student_width - count_characters(student) + 2, ' ');
            text.append(points_width - points.size(), ' ');
            text.append(points).append(why.empty() ? "" : "  ");
        } else {
            text.append("\t").append(points).append("\t");
        }
        text.append(why).append("\n");
    }
    return text;
}

std::string feedback(const task_t& task, const student_result_t& result) {
    std::string text =
        "# " + in_markdown(task.title) + ": " + in_markdown(result.student) + "\n\n" + points_line(result);
    if (!result.trouble.empty()) {
        text += not_graded_line(result);
    }
    if (!result.assembly.empty()) {
        text += "\nNothing was tested: " + in_markdown(task.source + " " + result.fault) + ".\n\n" +
                fenced(result.assembly);
    } else if (!result.fault.empty()) {
        text += "\nNothing was tested: " + in_markdown(result.fault) + ".\n";
    }
    if (!result.source_checks.empty()) {
        text += "\n## The source\n\n";
        for (const check_result_t& check : result.source_checks) {
            add_check(text, check, 1);
        }
    }
    for (const case_result_t& one : result.cases) {
        add_case(text, one);
    }
    return text;
}

namespace {

// What does not assemble has none.
std::vector<check_result_t> source_checks_of(const std::vector<student_result_t>& results) {
    const auto has_some = [](const student_result_t& result) { return !result.source_checks.empty(); };
    const auto first = std::find_if(results.begin(), results.end(), has_some);
    return first == results.end() ? std::vector<check_result_t>() : first->source_checks;
}

} // namespace

std::string to_csv(const task_t& task, const std::vector<student_result_t>& results) {
    std::string text = "student,points,of";
    const std::vector<check_result_t> source_checks = source_checks_of(results);
    for (const check_result_t& check : source_checks) {
        text += "," + quoted_for_csv(check.name);
    }
    for (const case_t& one : task.cases) {
        text += "," + quoted_for_csv(one.name);
    }
    text += ",remarks\n";
    for (const student_result_t& result : results) {
        text +=
            quoted_for_csv(result.student) + "," + points_text(result.got) + "," + points_text(result.points);
        for (size_t i = 0; i < source_checks.size(); ++i) {
            const bool is_right = i < result.source_checks.size() && result.source_checks[i].passed;
            text += "," + points_text(is_right ? result.source_checks[i].points : 0);
        }
        for (size_t i = 0; i < task.cases.size(); ++i) {
            text += "," + (i < result.cases.size() ? points_text(result.cases[i].got) : "0");
        }
        text += "," + quoted_for_csv(remarks(result)) + "\n";
    }
    return text;
}

std::string to_junit(const task_t& task, const std::vector<student_result_t>& results) {
    std::string text =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"" + for_xml(task.title) + "\">\n";
    for (const student_result_t& result : results) {
        const std::vector<test_t> tests = tests_of(task, result);
        const auto count = [&](bool troubled) {
            return std::to_string(std::count_if(tests.begin(), tests.end(), [=](const test_t& test) {
                return !test.passed && !test.trouble.empty() == troubled;
            }));
        };
        text += "  <testsuite name=\"" + for_xml(result.student) + "\" tests=\"" +
                std::to_string(tests.size()) + "\" failures=\"" + count(false) + "\" errors=\"" +
                count(true) + "\">\n";
        for (const test_t& test : tests) {
            text += "    <testcase classname=\"" + for_xml(result.student) + "\" name=\"" +
                    for_xml(test.name) + "\"";
            if (test.passed) {
                text += "/>\n";
            } else {
                const std::string element = test.trouble.empty() ? "failure" : "error";
                const std::string& why = test.trouble.empty() ? test.text : test.trouble;
                text += std::string(">\n      <").append(element) + " message=\"" +
                        for_xml(why.substr(0, why.find('\n'))) + "\">" + lines_for_xml(why) + "</" + element +
                        ">\n    </testcase>\n";
            }
        }
        text += "  </testsuite>\n";
    }
    return text + "</testsuites>\n";
}

std::string to_tap(const task_t& task, const std::vector<student_result_t>& results) {
    std::string lines;
    size_t number = 0;
    for (const student_result_t& result : results) {
        for (const test_t& test : tests_of(task, result)) {
            // A "#" would begin a directive.
            const std::string name = replaced(in_one_line(result.student + ": " + test.name), [](char c) {
                return c == '#' || c == '\\' ? std::string("\\") + c : std::string(1, c);
            });
            lines +=
                std::string(test.passed ? "ok " : "not ok ") + std::to_string(++number) + " - " + name + "\n";
            if (!test.passed) {
                lines += "  ---\n  message: " +
                         json_t(test.trouble.empty() ? test.text : test.trouble)
                             .dump(-1, ' ', false, json_t::error_handler_t::replace) +
                         "\n  ...\n";
            }
        }
    }
    return "TAP version 14\n1.." + std::to_string(number) + "\n" + lines;
}

std::string to_gradescope(const task_t& task, const student_result_t& result) {
    const std::vector<test_t> all = tests_of(task, result);
    double points = 0;
    for (const test_t& test : all) {
        points += test.points;
    }
    // So that they are the student's points together.
    const double share = points == 0 ? 0 : result.points / points;
    json_t tests = json_t::array();
    for (const test_t& test : all) {
        tests.push_back({{"name", test.name},
                         {"score", share * test.got},
                         {"max_score", share * test.points},
                         {"status", test.passed ? "passed" : "failed"},
                         {"output", test.text},
                         {"visibility", test.hidden ? "hidden" : task.visibility}});
    }
    // Not the remarks: they tell of hidden cases.
    return dumped({{"score", result.got},
                   {"output", result.trouble.empty() ? result.fault : "not graded"},
                   {"tests", tests}});
}

std::string to_json(const task_t& task, const std::vector<student_result_t>& results) {
    json_t all = {{"version", 1}, {"title", task.title}, {"students", json_t::array()}};
    for (const student_result_t& result : results) {
        all["students"].push_back(json_t::parse(
            nlohmann::json(result).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)));
    }
    return dumped(all);
}
