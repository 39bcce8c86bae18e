#include "core/engine.h"

#include <string>

#include "core/arithmetic.h"
#include "core/interpreter.h"
#include "core/machine.h"
#include "core/memory.h"

bool pass_over_waiting = true;

namespace {

// One comparison for any number of addresses: MEMORY_SIZE is a power of two, so the bits of all of them
// together stay below it exactly when each does.
constexpr bool in_memory(int32_t address_bits) {
    return static_cast<uint32_t>(address_bits) < static_cast<uint32_t>(MEMORY_SIZE);
}

// `watched`: a breakpoint, a watchpoint or the trace is set.
template <bool watched> [[gnu::always_inline]] inline void store(int32_t address, int32_t value) {
    if constexpr (watched) {
        memwrite(address, value);
    } else {
        machine.memory[address] = value;
        machine.modified[address] = true;
    }
}

// Executes the instruction at `pc` and moves `pc` on, when the instruction and all that it touches lie in
// memory and it neither fails nor halts. Otherwise does nothing and returns false: execute_instruction then
// says what happens.
template <bool watched> [[gnu::always_inline]] inline bool execute_in_memory(int32_t& pc) {
    if (static_cast<uint32_t>(pc) > static_cast<uint32_t>(MEMORY_SIZE - WORDS_PER_INSTRUCTION)) {
        return false;
    }
    const int32_t* const memory = machine.memory;
    const int32_t opcode = memory[pc];
    const int32_t arg1 = memory[pc + 1];
    const int32_t arg2 = memory[pc + 2];
    const int32_t arg3 = memory[pc + 3];
    const int32_t next = pc + WORDS_PER_INSTRUCTION;

    switch (opcode) {
    case K24_ADD:
        if (!in_memory(arg1 | arg2 | arg3)) {
            return false;
        }
        store<watched>(arg1, wrap_add(memory[arg2], memory[arg3]));
        break;
    case K24_SUB:
        if (!in_memory(arg1 | arg2 | arg3)) {
            return false;
        }
        store<watched>(arg1, wrap_sub(memory[arg2], memory[arg3]));
        break;
    case K24_MULT:
        if (!in_memory(arg1 | arg2 | arg3)) {
            return false;
        }
        store<watched>(arg1, wrap_mult(memory[arg2], memory[arg3]));
        break;
    case K24_DIV:
        if (!in_memory(arg1 | arg2 | arg3) || memory[arg3] == 0) {
            return false;
        }
        store<watched>(arg1, wrap_div(memory[arg2], memory[arg3]));
        break;
    case K24_CP:
        if (!in_memory(arg1 | arg2)) {
            return false;
        }
        store<watched>(arg1, memory[arg2]);
        break;
    case K24_AND:
        if (!in_memory(arg1 | arg2 | arg3)) {
            return false;
        }
        store<watched>(arg1, memory[arg2] & memory[arg3]);
        break;
    case K24_OR:
        if (!in_memory(arg1 | arg2 | arg3)) {
            return false;
        }
        store<watched>(arg1, memory[arg2] | memory[arg3]);
        break;
    case K24_NOT:
        if (!in_memory(arg1 | arg2)) {
            return false;
        }
        store<watched>(arg1, ~memory[arg2]);
        break;
    case K24_SL:
    case K24_SR: {
        // An amount of 32 or more, rare, goes the plain way, which does not read the value.
        if (!in_memory(arg1 | arg2 | arg3) || static_cast<uint32_t>(memory[arg3]) >= DATA_BITS) {
            return false;
        }
        const int32_t value = memory[arg2];
        const int32_t amount = memory[arg3];
        store<watched>(arg1, opcode == K24_SL ? shift_left(value, amount) : shift_right(value, amount));
        break;
    }
    case K24_CPFA: {
        if (!in_memory(arg1 | arg3)) {
            return false;
        }
        const int32_t element = wrap_add(arg2, memory[arg3]);
        if (!in_memory(element)) {
            return false;
        }
        store<watched>(arg1, memory[element]);
        break;
    }
    case K24_CPTA: {
        if (!in_memory(arg1 | arg3)) {
            return false;
        }
        const int32_t element = wrap_add(arg2, memory[arg3]);
        if (!in_memory(element)) {
            return false;
        }
        store<watched>(element, memory[arg1]);
        break;
    }
    case K24_BE:
        if (!in_memory(arg2 | arg3)) {
            return false;
        }
        pc = memory[arg2] == memory[arg3] ? arg1 : next;
        return true;
    case K24_BNE:
        if (!in_memory(arg2 | arg3)) {
            return false;
        }
        pc = memory[arg2] != memory[arg3] ? arg1 : next;
        return true;
    case K24_BLT:
        if (!in_memory(arg2 | arg3)) {
            return false;
        }
        pc = memory[arg2] < memory[arg3] ? arg1 : next;
        return true;
    case K24_CALL:
        if (!in_memory(arg2)) {
            return false;
        }
        store<watched>(arg2, next);
        pc = arg1;
        return true;
    case K24_RET:
        if (!in_memory(arg1)) {
            return false;
        }
        pc = memory[arg1];
        return true;
    default:
        return false;
    }
    pc = next;
    return true;
}

// Executes one instruction the plain way and returns whether it failed; machine.pc is then where it starts.
// Kept out of line, so that the fast loop has no exception handling in it.
[[gnu::noinline]] bool faults(std::string& fault) {
    const int32_t start = machine.pc;
    try {
        execute_instruction();
        return false;
    } catch (const tovik_error& error) {
        machine.pc = start;
        fault = error.message;
        return true;
    }
}

template <bool watched> slice_t run_slice_with(int32_t count) {
    const bool speaker_was_on = simulator.speaker_on;
    const int step = simulator.step;
    slice_t slice{};
    int32_t pc = machine.pc;
    int32_t left = count;
    uint64_t count_at_end = machine.instr_count + static_cast<uint64_t>(count);

    while (left > 0) {
        if (!execute_in_memory<watched>(pc)) [[unlikely]] {
            machine.pc = pc;
            machine.instr_count = count_at_end - static_cast<uint64_t>(left);
            slice.faulted = faults(slice.fault);
            pc = machine.pc;
            // A device may open a dialog, and the user may press Reset before it is acknowledged.
            count_at_end = machine.instr_count + static_cast<uint64_t>(left);
            if (slice.faulted || machine.halted || !simulator.running || simulator.step != step ||
                simulator.speaker_on != speaker_was_on) {
                --left;
                break;
            }
        }
        --left;
        if constexpr (watched) {
            if (simulator.step != step || pc == simulator.breakpoint) {
                break;
            }
        }
    }

    machine.pc = pc;
    machine.instr_count = count_at_end - static_cast<uint64_t>(left) - (slice.faulted ? 1 : 0);
    slice.executed = count - left;
    return slice;
}

} // namespace

slice_t run_slice(int32_t count) {
    const bool watched = simulator.verbose || simulator.breakpoint != -1 || simulator.watchpoint != -1;
    return watched ? run_slice_with<true>(count) : run_slice_with<false>(count);
}
