#pragma once

// The two files that the assembler writes: the memory image ".mif" and the label list ".labels".

#include <cstdint>
#include <string>
#include <string_view>

#include "base/saved_file.h"

// A file to be written. What it will hold is collected and goes to the file in one piece.
struct output_file_t {
    // Throws tovik_error "can't open file NAME: REASON".
    explicit output_file_t(std::string name);

    saved_file_t file;
    std::string text;
};

// Writes the two files, of which the second may be missing. They take their names together: when one cannot
// be written, both old ones stay. Throws tovik_error "Can't write file NAME: REASON".
void save_together(output_file_t& image, output_file_t* list);

void print_header(output_file_t& image);

// One word of memory.
void print_machine_line(output_file_t& image, int32_t address, int32_t data);

void print_trailer(output_file_t& image);

void print_label_line(output_file_t& list, std::string_view label, int32_t address);
