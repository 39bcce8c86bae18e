#pragma once

// A serial line of the host's: one of its serial devices, or the end of a cable that the relay makes of two
// lines with one name. At most one is open. Nothing waits behind this longer than it is told to, save that
// finding the relay may take a moment, and writing has a bound of its own.

#include <cstddef>
#include <optional>
#include <span>
#include <string>

// Opens a device: 115200 bits a second, 8 bits, one stop bit. Throws tovik_error.
void line_open_device(const std::string& name);

// Begins to connect to the relay. Throws tovik_error.
void line_open_cable(const std::string& name);

// Goes on with that by one step, if line_ready. Returns, when the line is open, the name of the computer at
// its other end, which is empty when nobody is there yet. Throws tovik_error when the relay refuses, or has
// kept it waiting for 30 s. A program that has not asked for some seconds, because the user stopped it,
// begins to connect anew unless the relay knows its name.
[[nodiscard]] std::optional<std::string> line_connect();

// Whether there is something to read, for which it waits so many milliseconds at most; a host that cannot
// wait answers at once. The end of a line counts. While a cable is being connected: whether the next step can
// be made.
[[nodiscard]] bool line_ready(int most_ms);

// Reads what waits, as much as there is room for. Returns how many bytes; a device that fails has none.
// Throws tovik_error when the relay is gone.
[[nodiscard]] size_t line_read(std::span<char> room);

// Returns how many bytes the other side took, within 30 s. When the line can no longer be written to, throws
// host_failure_t, with the reason on standard error, or, where line_failure_is_fault, a tovik_error of it. So
// does connecting.
[[nodiscard]] size_t line_write(std::span<const char> bytes);

// Whether a line that can no longer be written to is a fault of the program's, and not the end. False at
// first.
extern bool line_failure_is_fault;

// Closes the line, if one is open, in whatever state it is.
void line_close();
