// The serial port's registers, on the console window.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/machine.h"
#include "core/simulate.h"
#include "devices/serial.h"
#include "tests/support/bus.h"
#include "tests/support/gui_recording.h"

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
    EXPECT_EQ(recording.calls, (std::vector<std::string>(2, "error Can't open serial device")));
    EXPECT_EQ(machine.serial_state, WINDOW);
}

TEST_F(Serial, ReceivesAByteACommand) {
    for (const char c : {'a', '\0', '\xe9'}) {
        io_serial_press(c);
    }
    EXPECT_EQ(perform("90=0 91?0 92?0"), TOO_EARLY);
    EXPECT_EQ(perform("90=3 90=1 91?1 91?1 92?97 90=0 90=1 91?1 92?0xe9 90=0 90=1 91?0"), "");
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

// A relay that accepts one client and goes: a stand-in, as a real one would not go so soon.
void serve_once(int listener) {
    const int client = accept(listener, nullptr, nullptr);
    const int32_t number = 0;
    char answers[12];
    EXPECT_EQ(send(client, &number, sizeof number, 0), ssize_t{sizeof number});
    EXPECT_EQ(recv(client, answers, sizeof answers, MSG_WAITALL), ssize_t{sizeof answers});
    EXPECT_EQ(send(client, &number, sizeof number, 0), ssize_t{sizeof number});
    close(client);
    close(listener);
}

TEST_F(Serial, ResetOutlivesALostRelay) {
    const std::string host =
        "127.88." + std::to_string(getpid() >> 8 & 255) + "." + std::to_string(getpid() & 255);
    setenv("TOVIK_RELAY_HOST", host.c_str(), 1);
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(10000);
    inet_pton(AF_INET, host.c_str(), &address.sin_addr);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    std::thread relay(serve_once, listener);
    typed.serial_names = {"abc", "abc"};
    EXPECT_EQ(perform("a1?0"), "");
    relay.join();
    EXPECT_EQ(machine.serial_state, NET);
    io_serial_press('x');
    machine.fft_response_instr = 5;
    reset_machine();
    EXPECT_EQ(machine.fft_response_instr, 0U) << "the devices after it are reset too";
    EXPECT_TRUE(machine.serial_queue.empty());
    EXPECT_EQ(machine.serial_state, DISCONNECTED);
    EXPECT_EQ(recording.prompts.at(1).substr(0, 30), "20 Reconnecting to serial port");
    EXPECT_NE(std::ranges::find(recording.calls,
                                "error Cannot connect to virtual serial port.  Please contact instructor."),
              recording.calls.end());
}

} // namespace
