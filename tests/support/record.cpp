#include "tests/support/record.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

namespace {

// The bytes between the containers of the record, which are compared as containers, and the large memories.
struct stretch_t {
    const char* name;
    std::span<std::byte> bytes;
};

std::span<std::byte> between(void* begin, void* end) {
    return {static_cast<std::byte*>(begin), static_cast<std::byte*>(end)};
}

constexpr size_t SDRAM_WORDS = 1024;

std::array<stretch_t, 9> all_stretches() {
    return {{
        {"memory to ps2_event", between(&machine.memory, &machine.ps2_events)},
        {"sdram_command to sdram_data_read", between(&machine.ps2_pressed + 1, &machine.sdram_ram)},
        {"sdram_ram", between(&machine.sdram_ram, machine.sdram_ram + SDRAM_WORDS)},
        {"speaker_command onward", between(&machine.sdram_ram + 1, &machine.speaker_samples)},
        {"microphone_command onward", between(&machine.speaker_samples + 1, &machine.microphone_samples)},
        {"microphone_sample_avail onward", between(&machine.microphone_samples + 1, &machine.vga_ram)},
        {"vga_response_instr onward", between(&machine.vga_ram + 1, &machine.camera_ram)},
        {"camera_ram_valid onward", between(&machine.camera_ram + 1, &machine.sdram_filled)},
        {"simulator", between(&simulator, &simulator + 1)},
    }};
}

bool same(const ps2_event_t& left, const ps2_event_t& right) {
    return left.ascii == right.ascii && left.pressed == right.pressed;
}

} // namespace

void record_t::take() {
    const auto stretches = all_stretches();
    stretches_.resize(stretches.size());
    for (size_t i = 0; i < stretches.size(); ++i) {
        stretches_[i].assign(stretches[i].bytes.begin(), stretches[i].bytes.end());
    }
    ps2_events_ = machine.ps2_events;
    ps2_pressed_ = machine.ps2_pressed;
    speaker_samples_ = machine.speaker_samples;
    microphone_samples_ = machine.microphone_samples;
    serial_queue_ = machine.serial_queue;
}

void record_t::put_back() const {
    const auto stretches = all_stretches();
    for (size_t i = 0; i < stretches.size(); ++i) {
        std::byte* const bytes = stretches[i].bytes.data();
        // A loop over bytes would take most of the lockstep test's time.
        if (stretches_.empty()) {
            std::memset(bytes, 0, stretches[i].bytes.size());
        } else {
            std::memcpy(bytes, stretches_[i].data(), stretches_[i].size());
        }
    }
    machine.ps2_events = ps2_events_;
    machine.ps2_pressed = ps2_pressed_;
    machine.speaker_samples = speaker_samples_;
    machine.microphone_samples = microphone_samples_;
    machine.serial_queue = serial_queue_;
}

std::string record_t::difference() const {
    const auto stretches = all_stretches();
    for (size_t i = 0; i < stretches.size(); ++i) {
        // Nearly always equal: memcmp first, then the place.
        if (std::memcmp(stretches_[i].data(), stretches[i].bytes.data(), stretches_[i].size()) != 0) {
            const auto mine = std::ranges::mismatch(stretches_[i], stretches[i].bytes).in1;
            return std::string(stretches[i].name) + ", byte " + std::to_string(mine - stretches_[i].begin());
        }
    }
    if (!std::ranges::equal(ps2_events_, machine.ps2_events, same) || ps2_pressed_ != machine.ps2_pressed) {
        return "ps2_events or ps2_pressed";
    }
    if (speaker_samples_ != machine.speaker_samples || microphone_samples_ != machine.microphone_samples ||
        serial_queue_ != machine.serial_queue) {
        return "speaker_samples, microphone_samples or serial_queue";
    }
    return "";
}
