#pragma once

// What the window's save buttons have in common.

#include <span>
#include <string>
#include <string_view>

#include "base/saved_file.h"

struct save_t {
    std::string title;       // of the file chooser
    std::string filter_name; // what the files are called
    std::string extension;   // that the name must have, without the dot
    bool (*has_extension)(const std::string& name);
    void (*write)(saved_file_t& file);
};

enum class saved_e { SAVED, CANCELLED, FAILED };

// Asks for a file, offering the last one, and writes it. A failure is shown in a dialog: "filename must end
// in .EXTENSION", or the errors of the file.
saved_e save_chosen(const save_t& save, std::string& filename);

// Whether a name ends in ".dat", the ending of saved memories.
bool is_dat(const std::string& name);

// The bytes of words as they are saved, low byte first.
template <typename word_type> std::string_view bytes_of(std::span<const word_type> words) {
    return {reinterpret_cast<const char*>(words.data()), words.size_bytes()};
}
