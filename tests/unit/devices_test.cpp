// Devices, by accesses to the I/O bus: what they answer, what they show, what they refuse.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "core/machine.h"
#include "core/noise.h"
#include "core/simulate.h"
#include "devices/io.h"
#include "devices/ledswitchtimer.h"
#include "devices/mouse.h"
#include "devices/ps2.h"
#include "devices/sdram.h"
#include "tests/support/bus.h"
#include "tests/support/gui_recording.h"

namespace {

constexpr bool READ = false;
constexpr bool WRITE = true;

struct access_t {
    bool write;
    int32_t offset;
    int32_t data;                   // written
    int32_t value;                  // read
    std::vector<std::string> calls; // what the window is asked to show
};

std::string fault_at(bool write, int32_t offset) { return fault_of(write, IO_BASE + offset); }

void expect(const std::vector<access_t>& accesses) {
    for (const access_t& access : accesses) {
        recording.calls.clear();
        EXPECT_EQ(io(access.write, IO_BASE + access.offset, access.data), access.value)
            << "offset " << access.offset << ", data " << access.data;
        EXPECT_EQ(recording.calls, access.calls) << "offset " << access.offset << ", data " << access.data;
    }
}

class Devices : public testing::Test {
  protected:
    void SetUp() override {
        reset_machine();
        reset_sw();
        machine.mouse_active = 0;
        recording = {};
    }
};

TEST_F(Devices, RefuseWhatTheyDoNotHave) {
    const struct {
        bool write;
        int32_t offset;
        const char* fault;
    } cases[] = {
        {WRITE, 0, "unsupported operation on address 0x80000000"},
        {READ, 1, "unsupported operation on address 0x80000001"},
        {READ, 2, "unsupported operation on address 0x80000002"},
        {READ, 3, "unsupported operation on address 0x80000003"},
        {READ, 4, "unsupported operation on address 0x80000004"},
        {WRITE, 5, "unsupported operation on address 0x80000005"},
        {READ, 6, "illegal address -2147483642\n"},
        {WRITE, 0xf, "illegal address -2147483633\n"},
        {READ, 0x10, "unsupported operation on address 0x80000010"},
        {WRITE, 0x11, "unsupported operation on address 0x80000011"},
        {READ, 0x14, "unsupported operation on address 0x80000014"},
        {READ, 0x20, "unsupported operation on address 0x80000020"},
        {WRITE, 0x21, "unsupported operation on address 0x80000021"},
        {READ, 0x22, "verify that response is 1 before reading response parameters"},
        {READ, 0x23, "verify that response is 1 before reading response parameters"},
        {READ, 0x60, "unsupported operation on address 0x80000060"},
        {WRITE, 0x61, "unsupported operation on address 0x80000061"},
        {READ, 0x67, "unsupported operation on address 0x80000067"},
        {READ, 0x68, "verify that response is 1 before reading response parameters"},
        {WRITE, 0x72, "unsupported operation on address 0x80000072"},
        {READ, 0x72, "verify that response is 1 before reading response parameters"},
        {READ, 0x76, "verify that response is 1 before reading response parameters"},
        {READ, 0xe0, "unsupported operation on address 0x800000e0"},
        {READ, 0xe2, "verify that response is 1 before reading response parameters"},
        {READ, 0x30, "unsupported operation on address 0x80000030"},
        {READ, 0x34, "unsupported operation on address 0x80000034"},
        {WRITE, 0x35, "unsupported operation on address 0x80000035"},
        {READ, 0x35, "verify that response is 1 before reading response parameters"},
        {READ, 0x84, "unsupported operation on address 0x80000084"},
        {WRITE, 0x81, "unsupported operation on address 0x80000081"},
        {READ, 0x85, "verify that response is 1 before reading response parameters"},
        {READ, 0xf2, ""},
        {WRITE, 0xf3, ""},
        {READ, 0xf4, "illegal address -2147483404\n"},
        {WRITE, 0x100, ""},
        {READ, 0x103, ""},
        {READ, 0x104, "illegal address -2147483388\n"},
        {WRITE, INT32_MAX, "illegal address -1\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(fault_at(c.write, c.offset), c.fault) << "offset " << c.offset;
    }
}

TEST_F(Devices, LedsKeepTheirBitsAndRedrawWhatChanged) {
    expect({
        {WRITE, 1, 0b101, 0, {"red 0", "red 2"}},
        {WRITE, 1, 0b101, 0, {}},
        {WRITE, 1, 0b110, 0, {"red 0", "red 1"}},
        {WRITE, 2, 0x181, 0, {"green 0", "green 7"}},
    });
    io(WRITE, IO_BASE + 1, 0x7ffff);
    EXPECT_EQ(machine.led_red, 0x3ffff);
    EXPECT_EQ(machine.led_green, 0x81);
    recording.calls.clear();
    reset_led();
    EXPECT_TRUE(recording.calls.empty()) << "reset leaves the drawing to print_machine";
    print_led_green();
    EXPECT_EQ(recording.calls, (std::vector<std::string>{"green 0", "green 7"}));
}

TEST_F(Devices, HexDisplaysShowFourDigits) {
    expect({
        {WRITE, 3, 0xab, 0, {"hex30 00ab"}},
        {WRITE, 3, 0xab, 0, {}},
        {WRITE, 3, 0x12345, 0, {"hex30 2345"}},
        {WRITE, 3, 0x12345, 0, {"hex30 2345"}},
        {WRITE, 3, 0x2345, 0, {}},
        {WRITE, 4, 0, 0, {}},
        {WRITE, 4, -1, 0, {"hex74 ffff"}},
    });
}

TEST_F(Devices, SwitchesReadAsTheUserSetThem) {
    io_sw_toggle(17);
    io_sw_toggle(0);
    EXPECT_EQ(recording.calls, (std::vector<std::string>{"sw 17", "sw 0"}));
    expect({{READ, 0, 0, 0x20001, {}}});
    io_sw_toggle(17);
    expect({{READ, 0, 0, 1, {}}});
}

TEST_F(Devices, TimerTicksEvery833Instructions) {
    for (const auto& [count, ticks] :
         {std::pair<uint64_t, int32_t>{832, 0}, {1665, 1}, {1666, 2}, {833ULL << 31, INT32_MIN}}) {
        machine.instr_count = count;
        expect({{READ, 5, 0, ticks, {}}});
    }
    machine.instr_count = 0;
}

TEST_F(Devices, LcdShowsACharacterACommand) {
    const std::string blank(16, ' ');
    expect({
        {WRITE, 0x12, 17, 0, {}}, // column 1
        {WRITE, 0x13, 3, 0, {}},  // line 1
        {WRITE, 0x14, 0x141, 0, {}},
        {WRITE, 0x10, 1, 0, {"lcd " + blank + "\n A" + std::string(14, ' ')}},
        {READ, 0x11, 0, 1, {}},
        {WRITE, 0x10, 3, 0, {}},
        {WRITE, 0x12, 1, 0, {}},
    });
    EXPECT_EQ(fault_at(WRITE, 0x12), "shouldn't change command parameters when command is 1");
    expect({
        {WRITE, 0x10, 2, 0, {}},
        {READ, 0x11, 0, 0, {}},
        {WRITE, 0x14, '\r', 0, {}},
        {WRITE, 0x10, 1, 0, {"lcd " + blank + "\n" + blank}},
    });
    EXPECT_EQ(machine.lcd_ram[1][1], '\r');
}

// Takes all events through the ports; upper case for the key, + for a press, - for a release.
std::string take_key_events() {
    std::string events;
    for (;;) {
        io(WRITE, IO_BASE + 0x20, 1);
        if (io(READ, IO_BASE + 0x21, 0) == 0) {
            io(WRITE, IO_BASE + 0x20, 0);
            return events;
        }
        events += io(READ, IO_BASE + 0x22, 0) == 1 ? '+' : '-';
        events += static_cast<char>(io(READ, IO_BASE + 0x23, 0));
        io(WRITE, IO_BASE + 0x20, 0);
    }
}

TEST_F(Devices, KeyboardPairsPressesAndReleases) {
    const struct {
        const char* host; // + or - and the character that the host reports
        const char* events;
    } cases[] = {
        {"+a-a", "+a-a"},         {"+a+a+a-a", "+a-a"},
        {"+a-A", "+a-a"},         {"+1-!", "+1-1"},
        {"+a+A-A-a", "+a-a"},     {"-x", ""},
        {"+A+b-a-B", "+A+b-A-b"}, {"+[-{+\\-|+`-~", "+[-[+\\-\\+`-`"},
        {"+\n-\n", "+\n-\n"},     {"+\xe4-\xe4", "+\xe4-\xe4"},
    };
    for (const auto& c : cases) {
        for (const char* host = c.host; *host != 0; host += 2) {
            (*host == '+' ? io_ps2_press : io_ps2_release)(host[1]);
        }
        EXPECT_EQ(take_key_events(), c.events) << c.host;
    }
    io_ps2_press(0);
    io_ps2_release(0);
    EXPECT_EQ(take_key_events(), "");
}

TEST_F(Devices, KeyboardDropsTheFrontEventAtTheEndOfACommand) {
    io(WRITE, IO_BASE + 0x20, 1);
    io_ps2_press('a');
    io_ps2_press('b');
    io(WRITE, IO_BASE + 0x20, 1); // no change
    io(WRITE, IO_BASE + 0x20, 0); // drops the press of a, though it was never seen
    EXPECT_EQ(take_key_events(), "+b");
    reset_ps2();
    io_ps2_release('a');
    EXPECT_EQ(take_key_events(), "") << "a reset forgets which keys are held";
}

TEST_F(Devices, MouseReportsWhatIsNew) {
    io_mouse_motion(50, 50);
    expect({{WRITE, 0x70, 1, 0, {}}, {READ, 0x71, 0, 0, {}}}); // inactive
    io_mouse_activate();
    io_mouse_motion(100, 100); // only a position to start from
    expect({{READ, 0x71, 0, 0, {}}});
    io_mouse_motion(110, 95);
    io_mouse_press(2);
    io_mouse_press(7);
    io_mouse_press(-1);
    expect({
        {READ, 0x71, 0, 1, {}},
        {READ, 0x72, 0, 10, {}},
        {READ, 0x73, 0, -5, {}},
        {READ, 0x74, 0, 0, {}},
        {READ, 0x75, 0, 0, {}},
        {READ, 0x76, 0, 1, {}},
    });
    io_mouse_motion(111, 95);
    expect({
        {READ, 0x71, 0, 1, {}}, // the same report until the command ends
        {READ, 0x72, 0, 10, {}},
        {WRITE, 0x70, 0, 0, {}},
        {READ, 0x71, 0, 0, {}},
        {WRITE, 0x70, 1, 0, {}},
        {READ, 0x71, 0, 1, {}},
        {READ, 0x72, 0, 1, {}},
    });
}

TEST_F(Devices, MouseIsSwitchedOnAndOff) {
    io_ps2_ctrlm();
    EXPECT_EQ(machine.mouse_active, 1);
    io_ps2_ctrlm();
    EXPECT_EQ(machine.mouse_active, -1);
    io_mouse_deactivate();
    EXPECT_EQ(machine.mouse_active, -1) << "the user's switching off outlasts a loss of focus";
    io_mouse_press(3);
    EXPECT_EQ(machine.mouse_active, -1) << "there is no fourth button";
    io_mouse_press(0);
    EXPECT_EQ(machine.mouse_active, 1);
    io_mouse_deactivate();
    EXPECT_EQ(machine.mouse_active, 0);
    EXPECT_FALSE(machine.mouse_button[0]);
    EXPECT_EQ(recording.calls,
              (std::vector<std::string>{"cursor on", "cursor off", "cursor off", "cursor on", "cursor off"}));
}

TEST_F(Devices, TouchScreenReportsTouchesOnly) {
    const auto report = [] {
        io(WRITE, IO_BASE + 0xe0, 1);
        std::string text;
        if (io(READ, IO_BASE + 0xe1, 0) == 1) {
            for (const int32_t offset : {0xe2, 0xe3, 0xe4}) {
                text += std::to_string(io(READ, IO_BASE + offset, 0)) + " ";
            }
        }
        // Only a look at the response ends a report; the command alone does not.
        io(WRITE, IO_BASE + 0xe0, 0);
        io(READ, IO_BASE + 0xe1, 0);
        return text;
    };
    io_mouse_motion(10, 20);
    EXPECT_EQ(report(), "");
    io_mouse_press(0);
    EXPECT_EQ(report(), "10 20 1 ");
    EXPECT_EQ(report(), "");
    io_mouse_motion(-5, 700);
    EXPECT_EQ(report(), "0 479 1 ");
    io_mouse_release(0);
    EXPECT_EQ(report(), "0 479 0 ");
    io_mouse_motion(30, 30);
    EXPECT_EQ(report(), "");
}

void write_vga(const std::vector<int32_t>& from_write_port) {
    for (size_t i = 0; i < from_write_port.size(); ++i) {
        io(WRITE, IO_BASE + 0x62 + static_cast<int32_t>(i), from_write_port[i]);
    }
    io(WRITE, IO_BASE + 0x60, 1);
}

TEST_F(Devices, VgaIsBusyForASeventhOfTheArea) {
    const struct {
        std::vector<int32_t> rectangle; // x1, y1, x2, y2
        uint64_t busy;                  // instructions
    } cases[] = {{{0, 0, 5, 0}, 0},      {{0, 0, 6, 0}, 1}, {{0, 0, 639, 479}, 43885},
                 {{5, 0, 4, 0}, 0},      {{0, 9, 9, 8}, 0}, {{0, 0, 1023, 1023}, 149796},
                 {{1024, 0, 1030, 0}, 1}};
    machine.instr_count = 1000;
    for (const auto& c : cases) {
        const auto& r = c.rectangle;
        write_vga({1, r[0], r[1], r[2], r[3], 0x7fff});
        machine.instr_count += c.busy;
        EXPECT_EQ(io(READ, IO_BASE + 0x61, 0), 1) << "busy too long";
        machine.instr_count -= c.busy == 0 ? 0 : 1;
        EXPECT_EQ(io(READ, IO_BASE + 0x61, 0), c.busy == 0 ? 1 : 0);
        machine.instr_count += 1;
        io(WRITE, IO_BASE + 0x60, 0);
        EXPECT_EQ(io(READ, IO_BASE + 0x61, 0), 0);
    }
}

TEST_F(Devices, VgaFillsItsMemoryAndReadsItBack) {
    const auto read = [](int32_t x, int32_t y) {
        write_vga({0, x, y});
        io(READ, IO_BASE + 0x61, 0);
        const int32_t color = io(READ, IO_BASE + 0x68, 0);
        io(WRITE, IO_BASE + 0x60, 0);
        return color;
    };
    machine.vga_ram[400][600] = 0x8123;
    machine.vga_ram[399][600] = 0xffff;
    EXPECT_EQ(read(600, 400), 0x8123) << "what was never written may have the bit without meaning";
    write_vga({1, 600, 400, 1023, 1023, 0xffff});
    machine.instr_count += 1000000;
    io(WRITE, IO_BASE + 0x60, 0);
    EXPECT_EQ(read(600, 400), 0x7fff);
    EXPECT_EQ(read(1023, 1023), 0x7fff);
    EXPECT_EQ(read(600, 399), 0xffff);
    // A command before the time of the last one has run out is taken but does nothing.
    write_vga({1, 0, 0, 639, 479, 1});
    io(WRITE, IO_BASE + 0x60, 0);
    write_vga({1, 0, 0, 0, 0, 2});
    machine.instr_count += 43885;
    EXPECT_EQ(io(READ, IO_BASE + 0x61, 0), 1);
    io(WRITE, IO_BASE + 0x60, 0);
    EXPECT_EQ(read(0, 0), 1);
    machine.instr_count = 0;
}

TEST_F(Devices, SdramMovesAWordACommand) {
    expect({
        {WRITE, 0x32, 3, 0, {}},          // write
        {WRITE, 0x33, 0x7fffffff, 0, {}}, // the last word
        {WRITE, 0x34, -5, 0, {}},
        {WRITE, 0x30, 1, 0, {}},
        {WRITE, 0x34, -5, 0, {}},
    });
    EXPECT_EQ(machine.sdram_address, 0x1ffffff);
    EXPECT_EQ(fault_at(WRITE, 0x34), "shouldn't change command parameters when command is 1");
    expect({
        {READ, 0x31, 0, 1, {}},
        {WRITE, 0x30, 2, 0, {}},
        {READ, 0x31, 0, 0, {}},
        {WRITE, 0x32, 0, 0, {}},
        {WRITE, 0x30, 1, 0, {}},
    });
    EXPECT_EQ(fault_at(READ, 0x35), "verify that response is 1 before reading response parameters");
    machine.sdram_ram[0x1ffffff] = 6;
    expect({
        {WRITE, 0x30, 1, 0, {}}, // no second access
        {READ, 0x31, 0, 1, {}},
        {READ, 0x35, 0, -5, {}},
        {WRITE, 0x30, 0, 0, {}},
    });
    EXPECT_EQ(fault_at(READ, 0x35), "verify that response is 1 before reading response parameters");
}

int32_t read_sdram(int32_t address) {
    io(WRITE, IO_BASE + 0x30, 0);
    io(WRITE, IO_BASE + 0x32, 0);
    io(WRITE, IO_BASE + 0x33, address);
    io(WRITE, IO_BASE + 0x30, 1);
    return machine.sdram_data_read;
}

TEST_F(Devices, SdramIsSavedWithItsNoise) {
    const std::vector<int32_t> addresses = {0, 1, 1023, 1024, 1025, 20000000, 33554431};
    std::vector<int32_t> noise;
    for (const uint64_t seed : {2, 1}) {
        noise_seed = seed;
        clear_sdram();
        noise.push_back(read_sdram(1024));
    }
    EXPECT_NE(noise[0], noise[1]);
    noise.clear();
    std::ranges::transform(addresses, std::back_inserter(noise), read_sdram);

    clear_sdram(); // what a word is does not depend on what was touched before it
    const std::string name = testing::TempDir() + "saved.dat";
    typed.chosen_file = "picture.DAT";
    recording.calls.clear();
    recording.at_message = [&] { typed.chosen_file = name; };
    save_sdram();
    const std::string asked = "save Choose SDRAM .dat file *.dat ";
    EXPECT_EQ(recording.calls,
              (std::vector<std::string>{asked, "error filename must end in .dat", asked + "picture.DAT"}));
    typed.chosen_file.clear();
    EXPECT_EQ(std::filesystem::file_size(name), 134217728U);
    std::ifstream file(name, std::ios::binary);
    for (size_t i = 0; i < addresses.size(); ++i) {
        int32_t word = 0;
        file.seekg(std::streamoff{addresses[i]} * 4);
        file.read(reinterpret_cast<char*>(&word), sizeof word);
        EXPECT_EQ(word, noise[i]) << addresses[i];
    }
    std::filesystem::remove(name);
}

TEST(Handshake, ChecksItsRules) {
    const auto fault = [](auto&& check) -> std::string {
        try {
            check();
            return "";
        } catch (const tovik_error& error) {
            return error.message;
        }
    };
    int32_t port = 5;
    EXPECT_EQ(fault([&] { update_port(port, 6, 0); }), "");
    EXPECT_EQ(fault([&] { update_port(port, 6, 1); }), "") << "the same value is no change";
    EXPECT_EQ(fault([&] { update_port(port, 7, 1); }),
              "shouldn't change command parameters when command is 1");
    EXPECT_EQ(port, 6);
    EXPECT_EQ(fault([] { check_response(0); }),
              "verify that response is 1 before reading response parameters");
    EXPECT_EQ(fault([] { check_response(1); }), "");
    EXPECT_EQ(fault([] { check_valid(0); }), "shouldn't read port data when valid is 0");
    EXPECT_EQ(fault([] { check_command(0); }), "shouldn't read port data when command is 0");
    EXPECT_EQ(fault([] { io_unsupported(12); }), "unsupported operation on address 12");
}

} // namespace
