// Speaker and microphone without a sound server: handshakes, recordings, and files of any kind.

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <vector>

#include "base/machine.h"
#include "core/simulate.h"
#include "devices/audio.h"
#include "devices/wav.h"
#include "host/sound.h"
#include "tests/support/bus.h"
#include "tests/support/gui_recording.h"
#include "tests/support/host_standin.h"

namespace {

class Audio : public DeviceTest {
  protected:
    void SetUp() override {
        DeviceTest::SetUp();
        name = folder / "x.wav";
    }

    void write_file(const std::string& bytes) const { std::ofstream(name, std::ios::binary) << bytes; }

    // What a reader of the file says, or how many samples there are.
    [[nodiscard]] std::string read_back() const {
        std::deque<int32_t> samples;
        try {
            read_wav(name, samples);
            return std::to_string(samples.size());
        } catch (const tovik_error& error) {
            return error.message;
        }
    }

    std::string name;
};

TEST_F(Audio, SpeakerTakesANewSampleWhenTheLastHasBeenPlayed) {
    // What is done in each tick: the second sample comes too early, the third command is no edge.
    const char* const ticks[] = {"42=7 40=3 41?0 40=0 42=8 40=3 41?0", "41?1", "40=1", "40=0 42=9 40=3"};
    for (const char* const accesses : ticks) {
        EXPECT_EQ(perform(accesses), "");
        advance_audio();
    }
    EXPECT_EQ(perform("42=1"), CHANGED);
    EXPECT_EQ(perform("40=0 41?0"), "");
    EXPECT_EQ(machine.speaker_samples, (std::deque<sample_run_t>{{7, 3}, {9, 1}}));
    machine.speaker_samples = {{9, UINT32_MAX}};
    advance_audio();
    EXPECT_EQ(machine.speaker_samples, (std::deque<sample_run_t>{{9, UINT32_MAX}, {9, 1}}));
}

TEST_F(Audio, MicrophoneHasASampleATick) {
    machine.microphone_samples = {1, 2, 3};
    EXPECT_EQ(perform("50=1 51?0 52?0"), TOO_EARLY);
    advance_audio();
    EXPECT_EQ(perform("51?1 52?2"), "");
    advance_audio();
    EXPECT_EQ(perform("52?3 50=0 52?0"), TOO_EARLY);
    EXPECT_EQ(perform("50=1 51?0"), "") << "until the next tick";
    advance_audio();
    EXPECT_EQ(perform("51?1 52?0"), "user cancelled microphone file read");
}

TEST_F(Audio, MicrophoneAsksUntilAFileHasSamples) {
    machine.speaker_samples = {{5, 1}, {-6, 1}, {INT32_MIN, 1}};
    typed.chosen_file = name;
    save_speaker();
    const std::string none = folder / "none.wav";
    std::vector<std::string> answers = {name, none};
    typed.chosen_file = folder;
    recording.at_message = [&] {
        typed.chosen_file = answers.back();
        answers.pop_back();
    };
    recording.calls.clear();
    advance_audio();
    EXPECT_EQ(perform("50=1 51?1 52?5"), "");
    const std::string ask = "open Choose microphone .wav file *.wav ";
    EXPECT_EQ(recording.calls,
              (std::vector<std::string>{
                  ask, "error Can't open file " + folder.string() + ": Is a directory", ask + folder.string(),
                  "error Can't open file " + none + ": No such file or directory", ask + none}));
    for (const char* const accesses : {"52?-6", "52?-2147483648", "52?5"}) {
        advance_audio();
        EXPECT_EQ(perform(accesses), "") << "the file is over before the last, and chosen again";
    }
}

// A good file, for the others to differ from.
std::string good_file() {
    return {"RIFF\x44\0\0\0WAVEfmt \x28\0\0\0\xfe\xff\1\0\x40\x1f\0\0\0\x7d\0\0\4\0\x20\0\x16\0\x20\0\0\0\0\0"
            "\1\0\0\0\0\0\x10\0\x80\0\0\xaa\0\x38\x9b\x71"
            "data\x08\0\0\0\1\2\3\4\5\6\7\x08",
            76};
}

TEST_F(Audio, SpeakerIsSavedOrKept) {
    save_speaker();
    EXPECT_TRUE(recording.calls.empty()) << "nothing to save";
    machine.speaker_samples = {{3, 100000}, {4, 2}};
    typed.chosen_file = "ab";
    recording.at_message = [] { typed.chosen_file.clear(); };
    save_speaker();
    EXPECT_EQ(recording.calls.at(1), "error filename must end in .wav");
    EXPECT_EQ(recording.calls.size(), 3U) << "it is asked for again";
    EXPECT_EQ(machine.speaker_samples.size(), 2U);
    typed.chosen_file = name;
    save_speaker();
    EXPECT_TRUE(machine.speaker_samples.empty());
    EXPECT_EQ(std::filesystem::file_size(name), 68 + 4 * 100002U);
    EXPECT_EQ(read_back(), "100002");
    machine.speaker_samples = {{0x04030201, 1}, {0x08070605, 1}};
    save_speaker();
    std::ifstream file(name, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), good_file());
}

