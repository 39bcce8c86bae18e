#pragma once

// What every module that reads or writes a file of the user's needs.

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <span>
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

// Open a file that exists, without waiting. Return its descriptor, or -1 with errno set. What is not of the
// kind is refused: a pipe or a terminal has no places to go to, and only a regular file can be read twice.
enum class access_e { READ, READ_AND_WRITE };
[[nodiscard]] int open_seekable(const std::string& name, access_e access);
[[nodiscard]] int open_regular(const std::string& name);

// A regular file as a stream. Where it is not open, errno says why.
std::ifstream open_stream(const std::string& name);

// All that is in a regular file. Throws tovik_error.
std::string read_whole(const std::string& name);

// Closes a descriptor that is open, and makes it -1.
void close_file(int& descriptor);

// The permissions of a new file, before the user's mask.
constexpr int NEW_FILE_MODE = 0666;

// Writes all of the data to a descriptor. Returns 0, or the errno of the failure.
[[nodiscard]] int write_all(int descriptor, std::string_view data);

// Reads what one read gives. Returns the number of bytes, 0 at the end of the file, or -1 with errno set.
[[nodiscard]] ssize_t read_some(int descriptor, char* buffer, size_t size);

// Reads from a place on until the buffer is full or the file ends, wherever the file stands. Returns the
// number of bytes, or -1 with errno set.
[[nodiscard]] ssize_t read_full(int descriptor, std::span<char> buffer, int64_t offset);

// Goes to the end of a file. Returns its size, or -1 with errno set.
[[nodiscard]] int64_t seek_end(int descriptor);

// Writes all of the bytes at a place, wherever the file stands. Returns 0, or the errno of the failure.
[[nodiscard]] int write_at(int descriptor, std::span<const char> bytes, int64_t offset);
