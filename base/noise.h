#pragma once

// What a memory holds that nobody has written: noise, the same for the same seed.

#include <cstdint>

// The seed of all noise; set before the memories are cleared.
extern uint64_t noise_seed;

// The noise at a place: depends on the seed and the place only. Each memory numbers its places its own way.
// After Steele, Lea and Flood, "Fast Splittable Pseudorandom Number Generators" (2014): the finaliser of
// SplitMix64.
uint64_t noise_at(uint64_t place);
