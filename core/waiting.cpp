#include "core/waiting.h"

#include <algorithm>

#include "base/machine.h"
#include "core/instructions.h"
#include "core/stops.h"
#include "devices/io.h"

namespace {

struct stored_t {
    int32_t address;
    int32_t value;
};

// A turn of a loop, followed without executing it.
struct turn_t {
    int32_t pc;
    int32_t instructions;          // so far
    bool known;                    // what they do is known, as long as the ports are steady
    uint64_t steady_until;         // the instruction count up to which all ports that were read are
    int32_t stores;                // how many words would have been stored
    stored_t stored[LONGEST_TURN]; // and which, in order
};

int32_t read_memory(int32_t address, const turn_t& turn) {
    int32_t word = machine.memory[address];
    for (int32_t i = 0; i < turn.stores; ++i) {
        word = turn.stored[i].address == address ? turn.stored[i].value : word;
    }
    return word;
}

// Reading a port can have effects, so it is only done where the program will do it, within a turn, before the
// port can change.
int32_t read_port(int32_t address, turn_t& turn) {
    const auto steady_until = io_port(address).polled.steady_until;
    const uint64_t until = steady_until == nullptr ? NOW : steady_until();
    turn.steady_until = std::min(turn.steady_until, until);
    if (until <= machine.instr_count + LONGEST_TURN) {
        turn.known = false;
        return 0;
    }
    return io(false, address, 0);
}

int32_t read_word(int32_t address, turn_t& turn) {
    if (in_memory(address)) {
        return read_memory(address, turn);
    }
    if (address < 0 && turn.known) {
        return read_port(address, turn);
    }
    turn.known = false;
    return 0;
}

void store(int32_t address, int32_t value, bool (*is_only_a_store)(int32_t), turn_t& turn) {
    if (in_memory(address) && is_only_a_store(address)) {
        turn.stored[turn.stores++] = {address, value};
    } else {
        turn.known = false;
    }
}

bool stores_into_instruction(const turn_t& turn) {
    return std::any_of(turn.stored, turn.stored + turn.stores, [&turn](const stored_t& stored) {
        return stored.address >= turn.pc && stored.address < turn.pc + WORDS_PER_INSTRUCTION;
    });
}

void follow_instruction(turn_t& turn, bool (*is_only_a_store)(int32_t)) {
    if (!whole_in_memory(turn.pc) || is_breakpoint(turn.pc) || stores_into_instruction(turn)) {
        turn.known = false;
        return;
    }
    const auto [opcode, arg1, arg2, arg3] = words_at(turn.pc);
    turn.pc += WORDS_PER_INSTRUCTION;
    ++turn.instructions;
    if (opcode == K24_CALL) {
        store(arg2, turn.pc, is_only_a_store, turn);
        turn.pc = arg1;
    } else if (opcode == K24_RET) {
        turn.pc = read_word(arg1, turn);
    } else if (always_has_result(opcode)) {
        const int32_t left = read_word(arg2, turn);
        const int32_t right = reads_right(opcode) ? read_word(arg3, turn) : 0;
        if (!is_branch(opcode)) {
            store(arg1, result_of(opcode, left, right), is_only_a_store, turn);
        } else if (is_taken(opcode, left, right)) {
            turn.pc = arg1;
        }
    } else {
        turn.known = false;
    }
}

} // namespace

waiting_t follow_loop(int32_t start, bool (*is_only_a_store)(int32_t address)) {
    turn_t turn;
    turn.pc = start;
    turn.instructions = 0;
    turn.known = true;
    turn.steady_until = UNTIL_EVENT;
    turn.stores = 0;
    do {
        follow_instruction(turn, is_only_a_store);
    } while (turn.known && turn.pc != start && turn.instructions < LONGEST_TURN);

    // A word may change within a turn, if it is in the end what it was.
    const auto is_in_place = [&turn](const stored_t& stored) {
        return machine.memory[stored.address] == read_memory(stored.address, turn);
    };
    const bool waits =
        turn.known && turn.pc == start && std::all_of(turn.stored, turn.stored + turn.stores, is_in_place);
    return {
        .turn = waits ? turn.instructions : 0,
        .steady_until = turn.steady_until,
    };
}
