#include "tests/support/bus.h"

#include <cstdlib>
#include <sstream>

#include "base/machine.h"
#include "core/simulate.h"
#include "devices/io.h"
#include "devices/serial.h"
#include "tests/support/gui_recording.h"

std::string perform(const std::string& accesses) {
    std::istringstream stream(accesses);
    std::string access;
    try {
        while (stream >> access) {
            if (access.front() == '+') {
                machine.instr_count += std::stoull(access);
                continue;
            }
            const size_t kind = access.find_first_of("=?");
            const int32_t address = IO_BASE + std::stoi(access, nullptr, 16);
            const int32_t value = std::stoi(access.substr(kind + 1), nullptr, 0);
            if (access.at(kind) == '=') {
                io(true, address, value);
            } else {
                EXPECT_EQ(io(false, address, 0), value) << access << " in " << accesses;
            }
        }
    } catch (const tovik_error& error) {
        return error.message;
    }
    return "";
}

std::vector<std::string> shown_by(const std::string& accesses) {
    recording.calls.clear();
    EXPECT_EQ(perform(accesses), "") << accesses;
    return recording.calls;
}

void DeviceTest::SetUp() {
    serial_disconnect();
    reset_machine();
    recording = {};
    typed = {};
    std::string name = testing::TempDir() + "device_XXXXXX";
    folder = mkdtemp(name.data());
}

void DeviceTest::TearDown() {
    reset_machine();
    typed = {};
    std::filesystem::remove_all(folder);
}
