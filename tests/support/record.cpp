#include "tests/support/record.h"

#include <algorithm>
#include <cstring>
#include <span>

static bool operator==(const ps2_event_t& left, const ps2_event_t& right) {
    return left.ascii == right.ascii && left.pressed == right.pressed;
}

namespace {

constexpr size_t SDRAM_WORDS = 1024;

// The bytes between the containers of the record, which are compared as containers, and the large memories.
std::vector<std::span<std::byte>> all_stretches() {
    const auto between = [](void* begin, void* end) {
        return std::span(static_cast<std::byte*>(begin), static_cast<std::byte*>(end));
    };
    return {between(&machine.memory, &machine.ps2_events),
            between(&machine.ps2_pressed + 1, &machine.sdram_ram),
            between(&machine.sdram_ram, machine.sdram_ram + SDRAM_WORDS),
            between(&machine.sdram_ram + 1, &machine.speaker_samples),
            between(&machine.speaker_samples + 1, &machine.microphone_samples),
            between(&machine.microphone_samples + 1, &machine.vga_ram),
            between(&machine.vga_ram + 1, &machine.camera_ram),
            between(&machine.camera_ram + 1, &machine.sdram_filled),
            between(&simulator, &simulator + 1)};
}

auto containers() {
    return std::tie(machine.ps2_events, machine.ps2_pressed, machine.speaker_samples,
                    machine.microphone_samples, machine.serial_queue);
}

} // namespace

void record_t::take() {
    stretches_.clear();
    for (const auto& bytes : all_stretches()) {
        stretches_.emplace_back(bytes.begin(), bytes.end());
    }
    containers_ = containers();
}

void record_t::put_back() const {
    const auto stretches = all_stretches();
    for (size_t i = 0; i < stretches.size(); ++i) {
        // A loop over bytes would take most of the lockstep test's time.
        std::memcpy(stretches[i].data(), stretches_[i].data(), stretches_[i].size());
    }
    containers() = containers_;
}

std::string record_t::difference() const {
    const auto stretches = all_stretches();
    for (size_t i = 0; i < stretches.size(); ++i) {
        // Nearly always equal: memcmp first, then the place.
        if (std::memcmp(stretches_[i].data(), stretches[i].data(), stretches_[i].size()) != 0) {
            const auto mine =
                std::mismatch(stretches_[i].begin(), stretches_[i].end(), stretches[i].begin()).first;
            return "stretch " + std::to_string(i) + ", byte " + std::to_string(mine - stretches_[i].begin());
        }
    }
    return containers_ == containers() ? "" : "the containers";
}

void fill_record(int byte) {
    for (const auto& bytes : all_stretches()) {
        std::memset(bytes.data(), byte, bytes.size());
    }
    containers() = containers_t();
}
