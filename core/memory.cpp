#include "core/memory.h"

#include <algorithm>
#include <iostream>
#include <string>

#include "base/machine.h"
#include "devices/io.h"

bool watchpoint_hit = false;
int32_t last_written = NOTHING_WRITTEN;

namespace {

[[noreturn]] void fail_illegal_address(int32_t address) {
    throw tovik_error("illegal address " + std::to_string(address));
}

} // namespace

int32_t memread(int32_t address) {
    check_range(address);
    return address < 0 ? io(false, address, 0) : machine.memory[address];
}

void memwrite(int32_t address, int32_t value) {
    check_range(address);
    if (address < 0) {
        io(true, address, value);
        return;
    }
    machine.memory[address] = value;
    machine.modified[address] = true;
    last_written = address;
    if (address == simulator.watchpoint) {
        simulator.step = 0;
        watchpoint_hit = true;
    }
    if (simulator.verbose) {
        std::cout << "memory[" << address << "]\t\t" << value << std::endl;
    }
}

void check_range(int32_t address) {
    if (address >= MEMORY_SIZE) {
        fail_illegal_address(address);
    }
}

void clear_memory() {
    std::fill(std::begin(machine.memory), std::end(machine.memory), 0);
    std::fill(std::begin(machine.modified), std::end(machine.modified), false);
}
