#pragma once

// Recordings as WAV files: one channel, 8000 samples a second, 32 bits, in the extensible format.

#include <cstdint>
#include <deque>
#include <string>

#include "base/machine.h"
#include "base/saved_file.h"

// Appends the samples of a file; a file may have more than one part with samples, and other parts, which are
// passed over. Throws tovik_error: "Can't open file NAME: REASON", "Can't read file NAME: REASON", or what is
// wrong with the file; some samples may have been appended by then.
void read_wav(const std::string& name, std::deque<int32_t>& samples);

// Appends a sample to a recording.
void add_sample(std::deque<sample_run_t>& runs, int32_t sample);

// Writes the header and all samples, each run as often as it counts. Throws what the file throws.
void write_wav(saved_file_t& file, const std::deque<sample_run_t>& runs);
