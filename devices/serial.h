#pragma once

// Serial port: its registers. Where the line leads is the business of serial_connection.h.

#include <cstdint>

// The register handlers of the I/O bus. The first access asks the user where the port leads. They throw
// tovik_error "error sending data to serial port", and what the connection throws.
int32_t io_serial_receive(bool write, int32_t address, int32_t data);
int32_t io_serial_send(bool write, int32_t address, int32_t data);

// What programs poll, for the address map.
uint64_t serial_receive_steady_until();
uint64_t serial_send_steady_until();

// A key in the serial console: its character waits in the receive queue. 0 is no character; a character that
// finds the queue full is lost.
void io_serial_press(char c);

// The send side is free, its registers are 0, and nothing waits to be received. The connection and the
// receive registers stay.
void reset_serial();
