// Devices, by accesses to the I/O bus: what they answer, what they show, what they refuse.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "core/machine.h"
#include "core/simulate.h"
#include "devices/io.h"
#include "devices/ledswitchtimer.h"
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

std::string fault_of(bool write, int32_t offset) {
    try {
        io(write, IO_BASE + offset, 0);
        return "";
    } catch (const tovik_error& error) {
        return error.message;
    }
}

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
        {READ, 0xf2, ""},
        {WRITE, 0xf3, ""},
        {READ, 0xf4, "illegal address -2147483404\n"},
        {WRITE, 0x100, ""},
        {READ, 0x103, ""},
        {READ, 0x104, "illegal address -2147483388\n"},
        {WRITE, INT32_MAX, "illegal address -1\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(fault_of(c.write, c.offset), c.fault) << "offset " << c.offset;
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
