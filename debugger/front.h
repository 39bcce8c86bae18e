#pragma once

// What passes between the adapter and the gui_* functions of its front ends: the answers to the board's
// questions, and what the board has to tell its user.

#include <deque>
#include <map>
#include <string>
#include <vector>

// The question of the serial port has no title.
inline const std::string SERIAL_PORT;

struct front_message_t {
    bool error;
    std::string text;
};

struct front_t {
    // To file choosers, by their titles, and where the serial port leads; the next one each time.
    std::map<std::string, std::vector<std::string>> answers;

    // What has come since somebody last took it away; nothing from the past.
    std::vector<front_message_t> messages;
    std::string serial;
};

extern front_t front;
