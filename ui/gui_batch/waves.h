#pragma once

// The file of --vcd: lamps and displays, and the registers of the devices that the program uses, as a value
// change dump.

#include "ui/gui_batch/stream.h"

// The run begins, with the board as it is. The run loop is then to be given one instruction at a time.
void begin_waves(stream_t file);

[[nodiscard]] bool waves_on();

// Before and after each instruction.
void prepare_waves();
void note_waves();

// The user has done something: anything may have changed.
void note_user();

// At a look at the window. Returns false when the file takes no more.
bool write_waves();

// The run is over. Returns whether all could be written; if not, standard error says so.
[[nodiscard]] bool end_waves();
