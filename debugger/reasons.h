#pragma once

// Why a run has stopped, or what it waits for, in sentences: only what is certain.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/simulate.h"
#include "debugger/places.h"

constexpr int32_t NOBODY = -1;

// Who wrote a word of memory.
struct writer_t {
    int32_t pc;     // of the instruction; NOBODY when nothing has written it since the program was loaded
    uint64_t count; // which instruction of the run it was, from 1
};

// Who wrote a word last; none when it is not known. The board is afterwards as it was.
using last_writer_t = std::function<std::optional<writer_t>(int32_t address)>;

struct reason_t {
    where_t place;                  // of the next instruction, or of the one that failed or halted
    std::string text;               // sentences; empty when there is nothing to add to last_stop()
    std::vector<int32_t> waits_for; // offsets of the registers that a loop reads which does nothing else
};

// Of a run that has stopped so, or of the next instructions of one that has been interrupted. Changes nothing
// on the board. Without `last_writer` an overwritten word is only told by what was loaded.
[[nodiscard]] reason_t reason_of(const places_t& places, stop_t stop,
                                 const last_writer_t& last_writer = nullptr);

// What the next instructions do if they wait or go round for ever: "The program waits at ..."; else empty.
[[nodiscard]] std::string waiting_in_words(const places_t& places);

// Of a board that has just halted: what is wrong with the halt, if it is none of the source. As reason_of.
[[nodiscard]] std::string halt_in_words(const places_t& places, const last_writer_t& last_writer = nullptr);

// "the keyboard's response", "the serial port's byte to send (sending)", and with the address in front.
[[nodiscard]] std::string name_of_register(int32_t offset);
[[nodiscard]] std::string register_in_words(int32_t offset);
