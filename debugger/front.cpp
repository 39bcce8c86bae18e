#include "debugger/front.h"

#include <algorithm>
#include <utility>

#include "base/machine.h"
#include "devices/audio.h"
#include "devices/camera.h"
#include "devices/sd.h"
#include "host/clock.h"
#include "host/journal.h"

const std::array<question_t, 4> QUESTIONS = {{{SD_QUESTION, "sd"},
                                              {MICROPHONE_QUESTION, "microphone"},
                                              {CAMERA_QUESTION, "camera"},
                                              {SERIAL_PORT, "serial"}}};

front_t front;

namespace {

// How many answers each question has had are kept in the journal, a few bits each: after going back, and a
// change there, they are given again.
constexpr int COUNT_BITS = 15;
constexpr int64_t MOST_ANSWERS = (int64_t{1} << COUNT_BITS) - 1;
constexpr int64_t ANSWERED = int64_t{1} << 62;

given_t next_answer(std::string_view title) {
    const passed_t* const last = journal_last(door_e::QUESTION);
    const int64_t counts = last == nullptr ? 0 : last->value & ~ANSWERED;
    const int shift = static_cast<int>(&question_titled(title) - QUESTIONS.data()) * COUNT_BITS;
    const int64_t given = counts >> shift & MOST_ANSWERS;
    const auto answers = front.answers.find(title);
    if (answers == front.answers.end() || given >= static_cast<int64_t>(answers->second.size()) ||
        given == MOST_ANSWERS) {
        return {.value = counts};
    }
    return {.value = (counts + (int64_t{1} << shift)) | ANSWERED,
            .bytes = answers->second[static_cast<size_t>(given)]};
}

bool is_answer(const given_t& given) { return (given.value & ANSWERED) != 0; }

given_t take_answer(std::string_view title) {
    given_t given = next_answer(title);
    if (front.waits && !is_answer(given)) {
        front.wanted = question_titled(title).title;
        throw host_wait_t{front_answers};
    }
    return given;
}

} // namespace

const question_t& question_titled(std::string_view title) {
    return *std::find_if(QUESTIONS.begin(), QUESTIONS.end(),
                         [&](const question_t& one) { return one.title == title; });
}

std::optional<std::string> front_answer(std::string_view title) {
    given_t given = through_journal(door_e::QUESTION, [&] { return take_answer(title); });
    return is_answer(given) ? std::optional(std::move(given.bytes)) : std::nullopt;
}

bool front_answers(int most_ms) {
    if (is_answer(next_answer(front.wanted))) {
        return true;
    }
    if (most_ms > 0) {
        wait_ms(most_ms);
    }
    return false;
}
