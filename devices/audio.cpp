// Speaker and microphone: 8000 samples of 32 bits a second each. At every audio tick the speaker plays its
// sample, again and again until the program gives another one, and the microphone has a new one.
//
//   offset  register  access  bits   meaning
//   0x40    command   write   0      0 to 1 gives the speaker a sample, if it has played the last one
//   0x41    response  read    0      1 when the speaker has played the sample and command is 1
//   0x42    sample    write   31..0  signed
//
//   0x50    command   write   0      1 asks the microphone for a sample
//   0x51    response  read    0      1 when a tick has brought a sample since the last one was taken
//   0x52    sample    read    31..0  signed; the same until the next tick
//
// The host's end is a sound server: a playback stream for the speaker while a program runs, a record stream
// for the microphone while "Mic" is on, both of 16 bits, the high half of a sample. Otherwise the microphone
// plays WAV files that the user chooses. What the speaker has played can be saved as a WAV file with all 32
// bits.
//
// Not modelled: the converters' buffers and their analogue side.

#include "devices/audio.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <iostream>
#include <iterator>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "base/gui.h"
#include "base/machine.h"
#include "devices/io.h"
#include "devices/save.h"
#include "devices/wav.h"
#include "host/journal.h"
#include "host/sound.h"

std::ostream* sound_log = &std::cout;
bool speaker_recording = true;
void (*speaker_played)(int32_t sample) = nullptr;

namespace {

constexpr int32_t SPEAKER_COMMAND = 0x40;
constexpr int32_t SPEAKER_RESPONSE = 0x41;
constexpr int32_t MICROPHONE_COMMAND = 0x50;
constexpr int32_t MICROPHONE_RESPONSE = 0x51;
constexpr int32_t MICROPHONE_SAMPLE = 0x52;

constexpr int32_t HOST_STEP = 65536; // of a sample of 16 bits, in one of 32

void log_failure(const tovik_error& error) {
    if (!in_the_past()) {
        *sound_log << error.message << std::endl;
    }
}

// Returns whether there is a stream now.
bool opens(void (*open)()) {
    try {
        open();
        return true;
    } catch (const tovik_error& error) {
        log_failure(error);
        return false;
    }
}

bool batch_is_full() { return machine.speaker_batch_samples == std::ssize(machine.speaker_batch); }

void begin_batch() {
    machine.speaker_batch_samples = 0;
    machine.speaker_batch_sent = 0;
}

// Writes what the stream takes of a full batch. What fails is not tried again.
void play_batch() {
    const auto left =
        std::span(machine.speaker_batch).subspan(static_cast<size_t>(machine.speaker_batch_sent));
    const auto taken = left.first(std::min(left.size(), playback_room(0)));
    if (taken.empty()) {
        return;
    }
    try {
        playback_write(taken);
        machine.speaker_batch_sent += static_cast<int32_t>(taken.size());
        if (taken.size() < left.size()) {
            return;
        }
    } catch (const tovik_error& error) {
        log_failure(error);
    }
    begin_batch();
}

void play(int32_t sample) {
    assert(!batch_is_full());
    machine.speaker_batch[machine.speaker_batch_samples] = sample_of_host(sample);
    ++machine.speaker_batch_samples;
    if (batch_is_full()) {
        play_batch();
    }
}

void clear_recording() {
    machine.speaker_samples.clear();
    touched.recording = true;
}

void microphone_clear() { machine.microphone_samples.clear(); }

// One sample. After a failure it is 0.
void read_stream() {
    if (!record_ready(0)) {
        throw host_wait_t{record_ready};
    }
    int32_t sample = 0;
    try {
        sample = record_read() * HOST_STEP;
    } catch (const tovik_error& error) {
        log_failure(error);
    }
    machine.microphone_samples.push_back(sample);
}

void read_recording() {
    std::deque<int32_t>& samples = machine.microphone_samples;
    if (!journal_is_on()) {
        read_wav(machine.microphone_filename, samples);
        return;
    }
    const given_t given = through_journal(door_e::RECORDING, [&] {
        read_wav(machine.microphone_filename, samples);
        const std::vector<int32_t> read(samples.begin(), samples.end());
        return given_t{.bytes = std::string(bytes_of(std::span(read)))};
    });
    samples.resize(given.bytes.size() / sizeof(int32_t));
    const char* bytes = given.bytes.data();
    for (int32_t& sample : samples) {
        std::memcpy(&sample, bytes, sizeof sample);
        bytes += sizeof sample;
    }
}

// All samples of a file; none when there is something wrong with it.
void read_file() {
    if (!gui_choosefile(false, MICROPHONE_QUESTION, "WAV file", "wav", machine.microphone_filename)) {
        throw tovik_error("user cancelled microphone file read");
    }
    try {
        read_recording();
    } catch (const tovik_error& error) {
        gui_message(error.message, true);
        microphone_clear();
    }
}

void read_microphone() {
    if (simulator.microphone_on) {
        read_stream();
    } else {
        read_file();
    }
}

int32_t read_microphone_sample() {
    check_response(machine.microphone_response);
    while (machine.microphone_samples.empty()) {
        read_microphone();
    }
    return machine.microphone_samples.front();
}

// A name of three characters is let through, on purpose kept so.
bool is_wav(const std::string& name) { return name.ends_with(".wav") || name.size() == 3; }

} // namespace

