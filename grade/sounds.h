#pragma once

// What the speaker has played, compared by length and pitch: two right programs seldom play the same samples.

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "base/machine.h"

// Without the silence before and after.
struct sound_t {
    std::vector<int32_t> samples; // 8000 a second
    bool complete = true;         // false: it is longer than is looked at
};

sound_t sound_of(const std::deque<sample_run_t>& runs);

// Reads a WAV file. Throws tovik_error.
sound_t read_sound(const std::string& file_name);

[[nodiscard]] double seconds_of(const sound_t& sound);

// In hertz, of the stretch between two times in seconds: how often the samples cross their middle from below,
// whatever the form of the wave. 0 where they do so less than twice. Means nothing for chords.
[[nodiscard]] double pitch_of(const sound_t& sound, double from, double to);
