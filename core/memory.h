#pragma once

// Access to the machine's memory and, through negative addresses, to its I/O bus.

#include <cstdint>

// The word at an address: memory for 0 to 16383, the I/O bus for negative addresses (0x80000000 and above).
// Throws tovik_error for any other address, and whatever the device throws.
int32_t memread(int32_t address);

// Writes a word. A write to memory marks the word modified, and one to the watchpoint sets simulator.step
// to 0 and watchpoint_hit. Throws as memread does, before anything is written.
void memwrite(int32_t address, int32_t value);

// Throws tovik_error "illegal address N" for addresses of 16384 and above.
void check_range(int32_t address);

// All words 0, none modified.
void clear_memory();

// Set by a write to the watchpoint; the run loop clears it when a run goes on. It tells a watchpoint from
// the other things that set simulator.step to 0.
extern bool watchpoint_hit;

// The address of the last word that memwrite wrote; whoever wants to know sets it to NOTHING_WRITTEN before.
constexpr int32_t NOTHING_WRITTEN = -1;
extern int32_t last_written;
