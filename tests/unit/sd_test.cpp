// SD card, on real files.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include <sys/resource.h>

#include "core/machine.h"
#include "core/simulate.h"
#include "devices/io.h"
#include "tests/support/gui_recording.h"

namespace {

constexpr int32_t COMMAND = IO_BASE + 0x80;
constexpr int32_t RESPONSE = IO_BASE + 0x81;
constexpr int32_t WRITE = IO_BASE + 0x82;
constexpr int32_t ADDRESS = IO_BASE + 0x83;
constexpr int32_t DATA_WRITE = IO_BASE + 0x84;
constexpr int32_t DATA_READ = IO_BASE + 0x85;

const std::string BEYOND = "Tried to read beyond the end of SD card file (address ";

// What an access ends with: the fault, or how long it was busy and the word.
struct result_t {
    std::string fault;
    uint64_t busy = 0;
    int32_t word = 0;
    bool operator==(const result_t&) const = default;
};

void PrintTo(const result_t& result, std::ostream* out) {
    *out << "fault '" << result.fault << "', busy " << result.busy << ", word " << result.word;
}

// Waits out the time before and after, so that no command comes too early.
result_t run_access(int32_t write, int32_t address, int32_t word) {
    machine.instr_count += 10000;
    try {
        io(true, WRITE, write);
        io(true, ADDRESS, address);
        io(true, DATA_WRITE, word);
        io(true, COMMAND, 1);
    } catch (const tovik_error& error) {
        EXPECT_EQ(machine.sd_command, 0);
        return {error.message};
    }
    result_t result;
    result.busy = machine.sd_response_instr - machine.instr_count;
    machine.instr_count += result.busy - (result.busy > 0 ? 1 : 0);
    EXPECT_EQ(io(false, RESPONSE, 0), result.busy > 0 ? 0 : 1);
    machine.instr_count += 1;
    EXPECT_EQ(io(false, RESPONSE, 0), 1);
    result.word = write == 0 ? io(false, DATA_READ, 0) : word;
    io(true, COMMAND, 0);
    EXPECT_EQ(io(false, RESPONSE, 0), 0);
    return result;
}

// The same card as a text would explain it, with the file as a string of bytes.
struct model_t {
    std::string file;
    std::array<int32_t, 128> buffer{};
    int32_t block = -1;
    bool dirty = false;

    result_t access(int32_t write, int32_t address, int32_t word) {
        result_t result;
        if (block != address / 128) {
            if (dirty) {
                result.busy += 4666;
                file.resize(std::max(file.size(), static_cast<size_t>(block + 1) * 512));
                std::memcpy(file.data() + block * 512, buffer.data(), 512);
            }
            result.busy += 3333;
            block = address / 128;
            const size_t begin = std::min(static_cast<size_t>(block) * 512, file.size());
            buffer = {};
            std::memcpy(buffer.data(), file.data() + begin, std::min<size_t>(512, file.size() - begin));
            dirty = false;
        }
        result.word = buffer[static_cast<size_t>(address % 128)];
        if (write != 0) {
            result.word = buffer[static_cast<size_t>(address % 128)] = word;
            dirty = true;
        } else if (static_cast<size_t>(address + 1) * 4 > file.size()) {
            return {BEYOND + std::to_string(address) + ")"};
        }
        return result;
    }
};

class SdCard : public testing::Test {
  protected:
    void SetUp() override {
        reset_machine();
        recording = {};
        std::string folder_name = testing::TempDir() + "sd_XXXXXX";
        folder = mkdtemp(folder_name.data());
        card = folder / "card";
        put_in("");
    }

    void TearDown() override {
        reset_machine();
        typed.chosen_file.clear();
        std::filesystem::remove_all(folder);
    }

    void put_in(const std::string& bytes) {
        std::ofstream(card, std::ios::binary) << bytes;
        typed.chosen_file = card;
    }

