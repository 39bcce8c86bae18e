#pragma once

// Reads a memory image, as the assembler writes it, into the machine.

#include <cstdint>
#include <string>

// What the loader found in an image. Lines that are not memory words are skipped, not reported: it is for the
// caller to say something about them.
struct load_t {
    bool opened;           // false: the image could not be read, and the machine is as it was
    bool begun;            // the header ends with BEGIN
    bool ended;            // the END line was there: the image is whole
    int32_t words;         // words loaded
    int32_t skipped;       // lines of the content that hold no word, or one outside memory
    int32_t first_skipped; // line number of the first of them, from 1; 0 when there is none
};

// Loads the image beside an assembly source: its name is the source's with the last character replaced by
// "mif". Clears memory, marks the words loaded as modified and resets the machine. An image that cannot be
// opened or read changes nothing; a dialog (without a display, standard output) says "Can't open NAME" or
// "Can't read NAME: REASON".
load_t simulate_load(const std::string& filename);
