#pragma once

// A run that is looked at instruction by instruction: what a program does that it should not, and where it
// spends its time. The run is the same as without, to the bit, but slower, and waiting takes its time.

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/machine.h"
#include "debugger/places.h"
#include "devices/io.h"

enum class check_e : uint8_t {
    UNSET_READ,       // a word is read that neither the image nor the program has written
    DATA_EXECUTED,    // what is executed is no instruction of the source; only where it begins
    CODE_OVERWRITTEN, // an instruction is written over, other than its operands by cpta
    EARLY_RESULT,     // a port's result is read before its response
    EARLY_PARAMETER,  // a port's parameter is changed before its response
};
constexpr size_t CHECKS = 5;

// As messages and reports name it: "unset-read".
std::string_view name_of(check_e check);

// The same at the same instruction is one finding, by the first time.
struct finding_t {
    check_e check;
    int32_t address;  // of the instruction
    std::string what; // "reads x (address 8), which nothing has written"
    uint64_t times;
};

// As one line without its end: "prog.k:12: check: loop+4 reads x (address 8), ... [unset-read]".
std::string shown(const places_t& places, const finding_t& finding);

struct profile_t {
    std::array<uint64_t, MEMORY_SIZE> executions; // by the address of the instruction
    // Instructions in turns of loops that read a response, the timer or the switches again and again, by the
    // register's offset. A loop that reads two of them counts for both.
    std::array<uint64_t, IO_SLOTS> waited;
};

struct observing_t {
    bool checks = false;
    bool stop = false;                                 // before the first instruction with a finding
    void (*found)(const finding_t& finding) = nullptr; // called for each new finding
};

// From now on, for the program that has just been loaded; `places` must live as long. Checks that need a
// source are left out without one, or when it is not what was loaded. What a comment at the end of the line
// allows, as tovik-check has it, is not found.
void observe(const places_t& places, const observing_t& wanted);

const std::vector<finding_t>& findings();
bool stopped_by_finding(); // whether the run was
const profile_t& profile();

// The profile for a reader: the lines by their executions, and what the program has waited for.
std::string profile_table(const places_t& places, const profile_t& profile);

// For tools that show which lines were executed, in the format of lcov. Needs a source that is what was
// loaded.
std::string profile_lcov(const places_t& places, const profile_t& profile);