    [[nodiscard]] std::string content() const {
        std::ifstream file(card, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::filesystem::path folder;
    std::filesystem::path card;
};

TEST_F(SdCard, KeepsWhatAModelOfItKeeps) {
    const unsigned seed = std::random_device{}();
    std::mt19937 random(seed);
    const auto pick = [&](int32_t low, int32_t high) {
        return std::uniform_int_distribution(low, high)(random);
    };
    for (int session = 0; session < 60; ++session) {
        model_t model;
        for (int i = pick(0, 1500); i > 0; --i) {
            model.file += static_cast<char>(pick(0, 255));
        }
        put_in(model.file);
        for (int i = pick(0, 60); i > 0; --i) {
            const int32_t write = pick(0, 2) == 0 ? 0 : pick(1, 5);
            const int32_t address = pick(0, 700);
            const int32_t word = pick(INT32_MIN, INT32_MAX);
            ASSERT_EQ(run_access(write, address, word), model.access(write, address, word))
                << "seed " << seed << ", session " << session << ", address " << address;
        }
        reset_machine(); // what is in the buffer only is lost
        ASSERT_EQ(content(), model.file) << "seed " << seed << ", session " << session;
    }
}

TEST_F(SdCard, TakesNoCommandWhileItIsBusy) {
    put_in(std::string(2048, 'x'));
    io(true, WRITE, 0);
    io(true, COMMAND, 1);
    io(true, COMMAND, 0);
    io(true, ADDRESS, 300);
    io(true, COMMAND, 1);
    EXPECT_EQ(machine.sd_command, 0);
    machine.instr_count += 3333;
    io(true, COMMAND, 1);
    EXPECT_EQ(machine.sd_buffer_address, 256);
    EXPECT_EQ(machine.sd_response_instr, 6666);
}

TEST_F(SdCard, AddressesHave30Bits) {
    io(true, ADDRESS, -1);
    io(true, WRITE, 1);
    io(true, COMMAND, 1);
    EXPECT_EQ(machine.sd_buffer_address, 0x3fffff80);
    io(true, COMMAND, 0);
    machine.instr_count += 3333;
    EXPECT_EQ(run_access(0, 0, 0), (result_t{"", 7999, 0})) << "the gap reads as zeros";
    EXPECT_EQ(std::filesystem::file_size(card), uint64_t{1} << 32);
}

TEST_F(SdCard, AsksForItsFile) {
    const std::string none = folder / "none";
    const std::string no_folder = "/dev/null/none";
    put_in("word");
    typed.chosen_file = none;
    EXPECT_EQ(run_access(0, 0, 0).fault, BEYOND + "0)");
    recording.calls.clear(); // where the first chooser began is another test's affair
    typed.chosen_file = "";
    EXPECT_EQ(run_access(0, 0, 0).fault, "user cancelled SD card operation");
    typed.chosen_file = folder;
    EXPECT_EQ(run_access(1, 1, 7).fault, "");
    typed.chosen_file = no_folder;
    EXPECT_EQ(run_access(1, 128, 7).fault, "Can't write SD card file /dev/null/none: Bad file descriptor");
    typed.chosen_file = card;
    EXPECT_EQ(run_access(0, 0, 0).word, 0x64726f77) << "not the block from before";
    run_access(0, 128, 0);
    EXPECT_EQ(content(), "word");
    const std::string ask = "open Choose SD card file *. ";
    EXPECT_EQ(recording.calls,
              (std::vector<std::string>{
                  ask + none, ask + none, "error Can't open file " + folder.string() + ": Is a directory",
                  ask + folder.string(), "error Can't open file " + no_folder + ": Not a directory",
                  ask + no_folder}));
}

TEST_F(SdCard, LosesNothingWhenItsFileFails) {
    put_in(std::string(1024, 'x'));
    run_access(1, 200, 5);
    run_access(1, 300, 6);
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit low = {1100, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &low);
    const std::string written = content();
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(run_access(0, 0, 0).fault,
                  "Can't write SD card file " + card.string() + ": File too large");
        EXPECT_EQ(machine.sd_response_instr, machine.instr_count) << "no time has passed";
        EXPECT_TRUE(machine.sd_buffer_valid && machine.sd_buffer_dirty && machine.sd_buffer[300 - 256] == 6);
    }
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(run_access(0, 0, 0), (result_t{"", 7999, 0x78787878}));
    EXPECT_EQ(run_access(0, 300, 0).word, 6);
    std::filesystem::resize_file(card, 100);
    EXPECT_EQ(run_access(0, 0, 0).fault, "Can't read SD card file " + card.string() + ": Input/output error");
    EXPECT_EQ(run_access(0, 300, 0), (result_t{"", 0, 6}));
}

} // namespace
