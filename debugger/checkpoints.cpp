#include "debugger/checkpoints.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <iterator>
#include <map>
#include <memory>
#include <queue>
#include <span>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "base/gui.h"
#include "base/machine.h"
#include "core/engine.h"
#include "host/storage.h"

namespace {

// ---- The record but for the large memories

auto containers() {
    return std::tie(machine.ps2_events, machine.ps2_pressed, machine.vga_pending, machine.sdram_filename,
                    machine.speaker_filename, machine.microphone_filename, machine.vga_filename,
                    machine.sd_filename, machine.camera_filename, machine.serial_cable, machine.serial_queue);
}

using containers_t = std::tuple<std::deque<ps2_event_t>, std::vector<bool>, std::vector<colored_box_t>,
                                std::string, std::string, std::string, std::string, std::string, std::string,
                                std::string, std::queue<uint8_t>>;

template <typename part_t> std::span<std::byte> bytes_of(part_t& part) {
    return {reinterpret_cast<std::byte*>(&part), sizeof part};
}

// All that lies between the large memories and the containers, in order.
std::vector<std::span<std::byte>> find_plain_stretches() {
    std::vector<std::span<std::byte>> others = {
        bytes_of(machine.memory),          bytes_of(machine.modified),          bytes_of(machine.sdram_ram),
        bytes_of(machine.vga_ram),         bytes_of(machine.vga_last),          bytes_of(machine.vga_picture),
        bytes_of(machine.camera_ram),      bytes_of(machine.fft_send),          bytes_of(machine.fft_receive),
        bytes_of(machine.speaker_samples), bytes_of(machine.microphone_samples)};
    std::apply([&](auto&... part) { (others.push_back(bytes_of(part)), ...); }, containers());
    std::sort(others.begin(), others.end(),
              [](std::span<std::byte> one, std::span<std::byte> other) { return one.data() < other.data(); });
    std::vector<std::span<std::byte>> plain;
    std::byte* begin = bytes_of(machine).data();
    for (const std::span<std::byte> other : others) {
        if (begin != other.data()) {
            plain.emplace_back(begin, other.data());
        }
        begin = other.data() + other.size();
    }
    const std::span<std::byte> all = bytes_of(machine);
    plain.emplace_back(begin, all.data() + all.size());
    return plain;
}

const std::vector<std::span<std::byte>>& plain_stretches() {
    static const std::vector<std::span<std::byte>> stretches = find_plain_stretches();
    return stretches;
}

std::vector<std::byte> plain_bytes() {
    std::vector<std::byte> bytes;
    for (const std::span<std::byte> stretch : plain_stretches()) {
        bytes.insert(bytes.end(), stretch.begin(), stretch.end());
    }
    return bytes;
}

void put_plain_bytes(const std::vector<std::byte>& bytes) {
    const std::byte* from = bytes.data();
    for (const std::span<std::byte> stretch : plain_stretches()) {
        std::memcpy(stretch.data(), from, stretch.size());
        from += stretch.size();
    }
}

// The controls that belong to the board.
auto device_controls() {
    return std::tie(simulator.speaker_on, simulator.speaker_warned, simulator.microphone_on,
                    simulator.microphone_warned, simulator.camera_on);
}

using device_controls_t = std::tuple<bool, bool, bool, bool, bool>;

// ---- Sound

size_t recorded_kept = 0; // runs of samples in all recordings

// The part of a recording between two copies. The last run of all may still grow, so it is not in here.
struct recording_t {
    std::shared_ptr<const recording_t> before;
    size_t count; // runs up to here
    std::vector<sample_run_t> runs;

