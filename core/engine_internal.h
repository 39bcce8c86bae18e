#pragma once

// What the files of the engine share. The engine is the fast way to execute instructions. It differs from
// execute_instruction, the plain way, in nothing but speed, and leaves to it all that is rare: faults, halts,
// illegal addresses, odd ports.
//
// Proofs. Most instructions are executed again and again and always turn out the same: the opcode is known,
// and so is that all operands lie in memory. So for each word of the memory there is a proof: what is known
// of the instruction that starts there, with its operands and a function, the handler, that executes just
// this kind of instruction without checking anything again. A word of which nothing is known yet has the
// handler `prove`. Two proven instructions that follow each other are made a pair, with one handler.
//
// Dispatch. A handler ends with a jump to the handler of the next instruction; what they all need travels in
// registers, and all have the same parameters, so that a compiler can make a jump of that call. Where it
// cannot be relied on to, a loop calls them one after the other. What handlers do for each instruction is
// inline here.

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/machine.h"
#include "core/instructions.h"
#include "core/stops.h"

namespace engine {

struct proof_t;

// Executes the instruction at `at`, and what follows it, with `left` instructions left to execute in the
// slice. `memory` and `stores` are machine.memory and store_kinds; `result` is what the instruction before
// has stored, if it is the first of a pair. Returns the proof of the instruction that comes next, or nullptr
// when machine.pc says which; how many are left is then in run.left.
using handler_t = proof_t* (*)(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                               int32_t result);

struct alignas(16) proof_t {
    handler_t execute;
    // The operands: addresses, or of a port how many bytes behind the first in io_ports it is. arg1 of a
    // branch or call is how many bytes farther the proof of its target is: everything after a branch waits
    // for that sum.
    int32_t arg1;
    uint16_t arg2;
    uint16_t arg3;
};
static_assert(sizeof(proof_t) == 16);

// An instruction is four words and may start at any word. So that the proofs of consecutive instructions are
// neighbours, there is a row of proofs for each of the four ways to lie. Behind a row's last instruction
// comes one that starts just above the memory.
constexpr uint32_t ROW_BITS = ADDRESS_BITS - 1;
constexpr int32_t ROW_PROOFS = MEMORY_SIZE / WORDS_PER_INSTRUCTION;
static_assert(ROW_PROOFS < 1 << ROW_BITS);

extern proof_t proofs[WORDS_PER_INSTRUCTION << ROW_BITS];

constexpr uint8_t MOST_HITS = 8;
constexpr uint8_t MOST_STRIKES = 16;

// What has happened to an instruction. Not in the proof, because handlers do not look at it.
struct history_t {
    uint8_t hits;    // stores into the instruction, up to MOST_HITS: then it is not proven
    uint8_t strikes; // turns that were not waiting, up to MOST_STRIKES; of an unproven one, executions
};

extern history_t histories[WORDS_PER_INSTRUCTION << ROW_BITS];

inline history_t& history_of(const proof_t* proof) { return histories[proof - proofs]; }

// For 0 to 16387.
[[gnu::always_inline]] inline proof_t* proof_of(int32_t pc) {
    const auto address = static_cast<uint32_t>(pc);
    return proofs + (address % WORDS_PER_INSTRUCTION << ROW_BITS | address / WORDS_PER_INSTRUCTION);
}

inline int32_t pc_of(const proof_t* proof) {
    const auto place = static_cast<uint32_t>(proof - proofs);
    return static_cast<int32_t>(place % (1 << ROW_BITS) * WORDS_PER_INSTRUCTION + (place >> ROW_BITS));
}

[[gnu::always_inline]] inline proof_t* farther(proof_t* proof, int32_t bytes) {
    return reinterpret_cast<proof_t*>(reinterpret_cast<std::byte*>(proof) + bytes);
}

inline int32_t bytes_between(const proof_t* proof, const proof_t* target) {
    return static_cast<int32_t>(target - proof) * static_cast<int32_t>(sizeof(proof_t));
}

// What a store to a word is besides a store.
constexpr uint8_t ONLY_A_STORE = 0;
constexpr uint8_t HEED = 1; // the word may not be marked as modified yet, or is watched
constexpr uint8_t CODE = 2; // the word may be part of an instruction of which something is proven

extern uint8_t store_kinds[MEMORY_SIZE];

// As the proofs and the store kinds have them.
constexpr int32_t NONE = -1;
extern int32_t breakpoint;
extern int32_t watchpoint;

extern bool proofs_forgotten;
extern bool is_afresh;

// The stops of which proofs and store kinds know.
extern const stops_t* known_stops;

struct run_t {
    int32_t left;          // instructions, while no handler has it in a register
    uint64_t count_at_end; // the instruction count when none is left
    int32_t start;         // the last instruction that may have failed
    simulator_t controls;  // as they were when the slice began
    bool over;             // no further instruction may be executed in this slice
    bool stopped;          // because one of the stops has been met
    int32_t left_settled;  // simulator.step has been decreased for the instructions up to here
};

extern run_t run;

[[gnu::always_inline]] inline uint64_t count_at(int32_t left) {
    return run.count_at_end - static_cast<uint64_t>(left);
}

// ---- Dispatch: engine

// Returns what another function of the type of handlers returns. Clang promises a jump where it is asked for
// one; GCC makes one of each such call.
#if defined(TOVIK_TAIL_CALLS) && defined(__clang__)
#define JUMP_TO [[clang::musttail]] return
#else
#define JUMP_TO return
#endif

// A handler that leaves the instruction to whoever goes on there.
inline proof_t* leave(proof_t* at, int32_t left, int32_t* /*memory*/, const uint8_t* /*stores*/,
                      int32_t /*result*/) {
    machine.pc = pc_of(at);
    run.left = left;
    return nullptr;
}

// The handler of the instruction at a breakpoint.
proof_t* stop_at_breakpoint(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                            int32_t result);

[[gnu::always_inline]] inline proof_t* go_on(proof_t* at, int32_t left, int32_t* memory,
                                             const uint8_t* stores, int32_t result) {
#ifdef TOVIK_TAIL_CALLS
    JUMP_TO at->execute(at, left, memory, stores, result);
#else
    static_cast<void>(memory);
    static_cast<void>(stores);
    static_cast<void>(result);
    run.left = left;
    return at;
#endif
}

// Counts an instruction that is done and goes on with the one at `at`, by what is known to be its handler.
template <handler_t handler = go_on>
[[gnu::always_inline]] inline proof_t* next(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                                            int32_t result) {
    --left;
    if (left == 0) [[unlikely]] {
        JUMP_TO leave(at, left, memory, stores, result);
    }
    JUMP_TO handler(at, left, memory, stores, result);
}

// The same for an instruction after which anything may be; machine.pc is the next.
proof_t* next_at_pc(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t result);

// ---- What is known of instructions: engine_proofs

// Nothing is known of any instruction.
void start_afresh();

// The handler of an instruction of which nothing is known yet.
proof_t* prove(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t result);

// Nothing is known any more of an instruction, save that there is a breakpoint.
void drop_proof(int32_t pc);

// The instruction before the one at pc must not go on with it unseen.
void break_pair_before(int32_t pc);

// What a store to a word that has another kind than ONLY_A_STORE needs, by the instruction that is number
// `count`. The other one goes on with the instruction at `at`.
void note_store(int32_t address, uint64_t count);
proof_t* heed_store(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t address);

// Returns whether that was all; otherwise heed_store must come next.
[[nodiscard, gnu::always_inline]] inline bool store(int32_t* memory, const uint8_t* stores, int32_t address,
                                                    int32_t value) {
    memory[address] = value;
    return stores[address] == ONLY_A_STORE;
}

// ---- The plain way, and ports: engine_ports

// Decreases simulator.step for the instructions so far.
[[gnu::always_inline]] inline void settle_steps(int32_t left) {
    if (simulator.step > 0) [[unlikely]] {
        simulator.step -= run.left_settled - left;
        run.controls.step = simulator.step;
    }
    run.left_settled = left;
}

bool controls_changed();

// Makes the machine exact before an instruction at which a device, or whoever asked to stop there, looks at
// it.
[[gnu::always_inline]] inline void be_exact(int32_t pc, int32_t left) {
    settle_steps(left);
    run.start = pc;
    run.left = left;
    machine.pc = pc;
    machine.instr_count = count_at(left);
}

// machine.pc is then the next instruction; if the slice must end there, run.over is set.
[[gnu::always_inline]] inline void take_stock(int32_t left) {
    run.count_at_end = machine.instr_count + static_cast<uint64_t>(left);
    run.over = controls_changed() || machine.halted || proofs_forgotten;
}

void note_plain_store();
void execute_plainly(int32_t pc, int32_t left);

// The handlers of what is not executed fast: any instruction, and copies from and to ports.
proof_t* plain(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t result);

// A copy from or to a port at which more can happen than that a value passes.
template <bool writes>
proof_t* copy_through_port(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t result);

// ---- Waiting: engine_loops

// Branches that are believed not to wait are looked at again after a while, unless they are forgotten.
void look_at_doubted();
void forget_doubted();

// A branch that may close a loop that waits is taken.
proof_t* close_loop(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t result);

// The handler of a branch on a port at which more can happen than that a value passes.
proof_t* branch_plainly(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t result);

// ---- The tables of handlers: engine_handlers

// Where the operands are that the handler reads or writes, when not all are in memory.
enum from_e {
    MEMORY,
    LEFT_RESULT, // the word at arg2 is what the first instruction of the pair has stored
    RIGHT_RESULT,
    LEFT_PORT, // the word at arg2 is a register that programs poll, the others are in memory
    RIGHT_PORT,
    LEFT_ANSWER, // the word at arg2 is a register with a result
    RIGHT_ANSWER,
    LEFT_GIVEN,   // the word at arg2 is a register that may give a value
    TO_PARAMETER, // arg1 is a register of that kind
    TO_REGISTER,  // arg1 is a register that takes all values
    TO_TAKER,     // arg1 is a register that takes some
    FRESH,        // the instruction is not proven: in memory, or the plain way executes it
    PLACES
};

constexpr size_t OPCODES = K24_RET + 1;
using by_opcode_t = std::array<handler_t, OPCODES>;

// The handlers of proven instructions, and of unproven ones, by where the operands are; nullptr where there
// is none.
extern const std::array<by_opcode_t, PLACES> HANDLERS;

// The same, but a branch may close a loop that waits.
extern const std::array<by_opcode_t, PLACES> LOOP_HANDLERS;

// Those of pairs, by where the second has its operands, and the first's opcode.
extern const std::array<std::array<by_opcode_t, OPCODES>, LEFT_PORT> PAIRS;

// After a copy of a polled register, which is mostly looked at next.
extern const std::array<by_opcode_t, LEFT_PORT> PAIRS_AFTER_PORT;

// Executes an instruction that is not to be proven for a while.
proof_t* look_up(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t result);

} // namespace engine
