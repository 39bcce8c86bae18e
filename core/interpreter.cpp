#include "core/interpreter.h"

#include "base/arithmetic.h"
#include "base/machine.h"
#include "core/memory.h"

namespace {

int32_t fetch_word() {
    const int32_t address = machine.pc;
    machine.pc = wrap_add(address, 1);
    return memread(address);
}

void divide(int32_t result, int32_t left, int32_t right) {
    const int32_t dividend = memread(left);
    const int32_t divisor = memread(right);
    if (divisor == 0) {
        throw tovik_error("division by zero");
    }
    memwrite(result, wrap_div(dividend, divisor));
}

// Reads the amount before the value, and the value only when the amount leaves something of it.
void shift(int32_t result, int32_t value, int32_t amount, int32_t (*shifted)(int32_t, int32_t)) {
    const int32_t count = memread(amount);
    if (count < 0) {
        throw tovik_error("negative shift amount");
    }
    memwrite(result, count < DATA_BITS ? shifted(memread(value), count) : 0);
}

} // namespace

void execute_instruction() {
    const int32_t opcode = fetch_word();
    const int32_t arg1 = fetch_word();
    const int32_t arg2 = fetch_word();
    const int32_t arg3 = fetch_word();
    int32_t left = 0;
    int32_t right = 0;
    const auto read_both = [&] {
        left = memread(arg2);
        right = memread(arg3);
    };

    switch (opcode) {
    case K24_HALT:
        machine.halted = true;
        break;
    case K24_ADD:
        read_both();
        memwrite(arg1, wrap_add(left, right));
        break;
    case K24_SUB:
        read_both();
        memwrite(arg1, wrap_sub(left, right));
        break;
    case K24_MULT:
        read_both();
        memwrite(arg1, wrap_mult(left, right));
        break;
    case K24_DIV:
        divide(arg1, arg2, arg3);
        break;
    case K24_CP:
        memwrite(arg1, memread(arg2));
        break;
    case K24_AND:
        read_both();
        memwrite(arg1, left & right);
        break;
    case K24_OR:
        read_both();
        memwrite(arg1, left | right);
        break;
    case K24_NOT:
        memwrite(arg1, ~memread(arg2));
        break;
    case K24_SL:
        shift(arg1, arg2, arg3, shift_left);
        break;
    case K24_SR:
        shift(arg1, arg2, arg3, shift_right);
        break;
    case K24_CPFA: {
        const int32_t index = memread(arg3);
        memwrite(arg1, memread(wrap_add(arg2, index)));
        break;
    }
    case K24_CPTA: {
        const int32_t index = memread(arg3);
        const int32_t value = memread(arg1);
        memwrite(wrap_add(arg2, index), value);
        break;
    }
    case K24_BE:
        read_both();
        if (left == right) {
            machine.pc = arg1;
        }
        break;
    case K24_BNE:
        read_both();
        if (left != right) {
            machine.pc = arg1;
        }
        break;
    case K24_BLT:
        read_both();
        if (left < right) {
            machine.pc = arg1;
        }
        break;
    case K24_CALL:
        memwrite(arg2, machine.pc);
        machine.pc = arg1;
        break;
    case K24_RET:
        machine.pc = memread(arg1);
        break;
    default:
        throw tovik_error("unknown opcode " + std::to_string(opcode) + "\n");
    }
}
