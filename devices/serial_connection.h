#pragma once

// Where the serial port leads: to a serial device of the host, through a relay server to another simulator,
// or to the console window. And the bytes that it brought, until the program takes them.

#include <cstddef>
#include <string>

// Appends a byte to the queue; it is lost if the queue is full.
void serial_enqueue(char byte);

// Unless the port is connected, asks the user where it leads, with the message above the question, until it
// is. Throws tovik_error, disconnected, when the relay cannot be reached or refuses.
void serial_connect(const std::string& message);

// Closes the connection, if there is one, and forgets what it brought.
void serial_disconnect();

// Moves what waits on the connection into the queue, without waiting; returns how many bytes came. A
// connection that has been lost is closed, and the user is asked for another one: throws what serial_connect
// throws.
size_t serial_receive();

// Throws all away that waits to be received, also what a sender holds back because the line is full. Takes
// no more than about a second. Throws what serial_receive throws.
void serial_discard();

// Move that many bytes over the connection, reading what waits, and writing what the other side takes within
// 30 s. Return how many were moved. Reading throws tovik_error when the relay is gone, writing host_failure_t
// when the connection can no longer be written to.
int read_size(char* buffer, int size);
int write_size(const char* buffer, int size);
