#pragma once

// The doors to the computer inside a browser, which gives and takes only between two stretches of a run:
// whoever runs the board there puts in here what has come, and carries away what is to go out. Not the
// loudspeaker: the front end hears what the board plays.

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

struct web_host_t {
    bool has_microphone = false;
    std::deque<int16_t> recorded;

    // The camera's newest frame, in YUYV.
    bool has_camera = false;
    std::optional<std::vector<uint8_t>> frame;

    // The serial line: what the program has asked for, and, once it is open, who is at its other end.
    enum class line_e { CLOSED, DEVICE, CABLE };
    line_e line = line_e::CLOSED;
    std::string line_name;
    uint32_t line_times = 0; // that it has asked
    std::optional<std::string> partner;
    std::optional<std::string> line_failure; // why it cannot be opened, or is no longer there
    std::deque<char> line_in;
    std::string line_out;
};

extern web_host_t web_host;