// Divided, not shifted: a negative sample is rounded toward zero.
int16_t sample_of_host(int32_t sample) { return static_cast<int16_t>(sample / HOST_STEP); }

void advance_audio() {
    if (!machine.microphone_samples.empty()) {
        machine.microphone_samples.pop_front();
    }
    machine.microphone_sample_avail = true;
    machine.speaker_current_sample_played = true;
    if (speaker_recording) {
        add_sample(machine.speaker_samples, machine.speaker_current_sample);
    }
    if (speaker_played != nullptr) {
        speaker_played(machine.speaker_current_sample);
    }
    if (simulator.speaker_on) {
        play(machine.speaker_current_sample);
    }
}

bool speaker_waits() {
    if (batch_is_full()) {
        play_batch();
    }
    return batch_is_full();
}

void write_speaker_command(int32_t data) {
    const int32_t command = data & 1;
    if (machine.speaker_command == 0 && command == 1 && machine.speaker_current_sample_played) {
        machine.speaker_current_sample = machine.speaker_sample;
        machine.speaker_current_sample_played = false;
    }
    machine.speaker_command = command;
}

void write_microphone_command(int32_t data) {
    const int32_t command = data & 1;
    if (machine.microphone_command == 1 && command == 0) {
        machine.microphone_sample_avail = false;
    }
    machine.microphone_command = command;
    if (command == 0) {
        machine.microphone_response = 0;
    }
}

const int32_t* give_microphone_sample() {
    const bool is_there = machine.microphone_response != 0 && !machine.microphone_samples.empty();
    return is_there ? &machine.microphone_samples.front() : nullptr;
}

int32_t read_speaker_response() {
    return machine.speaker_command != 0 && machine.speaker_current_sample_played ? 1 : 0;
}

int32_t read_microphone_response() {
    const bool is_there = machine.microphone_command != 0 && machine.microphone_sample_avail;
    machine.microphone_response = is_there ? 1 : 0;
    return machine.microphone_response;
}

int32_t io_speaker(bool write, int32_t address, int32_t data) {
    const int32_t offset = io_offset(address);
    if (write && offset == SPEAKER_COMMAND) {
        write_speaker_command(data);
    } else if (!write && offset == SPEAKER_RESPONSE) {
        return read_speaker_response();
    } else {
        io_unsupported(address);
    }
    return 0;
}

int32_t io_microphone(bool write, int32_t address, int32_t data) {
    const int32_t offset = io_offset(address);
    if (write && offset == MICROPHONE_COMMAND) {
        write_microphone_command(data);
        return 0;
    }
    if (!write && offset == MICROPHONE_RESPONSE) {
        return read_microphone_response();
    }
    if (!write && offset == MICROPHONE_SAMPLE) {
        return read_microphone_sample();
    }
    io_unsupported(address);
}

void reset_speaker() {
    speaker_disconnect();
    machine.speaker_command = 0;
    machine.speaker_sample = 0;
    machine.speaker_current_sample = 0;
    machine.speaker_current_sample_played = true;
    clear_recording();
}

void reset_microphone() {
    machine.microphone_command = 0;
    machine.microphone_response = 0;
    machine.microphone_sample_avail = false;
    microphone_clear();
}

void speaker_connect() {
    if (simulator.speaker_on) {
        return;
    }
    simulator.speaker_on = opens(playback_open);
    // Settled before the dialog shows: from outside, the buttons behind it can be pressed.
    const bool was_warned = std::exchange(simulator.speaker_warned, !simulator.speaker_on);
    if (!simulator.speaker_on && !was_warned) {
        gui_message("Can't open pulse speaker.", true);
    }
}

void speaker_disconnect() {
    if (simulator.speaker_on) {
        // What still waits would have been dropped by the host.
        if (batch_is_full()) {
            begin_batch();
        }
        playback_close();
        simulator.speaker_on = false;
    }
}

void microphone_connect() {
    if (!simulator.microphone_on) {
        simulator.microphone_on = opens(record_open);
        if (simulator.microphone_on) {
            microphone_clear();
        } else {
            simulator.microphone_warned = true;
        }
    }
    gui_mic_set(simulator.microphone_on);
}

void microphone_disconnect() {
    if (simulator.microphone_on) {
        record_close();
        simulator.microphone_on = false;
        microphone_clear();
    }
    gui_mic_set(false);
}

void write_recording(saved_file_t& file) { write_wav(file, machine.speaker_samples); }

void save_speaker() {
    const save_t save = {"Choose speaker .wav file", "WAV file", "wav", is_wav, write_recording};
    while (!machine.speaker_samples.empty()) {
        switch (save_chosen(save, machine.speaker_filename)) {
        case saved_e::SAVED:
            clear_recording();
            break;
        case saved_e::CANCELLED:
            return;
        case saved_e::FAILED:
            break;
        }
    }
}
