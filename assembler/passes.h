#pragma once

// What the two passes over a program share: all that a translation knows, and how a fault is noted. Only they
// include it.

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "assembler/explain.h"
#include "assembler/source.h"
#include "assembler/translate.h"

// The physical line that was read last, and where: the files that begin and end have lines 0.
struct reading_place_t {
    uint32_t inclusion = NOTHING; // none before the main file is open
    int32_t line = 0;
    std::string_view text;
};

// Everything that one translation knows.
struct passes_t {
    translation_t result;
    reading_t reading;
    reading_place_t at;
    uint32_t statement = NOTHING;  // the one at work; none between lines
    int32_t counter = 0;           // the address of the next word
    int32_t lines = 0;             // physical ones, of all files
    uint64_t bytes = 0;            // of these lines
    bool first_only = false;       // the first fault ends it
    bool over = false;             // it has ended: nothing more enters the map
    bool encoding = false;         // this is pass 2
    bool muted = false;            // what else is wrong with the line follows from what has been said
    bool beyond = false;           // it has been said that the memory is full
    bool incomplete = false;       // a part of the source is missing, and with it perhaps labels
    uint32_t doubled = NOTHING;    // the inclusion of which it was said that it is the second of its file
    std::set<uint32_t> unreadable; // files of which it has been said
    std::set<std::tuple<std::string_view, uint32_t, int32_t, uint32_t>> said; // codes and places of the list
    std::unordered_map<std::string_view, size_t> undefined;                   // index of the diagnostic
    std::vector<std::pair<uint32_t, use_t>> uses; // with their labels, in the order of the lines
    names_t names;
};

source_map_t& map_of(passes_t& passes);

// Takes note of a fault: `text` is what `assemble` reports. Returns the entry of the list, to be completed by
// those who know more about it; null when there is none.
diagnostic_t* fault(passes_t& passes, std::string_view code, const place_t& place, std::string text);

// All that lies behind the end of the memory is one fault.
void fault_beyond(passes_t& passes, const place_t& place, std::string text);

// Whether the inclusion repeats a file.
bool repeats(passes_t& passes, uint32_t inclusion);

// Opens the main file.
void open_main_file(passes_t& passes, const std::string& name);

// Moves on to the next line that is not an include, through the files that end and those that begin on the
// way; it becomes the last statement of the map. Returns false when the main file has ended.
bool next_statement(passes_t& passes);

// Pass 1: where everything goes.
void find_addresses(passes_t& passes, const std::string& name);

// Pass 2: what goes there.
void encode(passes_t& passes);
