#pragma once

// A program as it is loaded, with what its source says of it.

#include <cstdint>
#include <string>
#include <vector>

#include "assembler/analyse.h"
#include "assembler/labels.h"

struct places_t {
    std::string program; // NAME.k or NAME.mif
    analysis_t analysis; // of NAME.k; empty when there is no such source
    labels_t labels;     // of NAME.labels, or of the source
    // Why what the source says may be wrong: it is not what was loaded. Else empty.
    std::string difference;
    std::vector<int32_t> loaded; // the whole memory, as it was then
};

// Of the program that has just been loaded into the machine. Throws tovik_error when the label list cannot be
// read.
[[nodiscard]] places_t load_places(const std::string& program);

// A place in the program, in every way to say it. What is not known is empty, or 0.
struct where_t {
    int32_t address;
    std::string label; // "NAME" or "NAME+OFFSET" of the nearest label
    std::string file;
    int32_t line;
    std::string text;     // of the line, without comment, one blank between words
    std::string mnemonic; // of the word that is in the machine's memory now; empty when it is no opcode
};

// Of an address in memory, or any other.
[[nodiscard]] where_t where(const places_t& places, int32_t address);

// For a message: "loop+4 (address 8), prog.k:12: add x x one".
[[nodiscard]] std::string shown(const where_t& where);

// The statement whose word an address holds; nullptr when none does.
[[nodiscard]] const statement_t* statement_at(const places_t& places, int32_t address);

// The address of the first instruction at or after a line of a file, and the line on which it is; -1 when
// none follows. The file may be named in any way that leads to it.
struct line_address_t {
    int32_t address;
    int32_t line;
};
[[nodiscard]] line_address_t address_of_line(const places_t& places, const std::string& file, int32_t line);
