#pragma once

// What every module that reads or writes a file of the user's needs.

#include <cstddef>
#include <string>
#include <string_view>

#include <sys/types.h>

// The system's text for an errno, at most 100 characters.
std::string system_error_text(int error);

// "can't open file NAME: REASON", "can't read file NAME: REASON" and "Can't write file NAME: REASON", for an
// errno.
std::string cant_open_text(const std::string& name, int error);
std::string cant_read_text(const std::string& name, int error);
std::string cant_write_text(const std::string& name, int error);

// Makes sure that the three standard streams are open. A caller may have closed some, and a file opened later
// must not become one of them by its number. Writing to what stands in for a closed one fails, as it should.
void hold_standard_streams();

// The permissions of a new file, before the user's mask.
constexpr int NEW_FILE_MODE = 0666;

// Writes all of the data to a descriptor. Returns 0, or the errno of the failure.
[[nodiscard]] int write_all(int descriptor, std::string_view data);

// Reads what one read gives. Returns the number of bytes, 0 at the end of the file, or -1 with errno set.
[[nodiscard]] ssize_t read_some(int descriptor, char* buffer, size_t size);
