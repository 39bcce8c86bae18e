#include "devices/wav.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <concepts>
#include <cstddef>
#include <fstream>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "base/files.h"
#include "base/machine.h"
#include "devices/save.h"

namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__); // the numbers of a file as they stand

constexpr int32_t FORMAT_BYTES = 40;
constexpr int16_t EXTENSIBLE = -2; // 0xfffe
constexpr int16_t CHANNELS = 1;
constexpr int16_t SAMPLE_BYTES = sizeof(int32_t);
constexpr int16_t SAMPLE_BITS = 32;
constexpr int16_t EXTENSION_BYTES = 22;
constexpr int32_t BYTES_PER_SECOND = SAMPLES_PER_SECOND * SAMPLE_BYTES;
static_assert(BYTES_PER_SECOND == 32000);

// What a format of samples is called: the first two bytes are its code, the others the same for all.
constexpr int16_t PCM = 1;
constexpr std::string_view REST_OF_GUID = {"\x00\x00\x00\x00\x10\x00\x80\x00\x00\xaa\x00\x38\x9b\x71", 14};

constexpr size_t HEADER_BYTES = 68;
constexpr size_t RIFF_BYTES = 8; // not counted in the total length

template <std::integral number_t> std::optional<number_t> read_number(std::istream& file) {
    number_t number{};
    if (!file.read(reinterpret_cast<char*>(&number), sizeof number)) {
        return std::nullopt;
    }
    return number;
}

std::string read_bytes(std::istream& file, size_t count) {
    std::string bytes(count, '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(count));
    bytes.resize(static_cast<size_t>(file.gcount()));
    return bytes;
}

[[noreturn]] void fail(const std::string& fault) { throw tovik_error(fault); }

// Reads a number that must have a value. The fault that names another one ends with the fault's own ending;
// what could not be read is named as 0.
template <std::integral number_t>
void expect(std::istream& file, number_t value, const std::string& fault, const std::string& ending = ")") {
    const number_t number = read_number<number_t>(file).value_or(0);
    if (!file || number != value) {
        fail(fault + std::to_string(number) + ending);
    }
}

void read_format(std::istream& file, int32_t length) {
    if (length != FORMAT_BYTES) {
        fail("format chunk should be 40 bytes (not " + std::to_string(length) + ")");
    }
    expect(file, EXTENSIBLE, "audio format should be 0xfffe (WAVE_FORMAT_EXTENSIBLE) (not ");
    if (read_number<int16_t>(file) != CHANNELS) {
        fail("number of channels should be mono");
    }
    expect(file, SAMPLES_PER_SECOND, "sample rate should be 8000 (not ");
    expect(file, BYTES_PER_SECOND, "byte rate should be 32000 (not ");
    expect(file, SAMPLE_BYTES, "bytes per sample should be 4 (not ");
    expect(file, SAMPLE_BITS, "bits per sample should be 32 (not ");
    expect(file, EXTENSION_BYTES, "extension size should be 22 (not ");
    expect(file, SAMPLE_BITS, "valid bits per sample should be 32 (not ");
    if (!read_number<int32_t>(file)) {
        fail("can't read speaker position mask\n");
    }
    expect(file, PCM, "data format code should be 1 (WAVE_FORMAT_PCM), not ");
    if (read_bytes(file, REST_OF_GUID.size()) != REST_OF_GUID) {
        fail("GUID wrong");
    }
}

// A length that is no whole number of samples reads on into what follows.
void read_data(std::istream& file, int32_t length, std::deque<int32_t>& samples) {
    for (int32_t rest = length; rest > 0; rest -= SAMPLE_BYTES) {
        const std::optional<int32_t> sample = read_number<int32_t>(file);
        if (!sample) {
            fail("error in reading sample");
        }
        samples.push_back(*sample);
    }
}

void read_chunks(std::istream& file, std::deque<int32_t>& samples) {
    if (read_bytes(file, 4) != "RIFF") {
        fail("not a WAV file");
    }
    if (!read_number<int32_t>(file)) {
        fail("Can't read total length");
    }
    if (read_bytes(file, 4) != "WAVE") {
        fail("not a WAV file");
    }
    for (;;) {
        const std::string chunk = read_bytes(file, 4);
        if (chunk.size() < 4) {
            return;
        }
        const std::optional<int32_t> length = read_number<int32_t>(file);
        if (!length) {
            fail("Can't read chunk length");
        }
        if (chunk == "fmt ") {
            read_format(file, *length);
        } else if (chunk == "data") {
            read_data(file, *length, samples);
        } else if (*length < 0) {
            return; // nothing is read twice
        } else {
            file.seekg(*length, std::ios::cur);
        }
    }
}

std::ifstream open_recording(const std::string& name) {
    std::ifstream file = open_stream(name);
    if (!file.is_open()) {
        const int error = errno;
        fail("Can't open file " + name + ": " + system_error_text(error));
    }
    return file;
}

template <std::integral number_t> void append(std::string& bytes, number_t number) {
    bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
}

std::string header(size_t samples) {
    const size_t data_bytes = samples * sizeof(int32_t);
    std::string bytes = "RIFF";
    append(bytes, static_cast<uint32_t>(HEADER_BYTES - RIFF_BYTES + data_bytes));
    bytes += "WAVEfmt ";
    append(bytes, FORMAT_BYTES);
    append(bytes, EXTENSIBLE);
    append(bytes, CHANNELS);
    append(bytes, SAMPLES_PER_SECOND);
    append(bytes, BYTES_PER_SECOND);
    append(bytes, SAMPLE_BYTES);
    append(bytes, SAMPLE_BITS);
    append(bytes, EXTENSION_BYTES);
    append(bytes, SAMPLE_BITS);
    append(bytes, int32_t{0}); // at no place in the room
    append(bytes, PCM);
    bytes += REST_OF_GUID;
    bytes += "data";
    append(bytes, static_cast<uint32_t>(data_bytes));
    return bytes;
}

} // namespace

void read_wav(const std::string& name, std::deque<int32_t>& samples) {
    std::ifstream file = open_recording(name);
    const auto check_disk = [&] {
        if (file.bad()) {
            fail("Can't read file " + name + ": " + system_error_text(errno));
        }
    };
    try {
        read_chunks(file, samples);
    } catch (const tovik_error&) {
        // What could not be read is no fault of the recording's.
        check_disk();
        throw;
    }
    check_disk();
}

void add_sample(std::deque<sample_run_t>& runs, int32_t sample) {
    if (runs.empty() || runs.back().sample != sample || runs.back().times == UINT32_MAX) {
        runs.push_back({.sample = sample, .times = 0});
    }
    ++runs.back().times;
}

void write_wav(saved_file_t& file, const std::deque<sample_run_t>& runs) {
    constexpr size_t samples_a_part = 65536;
    size_t samples = 0;
    for (const sample_run_t& run : runs) {
        samples += run.times;
    }
    file.write(header(samples));
    std::vector<int32_t> part;
    const auto write_part = [&] {
        file.write(bytes_of(std::span<const int32_t>(part)));
        part.clear();
    };
    for (const sample_run_t& run : runs) {
        for (uint32_t i = 0; i < run.times; ++i) {
            part.push_back(run.sample);
            if (part.size() == samples_a_part) {
                write_part();
            }
        }
    }
    write_part();
}
