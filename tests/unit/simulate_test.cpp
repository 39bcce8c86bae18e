// The run loop's bookkeeping: when a run stops and why, what happens every so many instructions.

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include <sys/resource.h>

#include "core/machine.h"
#include "core/memory.h"
#include "core/reference.h"
#include "core/simulate.h"
#include "tests/support/gui_recording.h"

namespace {

constexpr int32_t LOOP = 0;   // a loop of two instructions that counts in COUNT,
constexpr int32_t BRANCH = 4; // LOOP: add COUNT COUNT ONE; BRANCH: be LOOP ONE ONE
constexpr int32_t COUNT = 50;
constexpr int32_t ONE = 51;

class RunLoop : public testing::TestWithParam<void (*)()> {
  protected:
    void SetUp() override {
        recording = {};
        clear_memory();
        reset_machine();
        simulate_init();
        const int32_t program[] = {K24_ADD, COUNT, COUNT, ONE, K24_BE, LOOP, ONE, ONE};
        std::ranges::copy(program, machine.memory);
        machine.memory[ONE] = 1;
        simulator.step = -1;
    }

    static std::vector<std::string> run() { return run_until_stop(GetParam()); }

    static void expect_reason(stop_reason_e reason) {
        if (GetParam() == simulate_run) {
            EXPECT_EQ(last_stop().reason, reason);
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, RunLoop, testing::Values(simulate_run, reference_run),
                         [](const auto& engine) {
                             return engine.param == simulate_run ? "shipped" : "reference";
                         });

TEST_P(RunLoop, CountsSteps) {
    for (const int steps : {1, 3, 7}) {
        machine.instr_count = 0;
        simulator.step = steps;
        const auto calls = run();
        EXPECT_EQ(machine.instr_count, static_cast<uint64_t>(steps));
        EXPECT_TRUE(std::ranges::count(calls, "status Stopped"));
        expect_reason(stop_reason_e::STEPS);
    }
}

TEST_P(RunLoop, ExecutesOneInstructionWhenNoStepIsLeft) {
    simulator.step = 0;
    run();
    EXPECT_EQ(machine.instr_count, 1U);
    expect_reason(stop_reason_e::STOPPED);
}

TEST_P(RunLoop, StopsBeforeTheBreakpointButNotAtTheStart) {
    simulator.breakpoint = BRANCH;
    run();
    EXPECT_EQ(machine.pc, BRANCH);
    EXPECT_EQ(machine.instr_count, 1U);
    run();
    EXPECT_EQ(machine.instr_count, 3U);
    expect_reason(stop_reason_e::BREAKPOINT);
}

TEST_P(RunLoop, StopsAtMinusOneAsAtAnyBreakpoint) {
    machine.memory[BRANCH + 1] = -1;
    run();
    EXPECT_EQ(machine.pc, -1);
    EXPECT_EQ(machine.instr_count, 2U);
    expect_reason(stop_reason_e::BREAKPOINT);
}

TEST_P(RunLoop, StopsAfterAWriteToTheWatchpointThatChangesNothing) {
    machine.memory[ONE] = 0;
    simulator.watchpoint = COUNT;
    run();
    EXPECT_EQ(machine.instr_count, 1U);
    EXPECT_EQ(simulator.step, 0);
    expect_reason(stop_reason_e::WATCHPOINT);
}

TEST_P(RunLoop, StopsForTheFirstOfSeveralReasons) {
    simulator.watchpoint = COUNT;
    simulator.breakpoint = BRANCH;
    simulator.step = 1;
    run();
    expect_reason(stop_reason_e::BREAKPOINT);
    machine.pc = LOOP;
    simulator.breakpoint = -1;
    simulator.step = 1;
    run();
    expect_reason(stop_reason_e::WATCHPOINT);
    machine.pc = LOOP;
    machine.memory[LOOP] = K24_HALT;
    simulator.step = 1;
    const auto calls = run();
    expect_reason(stop_reason_e::HALT);
    EXPECT_TRUE(std::ranges::count(calls, "status Halted  "));
    EXPECT_FALSE(std::ranges::count(calls, "status Stopped"));
}

TEST_P(RunLoop, LooksAtTheWindowEveryHundredThousandPasses) {
    recording.at_look = [] {
        if (machine.instr_count == 299999) {
            simulator.step = 0; // the Stop button
        }
    };
    run();
    EXPECT_EQ(recording.looks, (std::vector<uint64_t>{99999, 199999, 299999}));
    EXPECT_EQ(machine.instr_count, 300000U) << "one more instruction runs after Stop";
    expect_reason(stop_reason_e::STOPPED);
}

TEST_P(RunLoop, ShowsTheSimulatedSeconds) {
    simulator.step = 5 * 6666666;
    const auto calls = run();
    std::vector<std::string> times;
    std::ranges::copy_if(calls, std::back_inserter(times),
                         [](const auto& c) { return c.starts_with("time"); });
    // Rounded down to millions of instructions, then to seconds: 6, 13, 19, 26 and 33 millions.
    EXPECT_EQ(times, (std::vector<std::string>{"time 0 sec", "time 1 sec", "time 2 sec", "time 3 sec",
                                               "time 4 sec"}));
}

TEST_P(RunLoop, KeepsTheResetThatADialogMade) {
    machine.memory[BRANCH] = 18;
    recording.at_message = reset_machine;
    run();
    EXPECT_EQ(machine.instr_count, 1U) << "the failed instruction counts after the reset";
    EXPECT_EQ(machine.pc, BRANCH);
}

TEST_P(RunLoop, AbortsWhenTheInstructionCountWraps) {
    machine.instr_count = std::numeric_limits<uint64_t>::max() - 5;
    EXPECT_DEATH(run(), "machine.instr_count != 0");
}

// Computes a little at every tick of the timer and waits for the next one.
TEST(LongRun, EndsAsComputed) {
    constexpr int32_t turns = 120049; // a little more than a hundred million instructions
    constexpr int32_t terms = 100;
    constexpr int32_t timer = INT32_MIN + 5;
    enum : int32_t { NOW = 100, LAST, I, SUM, TURN, ZERO, TERM, TERMS, TURNS };
    const int32_t program[] = {
        K24_CP,  NOW,  timer, 0,    // 0: now = timer
        K24_BE,  0,    NOW,   LAST, // 4: if now == last goto 0
        K24_CP,  LAST, NOW,   0,    // 8: last = now
        K24_CP,  I,    TERMS, 0,    // 12: i = terms
        K24_ADD, SUM,  SUM,   I,    // 16: sum += i
        K24_SUB, I,    I,     TERM, // 20: i -= 1
        K24_BNE, 16,   I,     ZERO, // 24: if i != 0 goto 16
        K24_ADD, TURN, TURN,  TERM, // 28: turn += 1
        K24_BLT, 0,    TURN,  TURNS // 32: if turn < turns goto 0; 36: halt
    };
    recording = {};
    clear_memory();
    reset_machine();
    simulate_init();
    std::ranges::copy(program, machine.memory);
    machine.memory[TERM] = 1;
    machine.memory[TERMS] = terms;
    machine.memory[TURNS] = turns;
    simulator.step = -1;
    const auto calls = run_until_stop(simulate_run);

    uint64_t count = 0; // instructions when the timer is read
    uint64_t last = 0;
    for (int32_t turn = 0; turn < turns; ++turn) {
        while (count / 833 == last) {
            count += 2;
        }
        last = count / 833;
        count += 2 + 2 + 3 * terms + 2;
    }
    ++count; // the halt
    EXPECT_EQ(last_stop().reason, stop_reason_e::HALT);
    EXPECT_EQ(machine.pc, 40);
    EXPECT_EQ(machine.instr_count, count);
    EXPECT_EQ(machine.memory[NOW], static_cast<int32_t>(last));
    EXPECT_EQ(machine.memory[TURN], turns);
    EXPECT_EQ(machine.memory[SUM],
              static_cast<int32_t>(static_cast<uint32_t>(turns) * terms * (terms + 1) / 2));
    EXPECT_EQ(machine.speaker_samples.size(), count / 833);
    EXPECT_EQ(recording.looks.size(), count / 100000);
    EXPECT_EQ(recording.looks.back(), count / 100000 * 100000 - 1);
    const auto is_time = [](const std::string& call) { return call.starts_with("time"); };
    EXPECT_EQ(std::ranges::count_if(calls, is_time), static_cast<std::ptrdiff_t>(count / 6666666));
    reset_machine();
}

TEST(Reset, KeepsProgramSwitchesAndStops) {
    reset_machine();
    machine.memory[3] = 33;
    machine.sw = 5;
    machine.pc = 8;
    machine.instr_count = 9;
    machine.halted = true;
    machine.led_red = 1;
    machine.hex30 = 2;
    simulator.breakpoint = 7;
    simulator.watchpoint = 8;
    recording = {};
    reset_machine();
    const std::string blank(16, ' ');
    EXPECT_EQ(recording.calls, (std::vector<std::string>{"runstop Run ", "status Stopped", "time 0 sec",
                                                         "cursor off", "pc PC 0", "memory", "hex30 0000",
                                                         "hex74 0000", "lcd " + blank + "\n" + blank}));
    EXPECT_EQ(machine.pc, 0);
    EXPECT_EQ(machine.instr_count, 0U);
    EXPECT_FALSE(machine.halted);
    EXPECT_EQ(machine.led_red, 0);
    EXPECT_EQ(machine.memory[3], 33);
    EXPECT_EQ(machine.sw, 5);
    EXPECT_EQ(simulator.breakpoint, 7);
    EXPECT_EQ(simulator.watchpoint, 8);
    simulate_init();
    machine.sw = 0;
}

// In a process of its own: a limit that was lowered does not rise again.
TEST(ProcessorTime, IsBounded) {
    const auto limits_become = [](rlim_t soft, rlim_t expected_soft, rlim_t expected_hard) {
        rlimit limit{};
        getrlimit(RLIMIT_CPU, &limit);
        limit.rlim_cur = std::min(soft, limit.rlim_max);
        setrlimit(RLIMIT_CPU, &limit);
        simulate_init();
        getrlimit(RLIMIT_CPU, &limit);
        std::exit(limit.rlim_cur == expected_soft && limit.rlim_max == expected_hard ? 0 : 1);
    };
    EXPECT_EXIT(limits_become(RLIM_INFINITY, 18000, 18010), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(limits_become(60, 60, 70), testing::ExitedWithCode(0), "");
}

} // namespace
