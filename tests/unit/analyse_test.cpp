// All faults of a program, and its source map.

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "assembler/analyse.h"
#include "tests/support/listing.h"

namespace {

namespace fs = std::filesystem;

const fs::path CASES = fs::path(TESTS) / "assembler";

// The files of the cases, by their names in that folder; the given text in place of the main file's.
file_text_t read_case(const std::string& name) { return read_file(CASES / name); }

analysis_t analyse_text(const std::string& text) {
    return analyse("main.k", [&](const std::string& name) {
        return name == "main.k" ? file_text_t{.text = text} : read_case(name);
    });
}

std::string read_text(const fs::path& name) { return read_file(name).text; }

// The main file's text after all fixes.
std::string mended(const analysis_t& analysis) {
    std::vector<std::string> lines(1);
    std::istringstream text(analysis.map.files[0].text);
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    std::vector<edit_t> edits;
    for (const diagnostic_t& diagnostic : analysis.diagnostics.list) {
        edits.insert(edits.end(), diagnostic.fix.begin(), diagnostic.fix.end());
    }
    // From right to left: no edit moves another one's place.
    std::ranges::sort(edits, std::greater(), [](const edit_t& edit) { return edit.place.first; });
    for (const edit_t& edit : edits) {
        const auto line = static_cast<size_t>(edit.place.line);
        lines[line].replace(edit.place.first - 1, edit.place.last + 1 - edit.place.first, edit.text);
    }
    std::string result;
    for (size_t i = 1; i < lines.size(); ++i) {
        result += lines[i] + "\n";
    }
    return result;
}

} // namespace

// NAME.k has the faults of NAME.check, and after the edits that these propose only those without an edit.
TEST(Analyse, FaultsAndFixesOfTheFiles) {
    for (const auto& entry : fs::directory_iterator(CASES)) {
        if (entry.path().extension() != ".check") {
            continue;
        }
        const std::string name = entry.path().stem().string() + ".k";
        const analysis_t analysis = analyse(name, read_case);
        const ptrdiff_t without_fix =
            std::ranges::count_if(analysis.diagnostics.list, &std::vector<edit_t>::empty, &diagnostic_t::fix);
        EXPECT_EQ(listing(analysis), read_text(entry.path())) << name;
        const analysis_t again = analyse(name, [&](const std::string& file) {
            return file == name ? file_text_t{.text = mended(analysis)} : read_case(file);
        });
        EXPECT_EQ(std::ssize(again.diagnostics.list), without_fix) << name << "\n" << mended(analysis);
    }
}

// The first fault of the list is the one that assemble reports, and where it reports none there is none.
TEST(Analyse, FirstFaultIsTheReportedOne) {
    for (const auto& entry : fs::directory_iterator(CASES)) {
        if (entry.path().extension() != ".k") {
            continue;
        }
        const std::string report = read_text(fs::path(entry.path()).replace_extension(".err"));
        const analysis_t analysis = analyse(entry.path().filename(), read_case);
        ASSERT_EQ(analysis.diagnostics.list.empty(), report.empty()) << entry.path();
        if (!report.empty()) {
            const place_t& place = analysis.diagnostics.list.front().place;
            const std::string begin = "error in " + analysis.map.files[place.file].name + " at line number " +
                                      std::to_string(place.line) + ": ";
            EXPECT_EQ(report.substr(0, begin.size()), begin);
        }
    }
}

