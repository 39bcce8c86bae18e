#pragma once

// SDRAM controller.

#include <cstdint>

// The register handler of the I/O bus.
int32_t io_sdram(bool write, int32_t address, int32_t data);

// For the table of registers.
void write_sdram_command(int32_t data);
int32_t read_sdram_response();

// No command, all registers 0. The memory stays as it is.
void reset_sdram();

// Fills the memory with noise.
void clear_sdram();

// The "Save SDRAM" button: asks for a file and writes the whole memory to it, each word low byte first. Shows
// a failure in a dialog and asks again, until the memory is saved or the user cancels.
void save_sdram();
