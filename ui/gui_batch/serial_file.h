#pragma once

// The file of --save-serial: every byte that the program sends to the serial console, as it comes.

#include <string>

struct serial_file_t {
    std::string name;
    int descriptor = -1; // open for writing; -1: none
    std::string waiting; // until the next flush
    int error = 0;       // the errno of the first failure
};

// The run begins: the old content goes. Standard output keeps what is there, and the bytes go where it is.
void begin_serial_file(serial_file_t& file);

// One byte. It is in the file after the next flush.
void append_to_serial_file(serial_file_t& file, char byte);
void flush_serial_file(serial_file_t& file);

// Writes the rest and closes the file. Returns whether all of it went well since it was opened; if not,
// standard error says so. Without a file all is well.
[[nodiscard]] bool close_serial_file(serial_file_t& file);

// Whether a name leads to what standard output leads to.
bool is_standard_output(const std::string& name);
