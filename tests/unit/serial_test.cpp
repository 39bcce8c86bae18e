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

#include "core/machine.h"
#include "core/simulate.h"
#include "devices/challenge.h"
#include "devices/io.h"
#include "devices/serial.h"
#include "devices/serial_connection.h"
#include "tests/support/bus.h"
#include "tests/support/gui_recording.h"

namespace {

constexpr int32_t RECEIVE = IO_BASE + 0x90;
constexpr int32_t SEND = IO_BASE + 0xa0;

class Serial : public testing::Test {
  protected:
    void SetUp() override {
        serial_disconnect();
        reset_machine();
        recording = {};
    }
    void TearDown() override { reset_machine(); }
};

TEST_F(Serial, AsksOnceWhereItLeads) {
    typed.serial_names = {"/nowhere", "no1", ""};
    io(false, SEND + 1, 0);
    io(false, RECEIVE + 1, 0);
    const std::string prompt = "20 Enter the name of your serial port (e.g., COM1 on Windows, /dev/ttyS0 or "
                               "/dev/ttyUSB0 on Linux).\n"
                               "To use a virtual serial cable, enter your campusid.\n"
                               "To show the serial output in the serial port window, leave the field blank.";
    EXPECT_EQ(recording.prompts, (std::vector<std::string>{prompt, prompt, prompt, "console"}));
    EXPECT_EQ(recording.calls, (std::vector<std::string>(2, "error Can't open serial device")));
    EXPECT_EQ(serial_state, WINDOW);
}

TEST_F(Serial, ReceivesAByteACommand) {
    for (const char c : {'a', '\0', '\xe9'}) {
        io_serial_press(c);
    }
    io(true, RECEIVE, 0);
    EXPECT_EQ(io(false, RECEIVE + 1, 0), 0);
    EXPECT_EQ(fault_of(false, RECEIVE + 2), "verify that response is 1 before reading response parameters");
    std::vector<int32_t> received;
    for (int i = 0; i < 2; ++i) {
        io(true, RECEIVE, 3);
        io(true, RECEIVE, 1);
        EXPECT_EQ(io(false, RECEIVE + 1, 0), 1);
        EXPECT_EQ(io(false, RECEIVE + 1, 0), 1);
        received.push_back(io(false, RECEIVE + 2, 0));
        io(true, RECEIVE, 0);
    }
    EXPECT_EQ(received, (std::vector<int32_t>{'a', 0xe9}));
    io(true, RECEIVE, 1);
    EXPECT_EQ(io(false, RECEIVE + 1, 0), 0);
    io_serial_press('b');
    io(true, RECEIVE, 0); // consumed, though the program never saw it
    EXPECT_TRUE(serial_queue.empty());
    EXPECT_EQ(fault_of(true, RECEIVE + 1), "unsupported operation on address 0x80000091");
    EXPECT_EQ(fault_of(false, RECEIVE), "unsupported operation on address 0x80000090");
}

TEST_F(Serial, QueuesAThousandBytesUntilTheReset) {
    for (int i = 0; i < 1030; ++i) {
        io_serial_press(static_cast<char>('0' + i % 10));
    }
    EXPECT_EQ(serial_queue.size(), 1024U);
    EXPECT_EQ(serial_queue.back(), '3');
    reset_serial();
    EXPECT_EQ(serial_queue.size(), 1024U) << "keys typed before the port is used wait for it";
    io(true, RECEIVE, 1);
    EXPECT_EQ(io(false, RECEIVE + 1, 0), 1);
    reset_serial();
    EXPECT_TRUE(serial_queue.empty());
    EXPECT_EQ(machine.serial_receive_response, 1) << "the receive registers stay";
    EXPECT_EQ(io(false, RECEIVE + 2, 0), '0');
}

TEST_F(Serial, SendsAByteIn462Instructions) {
    machine.instr_count = 100;
    io(true, SEND + 2, 0x141);
    io(true, SEND, 1);
    EXPECT_EQ(fault_of(true, SEND + 2, 'B'), "shouldn't change command parameters when command is 1");
    io(true, SEND, 1);
    machine.instr_count = 561;
    EXPECT_EQ(io(false, SEND + 1, 0), 0);
    io(true, SEND, 0);
    io(true, SEND + 2, 'B');
    io(true, SEND, 1); // too early: lost
    machine.instr_count = 562;
    EXPECT_EQ(io(false, SEND + 1, 0), 1);
    io(true, SEND, 0);
    EXPECT_EQ(io(false, SEND + 1, 0), 0);
    io(true, SEND, 1);
    reset_serial();
    io(true, SEND + 2, 'C');
    io(true, SEND, 1); // free at once
    EXPECT_EQ(recording.calls, (std::vector<std::string>{"serial A", "serial B", "serial C"}));
    EXPECT_EQ(fault_of(false, SEND + 2), "unsupported operation on address 0x800000a2");
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
        "127.88." + std::to_string(getpid() >> 8 & 127) + "." + std::to_string(getpid() & 127);
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
    io(false, SEND + 1, 0);
    relay.join();
    EXPECT_EQ(serial_state, NET);
    serial_enqueue('x');
    machine.fft_response_instr = 5;
    reset_machine();
    EXPECT_EQ(machine.fft_response_instr, 0U) << "the devices after it are reset too";
    EXPECT_TRUE(serial_queue.empty());
    EXPECT_EQ(serial_state, DISCONNECTED);
    EXPECT_EQ(recording.prompts.at(1).substr(0, 30), "20 Reconnecting to serial port");
    EXPECT_NE(std::ranges::find(recording.calls,
                                "error Cannot connect to virtual serial port.  Please contact instructor."),
              recording.calls.end());
}

TEST(Challenge, IsAnsweredInWrappingArithmetic) {
    for (const auto& [challenge, response] : {std::pair{0, 10714194},
                                              {65536, 10714194},
                                              {-3, 10714203},
                                              {INT32_MAX, 10714195},
                                              {46341, -2136764821}}) {
        EXPECT_EQ(challenge_response(challenge), response);
    }
}

} // namespace
