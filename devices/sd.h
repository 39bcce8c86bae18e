#pragma once

// SD card.

#include <cstdint>

// The title of the question for its file.
constexpr const char* SD_QUESTION = "Choose SD card file";

// The register handler of the I/O bus. Throws tovik_error as it says, and "Can't read SD card file NAME:
// REASON" or "Can't write SD card file NAME: REASON" when the file behind the card fails: the command is then
// still 0 and nothing is lost, so the program may try again.
int32_t io_sd(bool write, int32_t address, int32_t data);

// For the table of registers.
bool take_sd_command(int32_t data);
int32_t read_sd_response();
uint64_t sd_steady_until();

// Takes the card out: no command, no block, no file. What was written to the block in the buffer is lost, as
// on the real board.
void reset_sd();
