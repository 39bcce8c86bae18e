#include "tests/support/bus.h"

#include <cstdlib>
#include <map>
#include <sstream>

#include "base/machine.h"
#include "core/simulate.h"
#include "devices/io.h"
#include "devices/mouse.h"
#include "devices/ps2.h"
#include "devices/serial.h"
#include "tests/support/gui_recording.h"
#include "tests/support/record.h"

namespace {

char key_of(const std::string& text) {
    return text.size() == 1 ? text[0] : static_cast<char>(std::stoi(text));
}

// What happens beside accesses, by the first character of a word; `rest` is what follows it.
const std::map<char, void (*)(const std::string& rest)> ACTS = {
    {'+', [](const std::string& rest) { machine.instr_count += std::stoull(rest); }},
    {'<', [](const std::string& rest) { io_ps2_press(key_of(rest)); }},
    {'>', [](const std::string& rest) { io_ps2_release(key_of(rest)); }},
    {'^', [](const std::string& /*rest*/) { io_ps2_ctrlm(); }},
    {'@',
     [](const std::string& rest) {
         io_mouse_motion(std::stoi(rest), std::stoi(rest.substr(rest.find(',') + 1)));
     }},
    {'[', [](const std::string& rest) { io_mouse_press(std::stoi(rest)); }},
    {']', [](const std::string& rest) { io_mouse_release(std::stoi(rest)); }},
    {'R', [](const std::string& /*rest*/) { reset_machine(); }}};

std::string fault_named(const std::string& name, int32_t address) {
    std::ostringstream digits;
    digits << std::hex << address;
    return name == "early"     ? TOO_EARLY
           : name == "changed" ? CHANGED
           : name == "range"   ? "FFT data out of range"
           : name == "none"    ? "unsupported operation on address 0x" + digits.str()
                               : "illegal address " + std::to_string(address) + "\n";
}

void perform_one(const std::string& word) {
    if (const auto found = ACTS.find(word.front()); found != ACTS.end()) {
        return found->second(word.substr(1));
    }
    const size_t kind = word.find_first_of("=?");
    const size_t mark = word.find('!');
    const int32_t address = IO_BASE + std::stoi(word, nullptr, 16);
    const int32_t value = std::stoi(word.substr(kind + 1), nullptr, 0);
    const bool writes = word.at(kind) == '=';
    try {
        EXPECT_EQ(io(writes, address, value), writes ? 0 : value) << word;
        EXPECT_EQ(mark, std::string::npos) << word;
    } catch (const tovik_error& error) {
        if (mark == std::string::npos) {
            throw;
        }
        EXPECT_EQ(error.message, fault_named(word.substr(mark + 1), address)) << word;
    }
}

} // namespace

std::string perform(const std::string& accesses) {
    SCOPED_TRACE(accesses);
    std::istringstream stream(accesses);
    try {
        for (std::string word; stream >> word;) {
            perform_one(word);
        }
    } catch (const tovik_error& error) {
        return error.message;
    }
    return "";
}

void DeviceTest::SetUp() {
    serial_disconnect();
    fill_record(0);
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
