#include "tests/support/bus.h"

#include "core/machine.h"
#include "devices/io.h"

std::string fault_of(bool write, int32_t address, int32_t data) {
    try {
        io(write, address, data);
        return "";
    } catch (const tovik_error& error) {
        return error.message;
    }
}
