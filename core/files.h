#pragma once

// What every module that writes a file of the user's needs.

#include <string>
#include <string_view>

// The system's text for an errno, at most 100 characters.
std::string system_error_text(int error);

// "can't open file NAME: REASON" and "Can't write file NAME: REASON", for an errno.
std::string cant_open_text(const std::string& name, int error);
std::string cant_write_text(const std::string& name, int error);

// Opens a file for writing, created or truncated. Returns its descriptor, or -1 with errno set; a pipe that
// nobody reads is such an error, where waiting for a reader would stop the window.
[[nodiscard]] int create_file(const std::string& name);

// Creates or truncates a file and writes all of the data to it. Throws tovik_error "Can't open file NAME:
// REASON" or "Can't write file NAME: REASON"; a regular file of which only a part was written is removed.
void save_file(const std::string& name, std::string_view data);

// Makes sure that the three standard streams are open. A caller may have closed some, and a file opened later
// must not become one of them by its number. Writing to what stands in for a closed one fails, as it should.
void hold_standard_streams();

// The permissions of a new file, before the user's mask.
constexpr int NEW_FILE_MODE = 0666;

// Writes all of the data to a descriptor. Returns 0, or the errno of the failure.
[[nodiscard]] int write_all(int descriptor, std::string_view data);