const std::string END = "end of file";

TEST_F(Audio, FilesThatAreNoRecordingsAreNamedSo) {
    const struct {
        size_t place;
        std::string bytes; // written over the good file there, or END: it ends there
        std::string said;
    } cases[] = {
        {0, "", "2"},
        {0, "RIFX", "not a WAV file"},
        {4, "\xff", "2"},
        {8, "AVI ", "not a WAV file"},
        {16, "\x12", "format chunk should be 40 bytes (not 18)"},
        {20, {"\1\0", 2}, "audio format should be 0xfffe (WAVE_FORMAT_EXTENSIBLE) (not 1)"},
        {21, "\x80", "audio format should be 0xfffe (WAVE_FORMAT_EXTENSIBLE) (not -32514)"},
        {22, "\2", "number of channels should be mono"},
        {24, "\x44\xac", "sample rate should be 8000 (not 44100)"},
        {28, "\1", "byte rate should be 32000 (not 32001)"},
        {32, "\2", "bytes per sample should be 4 (not 2)"},
        {34, "\x10", "bits per sample should be 32 (not 16)"},
        {36, "\1", "extension size should be 22 (not 1)"},
        {38, "\x18", "valid bits per sample should be 32 (not 24)"},
        {44, "\3", "data format code should be 1 (WAVE_FORMAT_PCM), not 3)"},
        {59, "\1", "GUID wrong"},
        {60, "LIST", "0"},
        {60, {"LIST\xf8\xff\xff\xff", 8}, "0"}, // not backward, for ever
        {60, {"LIST\1\0\0\0xdata\0\0", 12}, "Can't read chunk length"},
        {64, "\6", "2"}, // the last sample reads on
        {64, "\x09", "error in reading sample"},
        {12, {"data\4\0\0\0abcd", 12}, "1"},
        {3, END, "not a WAV file"},
        {7, END, "Can't read total length"},
        {11, END, "not a WAV file"},
        {15, END, "0"},
        {19, END, "Can't read chunk length"},
        {43, END, "can't read speaker position mask\n"},
        {58, END, "GUID wrong"},
        {75, END, "error in reading sample"},
    };
    for (const auto& c : cases) {
        write_file(c.bytes == END ? good_file().substr(0, c.place)
                                  : good_file().replace(c.place, c.bytes.size(), c.bytes));
        EXPECT_EQ(read_back(), c.said) << "byte " << c.place;
    }
}

TEST_F(Audio, ResetBehindTheDialogOfASpeakerThatDoesNotOpen) {
    simulator.speaker_warned = false;
    recording.at_message = reset_machine;
    speaker_connect();
    speaker_connect();
    EXPECT_EQ(std::ranges::count(recording.calls, "error Can't open pulse speaker."), 1);
    EXPECT_FALSE(simulator.speaker_on);
}

TEST_F(Audio, SpeakerPlaysWhenTheHostTakesIt) {
    host_standin.has_sound = true;
    const auto play = [](int16_t first, int16_t last) {
        speaker_connect();
        for (int16_t sample = first; sample <= last; ++sample) {
            machine.speaker_current_sample = sample * -65536 - 1; // rounded toward zero
            advance_audio();
        }
    };
    play(1, 3);
    speaker_disconnect(); // what is no batch yet is for the next stream
    play(4, 32);
    EXPECT_TRUE(speaker_waits());
    while (speaker_waits()) {
        playback_room(1);
    }
    std::vector<int16_t> expected(32);
    std::iota(expected.rbegin(), expected.rend(), -32);
    EXPECT_EQ(host_standin.played, expected);
    play(1, 32);
    speaker_disconnect();
    EXPECT_FALSE(speaker_waits()) << "nobody takes the rest";
    host_standin = {};
}

} // namespace
