// What is known of the instructions in memory: found out when they are first executed, dropped when they are
// stored into.
//
// Stores. A program may store into itself, so what is proven may become wrong. The first store to a word
// marks it as modified, and one to the watched word stops the run. For each word a byte tells whether a store
// is only a store; if not, heed_store sees to it. An instruction whose words are stored into again and again
// is left unproven for a while: it is looked up afresh each time.

#include <algorithm>
#include <cstddef>

#include "base/machine.h"
#include "core/engine.h"
#include "core/engine_internal.h"
#include "core/instructions.h"
#include "core/memory.h"
#include "core/waiting.h"
#include "devices/io.h"

namespace engine {

proof_t proofs[WORDS_PER_INSTRUCTION << ROW_BITS];
history_t histories[WORDS_PER_INSTRUCTION << ROW_BITS];
uint8_t store_kinds[MEMORY_SIZE];
int32_t breakpoint = NONE;
int32_t watchpoint = NONE;
bool proofs_forgotten = true;
bool is_afresh = false; // nothing has been executed since
const stops_t* known_stops = nullptr;

namespace {

bool passes_over_waiting = true;

// Whether the instruction, if it is a branch, closes a loop that may wait.
bool may_wait(int32_t pc, const proof_t& proof, const words_t& words) {
    const bool closes_loop = words.arg1 <= pc && words.arg1 > pc - LONGEST_TURN * WORDS_PER_INSTRUCTION;
    return closes_loop && passes_over_waiting && history_of(&proof).strikes < MOST_STRIKES;
}

handler_t handler_for(int32_t pc, const proof_t& proof, const words_t& words, from_e from) {
    const auto opcode = static_cast<size_t>(words.opcode);
    return may_wait(pc, proof, words) ? LOOP_HANDLERS[from][opcode] : HANDLERS[from][opcode];
}

// Where a register stands as the operand that is written, or read: in memory when it is known for neither.
from_e place_of_target(int32_t address) {
    const port_t& port = io_port(address);
    return port.parameter.field != nullptr ? TO_PARAMETER
           : port.write != nullptr         ? TO_REGISTER
           : port.take != nullptr          ? TO_TAKER
                                           : MEMORY;
}

from_e place_of_left(int32_t address) {
    const port_t& port = io_port(address);
    return port.polled.read != nullptr    ? LEFT_PORT
           : port.result.field != nullptr ? LEFT_ANSWER
           : port.give != nullptr         ? LEFT_GIVEN
                                          : MEMORY;
}

from_e place_of_right(int32_t address) {
    const from_e place = place_of_left(address);
    return place == LEFT_PORT ? RIGHT_PORT : place == LEFT_ANSWER ? RIGHT_ANSWER : MEMORY;
}

// The quickest way to execute an instruction whose operands are where they are.
handler_t choose_handler(int32_t pc, const proof_t& proof, const words_t& words) {
    const uses_t uses = uses_of(words.opcode);
    const bool arg1 = !uses.arg1 || in_memory(words.arg1);
    const bool arg2 = !uses.arg2 || in_memory(words.arg2);
    const bool arg3 = !uses.arg3 || in_memory(words.arg3);
    if (arg1 && arg2 && arg3) {
        return handler_for(pc, proof, words, MEMORY);
    }
    const from_e place = arg2 && arg3 && words.arg1 < 0   ? place_of_target(words.arg1)
                         : arg1 && arg3 && words.arg2 < 0 ? place_of_left(words.arg2)
                         : arg1 && arg2 && words.arg3 < 0 ? place_of_right(words.arg3)
                                                          : MEMORY;
    if (place != MEMORY && HANDLERS[place][static_cast<size_t>(words.opcode)] != nullptr) {
        return handler_for(pc, proof, words, place);
    }
    if (words.opcode == K24_CP && arg1 && io_port(words.arg2).handler != nullptr) {
        return copy_through_port<false>;
    }
    if (words.opcode == K24_CP && arg2 && io_port(words.arg1).handler != nullptr) {
        return copy_through_port<true>;
    }
    return is_branch(words.opcode) && arg1 && may_wait(pc, proof, words) ? branch_plainly : plain;
}

// As a proof has it, if it is in memory or a port. Of anything else the plain way sees to.
uint16_t operand(int32_t address) {
    static_assert(IO_SLOTS * sizeof(port_t) <= UINT16_MAX);
    return static_cast<uint16_t>(address < 0 ? static_cast<size_t>(io_offset(address)) * sizeof(port_t)
                                             : static_cast<size_t>(address));
}

// Finds out what there is to know of the instruction at pc, and returns how to execute it.
handler_t examine(int32_t pc, proof_t& proof) {
    if (history_of(&proof).hits == MOST_HITS) {
        return look_up;
    }
    for (int32_t address = pc; address < pc + WORDS_PER_INSTRUCTION; ++address) {
        store_kinds[address] |= CODE;
    }
    const words_t words = words_at(pc);
    if (words.opcode == K24_HALT || !is_opcode(words.opcode)) {
        return plain;
    }
    const bool jumps = is_branch(words.opcode) || words.opcode == K24_CALL;
    const bool has_target = jumps && in_memory(words.arg1);
    proof.arg1 = has_target ? bytes_between(&proof, proof_of(words.arg1)) : operand(words.arg1);
    proof.arg2 = operand(words.arg2);
    proof.arg3 = operand(words.arg3);
    return choose_handler(pc, proof, words);
}

// Whether the instruction at pc is proven, with its operands there, and not the first of a pair.
bool is_single(int32_t pc, from_e from) {
    return whole_in_memory(pc) && is_opcode(machine.memory[pc]) && machine.memory[pc] != K24_HALT &&
           proof_of(pc)->execute == HANDLERS[from][static_cast<size_t>(machine.memory[pc])];
}

void pair_up(int32_t pc) {
    const bool after_port = is_single(pc, LEFT_PORT) && machine.memory[pc] == K24_CP;
    if ((!after_port && !is_single(pc, MEMORY)) || !is_single(pc + WORDS_PER_INSTRUCTION, MEMORY)) {
        return;
    }
    proof_t* const one = proof_of(pc);
    const proof_t* const two = one + 1;
    const auto first = static_cast<size_t>(machine.memory[pc]);
    const auto second = static_cast<size_t>(machine.memory[pc + WORDS_PER_INSTRUCTION]);
    const auto choose = [&](from_e from) {
        const handler_t pair = after_port ? PAIRS_AFTER_PORT[from][second] : PAIRS[from][first][second];
        one->execute = pair == nullptr ? one->execute : pair;
    };
    choose(MEMORY);
    if (one->arg1 == two->arg3) {
        choose(RIGHT_RESULT);
    }
    if (one->arg1 == two->arg2) {
        choose(LEFT_RESULT);
    }
}

} // namespace

proof_t* prove(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t result) {
    const int32_t pc = pc_of(at);
    if (whole_in_memory(pc)) {
        at->execute = examine(pc, *at);
        pair_up(pc);
        pair_up(pc - WORDS_PER_INSTRUCTION);
    } else {
        at->execute = in_memory(pc) ? plain : leave;
    }
    JUMP_TO at->execute(at, left, memory, stores, result);
}

void drop_proof(int32_t pc) {
    proof_t* const proof = proof_of(pc);
    if (proof->execute != stop_at_breakpoint) {
        proof->execute = prove;
    }
}

void break_pair_before(int32_t pc) {
    if (pc >= WORDS_PER_INSTRUCTION) {
        drop_proof(pc - WORDS_PER_INSTRUCTION);
    }
}

namespace {

void drop_proofs_with(int32_t address) {
    for (int32_t pc = std::max(address - WORDS_PER_INSTRUCTION + 1, 0); pc <= address; ++pc) {
        drop_proof(pc);
        break_pair_before(pc);
        history_t& history = history_of(proof_of(pc));
        history.strikes = 0;
        if (history.hits < MOST_HITS) {
            ++history.hits;
        }
    }
}

} // namespace

void note_store(int32_t address, uint64_t count) {
    machine.modified[address] = true;
    if ((store_kinds[address] & CODE) != 0) {
        drop_proofs_with(address);
    }
    store_kinds[address] = is_watched(address) ? HEED : ONLY_A_STORE;
    if (stops != nullptr && stops->watched[static_cast<size_t>(address)] && stops->at_write(address, count)) {
        run.stopped = true;
        run.over = true;
    }
}

[[gnu::noinline]] proof_t* heed_store(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                                      int32_t address) {
    note_store(address, count_at(left - 1));
    if (address == watchpoint) {
        simulator.step = 0;
        watchpoint_hit = true;
        run.over = true;
    }
    if (run.over) {
        JUMP_TO leave(at, left - 1, memory, stores, 0);
    }
    JUMP_TO next(at, left, memory, stores, 0);
}

void start_afresh() {
    proofs_forgotten = false;
    if (is_afresh) {
        return;
    }
    is_afresh = true;
    constexpr proof_t UNPROVEN = {prove, 0, 0, 0};
    for (uint32_t row = 0; row < WORDS_PER_INSTRUCTION; ++row) {
        proof_t* const first = proofs + (row << ROW_BITS);
        std::fill(first, first + ROW_PROOFS + 1, UNPROVEN);
    }
    std::fill(std::begin(histories), std::end(histories), history_t{});
    std::fill(std::begin(store_kinds), std::end(store_kinds), HEED);
    forget_doubted();
    breakpoint = NONE;
    watchpoint = NONE;
    known_stops = nullptr;
}

} // namespace engine

void forget_proofs() { engine::proofs_forgotten = true; }

void prepare_proofs() { engine::start_afresh(); }

void pass_over_waiting(bool on) {
    if (on != engine::passes_over_waiting) {
        engine::passes_over_waiting = on;
        forget_proofs();
    }
}
