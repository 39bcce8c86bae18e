#pragma once

// The host's sound: one stream that plays and one that records, both of one channel with 8000 samples of 16
// bits a second. Only opening may take a moment.
//
// A failure is thrown as tovik_error, with the line that says it. A stream that has failed stays so until it
// is closed, and each write and each read names the failure again.

#include <cstddef>
#include <cstdint>
#include <span>

// The stream must not be open; for all that follows it must be.
void playback_open();

// How many samples the stream takes at once. Waits for the first so many milliseconds at most; a host that
// cannot wait answers at once. A stream that has failed takes any number: writing them then names the
// failure.
size_t playback_room(int most_ms);
[[nodiscard]] bool playback_ready(int most_ms); // whether it takes any

// Writes as many samples as there is room for, or fewer.
void playback_write(std::span<const int16_t> samples);

// What has not been played yet is dropped.
void playback_close();

// As above.
void record_open();

// Whether there is a sample to read, or a failure, which reading then names. Waits for it so many
// milliseconds at most; a host that cannot wait answers at once.
[[nodiscard]] bool record_ready(int most_ms);

// The next sample. Must be ready.
[[nodiscard]] int16_t record_read();

void record_close();
