// Devices, by accesses to the I/O bus: what they answer, what they show, what they refuse.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "base/machine.h"
#include "base/noise.h"
#include "devices/mouse.h"
#include "devices/ps2.h"
#include "devices/sdram.h"
#include "tests/support/bus.h"
#include "tests/support/gui_recording.h"

namespace {

using Devices = DeviceTest;
using calls_t = std::vector<std::string>;

TEST_F(Devices, RefuseWhatTheyDoNotHave) {
    for (const std::string access :
         {"00=0", "01?0", "02?0", "03?0", "04?0", "05=0", "10?0", "11=0", "14?0", "20?0", "21=0", "30?0",
          "34?0", "35=0", "40?0", "41=0", "42?0", "60?0", "61=0", "67?0", "72=0", "81=0", "84?0", "90?0",
          "91=0", "a2?0", "b0?0", "c0?0", "c1=0", "c2?0", "c5?0", "d0?0", "d1=0", "d3=0", "e0?0"}) {
        EXPECT_EQ(perform(access), "unsupported operation on address 0x800000" + access.substr(0, 2));
    }
    for (const char* const access : {"22?0", "23?0", "35?0", "52?0", "68?0", "72?0", "76?0", "85?0",
                                     "90=0 92?0", "d2?0", "d3?0", "e2?0"}) {
        EXPECT_EQ(perform(access), TOO_EARLY) << access;
    }
    for (const auto& [access, address] : {std::pair{"06?0", "-2147483642"},
                                          {"0f=0", "-2147483633"},
                                          {"f4?0", "-2147483404"},
                                          {"104?0", "-2147483388"},
                                          {"7fffffff=0", "-1"}}) {
        EXPECT_EQ(perform(access), std::string("illegal address ") + address + "\n");
    }
    EXPECT_EQ(perform("f2?0 f3=5 100=5 103?0"), "") << "nothing there, and no fault";
}

TEST_F(Devices, LedsKeepTheirBitsAndRedrawWhatChanged) {
    EXPECT_EQ(shown_by("01=5 01=5"), (calls_t{"red 0", "red 2"}));
    EXPECT_EQ(shown_by("01=6 02=0x181"), (calls_t{"red 0", "red 1", "green 0", "green 7"}));
    EXPECT_EQ(shown_by("01=0x60000"), (calls_t{"red 1", "red 2", "red 17"}));
}

TEST_F(Devices, HexDisplaysShowFourDigits) {
    EXPECT_EQ(shown_by("03=0xab 03=0xab 03=0x12345 03=0x12345 03=0x2345 04=0 04=-1"),
              (calls_t{"hex30 00ab", "hex30 2345", "hex30 2345", "hex74 ffff"}));
}

TEST_F(Devices, TimerTicksEvery833Instructions) {
    EXPECT_EQ(perform("+832 05?0 +833 05?1 +1 05?2"), "");
    machine.instr_count = 833ULL << 31;
    EXPECT_EQ(perform("05?-2147483648"), "");
}

TEST_F(Devices, LcdShowsACharacterACommand) {
    const std::string blank(16, ' ');
    EXPECT_EQ(shown_by("12=25 13=3 14=0x141 10=1 11?1 10=3 12=9"),
              (calls_t{"lcd " + blank + "\n         A" + std::string(6, ' ')}));
    for (const char* const change : {"12=2", "13=0", "14=0"}) {
        EXPECT_EQ(perform(change), CHANGED);
    }
    // A carriage return is kept, but would break the line that is shown.
    EXPECT_EQ(shown_by("10=2 11?0 14=13 10=1"), (calls_t{"lcd " + blank + "\n" + blank}));
    EXPECT_EQ(machine.lcd_ram[1][9], '\r');
}

TEST_F(Devices, KeyboardDropsTheFrontEventAtTheEndOfACommand) {
    EXPECT_EQ(perform("20=1"), "");
    io_ps2_press('a');
    io_ps2_press('b');
    EXPECT_EQ(perform("20=1 20=0 20=1 21?1 22?1 23?98"), "") << "the other is gone, though it was never seen";
    reset_ps2();
    io_ps2_release('a');
    EXPECT_EQ(perform("20=1 21?0"), "") << "a reset forgets which keys are held";
}

TEST_F(Devices, MouseReportsTheSameUntilTheCommandEnds) {
    io_mouse_activate();
    io_mouse_motion(100, 100); // only a position to start from
    EXPECT_EQ(perform("70=1 71?0"), "");
    io_mouse_motion(110, 95);
    for (const int button : {2, 7, -1}) {
        io_mouse_press(button);
    }
    EXPECT_EQ(perform("71?1 72?10 73?-5 74?0 75?0 76?1"), "");
    io_mouse_motion(111, 95);
    EXPECT_EQ(perform("71?1 72?10 70=0 71?0 70=1 71?1 72?1"), "");
}

TEST_F(Devices, TouchScreenKeepsItsReportUntilTheResponseIsRead) {
    io_mouse_press(0);
    EXPECT_EQ(perform("e0=1 e1?1 e4?1"), "");
    io_mouse_release(0);
    EXPECT_EQ(perform("e0=0 e0=1 e1?1 e4?1 e0=0 e1?0 e0=1 e1?1 e4?0"), "");
}

TEST_F(Devices, VgaIsBusyForASeventhOfTheArea) {
    for (const auto& [rectangle, busy] : {std::pair{"63=0 64=0 65=5 66=0", 0},
                                          {"65=6", 1},
                                          {"65=639 66=479", 43885},
                                          {"65=1023 66=1023", 149796},
                                          {"63=5 65=4 66=0", 0},
                                          {"64=9 65=9 66=8", 0},
                                          {"63=1024 64=0 65=1030 66=0", 1},
                                          {"63=0 64=480 65=6 66=480", 1}}) {
        const std::string waiting = busy == 0 ? "" : "+" + std::to_string(busy - 1) + " 61?0 +1 ";
        EXPECT_EQ(perform(rectangle + (" 62=1 60=1 " + waiting + "61?1 60=0 61?0")), "") << rectangle;
    }
}

TEST_F(Devices, VgaFillsItsMemoryAndReadsItBack) {
    machine.vga_ram[400][600] = 0x8123;
    machine.vga_ram[399][600] = 0xffff;
    EXPECT_EQ(perform("63=600 64=400 60=1 61?1 68?0x8123 60=0"), "") << "also the bit without meaning";
    EXPECT_EQ(perform("62=1 65=1023 66=1023 67=0xffff 60=1 +1000000 60=0"), "");
    EXPECT_EQ(machine.vga_ram[400][600], 0x7fff);
    EXPECT_EQ(machine.vga_ram[1023][1023], 0x7fff);
    EXPECT_EQ(machine.vga_ram[399][600], 0xffff);
    // A command before the time of the last one has run out is taken but does nothing.
    EXPECT_EQ(perform("63=0 64=0 65=639 66=479 67=1 60=1 60=0 67=2 60=1 +43885 61?1"), "");
    EXPECT_EQ(machine.vga_ram[0][0], 1);
}

TEST_F(Devices, SdramMovesAWordACommand) {
    EXPECT_EQ(perform("32=3 33=0x7fffffff 34=-5 30=1 34=-5"), "");
    EXPECT_EQ(machine.sdram_ram[0x1ffffff], -5) << "the last word";
    EXPECT_EQ(perform("34=0"), CHANGED);
    EXPECT_EQ(perform("31?1 30=2 31?0 32=0 30=1 35?0"), TOO_EARLY);
    machine.sdram_ram[0x1ffffff] = 6;
    EXPECT_EQ(perform("30=1 31?1 35?-5 30=0 35?0"), TOO_EARLY) << "there is no second access";
}

int32_t read_sdram(int32_t address) {
    EXPECT_EQ(perform("30=0 32=0 33=" + std::to_string(address) + " 30=1"), "");
    return machine.sdram_data_read;
}

TEST_F(Devices, SdramIsSavedWithItsNoise) {
    noise_seed = 2;
    clear_sdram();
    const int32_t of_another_seed = read_sdram(1024);
    noise_seed = 1;
    clear_sdram();
    const std::vector<int32_t> addresses = {0, 1, 1023, 1024, 1025, 20000000, 33554431};
    std::vector<int32_t> noise;
    std::ranges::transform(addresses, std::back_inserter(noise), read_sdram);
    EXPECT_NE(noise[3], of_another_seed);

    clear_sdram(); // what a word is does not depend on what was touched before it
    typed.chosen_file = folder / "saved.dat";
    save_sdram();
    std::ifstream file(typed.chosen_file, std::ios::binary);
    for (size_t i = 0; i < addresses.size(); ++i) {
        int32_t word = 0;
        file.seekg(std::streamoff{addresses[i]} * 4);
        file.read(reinterpret_cast<char*>(&word), sizeof word);
        EXPECT_EQ(word, noise[i]) << addresses[i];
    }
}

} // namespace
