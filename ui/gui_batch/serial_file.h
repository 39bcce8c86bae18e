#pragma once

// The file of --save-serial: every byte that the program sends to the serial console, as it comes.

#include <string>

// Takes over a descriptor that is open for writing. Nothing is written before the run begins.
void open_serial_file(std::string name, int descriptor);

// The run begins: the old content goes. Standard output keeps what is there, and the bytes go where it is.
void begin_serial_file();

// One byte. It is in the file after the next flush.
void append_to_serial_file(char byte);
void flush_serial_file();

// Whether something could not be written.
bool serial_file_failed();

// Writes the rest and closes the file. Returns whether all of it went well since it was opened; if not,
// standard error says so. Without a file all is well.
[[nodiscard]] bool close_serial_file();

// Whether a name leads to what standard output leads to.
bool is_standard_output(const std::string& name);
