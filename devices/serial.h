#pragma once

// Serial port: its registers, where it leads, and the bytes that it brought, until the program takes them.

#include <cstddef>
#include <cstdint>

// Told of each byte that has been sent, wherever the port leads; nullptr: nobody.
extern void (*serial_sent)(char byte);

// The register handlers of the I/O bus. The first access asks the user where the port leads. They throw
// tovik_error "error sending data to serial port", and what the functions below throw; also when the relay
// cannot be reached.
int32_t io_serial_receive(bool write, int32_t address, int32_t data);
int32_t io_serial_send(bool write, int32_t address, int32_t data);

// For the table of registers.
bool take_serial_receive_command(int32_t data);
const int32_t* give_serial_receive_data();
bool take_serial_send_command(int32_t data);
bool take_serial_send_data(int32_t data);
uint64_t serial_receive_steady_until();
uint64_t serial_send_steady_until();

// A key in the serial console: its character waits in the receive queue. 0 is no character; a character that
// finds the queue full is lost.
void io_serial_press(char c);

// The send side is free, its registers are 0, and nothing waits to be received. The connection and the
// receive registers stay.
void reset_serial();

// Closes the connection, if there is one, and forgets what it brought.
void serial_disconnect();

// Moves what waits on the connection into the queue, without waiting; returns how many bytes came. A
// connection that has been lost is closed, and the user is asked for another one; throws tovik_error,
// disconnected, when the relay then cannot be reached.
size_t serial_receive();

// Move that many bytes over the connection, reading what waits, and writing what the other side takes within
// 30 s. Return how many were moved. Reading throws tovik_error when the relay is gone, writing host_failure_t
// when the connection can no longer be written to.
int read_size(char* buffer, int size);
int write_size(const char* buffer, int size);
