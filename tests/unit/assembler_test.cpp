// The assembler on the files of tests/assembler: NAME.k gives NAME.mif and NAME.labels to the byte, or the
// report NAME.err, or both.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "assembler/assemble.h"
#include "assembler/numbers.h"
#include "core/machine.h"
#include "core/simulate.h"
#include "tests/support/gui_recording.h"

namespace {

namespace fs = std::filesystem;

std::string content(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

class Assembler : public testing::Test {
  protected:
    void SetUp() override {
        std::string folder = (fs::temp_directory_path() / "tovik-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(folder.data()), nullptr);
        fs::copy(TOVIK_ASSEMBLER_CASES, folder, fs::copy_options::recursive);
        start_ = fs::current_path();
        fs::current_path(folder);
        graphical_display = true;
        recording = {};
    }

    void TearDown() override {
        const fs::path folder = fs::current_path();
        fs::current_path(start_);
        fs::remove_all(folder);
        graphical_display = false;
    }

  private:
    fs::path start_;
};

TEST_F(Assembler, WritesAndReportsExactly) {
    int cases = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(TOVIK_ASSEMBLER_CASES)) {
        if (entry.path().extension() != ".k") {
            continue;
        }
        ++cases;
        const std::string base = entry.path().stem();
        SCOPED_TRACE(base);
        const std::string report = content(entry.path().parent_path() / (base + ".err"));
        recording.calls.clear();
        EXPECT_EQ(assemble(base + ".k"), report.empty());
        const std::vector<std::string> expected =
            report.empty() ? std::vector<std::string>() : std::vector{"error " + report};
        EXPECT_EQ(recording.calls, expected);
        for (const char* const extension : {".mif", ".labels"}) {
            const fs::path file = entry.path().parent_path() / (base + extension);
            if (fs::exists(file)) {
                EXPECT_EQ(content(base + extension), content(file)) << extension;
            }
        }
    }
    EXPECT_GT(cases, 20);
}

TEST(Numbers, AreReadOnlyAsTheyWouldBePrinted) {
    const struct {
        const char* text;
        int32_t value;
    } good[] = {{"0", 0},
                {"10", 10},
                {"-10", -10},
                {"2147483647", INT32_MAX},
                {"-2147483648", INT32_MIN},
                {"0x1f", 0x1f},
                {"0x0", 0},
                {"0x80000000", INT32_MIN},
                {"0xffffffff", -1}};
    for (const auto& c : good) {
        EXPECT_EQ(string_to_number(c.text), c.value) << c.text;
    }
    for (const std::string text : {"+5",   "010",  "007",  "-0",         "12abc",       "5;",         "--5",
                                   "-",    "+",    "0x",   "0x0ff",      "0xFF",        "0X1f",       "0x-1",
                                   "0x+1", "0x1g", "-0x1", "2147483648", "-2147483649", "0x100000000"}) {
        try {
            string_to_number(text);
            ADD_FAILURE() << text << " was accepted";
        } catch (const tovik_error& error) {
            EXPECT_EQ(error.message, text + " is a malformed number");
        }
    }
}

} // namespace
