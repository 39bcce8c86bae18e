#pragma once

// What passes between the adapter and the gui_* functions of its front ends: the answers to the board's
// questions, and what the board has to tell its user.

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What the board asks: the title of the question, which the serial port's has not, and the argument of a
// launch that has the answers.
struct question_t {
    std::string_view title;
    std::string_view argument;
};
constexpr std::string_view SERIAL_PORT;
extern const std::array<question_t, 4> QUESTIONS;

// The one with a title, which must be of one.
[[nodiscard]] const question_t& question_titled(std::string_view title);

struct front_message_t {
    bool error;
    std::string text;
};

struct front_t {
    // To file choosers, by their titles, and where the serial port leads; the next one each time.
    std::map<std::string, std::vector<std::string>, std::less<>> answers;

    // Whether a question without an answer waits until there is one, instead of being refused; and the title
    // of the one that waited last.
    bool waits = false;
    std::string_view wanted;

    // What has come since somebody last took it away; nothing from the past.
    std::vector<front_message_t> messages;
    std::string serial;

    // What the speaker has played, if somebody hears it, also where the past is gone through anew.
    bool hears = false;
    std::vector<int16_t> played;
};

extern front_t front;

// The next answer to a question, each once; none when there is no more. Throws host_wait_t where it waits.
[[nodiscard]] std::optional<std::string> front_answer(std::string_view title);

// Whether there is an answer now to what was wanted, for which it waits so many milliseconds at most.
[[nodiscard]] bool front_answers(int most_ms);
