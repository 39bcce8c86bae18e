// The doors to the computer, with the journal in each: what comes in is noted, and given again in the past;
// what goes out is dropped there.

#include <iostream>
#include <limits>

#include "base/machine.h"
#include "host/capture.h"
#include "host/clock.h"
#include "host/journal.h"
#include "host/line.h"
#include "host/platform.h"
#include "host/sound.h"

namespace {

// A door that gives nothing, or throws tovik_error.
template <typename act_t> void act_through_journal(door_e door, act_t act) {
    through_journal(door, [&] {
        act();
        return given_t{};
    });
}

template <typename ask_t> bool ask_through_journal(door_e door, ask_t ask) {
    return through_journal(door, [&] { return given_t{.value = ask() ? 1 : 0}; }).value != 0;
}

// Of what is not always noted: a failure is.
template <typename act_t> auto noting_failure(door_e door, act_t act) {
    try {
        return act();
    } catch (const tovik_error& error) {
        journal_note(door, 0, true, error.message);
        throw;
    } catch (const platform::line_broken_t& broken) {
        if (line_failure_is_fault) {
            journal_note(door, 0, true, broken.reason);
            throw tovik_error(broken.reason);
        }
        std::cerr << broken.reason << std::endl;
        throw host_failure_t{};
    }
}

constexpr size_t FRAME_BYTES = size_t{CAPTURE_WIDTH} * CAPTURE_HEIGHT * 2;

std::string frame; // the one that has been taken

} // namespace

// ---- clock.h

uint64_t time_ms() {
    const auto now = [] { return given_t{.value = static_cast<int64_t>(platform::time_ms())}; };
    return static_cast<uint64_t>(through_journal(door_e::CLOCK, now).value);
}

// ---- sound.h: how much of the sound has been taken, and when, is not kept; in the past all is

void playback_open() { act_through_journal(door_e::PLAYBACK, platform::playback_open); }

size_t playback_room(int most_ms) {
    return in_the_past() ? std::numeric_limits<size_t>::max() : platform::playback_room(most_ms);
}

bool playback_ready(int most_ms) { return playback_room(most_ms) > 0; }

void playback_write(std::span<const int16_t> samples) {
    if (!in_the_past()) {
        platform::playback_write(samples);
    }
}

void playback_close() {
    if (!in_the_past()) {
        platform::playback_close();
    }
}

void record_open() { act_through_journal(door_e::RECORD, platform::record_open); }

bool record_ready(int most_ms) { return in_the_past() || platform::record_ready(most_ms); }

int16_t record_read() {
    const auto sample = [] { return given_t{.value = platform::record_read()}; };
    return static_cast<int16_t>(through_journal(door_e::RECORD, sample).value);
}

void record_close() {
    if (!in_the_past()) {
        platform::record_close();
    }
}

// ---- capture.h

bool capture_open() { return ask_through_journal(door_e::CAPTURE, platform::capture_open); }

bool capture_ready(int most_ms) {
    return in_the_past() ? journal_has_due(door_e::CAPTURE) : platform::capture_ready(most_ms);
}

bool capture_settled(int most_ms) { return in_the_past() || platform::capture_settled(most_ms); }

// The frame itself is only copied where it is kept.
const uint8_t* capture_take() {
    if (!journal_is_on()) {
        return platform::capture_take();
    }
    const auto take = [] {
        const auto* const bytes = reinterpret_cast<const char*>(platform::capture_take());
        return given_t{.bytes = std::string(bytes, FRAME_BYTES)};
    };
    const bool is_given_back = in_the_past();
    frame = through_journal(door_e::CAPTURE, take).bytes;
    if (!is_given_back) {
        platform::capture_give_back();
    }
    return reinterpret_cast<const uint8_t*>(frame.data());
}

void capture_give_back() {
    if (!journal_is_on()) {
        platform::capture_give_back();
    }
}

bool capture_stop() { return ask_through_journal(door_e::CAPTURE, platform::capture_stop); }

void capture_close() {
    if (!in_the_past()) {
        platform::capture_close();
    }
}

// ---- line.h

bool line_failure_is_fault = false;

void line_open_device(const std::string& name) {
    act_through_journal(door_e::LINE_OPEN, [&] { platform::line_open_device(name); });
}

void line_open_cable(const std::string& name) {
    act_through_journal(door_e::LINE_OPEN, [&] { platform::line_open_cable(name); });
}

// While the answer has not come, the instruction waits, and that is not kept.
std::optional<std::string> line_connect() {
    if (const passed_t* const passed = journal_next(door_e::LINE_OPEN)) {
        return text_of(*passed);
    }
    return noting_failure(door_e::LINE_OPEN, [] {
        std::optional<std::string> partner = platform::line_connect();
        if (partner) {
            journal_note(door_e::LINE_OPEN, 0, false, *partner);
        }
        return partner;
    });
}

bool line_ready(int most_ms) {
    return in_the_past() ? journal_has_due(door_e::LINE) : platform::line_ready(most_ms);
}

size_t line_read(std::span<char> room) {
    if (in_the_past()) {
        const passed_t* const passed = journal_due(door_e::LINE);
        return passed == nullptr ? 0 : text_of(*passed).copy(room.data(), room.size());
    }
    return noting_failure(door_e::LINE, [&] {
        const size_t count = platform::line_read(room);
        if (count > 0) {
            journal_note(door_e::LINE, 0, false, std::string(room.data(), count));
        }
        return count;
    });
}

// Nearly always all is taken.
size_t line_write(std::span<const char> bytes) {
    if (in_the_past()) {
        const passed_t* const passed = journal_due(door_e::LINE_SENT);
        if (passed == nullptr) {
            return bytes.size();
        }
        static_cast<void>(text_of(*passed)); // or throws
        return static_cast<size_t>(passed->value);
    }
    return noting_failure(door_e::LINE_SENT, [&] {
        const size_t count = platform::line_write(bytes);
        if (count < bytes.size()) {
            journal_note(door_e::LINE_SENT, static_cast<int64_t>(count));
        }
        return count;
    });
}

void line_close() {
    if (!in_the_past()) {
        platform::line_close();
    }
}
