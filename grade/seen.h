#pragma once

// What a run has shown, to be compared with what is expected.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "grade/pictures.h"
#include "grade/sounds.h"
#include "grade/task.h"

struct seen_t {
    nlohmann::json report;                 // as `tovik-run` has it
    std::vector<nlohmann::json> events;    // likewise
    points_t picture;                      // these where a check needs them
    std::shared_ptr<const picture_t> kept; // what `picture` is of; none: the board
    sound_t sound;
    std::map<std::string, std::vector<int32_t>> words;
};

// What the checks of a case have to look at beside the report.
struct wanted_t {
    bool events = false;
    bool picture = false;
    bool sound = false;
    labelled_words_t words; // labels, and how many words from there on
};
wanted_t wanted_by(const case_t& one);

// For a pipe.
std::string to_bytes(const seen_t& seen);
seen_t seen_of(const std::string& bytes);
