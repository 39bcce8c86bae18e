// Warnings: what is said of programs, and that nothing is said of good ones.

#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "language/codes.h"
#include "language/output.h"
#include "language/warnings.h"
#include "tests/support/listing.h"

namespace {

namespace fs = std::filesystem;

const fs::path SOURCES = fs::path(TESTS).parent_path();

// Of a program with the given text in the folder of the sources.
analysis_t check(const std::string& text, const std::string& library = "") {
    analysis_t analysis = analyse("program.k", [&](const std::string& name) {
        return name == "program.k" ? file_text_t{.text = text}
               : name == "lib.k"   ? file_text_t{.text = library}
                                   : read_file(SOURCES / name);
    });
    add_warnings(analysis);
    return analysis;
}

// The program, which has one warning, with a comment that allows it.
std::string allowed(const analysis_t& analysis) {
    const diagnostic_t& warning = analysis.diagnostics.list.front();
    std::istringstream lines(analysis.map.files.front().text);
    std::string text;
    int32_t number = 0;
    for (std::string line; std::getline(lines, line);) {
        const bool here = ++number == warning.place.line;
        text += line + (here ? " // tovik: allow " + std::string(warning.code) : "") + "\n";
    }
    return text;
}

// The codes of what is said, in the order of the lines.
std::string codes_of(const analysis_t& analysis) {
    std::string codes;
    for (const diagnostic_t& diagnostic : analysis.diagnostics.list) {
        codes += std::string(codes.empty() ? "" : " ") + std::string(diagnostic.code);
    }
    return codes;
}

// The parts of a text between lines that are only the mark.
std::vector<std::string> parts_of(const std::string& text, const std::string& mark) {
    std::vector<std::string> parts(1);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line == mark) {
            parts.emplace_back();
        } else {
            parts.back() += line + "\n";
        }
    }
    return parts;
}

std::vector<fs::path> programs_of(const fs::path& folder) {
    std::vector<fs::path> programs;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.path().extension() == ".k") {
            programs.push_back(entry.path());
        }
    }
    EXPECT_FALSE(programs.empty()) << folder;
    return programs;
}

} // namespace

TEST(Warnings, SayOfEachProgramWhatIsWrong) {
    const std::string text = read_file(fs::path(TESTS) / "language/warnings.cases").text;
    std::vector<std::string> cases = parts_of(text, "=====");
    for (size_t i = 1; i < cases.size(); ++i) {
        const std::vector<std::string> parts = parts_of(cases[i], "-----");
        const std::vector<std::string> files = parts_of(parts.at(0), "+++++");
        const bool includes = files.size() > 1;
        const std::string main = files[0] + (includes ? "#include lib.k\n" : "");
        EXPECT_EQ(listing(check(main, includes ? files[1] : "")), parts.at(1)) << cases[i];
    }
}

// The table's examples show what it says of them, and a warning is silenced in its line.
TEST(Warnings, TableOfCodesHasAnExampleOfEach) {
    for (const code_info_t& info : all_codes()) {
        EXPECT_EQ(&info, find_code(info.code));
        if (!info.wrong.empty()) {
            const analysis_t wrong = check(std::string(info.wrong));
            ASSERT_EQ(codes_of(wrong), info.code) << info.wrong;
            EXPECT_EQ(wrong.diagnostics.list.front().severity, info.severity);
            if (info.severity == severity_e::WARNING) {
                EXPECT_EQ(listing(check(allowed(wrong))), "");
            }
            EXPECT_EQ(listing(check(std::string(info.right))), "") << info.right;
        }
    }
}

TEST(Warnings, SayNothingOfExamples) {
    for (const char* const folder : {"examples", "bench"}) {
        for (const fs::path& program : programs_of(SOURCES / folder)) {
            // This one uses another library file, and the class to be graded has made mistakes.
            const bool is_handed_in = program.string().find("/grading/class/") != std::string::npos;
            if (program.filename() != "decimal.k" && !is_handed_in) {
                analysis_t analysis = analyse(program);
                add_warnings(analysis);
                EXPECT_EQ(listing(analysis), "") << program;
            }
        }
    }
}

// The programs of the manual are good, apart from those that show a mistake.
TEST(Warnings, SayOfTheManualWhatItShows) {
    const std::map<std::string, std::string> mistakes = {
        {"wrong.k", "command-not-cleared parameter-too-late result-too-early"},
        {"plus.k", "bare-number"},
        {"ten.k", "undefined-label bare-number"},
        {"colon.k", "undefined-label"},
        {"begin.k", "begins-with-data"}};
    const std::string begin = "\n```k24 ";
    size_t count = 0;
    for (const auto& page : fs::directory_iterator(SOURCES / "docs")) {
        const std::string text = page.path().extension() == ".md" ? read_file(page.path()).text : "";
        for (size_t at = text.find(begin); at != std::string::npos; at = text.find(begin, at)) {
            at += begin.size();
            const size_t line = text.find('\n', at) + 1;
            const std::string name = text.substr(at, line - 1 - at);
            const std::string program = text.substr(line, text.find("```", line) - line);
            const auto found = mistakes.find(name);
            EXPECT_EQ(codes_of(check(program)), found == mistakes.end() ? "" : found->second) << name;
            ++count;
        }
    }
    EXPECT_GT(count, 20U);
}

// Long programs take no long time, and the list ends.
TEST(Warnings, EndAfterAThousand) {
    std::string text = " halt\n";
    for (int i = 0; i < 3000; ++i) {
        text += " add 1 1 2\n";
    }
    const analysis_t analysis = check(text);
    EXPECT_EQ(count_diagnostics(analysis.diagnostics).warnings, 9001U);
    EXPECT_EQ(count_diagnostics(analysis.diagnostics).faults, 0U);
    EXPECT_EQ(analysis.diagnostics.list.back().message, "and 8002 more");

    std::string quiet = " halt\n";
    for (int i = 0; i < 3000; ++i) {
        quiet += "word" + std::to_string(i) + " .data 0 // tovik: allow unused-label\n";
    }
    EXPECT_EQ(codes_of(check(quiet)), "");
}
