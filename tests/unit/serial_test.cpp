// The serial port: its registers, and what it does with the line.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "base/machine.h"
#include "core/simulate.h"
#include "devices/serial.h"
#include "host/line.h"
#include "host/platform.h"
#include "tests/support/bus.h"
#include "tests/support/gui_recording.h"

namespace {

// The host's end of the line, for the other tests too: no device, and a relay that accepts.
bool gone;           // what its other side is
std::string waiting; // to be read
std::string held;    // by a sender, until it sees room

void fail_if_gone() {
    if (gone) {
        throw tovik_error("gone");
    }
}

} // namespace

void platform::line_open_device(const std::string& /*name*/) {
    throw tovik_error("Can't open serial device");
}

void platform::line_open_cable(const std::string& /*name*/) { fail_if_gone(); }

std::optional<std::string> platform::line_connect() { return ""; }

bool platform::line_ready(int /*most_ms*/) {
    waiting += std::exchange(held, "");
    return !waiting.empty();
}

size_t platform::line_read(std::span<char> room) {
    fail_if_gone();
    EXPECT_FALSE(room.empty()) << "nothing read would be the end";
    const size_t count = waiting.copy(room.data(), std::min<size_t>(room.size(), 1000));
    waiting.erase(0, count);
    return count;
}

size_t platform::line_write(std::span<const char> bytes) {
    return gone ? 0 : waiting.append(bytes.data(), bytes.size()).size();
}

void platform::line_close() { record_call("line closed"); }

namespace {

using Serial = DeviceTest;

TEST_F(Serial, AsksOnceWhereItLeads) {
    typed.serial_names = {"/nowhere", "no1", ""};
    EXPECT_EQ(perform("a1?0 91?0"), "");
    const std::string prompt = "20 Enter the name of your serial port (e.g., COM1 on Windows, /dev/ttyS0 or "
                               "/dev/ttyUSB0 on Linux).\n"
                               "To use a virtual serial cable, enter your campusid.\n"
                               "To show the serial output in the serial port window, leave the field blank.";
    EXPECT_EQ(recording.prompts, (std::vector<std::string>{prompt, prompt, prompt, "console"}));
    EXPECT_EQ(recording.calls, (std::vector<std::string>{"line closed", "error Can't open serial device",
                                                         "line closed", "error Can't open serial device"}));
    EXPECT_EQ(machine.serial_state, WINDOW);
}

TEST_F(Serial, ReceivesAByteACommand) {
    for (const char c : {'a', '\0', '\xe9'}) {
        io_serial_press(c);
    }
    EXPECT_EQ(perform("90=0 91?0 92?0"), TOO_EARLY);
    EXPECT_EQ(perform("90=3 90=1 91?1 91?1 92?97 90=0 92?97"), TOO_EARLY);
    EXPECT_EQ(perform("90=1 91?1 92?0xe9 90=0 90=1 91?0"), "");
    io_serial_press('b');
    EXPECT_EQ(perform("90=0"), "");
    EXPECT_TRUE(machine.serial_queue.empty()) << "consumed, though the program never saw it";
}

TEST_F(Serial, QueuesAThousandBytesUntilTheReset) {
    for (int i = 0; i < 1030; ++i) {
        io_serial_press(static_cast<char>('0' + i % 10));
    }
    EXPECT_EQ(machine.serial_queue.size(), 1024U);
    EXPECT_EQ(machine.serial_queue.back(), '3');
    reset_serial();
    EXPECT_EQ(machine.serial_queue.size(), 1024U) << "keys typed before the port is used wait for it";
    EXPECT_EQ(perform("90=1 91?1"), "");
    reset_serial();
    EXPECT_TRUE(machine.serial_queue.empty());
}

TEST_F(Serial, SendsAByteIn462Instructions) {
    EXPECT_EQ(perform("+100 a2=0x141 a0=1 a2=66"), CHANGED);
    EXPECT_EQ(perform("a0=1 +461 a1?0 a0=0 a2=66 a0=1"), "") << "too early: lost";
    EXPECT_EQ(perform("+1 a1?1 a0=0 a1?0 a0=1"), "");
    EXPECT_EQ(recording.calls, (std::vector<std::string>{"serial A", "serial B"}));
}

TEST_F(Serial, MovesBytesUntilTheResetAfterTheRelayHasGone) {
    typed.serial_names = {"abc", "abc"};
    EXPECT_EQ(perform("90=1 91?0 a2=65 a0=1 91?1 92?65 a0=0 +462"), "") << "it echoes";
    for (const size_t size : {2047, 2048, 70000}) {
        waiting = std::string(size, 'x');
        held = "held";
        reset_machine();
        EXPECT_EQ(waiting, "");
        EXPECT_EQ(held, size < 2048 ? "held" : "") << "the line was full";
        EXPECT_TRUE(machine.serial_queue.empty());
    }
    gone = true;
    EXPECT_EQ(perform("a0=1"), "error sending data to serial port");
    io_serial_press('x');
    machine.fft_response_instr = 5;
    reset_machine();
    gone = false;
    EXPECT_EQ(machine.fft_response_instr, 0U) << "the devices after it are reset too";
    EXPECT_TRUE(machine.serial_queue.empty());
    EXPECT_EQ(machine.serial_state, DISCONNECTED);
    EXPECT_EQ(recording.prompts.at(1).substr(0, 30), "20 Reconnecting to serial port");
    EXPECT_EQ(std::ranges::count(recording.calls, "error gone"), 1);
}

} // namespace
