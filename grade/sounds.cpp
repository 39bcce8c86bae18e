#include "grade/sounds.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <iterator>

#include "devices/wav.h"

namespace {

// Ten minutes; nobody listens longer.
constexpr size_t MOST_SAMPLES = size_t{600} * SAMPLES_PER_SECOND;

// From the first change up to the last one.
sound_t trimmed(const std::vector<int32_t>& samples, bool complete) {
    const auto first = std::adjacent_find(samples.begin(), samples.end(), std::not_equal_to());
    if (first == samples.end()) {
        return {{}, complete};
    }
    const auto last = std::adjacent_find(samples.rbegin(), samples.rend(), std::not_equal_to());
    return {{std::next(first), std::prev(last.base())}, complete};
}

} // namespace

sound_t sound_of(const std::deque<sample_run_t>& runs) {
    std::vector<int32_t> samples;
    for (const auto& [sample, times] : runs) {
        samples.insert(samples.end(), std::min<size_t>(times, MOST_SAMPLES - samples.size()), sample);
    }
    return trimmed(samples, samples.size() < MOST_SAMPLES);
}

sound_t read_sound(const std::string& file_name) {
    std::deque<int32_t> samples;
    read_wav(file_name, samples);
    return trimmed({samples.begin(), samples.end()}, true);
}

double seconds_of(const sound_t& sound) {
    return static_cast<double>(sound.samples.size()) / SAMPLES_PER_SECOND;
}

double pitch_of(const sound_t& sound, double from, double to) {
    const auto place = [&](double seconds) {
        const double sample =
            std::clamp(seconds * SAMPLES_PER_SECOND, 0.0, static_cast<double>(sound.samples.size()));
        return sound.samples.begin() + static_cast<std::ptrdiff_t>(sample);
    };
    const std::vector<int32_t> part(place(from), std::max(place(from), place(to)));
    if (part.empty()) {
        return 0;
    }
    const auto [lowest, highest] = std::minmax_element(part.begin(), part.end());
    const double middle = (static_cast<double>(*lowest) + *highest) / 2;
    std::vector<size_t> crossings;
    for (size_t i = 1; i < part.size(); ++i) {
        if (part[i - 1] < middle && part[i] >= middle) {
            crossings.push_back(i);
        }
    }
    return crossings.size() < 2
               ? 0
               : static_cast<double>(SAMPLES_PER_SECOND) * static_cast<double>(crossings.size() - 1) /
                     static_cast<double>(crossings.back() - crossings.front());
}