    recording_t(std::shared_ptr<const recording_t> first, std::vector<sample_run_t> rest)
        : before(std::move(first)), count((before == nullptr ? 0 : before->count) + rest.size()),
          runs(std::move(rest)) {
        recorded_kept += runs.size();
    }
    recording_t(const recording_t&) = delete;
    recording_t& operator=(const recording_t&) = delete;
    ~recording_t() { recorded_kept -= runs.size(); }
};

struct speaker_t {
    std::shared_ptr<const recording_t> settled;
    std::optional<sample_run_t> last;
};

// The recording as it was when the board was last copied or put back.
std::shared_ptr<const recording_t> recording;

speaker_t keep_recording() {
    const std::deque<sample_run_t>& runs = machine.speaker_samples;
    if (touched.recording) {
        recording = nullptr;
    }
    if (runs.empty()) {
        return {};
    }
    const size_t known = recording == nullptr ? 0 : recording->count;
    if (runs.size() - 1 > known) {
        recording = std::make_shared<const recording_t>(
            recording, std::vector<sample_run_t>(runs.begin() + static_cast<std::ptrdiff_t>(known),
                                                 std::prev(runs.end())));
    }
    return {recording, runs.back()};
}

void put_recording(const speaker_t& speaker) {
    std::vector<const recording_t*> parts;
    for (const recording_t* part = speaker.settled.get(); part != nullptr; part = part->before.get()) {
        parts.push_back(part);
    }
    machine.speaker_samples.clear();
    for (size_t i = parts.size(); i > 0; --i) {
        const std::vector<sample_run_t>& runs = parts[i - 1]->runs;
        machine.speaker_samples.insert(machine.speaker_samples.end(), runs.begin(), runs.end());
    }
    if (speaker.last) {
        machine.speaker_samples.push_back(*speaker.last);
    }
    recording = speaker.settled;
}

// What waits at the microphone: the last samples of a recording's bytes.
struct microphone_t {
    std::shared_ptr<const std::string> recording;
    size_t left; // samples
};

constexpr size_t FEW_SAMPLES = 64;

// The samples are those of the file that was last read, as a rule, or it is seen that they are not.
microphone_t keep_microphone() {
    const std::deque<int32_t>& samples = machine.microphone_samples;
    const passed_t* const passed = samples.size() > FEW_SAMPLES ? journal_last(door_e::RECORDING) : nullptr;
    if (passed != nullptr && passed->bytes != nullptr &&
        passed->bytes->size() >= samples.size() * sizeof(int32_t)) {
        int32_t first = 0;
        std::memcpy(&first, passed->bytes->data() + passed->bytes->size() - samples.size() * sizeof(int32_t),
                    sizeof first);
        if (first == samples.front()) {
            return {passed->bytes, samples.size()};
        }
    }
    const std::vector<int32_t> all(samples.begin(), samples.end());
    return {std::make_shared<const std::string>(reinterpret_cast<const char*>(all.data()),
                                                all.size() * sizeof(int32_t)),
            all.size()};
}

void put_microphone(const microphone_t& microphone) {
    machine.microphone_samples.resize(microphone.left);
    const char* bytes =
        microphone.recording->data() + microphone.recording->size() - microphone.left * sizeof(int32_t);
    for (int32_t& sample : machine.microphone_samples) {
        std::memcpy(&sample, bytes, sizeof sample);
        bytes += sizeof sample;
    }
}

// ---- Copies

struct checkpoint_t {
    std::vector<std::byte> plain;
    containers_t containers;
    device_controls_t controls;
    speaker_t speaker;
    microphone_t microphone;
    bool frame_is_the_movies;
    pages_t pages; // that have a content from here on
    marks_t marks;
};

std::map<moment_t, checkpoint_t> checkpoints;

void append(pages_t& pages, const pages_t& others) {
    pages.insert(pages.end(), others.begin(), others.end());
}

// Returns the copy behind the one that is dropped.
auto drop(std::map<moment_t, checkpoint_t>::iterator checkpoint) {
    const auto next = std::next(checkpoint);
    const bool is_last = next == checkpoints.end();
    const pages_t moved = drop_pages(checkpoint->first, checkpoint->second.pages,
                                     is_last ? std::nullopt : std::optional(next->first));
    if (!is_last) {
        append(next->second.pages, moved);
    }
    return checkpoints.erase(checkpoint);
}

moment_t distance(moment_t one, moment_t other) { return std::max(one, other) - std::min(one, other); }

// The one without which the distances between the others differ least from what they should be: in proportion
// to how far they are from the newest, or from where the board is if that is nearer.
auto least_missed(moment_t here) {
    const moment_t newest = checkpoints.rbegin()->first;
    auto least = std::next(checkpoints.begin());
    double least_weight = 0;
    for (auto at = least; std::next(at) != checkpoints.end(); ++at) {
        const auto gap = static_cast<double>(std::next(at)->first - std::prev(at)->first);
        const double weight =
            static_cast<double>(std::min(newest - at->first, distance(here, at->first))) / gap;
        if (weight > least_weight) {
            least = at;
            least_weight = weight;
        }
    }
    return least;
}

// A frame of the movie's ends where the next begins.
void read_frame_again() {
    const std::span<char> frame(reinterpret_cast<char*>(machine.camera_ram), sizeof machine.camera_ram);
    const int64_t begin = machine.camera_file_position - int64_t{sizeof machine.camera_ram};
    // Who goes back looks before whether the file has changed.
    static_cast<void>(storage_read(storage_e::MOVIE, frame, begin));
    touched.frame = true;
}

} // namespace

