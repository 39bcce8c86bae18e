#include "host/web.h"

#include <algorithm>
#include <utility>

#include "base/machine.h"
#include "host/capture.h"
#include "host/platform.h"

web_host_t web_host;

namespace {

std::vector<uint8_t> taken; // the frame that is being read

bool is_connecting = false; // a cable

void check_line() {
    if (web_host.line_failure) {
        throw tovik_error(*web_host.line_failure);
    }
}

void open_line(web_host_t::line_e kind, const std::string& name) {
    if (kind != web_host_t::line_e::CLOSED) {
        web_host.line_out.clear();
    }
    web_host.line = kind;
    web_host.line_name = name;
    web_host.partner.reset();
    web_host.line_failure.reset();
    ++web_host.line_times;
    web_host.line_in.clear();
    is_connecting = kind == web_host_t::line_e::CABLE;
}

} // namespace

// ---- sound.h

// A stream that sets the pace would have to be waited for.
void platform::playback_open() { throw tovik_error("There is no sound here."); }

size_t platform::playback_room(int /*most_ms*/) { return 0; }

void platform::playback_write(std::span<const int16_t> /*samples*/) {}

void platform::playback_close() {}

void platform::record_open() {
    if (!web_host.has_microphone) {
        throw tovik_error("There is no microphone here.");
    }
    web_host.recorded.clear();
}

bool platform::record_ready(int /*most_ms*/) { return !web_host.recorded.empty(); }

int16_t platform::record_read() {
    const int16_t sample = web_host.recorded.front();
    web_host.recorded.pop_front();
    return sample;
}

void platform::record_close() { web_host.recorded.clear(); }

// ---- capture.h

bool platform::capture_open() { return web_host.has_camera; }

bool platform::capture_ready(int /*most_ms*/) { return web_host.frame.has_value(); }

bool platform::capture_settled(int most_ms) { return capture_ready(most_ms); }

const uint8_t* platform::capture_take() {
    taken = *std::exchange(web_host.frame, std::nullopt);
    return taken.data();
}

void platform::capture_give_back() {}

bool platform::capture_stop() { return true; }

void platform::capture_close() { web_host.frame.reset(); }

// ---- line.h

void platform::line_open_device(const std::string& name) { open_line(web_host_t::line_e::DEVICE, name); }

void platform::line_open_cable(const std::string& name) { open_line(web_host_t::line_e::CABLE, name); }

std::optional<std::string> platform::line_connect() {
    check_line();
    is_connecting = !web_host.partner;
    return web_host.partner;
}

bool platform::line_ready(int /*most_ms*/) {
    return web_host.line_failure ||
           (is_connecting ? web_host.partner.has_value() : !web_host.line_in.empty());
}

size_t platform::line_read(std::span<char> room) {
    check_line();
    const size_t count = std::min(room.size(), web_host.line_in.size());
    const auto end = web_host.line_in.begin() + static_cast<std::ptrdiff_t>(count);
    std::copy(web_host.line_in.begin(), end, room.begin());
    web_host.line_in.erase(web_host.line_in.begin(), end);
    return count;
}

size_t platform::line_write(std::span<const char> bytes) {
    if (web_host.line_failure) {
        throw line_broken_t{*web_host.line_failure};
    }
    web_host.line_out.append(bytes.data(), bytes.size());
    return bytes.size();
}

void platform::line_close() { open_line(web_host_t::line_e::CLOSED, ""); }
