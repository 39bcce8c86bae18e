// The commands behind the buttons, by what the user typed and what the window then shows.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/debug.h"
#include "core/machine.h"
#include "core/simulate.h"
#include "tests/support/gui_recording.h"

namespace {

class Commands : public testing::Test {
  protected:
    void SetUp() override {
        simulator.speaker_warned = false;
        reset_machine();
        simulate_init();
        recording = {};
        typed = {};
    }

    void TearDown() override {
        simulator.running = false;
        machine.halted = false;
        simulate_init();
    }
};

TEST_F(Commands, RunReadsAndRewritesTheEntries) {
    const struct {
        const char* text;
        int step;
        const char* step_text;
        int32_t address;
        const char* address_text;
    } cases[] = {
        {"3", 3, "3", 3, "3"},   {"0", -1, "", 0, "0"},
        {"-5", -1, "", -1, ""},  {"x", -1, "", 0, "0"},
        {"", -1, "", -1, ""},    {" 12", 12, "12", 12, "12"},
        {"7up", 7, "7", 7, "7"}, {"\n5", 5, "5", -1, ""},
        {"+4", 4, "4", 4, "4"},  {"99999999999", INT32_MAX, "2147483647", INT32_MAX, "2147483647"},
    };
    for (const auto& c : cases) {
        simulator.running = false;
        typed.steps = typed.breakpoint = typed.watchpoint = c.text;
        debug_runstop();
        EXPECT_EQ(simulator.step, c.step) << c.text;
        EXPECT_EQ(typed.steps, c.step_text) << c.text;
        EXPECT_EQ(simulator.breakpoint, c.address) << c.text;
        EXPECT_EQ(simulator.watchpoint, c.address) << c.text;
        EXPECT_EQ(typed.breakpoint, c.address_text) << c.text;
        EXPECT_EQ(typed.watchpoint, c.address_text) << c.text;
        EXPECT_TRUE(simulator.running);
    }
}

TEST_F(Commands, RunStartsAndStops) {
    typed.steps = "9";
    debug_runstop();
    EXPECT_EQ(recording.calls, (std::vector<std::string>{"runstop Stop", "status Running", "pc ",
                                                         "error Can't open pulse speaker."}));
    typed.steps = "8";
    debug_runstop();
    EXPECT_EQ(simulator.step, 0);
    EXPECT_TRUE(simulator.running) << "the run loop executes one more instruction and ends the run";
    EXPECT_EQ(typed.steps, "8") << "Stop does not read the entries";
}

TEST_F(Commands, RunOnAHaltedMachineOnlyReadsTheEntries) {
    machine.halted = true;
    typed.breakpoint = "-3";
    debug_runstop();
    EXPECT_FALSE(simulator.running);
    EXPECT_TRUE(recording.calls.empty());
    EXPECT_EQ(typed.breakpoint, "");
}

TEST_F(Commands, AskForTheFileOnce) {
    for (void (*const command)() : {debug_assemble, debug_load}) {
        typed = {};
        recording.calls.clear();
        command();
        EXPECT_EQ(recording.calls, (std::vector<std::string>{"open Choose assembly file *.k "}));
        EXPECT_EQ(typed.assemble_file, "Choose assembly file") << "cancelled";
    }
    typed.chosen_file = "/none/prog.k";
    debug_assemble_choose();
    recording.calls.clear();
    typed.chosen_file.clear();
    debug_assemble_choose();
    EXPECT_EQ(recording.calls, (std::vector<std::string>{"open Choose assembly file *.k /none/prog.k"}));
    graphical_display = true;
    debug_load();
    EXPECT_EQ(recording.calls.back(), "error Can't open /none/prog.mif");
    debug_assemble();
    EXPECT_EQ(recording.calls.back(), "error can't open file /none/prog.mif: No such file or directory");
    graphical_display = false;
    typed.chosen_file = "prog.c";
    EXPECT_EXIT(debug_assemble_choose(), testing::ExitedWithCode(1), "");
}

} // namespace