void clear_checkpoints() {
    checkpoints.clear();
    recording = nullptr;
    clear_pages();
}

void take_checkpoint(moment_t moment) {
    const auto [place, is_new] = checkpoints.try_emplace(moment);
    if (!is_new) {
        return;
    }
    vga_settle();
    checkpoint_t& checkpoint = place->second;
    checkpoint.plain = plain_bytes();
    checkpoint.containers = containers();
    checkpoint.controls = device_controls();
    checkpoint.speaker = keep_recording();
    checkpoint.microphone = keep_microphone();
    checkpoint.frame_is_the_movies = machine.camera_file_open && machine.camera_ram_valid;
    checkpoint.marks = {journal_mark(), storage_mark()};
    const auto next = std::next(place);
    const bool is_last = next == checkpoints.end();
    const kept_t kept = keep_pages(moment, is_last ? std::nullopt : std::optional(next->first),
                                   !checkpoint.frame_is_the_movies);
    checkpoint.pages = kept.now;
    if (!is_last) {
        append(next->second.pages, kept.next);
    }
}

std::optional<moment_t> checkpoint_until(moment_t moment) {
    const auto after = checkpoints.upper_bound(moment);
    return after == checkpoints.begin() ? std::nullopt : std::optional(std::prev(after)->first);
}

std::optional<moment_t> checkpoint_after(moment_t moment) {
    const auto after = checkpoints.upper_bound(moment);
    return after == checkpoints.end() ? std::nullopt : std::optional(after->first);
}

void restore_checkpoint(moment_t moment) {
    const checkpoint_t& checkpoint = checkpoints.at(moment);
    put_plain_bytes(checkpoint.plain);
    containers() = checkpoint.containers;
    device_controls() = checkpoint.controls;
    put_recording(checkpoint.speaker);
    put_microphone(checkpoint.microphone);
    journal_go_to(checkpoint.marks.journal, false);
    storage_go_to(checkpoint.marks.storage);
    load_pages(moment);
    if (checkpoint.frame_is_the_movies) {
        read_frame_again();
    }
    forget_proofs();
    vga_repaint();
}

moment_t oldest_checkpoint() { return checkpoints.begin()->first; }

marks_t oldest_marks() { return checkpoints.begin()->second.marks; }

void drop_checkpoints_after(moment_t moment) {
    auto at = checkpoints.end();
    while (at != checkpoints.begin() && std::prev(at)->first > moment) {
        at = drop(std::prev(at));
    }
}

void drop_checkpoints_before(moment_t moment) {
    while (!checkpoints.empty() && checkpoints.begin()->first < moment) {
        drop(checkpoints.begin());
    }
}

void thin_checkpoints(size_t most_bytes, moment_t here) {
    while (checkpoints.size() > 2 && checkpoints_size() > most_bytes) {
        drop(least_missed(here));
    }
}

size_t checkpoint_count() { return checkpoints.size(); }

size_t checkpoints_size() {
    const size_t each =
        checkpoints.empty() ? 0 : sizeof(checkpoint_t) + checkpoints.begin()->second.plain.size();
    return pages_size() + checkpoints.size() * each + recorded_kept * sizeof(sample_run_t);
}
