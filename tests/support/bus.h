#pragma once

// For tests of devices by accesses to the I/O bus.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

// The faults of programs that do not keep to the handshake.
inline const std::string TOO_EARLY = "verify that response is 1 before reading response parameters";
inline const std::string CHANGED = "shouldn't change command parameters when command is 1";

// Performs accesses, one after the other: "c2=-5" writes to offset 0xc2, "c1?0" reads there what must be 0,
// and "+80" lets so many instructions pass. Between them a user may press a key, "<a", or release it, ">a",
// switch the mouse, "^M", move it, "@9,5", press its first button, "[0", or release it, "]0", and reset the
// board, "R". An access that must fail names how: "c2=6!changed", "d2?0!early", "c3=32768!range", "c1=0!none"
// where there is no such register, "c8=0!illegal" where there is no device. Returns the fault that nothing
// named and that ended them; empty when there was none.
std::string perform(const std::string& accesses);

// A machine after Reset, nothing recorded or typed, and a folder for the files of the test.
class DeviceTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    std::filesystem::path folder;
};
