// Devices, by accesses to the I/O bus: what they answer, what they show, what they refuse.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "base/machine.h"
#include "base/noise.h"
#include "devices/io.h"
#include "devices/ledswitchtimer.h"
#include "devices/registers.h"
#include "devices/sdram.h"
#include "tests/support/bus.h"
#include "tests/support/gui_recording.h"
#include "ui/screen.h"

namespace {

using Devices = DeviceTest;

// Each on a board after Reset; what is shown stands behind the colon.
constexpr const char* CASES = R"(
# What they have not, or not in this direction.
00=0!none 01?0!none 02?0!none 03?0!none 04?0!none 05=0!none 10?0!none 11=0!none 14?0!none 20?0!none 21=0!none
30?0!none 34?0!none 35=0!none 40?0!none 41=0!none 42?0!none 60?0!none 61=0!none 67?0!none 72=0!none 81=0!none
84?0!none 90?0!none 91=0!none a2?0!none b0?0!none b2?0!none c0?0!none c1=0!none c2?0!none c5?0!none d0?0!none
d1=0!none d3=0!none e0?0!none e1=0!none
06?0!illegal 0f=0!illegal 15=0!illegal b6?0!illegal f4?0!illegal 104?0!illegal 7fffffff=0!illegal
f2?0 f3=5 100=5 103?0
# LEDs: what changed is drawn. Hexadecimal displays: four digits, shown again when the data has more.
01=5 01=5 01=6 02=0x181 : red 0,red 2,red 0,red 1,green 0,green 7
01=0x60000 : red 17
03=0xab 03=0xab 03=0x12345 03=0x12345 03=0x2345 04=0 04=-1 : hex30 00ab,hex30 2345,hex30 2345,hex74 ffff
# The timer ticks every 833 instructions, at last as a negative number.
+832 05?0 +1 05?1 +832 05?1 +1 05?2 +1788853877118 05?-2147483648
# LCD: a character a command.
12=25 13=3 14=0x141 10=1 11?1 10=3 12=9 12=2!changed 13=2!changed 14=1!changed
# Keyboard: the front event goes at the end of a command, seen or not; Reset forgets which keys are held.
20=1 <a <b 20=1 20=0 22?0!early 20=1 21?1 22?1 23?98 20=0 22?0!early
<a <a <A >A 20=1 21?1 22?1 23?97 20=0 20=1 21?1 22?0 23?97 20=0 20=1 21?0
<01 >01 <00 20=1 20=0 20=1 21?1 22?0 23?1 20=0 20=1 21?0
<a R >a 20=1 21?0 23?0!early
# Mouse: a report stays the same until its command ends. The first position is only one to start from.
^M @100,100 70=1 71?0 @110,95 [2 [7 [-1 71?1 72?10 73?-5 74?0 75?0 76?1
^M @100,100 @110,95 70=1 73?0!early 71?1 @111,95 71?1 72?10 70=0 71?0 72?0!early 70=1 71?1 72?1 73?0 76?0
[1 70=1 71?1 74?0 75?1 76?0 70=0 71?0 ^M 70=1 71?1 75?0 @5,5 @9,9 72?0 70=0 71?0 70=1 71?0 : cursor on,cursor off
^M ^M ^M R @5,5 @9,9 70=1 71?0
# Touch screen: a report stays until the response is read again; only a touch that moves is one.
[0 e2?0!early e0=1 e1?1 e4?1 ]0 e0=0 e0=1 e1?1 e4?1 e0=0 e1?0 e0=1 e1?1 e4?0 e0=0 e1?0 e4?0!early
@700,-5 [0 e0=1 e1?1 e2?639 e3?0 e4?1 @-5,700 e0=0 e1?0 e0=1 e1?1 e2?0 e3?479 e0=0 e1?0 e0=1 e1?0
# VGA: a seventh of the area. What comes too early does nothing, but is answered.
62=1 65=5 60=1 61?1 60=0 61?0 65=6 60=1 61?0 +1 61?1 60=0 61?0 65=639 66=479 60=1 +43884 61?0 +1 61?1 60=0 \
 65=1023 66=1023 60=1 +149795 61?0 +1 61?1
62=1 63=5 65=4 60=1 61?1 60=0 64=9 65=9 66=8 60=1 61?1 60=0 63=1024 64=0 65=1030 66=0 60=1 61?0 +1 61?1
62=1 66=480 64=480 65=6 67=0x1234 60=1 60=0 67=1 60=1 61?0 +1 61?1 60=0 62=0 60=1 61?1 68?0x1234 60=0 68?0!early
62=2 60=1 62=1!changed 63=1!changed 64=1!changed 65=1!changed 66=1!changed 66=1024 67=1!changed
# SDRAM: a word a command; nothing happens without one.
35?0!early 32=3 33=0x7fffffff 34=-5 30=1 34=-5 31?1 34=0!changed 32=0!changed 33=0!changed 30=2 31?0 32=0 \
 33=0x1ffffff 30=1 31?1 35?-5
32=1 33=5 34=9 30=1 30=0 34=8 30=0 32=0 30=1 31?1 35?9 30=2 35?9!early
# FFT: values of 16 bits.
c2=32768!range c2=-32769!range c3=2147483647!range c2=32767 c2=-32768 c3=32767 c3=-32768 c4=3 c5=6 c0=3 \
 c2=-32768 c4=9 c5=6 c2=0!changed c3=0!changed c4=8!changed c5=7!changed c2=32768!range
# Its direction is that of the first point. It is busy after the last; a point that comes too early is not taken,
# though it is answered, and the next one throws away the results.
c2=2048 c0=1 c1?1 c0=1 d1?0 c0=0 c1?0 c2=0 c4=1 c5=8 d0=1 c0=1 c1?0 d1?0 +79 c1?0 d1?0 c0=0 c2=9 c0=1 c1?0 +1 \
 c1?1 d1?1 d2?2 d3?0 d0=3 d1?1 d0=2 d1?0 d2?0!early d0=1 d1?1 c0=0 d1?1 c0=1 d1?0 +80 c1?1 d1?1 d2?9 d0=0 \
 d0=1 d1?1 d2?9 c0=0 c5=0 c0=1 d1?0 d3?0!early
)";

TEST_F(Devices, AnswerAndShow) {
    std::istringstream rows(CASES);
    for (std::string row; std::getline(rows, row);) {
        for (std::string more; row.ends_with('\\') && std::getline(rows, more);) {
            row.back() = ' ';
            row += more;
        }
        DeviceTest::TearDown();
        DeviceTest::SetUp();
        const size_t colon = std::min(row.find(" : "), row.size());
        EXPECT_EQ(perform(row.starts_with('#') ? "" : row.substr(0, colon)), "") << row;
        std::string shown;
        for (const std::string& call : recording.calls) {
            shown += (shown.empty() ? " : " : ",") + call;
        }
        EXPECT_TRUE(colon == row.size() || row.substr(colon) == shown) << row << shown;
    }
    const std::string blank(16, ' ');
    EXPECT_EQ(perform("12=25 13=3 14=0x141 10=1"), "");
    EXPECT_EQ(recording.calls.back(), "lcd " + blank + "\n         A" + std::string(6, ' '));
    EXPECT_EQ(perform("10=2 14=13 10=1"), "");
    EXPECT_EQ(recording.calls.back(), "lcd " + blank + "\n" + blank)
        << "a carriage return would break the line";
    EXPECT_EQ(machine.lcd_ram[1][9], '\r');
    machine.sw = 5;
    EXPECT_EQ(perform("00?5"), "");
    reset_sw();
    EXPECT_EQ(perform("00?0"), "");
    EXPECT_EQ(recording.calls.back(), "sw 17");
}

std::string refusal(bool write, int32_t offset) {
    try {
        io(write, IO_BASE + offset, 0);
    } catch (const tovik_error& error) {
        return error.message;
    }
    return "";
}

TEST_F(Devices, TableOfRegistersIsThatOfTheBus) {
    for (int32_t offset = 0; offset <= IO_SLOTS; ++offset) {
        SCOPED_TRACE(offset);
        const device_t* const device = find_device(offset);
        const board_register_t* const found = find_register(offset);
        const bool silent = device != nullptr && device->registers.empty();
        for (const bool write : {false, true}) {
            const direction_e access = write ? direction_e::WRITE : direction_e::READ;
            const std::string answer = refusal(write, offset);
            EXPECT_EQ(!answer.starts_with("illegal address"), device != nullptr);
            EXPECT_EQ(device != nullptr && !answer.starts_with("unsupported"),
                      silent || (found != nullptr && found->access == access));
            EXPECT_EQ(answer == TOO_EARLY, !write && found != nullptr && found->kind == register_e::RESULT);
        }
        if (found == nullptr) {
            continue;
        }
        const port_t& port = io_port(IO_BASE + offset);
        const bool reads = found->access == direction_e::READ;
        EXPECT_EQ(port.polled.steady_until != nullptr, reads && found->kind != register_e::RESULT);
        EXPECT_EQ(port.write != nullptr || port.take != nullptr || port.parameter.field != nullptr, !reads);
        if (port.parameter.field != nullptr) {
            const int highest = std::stoi(std::string(found->bits));
            EXPECT_EQ(static_cast<uint32_t>(port.parameter.mask), UINT32_MAX >> (31 - highest));
        }
        const int32_t place = offset - device->first;
        EXPECT_EQ(found->kind, device->registers[1].kind != register_e::RESPONSE ? register_e::PLAIN
                               : place == 0                                      ? register_e::COMMAND
                               : place == 1                                      ? register_e::RESPONSE
                               : reads                                           ? register_e::RESULT
                                                                                 : register_e::PARAMETER);
    }
}

TEST_F(Devices, VgaFillsItsMemoryAndTheScreen) {
    machine.vga_ram[400][600] = 0x8123;
    EXPECT_EQ(perform("63=600 64=400 60=1 61?1 68?0x8123 60=0"), "") << "also the bit without meaning";
    machine.vga_ram[399][600] = 0xffff;
    take_screen_changes();
    EXPECT_EQ(perform("62=1 65=1023 66=1023 67=0xffff 60=1"), "");
    EXPECT_EQ(machine.vga_ram[400][600], 0x7fff);
    EXPECT_EQ(machine.vga_ram[1023][1023], 0x7fff);
    EXPECT_EQ(machine.vga_ram[399][600], 0xffff);
    const std::vector<colored_box_t> fills = take_screen_changes().fills;
    ASSERT_EQ(fills.size(), 1U);
    const auto& [x1, y1, x2, y2] = fills[0].box;
    EXPECT_EQ((std::vector{x1, y1, x2, y2}), (std::vector{600, 400, 639, 479}));
}

TEST_F(Devices, SdramIsSavedWithItsNoise) {
    const auto read = [](int32_t address) {
        EXPECT_EQ(perform("30=0 32=0 33=" + std::to_string(address) + " 30=1"), "");
        return machine.sdram_data_read;
    };
    noise_seed = 2;
    EXPECT_EQ(noise_at(1), 0xd424f2654f316ee0) << "the same on every computer";
    clear_sdram();
    const int32_t of_another_seed = read(1024);
    noise_seed = 1;
    clear_sdram();
    const std::vector<int32_t> addresses = {0, 1, 1023, 1024, 1025, 20000000, 33554431};
    std::vector<int32_t> noise;
    std::ranges::transform(addresses, std::back_inserter(noise), read);
    EXPECT_NE(noise[3], of_another_seed);

    clear_sdram(); // what a word is does not depend on what was touched before it
    ++machine.sdram_ram[1];
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