TEST(Analyse, SourceMap) {
    const analysis_t analysis = analyse_text("10\tcpdata\tx y // here\n"
                                             "#include sub/part.k\n"
                                             "x\tret\tx\n"
                                             "\n"
                                             "y\n"
                                             "\t.data\tx\n"
                                             "\tnonsense y");
    const source_map_t& map = analysis.map;
    std::string text;
    for (size_t address = 0; address < map.words.size(); ++address) {
        const word_t& word = map.words[address];
        if (word.kind != word_e::NONE) {
            const statement_t& statement = map.statements[word.statement];
            text += std::to_string(address) + "=" + std::to_string(word.value) + " " +
                    "?coid"[static_cast<size_t>(word.kind)] + " " + std::to_string(statement.file) + ":" +
                    std::to_string(statement.line);
            if (word.operand != NO_OPERAND) {
                text +=
                    " " + std::string(text_of(map, statement.file, statement.operands[word.operand].token));
            }
            text += "\n";
        }
    }
    for (const label_t& label : map.labels) {
        text += std::string(name_of(map, label)) + " " + text_of_place(map, place_of(map, label));
        for (uint32_t i = 0; i < label.use_count; ++i) {
            text += " " + text_of_place(map, place_of(map, map.uses[label.first_use + i]));
        }
        text += "\n";
    }
    for (const inclusion_t& inclusion : map.inclusions) {
        text += map.files[inclusion.file].name + " " + text_of_place(map, place_of(map, inclusion)) + "\n";
    }
    EXPECT_EQ(text, R"(10=5 c 0:1
11=16 o 0:1 x
12=13 i 0:1
13=20 o 0:1 y
14=11 d 1:1 11
15=12 d 2:1 12
16=17 c 0:3
17=16 o 0:3 x
18=0 i 0:3
19=0 i 0:3
20=16 d 0:6 x
here sub/part.k:1:1-4
there sub/deeper/part.k:1:1-5
x 3:1-1 1:11-11 3:7-7 6:8-8
y 5:1-1 1:13-13 7:11-11
main.k 0:1-0
sub/part.k 2:10-19
sub/deeper/part.k sub/part.k:2:10-22
)");
}

// A full list says how many there are; sources that multiply themselves come to an end.
TEST(Analyse, HasLimits) {
    std::string faults;
    for (size_t i = 0; i < MOST_DIAGNOSTICS + 1; ++i) {
        faults += "\tnonsense\n";
    }
    const analysis_t full = analyse_text(faults);
    EXPECT_EQ(full.diagnostics.list.size(), MOST_DIAGNOSTICS);
    EXPECT_EQ(full.diagnostics.list.back().message, "and 2 more");

    std::string uses = "again\thalt\n";
    for (size_t i = 0; i < MOST_EDITS + 1; ++i) {
        uses += "\tbe agian 0 0\n";
    }
    const diagnostic_t many = analyse_text(uses).diagnostics.list.front();
    EXPECT_EQ(many.related.size(), MOST_RELATED);
    EXPECT_EQ(many.related.back().message, "also used here, and at 80 more places");
    EXPECT_EQ(many.fix.size(), 0);

    const analysis_t deep = analyse("1", [](const std::string& name) {
        const std::string include = "#include " + std::to_string(std::stoi(name) + 1) + "\n";
        return file_text_t{.text = name == "40" ? "" : include + include};
    });
    ASSERT_EQ(deep.diagnostics.list.size(), 1);
    EXPECT_EQ(deep.diagnostics.list.front().message, "the program has more than 16384 includes");

    const analysis_t wide = analyse("1", [](const std::string& name) {
        std::string text = " halt" + std::string(1 << 20, ' ') + "; nonsense\n";
        for (int i = 0; name == "1" && i < 40; ++i) {
            text += "#include 2\n";
        }
        return file_text_t{.text = text};
    });
    ASSERT_EQ(wide.diagnostics.list.size(), 3);
    EXPECT_EQ(wide.diagnostics.list.front().message,
              "the lines of the program have more than 33554432 bytes");

    const analysis_t longer = analyse_text(std::string(MOST_LINES, '\n') + "\tbe missing 0 0\n\tnonsense");
    ASSERT_EQ(longer.diagnostics.list.size(), 1);
    EXPECT_EQ(longer.diagnostics.list.front().message, "the program has more than 262144 lines");
}
