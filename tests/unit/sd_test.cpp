// SD card, on real files.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>

#include <sys/resource.h>

#include "base/machine.h"
#include "core/simulate.h"
#include "devices/io.h"
#include "tests/support/bus.h"
#include "tests/support/gui_recording.h"
#include "tests/support/random_programs.h"

namespace {

std::string outcome(uint64_t busy, int32_t word) {
    return "busy " + std::to_string(busy) + ", word " + std::to_string(word);
}

const std::string BEYOND = "Tried to read beyond the end of SD card file (address ";

// Returns the fault, or how long the access was busy and the word. Waits out the time before and after; a
// command that comes before is not taken at all.
std::string run_access(int32_t write, int32_t address, int32_t word) {
    std::ostringstream accesses;
    accesses << "+10000 82=" << write << " 83=" << address << " 84=" << word << " 80=1";
    if (std::string fault = perform(accesses.str()); !fault.empty()) {
        EXPECT_EQ(machine.sd_command, 0);
        return fault;
    }
    const uint64_t busy = machine.sd_response_instr - machine.instr_count;
    if (busy > 0) {
        EXPECT_EQ(perform("+" + std::to_string(busy - 1) + " 81?0 80=0 80=1 +1 81?0 80=1"), "");
    }
    EXPECT_EQ(perform("81?1"), "");
    const int32_t result = write == 0 ? io(false, IO_BASE + 0x85, 0) : word;
    EXPECT_EQ(perform("82=77!changed 83=-2!changed 84=77!changed 80=0 81?0 85?0!early"), "");
    return outcome(busy, result);
}

// The same card as a text would explain it, with the file as a string of bytes.
struct model_t {
    std::string file;
    std::array<int32_t, 128> buffer{};
    int32_t block = -1;
    bool dirty = false;

    std::string access(int32_t write, int32_t address, int32_t word) {
        uint64_t busy = 0;
        if (block != address / 128) {
            if (dirty) {
                busy += 4666;
                file.resize(std::max(file.size(), static_cast<size_t>(block + 1) * 512));
                std::memcpy(file.data() + block * 512, buffer.data(), 512);
            }
            busy += 3333;
            block = address / 128;
            const size_t begin = std::min(static_cast<size_t>(block) * 512, file.size());
            buffer = {};
            std::memcpy(buffer.data(), file.data() + begin, std::min<size_t>(512, file.size() - begin));
            dirty = false;
        }
        int32_t& place = buffer[static_cast<size_t>(address % 128)];
        if (write != 0) {
            place = word;
            dirty = true;
        } else if (static_cast<size_t>(address + 1) * 4 > file.size()) {
            return BEYOND + std::to_string(address) + ")";
        }
        return outcome(busy, place);
    }
};

class SdCard : public DeviceTest {
  protected:
    void put_in(const std::string& bytes) {
        card = folder / "card";
        std::ofstream(card, std::ios::binary) << bytes;
        typed.chosen_file = card;
    }

    [[nodiscard]] std::string content() const {
        std::ifstream file(card, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::filesystem::path card;
};

TEST_F(SdCard, KeepsWhatAModelOfItKeeps) {
    random_t random = {std::random_device{}()};
    SCOPED_TRACE(random.place);
    for (int session = 0; session < 60; ++session) {
        model_t model;
        std::generate_n(std::back_inserter(model.file), pick(random, 0, 1500),
                        [&] { return pick(random, 0, 255); });
        put_in(model.file);
        for (int i = pick(random, 0, 60); i > 0; --i) {
            const int32_t write = one_in(random, 3) ? 0 : pick(random, 1, 5);
            const int32_t address = pick(random, 0, 700);
            const int32_t word = pick(random, INT32_MIN, INT32_MAX);
            ASSERT_EQ(run_access(write, address, word), model.access(write, address, word)) << address;
        }
        reset_machine(); // what is in the buffer only is lost
        ASSERT_EQ(content(), model.file);
    }
}

TEST_F(SdCard, AsksForItsFile) {
    put_in("");
    EXPECT_EQ(run_access(1, -1, 7), outcome(3333, 7));
    EXPECT_EQ(run_access(0, 0, 0), outcome(7999, 0)) << "the gap reads as zeros";
    EXPECT_EQ(std::filesystem::file_size(card), uint64_t{1} << 32) << "addresses have 30 bits";
    reset_machine();
    put_in("word");
    const std::string none = folder / "none";
    typed.chosen_file = none;
    EXPECT_EQ(run_access(0, 0, 0), BEYOND + "0)");
    typed.chosen_file = "";
    EXPECT_EQ(run_access(0, 0, 0), "user cancelled SD card operation");
    typed.chosen_file = folder;
    EXPECT_EQ(run_access(1, 1, 7), outcome(0, 7));
    typed.chosen_file = none;
    EXPECT_EQ(run_access(1, 128, 7), "Can't write SD card file " + none + ": Bad file descriptor");
    typed.chosen_file = card;
    EXPECT_EQ(run_access(0, 0, 0), outcome(3333, 0x64726f77)) << "not the block from before";
    run_access(0, 128, 0);
    EXPECT_EQ(content(), "word");
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
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(run_access(0, 0, 0), "Can't write SD card file " + card.string() + ": File too large");
        EXPECT_EQ(machine.sd_response_instr, machine.instr_count) << "no time has passed";
        EXPECT_TRUE(machine.sd_buffer_valid && machine.sd_buffer_dirty && machine.sd_buffer[300 - 256] == 6);
    }
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(run_access(0, 0, 0), outcome(7999, 0x78787878));
    EXPECT_EQ(run_access(0, 300, 0), outcome(3333, 6));
    std::filesystem::resize_file(card, 100);
    EXPECT_EQ(run_access(0, 0, 0), "Can't read SD card file " + card.string() + ": Input/output error");
    EXPECT_EQ(run_access(0, 300, 0), outcome(0, 6));
}

} // namespace
