#pragma once

// Speaker and microphone, which share the audio tick.

#include <cstdint>
#include <ostream>

#include "base/machine.h"
#include "base/saved_file.h"

constexpr int32_t INSTRUCTIONS_PER_AUDIO_TICK = INSTRUCTIONS_PER_TICK; // the timer's: both are 1/8000 s

// Where what the sound server says goes: standard output, unless a front end needs that for other things.
extern std::ostream* sound_log;

// Whether the samples that the speaker plays are kept for saving.
extern bool speaker_recording;

// Told of each sample that the speaker plays. nullptr: nobody.
extern void (*speaker_played)(int32_t sample);

// A sample, of 32 bits, as the host's sound has it, with 16.
[[nodiscard]] int16_t sample_of_host(int32_t sample);

// One audio tick: the speaker plays its current sample, the microphone goes on to its next one.
void advance_audio();

// Whether the host's stream does not take yet what the speaker has played. So long, no tick may follow: the
// host sets the pace.
[[nodiscard]] bool speaker_waits();

// The title of the question for the microphone's file.
constexpr const char* MICROPHONE_QUESTION = "Choose microphone .wav file";

// The register handlers of the I/O bus. That of the microphone asks the user for a file, or waits for the
// sound server, when the program reads a sample and there is none.
int32_t io_speaker(bool write, int32_t address, int32_t data);
int32_t io_microphone(bool write, int32_t address, int32_t data);

// For the table of registers.
void write_speaker_command(int32_t data);
void write_microphone_command(int32_t data);
const int32_t* give_microphone_sample();
int32_t read_speaker_response();
int32_t read_microphone_response();

// Open and close the speaker's stream; closing drops nothing but what the server has not yet played. Without
// a sound server the board is silent: a dialog says so, once.
void speaker_connect();
void speaker_disconnect();

// Open and close the microphone's stream, and show which it is on "Mic". Without one the microphone reads WAV
// files.
void microphone_connect();
void microphone_disconnect();

// No command, no sample, no recording, no stream of the speaker; that of the microphone stays.
void reset_speaker();
void reset_microphone();

// Writes the recording, as "Save speaker" does, and keeps it. Throws what the file throws.
void write_recording(saved_file_t& file);

// The "Save speaker" button: asks for a WAV file, writes the recording to it and starts a new one. Shows a
// failure in a dialog, keeps the recording and asks again, until it is saved or the user cancels. Does
// nothing when there is no recording.
void save_speaker();
