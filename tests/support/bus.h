#pragma once

#include <cstdint>
#include <string>

// The fault of an access to the I/O bus; empty when there is none.
std::string fault_of(bool write, int32_t address, int32_t data = 0);
