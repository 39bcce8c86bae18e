#pragma once

// A file that is written while the program runs: what it sends to the serial console, or what the board does.

#include <string>
#include <string_view>

struct stream_t {
    std::string name;
    int descriptor = -1; // open for writing; -1: none
    std::string waiting; // until the next flush
    int error = 0;       // the errno of the first failure
};

// The run begins: the old content goes. Standard output keeps what is there, and the bytes go where it is.
void begin_stream(stream_t& file);

// More for the file. It is there after the next flush.
void append_to_stream(stream_t& file, std::string_view text);
void flush_stream(stream_t& file);

// Whether the beginning can be written anew while the rest goes on.
[[nodiscard]] bool has_beginning(const stream_t& file);
void rewrite_beginning(stream_t& file, std::string_view text);

// Writes the rest and closes the file. Returns whether all of it went well since it was opened; if not,
// standard error says so. Without a file all is well.
[[nodiscard]] bool close_stream(stream_t& file);

// Whether a name leads to what standard output leads to.
bool is_standard_output(const std::string& name);
