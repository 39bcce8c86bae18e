// The fast way to execute instructions. It differs from execute_instruction, the plain way, in nothing but
// speed, and leaves to it all that is rare: faults, halts, illegal addresses, odd ports.
//
// Proofs. Most instructions are executed again and again and always turn out the same: the opcode is known,
// and so is that all operands lie in memory. So for each word of the memory there is a proof: what is known
// of the instruction that starts there, with its operands and a function, the handler, that executes just
// this kind of instruction without checking anything again. A word of which nothing is known yet has the
// handler `prove`. Two proven instructions that follow each other are made a pair, with one handler.
//
// Stores. A program may store into itself, so what is proven may become wrong. The first store to a word
// marks it as modified, and one to the watched word stops the run. For each word a byte tells whether a store
// is only a store; if not, heed_store sees to it. An instruction whose words are stored into again and again
// is left unproven for a while: it is looked up afresh each time.
//
// Dispatch. A handler ends with a jump to the handler of the next instruction; what they all need travels in
// registers. Where the compiler cannot be relied on to make a jump of that call, a loop calls them one after
// the other.
//
// Ports. A device must see the exact count of instructions, and may do anything: fail, or open a dialog in
// which the user presses Reset. be_exact comes before, take_stock afterwards. A register that programs poll
// is known to give a value and no more, and some that they write to take it and no more.
//
// Waiting. Where a branch closes a loop that waits, whole turns are passed over. A branch that has closed a
// loop again and again that does not wait, or not for long, is believed not to for a while.

#include "core/engine.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <utility>

#include "base/machine.h"
#include "core/instructions.h"
#include "core/interpreter.h"
#include "core/memory.h"
#include "core/waiting.h"
#include "devices/io.h"

namespace {

struct proof_t;

// Executes the instruction at `at`, and what follows it, with `left` instructions left to execute in the
// slice. `memory` and `stores` are machine.memory and store_kinds; `result` is what the instruction before
// has stored, if it is the first of a pair. Returns the proof of the instruction that comes next, or nullptr
// when machine.pc says which; how many are left is then in run.left.
using handler_t = proof_t* (*)(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                               int32_t result);

struct proof_t {
    handler_t execute;
    // The operands: addresses, or the offset of a port. arg1 of a branch or call is how many bytes farther
    // the proof of its target is: everything after a branch waits for that sum.
    int32_t arg1;
    uint16_t arg2;
    uint16_t arg3;
};
static_assert(sizeof(proof_t) == 16);

constexpr uint8_t MOST_HITS = 8;
constexpr uint8_t MOST_STRIKES = 16;

// Passing over fewer instructions costs more than executing them.
constexpr uint64_t WORTHWHILE = 64;

// A loop that waits gets strikes too when the end of a slice interrupts it: one for few turns that are left,
// and one for each of the turns just before the port changes.
static_assert(MOST_STRIKES > 1 + LONGEST_TURN);

// How often branches that were believed not to wait are looked at again, in instructions, and how many of
// them.
constexpr uint64_t SECOND_LOOK = 1000000;
constexpr size_t MOST_DOUBTED = 1024;

// An instruction is four words and may start at any word. So that the proofs of consecutive instructions are
// neighbours, there is a row of proofs for each of the four ways to lie. Behind a row's last instruction
// comes one that starts just above the memory.
constexpr uint32_t ROW_BITS = ADDRESS_BITS - 1;
constexpr int32_t ROW_PROOFS = MEMORY_SIZE / WORDS_PER_INSTRUCTION;
static_assert(ROW_PROOFS < 1 << ROW_BITS);

proof_t proofs[WORDS_PER_INSTRUCTION << ROW_BITS];

// What has happened to an instruction. Not in the proof, because handlers do not look at it.
struct history_t {
    uint8_t hits;    // stores into the instruction, up to MOST_HITS: then it is not proven
    uint8_t strikes; // turns that were not waiting, up to MOST_STRIKES; of an unproven one, executions
};

history_t histories[WORDS_PER_INSTRUCTION << ROW_BITS];

history_t& history_of(const proof_t* proof) { return histories[proof - proofs]; }

// For 0 to 16387.
[[gnu::always_inline]] inline proof_t* proof_of(int32_t pc) {
    const auto address = static_cast<uint32_t>(pc);
    return proofs + (address % WORDS_PER_INSTRUCTION << ROW_BITS | address / WORDS_PER_INSTRUCTION);
}

int32_t pc_of(const proof_t* proof) {
    const auto place = static_cast<uint32_t>(proof - proofs);
    return static_cast<int32_t>(place % (1 << ROW_BITS) * WORDS_PER_INSTRUCTION + (place >> ROW_BITS));
}

[[gnu::always_inline]] inline proof_t* farther(proof_t* proof, int32_t bytes) {
    return reinterpret_cast<proof_t*>(reinterpret_cast<std::byte*>(proof) + bytes);
}

int32_t bytes_between(const proof_t* proof, const proof_t* target) {
    return static_cast<int32_t>(target - proof) * static_cast<int32_t>(sizeof(proof_t));
}

bool proofs_forgotten = true;
bool passes_over_waiting = true;

// What a store to a word is besides a store.
constexpr uint8_t ONLY_A_STORE = 0;
constexpr uint8_t HEED = 1; // the word may not be marked as modified yet, or is watched
constexpr uint8_t CODE = 2; // the word may be part of an instruction of which something is proven

uint8_t store_kinds[MEMORY_SIZE];

using reader_t = int32_t (*)();

// What executes an access to the ports that proven instructions name, by offset.
reader_t port_readers[IO_SLOTS];
io_writer_t port_writers[IO_SLOTS];
io_handler_t port_handlers[IO_SLOTS];

// As the proofs and the store kinds have them.
constexpr int32_t NONE = -1;
int32_t breakpoint = NONE;
int32_t watchpoint = NONE;

struct run_t {
    int32_t left;          // instructions, while no handler has it in a register
    uint64_t count_at_end; // the instruction count when none is left
    int32_t start;         // the last instruction that may have failed
    simulator_t controls;  // as they were when the slice began
    bool over;             // no further instruction may be executed in this slice
    int32_t left_settled;  // simulator.step has been decreased for the instructions up to here
};

run_t run;

[[gnu::always_inline]] inline uint64_t count_at(int32_t left) {
    return run.count_at_end - static_cast<uint64_t>(left);
}

// ---- Dispatch

proof_t* leave(proof_t* at, int32_t left, int32_t* /*memory*/, const uint8_t* /*stores*/,
               int32_t /*result*/) {
    machine.pc = pc_of(at);
    run.left = left;
    return nullptr;
}

// The slice ends at the breakpoint. One that begins there does not come through here.
proof_t* stop_at_breakpoint(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                            int32_t result) {
    run.over = true;
    return leave(at, left, memory, stores, result);
}

[[gnu::always_inline]] inline proof_t* go_on(proof_t* at, int32_t left, int32_t* memory,
                                             const uint8_t* stores, int32_t result) {
#ifdef TOVIK_TAIL_CALLS
    return at->execute(at, left, memory, stores, result);
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
        return leave(at, left, memory, stores, result);
    }
    return handler(at, left, memory, stores, result);
}

// The same for an instruction after which anything may be; machine.pc is the next.
[[gnu::noinline]] proof_t* next_at_pc(int32_t left, int32_t* memory, const uint8_t* stores, int32_t result) {
    --left;
    if (left == 0 || run.over || !in_memory(machine.pc)) {
        run.left = left;
        return nullptr;
    }
    return go_on(proof_of(machine.pc), left, memory, stores, result);
}

// ---- Stores

proof_t* prove(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t result);

// Nothing is known any more of an instruction, save that there is a breakpoint.
void drop_proof(int32_t pc) {
    proof_t* const proof = proof_of(pc);
    if (proof->execute != stop_at_breakpoint) {
        proof->execute = prove;
    }
}

// The instruction before the one at pc must not go on with it unseen.
void break_pair_before(int32_t pc) {
    if (pc >= WORDS_PER_INSTRUCTION) {
        drop_proof(pc - WORDS_PER_INSTRUCTION);
    }
}

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

void note_store(int32_t address) {
    machine.modified[address] = true;
    if ((store_kinds[address] & CODE) != 0) {
        drop_proofs_with(address);
    }
    store_kinds[address] = address == watchpoint ? HEED : ONLY_A_STORE;
}

[[gnu::noinline]] proof_t* heed_store(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                                      int32_t address) {
    note_store(address);
    if (address == watchpoint) {
        simulator.step = 0;
        watchpoint_hit = true;
        run.over = true;
        return leave(at, left - 1, memory, stores, 0);
    }
    return next(at, left, memory, stores, 0);
}

// Stores the result of an instruction and goes on with the one at `at`.
template <handler_t handler = go_on>
[[gnu::always_inline]] inline proof_t* store(proof_t* at, int32_t left, int32_t* memory,
                                             const uint8_t* stores, int32_t address, int32_t value) {
    memory[address] = value;
    if (stores[address] != ONLY_A_STORE) [[unlikely]] {
        return heed_store(at, left, memory, stores, address);
    }
    return next<handler>(at, left, memory, stores, value);
}

// ---- The plain way, and ports

// Decreases simulator.step for the instructions so far.
[[gnu::always_inline]] inline void settle_steps(int32_t left) {
    if (simulator.step > 0) [[unlikely]] {
        simulator.step -= run.left_settled - left;
        run.controls.step = simulator.step;
    }
    run.left_settled = left;
}

[[gnu::always_inline]] inline void be_exact(int32_t pc, int32_t left) {
    settle_steps(left);
    run.start = pc;
    run.left = left;
    machine.pc = pc;
    machine.instr_count = count_at(left);
}

bool controls_changed() {
    return simulator.step != run.controls.step || simulator.running != run.controls.running ||
           simulator.speaker_on != run.controls.speaker_on ||
           simulator.breakpoint != run.controls.breakpoint ||
           simulator.watchpoint != run.controls.watchpoint || simulator.verbose != run.controls.verbose;
}

// machine.pc is then the next instruction; if the slice must end there, run.over is set.
[[gnu::always_inline]] inline void take_stock(int32_t left) {
    run.count_at_end = machine.instr_count + static_cast<uint64_t>(left);
    run.over = controls_changed() || machine.halted || proofs_forgotten;
}

// An instruction writes one word at most.
void note_plain_store() {
    if (last_written != NOTHING_WRITTEN) {
        note_store(last_written);
        last_written = NOTHING_WRITTEN;
    }
}

void execute_plainly(int32_t pc, int32_t left) {
    be_exact(pc, left);
    execute_instruction();
    note_plain_store();
    take_stock(left);
}

// Not inline: handlers would save registers for the calls in it, each time.
[[gnu::noinline]] proof_t* plain(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                                 int32_t result) {
    execute_plainly(pc_of(at), left);
    return next_at_pc(left, memory, stores, result);
}

[[gnu::always_inline]] inline int32_t read_port(int32_t offset, int32_t left) {
    machine.instr_count = count_at(left);
    return port_readers[offset]();
}

proof_t* copy_to_register(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t result) {
    machine.instr_count = count_at(left);
    port_writers[at->arg1](memory[at->arg2]);
    return next(at + 1, left, memory, stores, result);
}

// A copy from or to a port at which more can happen than that a value passes.
template <bool writes>
proof_t* copy_through_port(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                           int32_t result) {
    const int32_t pc = pc_of(at);
    const int32_t after = pc + WORDS_PER_INSTRUCTION;
    const uint16_t port = static_cast<uint16_t>(writes ? at->arg1 : at->arg2);
    be_exact(pc, left);
    machine.pc = after;
    const int32_t value = port_handlers[port](writes, IO_BASE + port, writes ? memory[at->arg2] : 0);
    if constexpr (!writes) {
        memwrite(at->arg1, value);
        note_plain_store();
    }
    take_stock(left);
    if (run.over || machine.pc != after) [[unlikely]] {
        return next_at_pc(left, memory, stores, result);
    }
    return next(at + 1, left, memory, stores, result);
}

// ---- Waiting

bool is_only_a_store(int32_t address) { return store_kinds[address] == ONLY_A_STORE; }

// Branches that are believed not to wait.
std::array<proof_t*, MOST_DOUBTED> doubted;
size_t doubted_count = 0;
uint64_t last_second_look = 0; // the instruction count

void doubt(proof_t* branch) {
    if (doubted_count == MOST_DOUBTED) {
        history_of(branch).strikes = MOST_STRIKES / 2; // or nobody would look at it again
        return;
    }
    branch->execute = prove;
    doubted[doubted_count++] = branch;
}

void forget_doubted() { doubted_count = 0; }

// Each gets some more chances.
void look_at_doubted() {
    if (machine.instr_count - last_second_look < SECOND_LOOK) {
        return;
    }
    last_second_look = machine.instr_count;
    for (; doubted_count > 0; --doubted_count) {
        proof_t* const branch = doubted[doubted_count - 1];
        history_of(branch).strikes = MOST_STRIKES / 2;
        drop_proof(pc_of(branch));
        break_pair_before(pc_of(branch));
    }
}

// A branch has just closed a loop. If it waits, passes over as many whole turns as come before something can
// change; the rest is executed. Returns how many instructions are left.
[[gnu::noinline]] int32_t pass_over_turns(proof_t* branch, const proof_t* target, int32_t left) {
    if (left < LONGEST_TURN) {
        return left;
    }
    machine.instr_count = count_at(left);
    const waiting_t waiting = follow_loop(pc_of(target), is_only_a_store);
    const uint64_t steady = waiting.turn == 0 ? 0 : waiting.steady_until - machine.instr_count;
    if (steady >= WORTHWHILE) {
        history_of(branch).strikes = 0;
    } else if (++history_of(branch).strikes == MOST_STRIKES) {
        doubt(branch);
    }
    if (waiting.turn == 0) {
        return left;
    }
    const auto steady_here = static_cast<int32_t>(std::min(steady, static_cast<uint64_t>(left)));
    return left - steady_here / waiting.turn * waiting.turn;
}

// A branch that may close a loop that waits is taken. Not inline, for the same reason as `plain`.
[[gnu::noinline]] proof_t* close_loop(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                                      int32_t result) {
    proof_t* const target = farther(at, at->arg1);
    // The turns that are passed over are counted here, the branch itself by `next`.
    left = pass_over_turns(at, target, left - 1) + 1;
    return next(target, left, memory, stores, result);
}

// A branch on a port at which more can happen than that a value passes.
proof_t* branch_plainly(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t result) {
    execute_plainly(pc_of(at), left);
    const proof_t* const target = farther(at, at->arg1);
    if (machine.pc == pc_of(target) && !run.over) {
        // As in close_loop.
        left = pass_over_turns(at, target, left - 1) + 1;
    }
    return next_at_pc(left, memory, stores, result);
}

// ---- Handlers

// Where the operands are that the handler reads.
enum from_e {
    MEMORY,
    LEFT_RESULT, // the word at arg2 is what the first instruction of the pair has stored
    RIGHT_RESULT,
    LEFT_PORT, // the word at arg2 is a register that programs poll, the others are in memory
    RIGHT_PORT,
    FRESH, // the instruction is not proven: in memory, or the plain way executes it
    PLACES
};

struct operands_t {
    int32_t arg1;
    int32_t arg2;
    int32_t arg3;
};

template <from_e from>
[[gnu::always_inline]] inline operands_t operands_of(const proof_t* at, const int32_t* memory) {
    if constexpr (from == FRESH) {
        const int32_t* const words = memory + pc_of(at);
        return {words[1], words[2], words[3]};
    } else {
        return {at->arg1, at->arg2, at->arg3};
    }
}

// Whether the operands are where the handler expects them; when the instruction is proven, that needs no
// check.
template <opcode_e opcode, from_e from>
[[gnu::always_inline]] inline bool within_reach(const operands_t& operands) {
    constexpr uses_t uses = uses_of(opcode);
    return from != FRESH || in_memory((uses.arg1 ? operands.arg1 : 0) | (uses.arg2 ? operands.arg2 : 0) |
                                      (uses.arg3 ? operands.arg3 : 0));
}

template <from_e from>
[[gnu::always_inline]] inline int32_t left_word(int32_t arg2, int32_t left, const int32_t* memory,
                                                int32_t result) {
    return from == LEFT_PORT ? read_port(arg2, left) : from == LEFT_RESULT ? result : memory[arg2];
}

template <from_e from>
[[gnu::always_inline]] inline int32_t right_word(int32_t arg3, int32_t left, const int32_t* memory,
                                                 int32_t result) {
    return from == RIGHT_PORT ? read_port(arg3, left) : from == RIGHT_RESULT ? result : memory[arg3];
}

// `then`: the handler of the next instruction, where it is known.
template <opcode_e opcode, from_e from, handler_t then = go_on>
[[gnu::always_inline]] inline proof_t* compute(proof_t* at, int32_t left, int32_t* memory,
                                               const uint8_t* stores, int32_t result) {
    const operands_t operands = operands_of<from>(at, memory);
    if (!within_reach<opcode, from>(operands)) [[unlikely]] {
        return plain(at, left, memory, stores, result);
    }
    const int32_t first = left_word<from>(operands.arg2, left, memory, result);
    const int32_t second = reads_right(opcode) ? right_word<from>(operands.arg3, left, memory, result) : 0;
    if (!has_result(opcode, second)) [[unlikely]] {
        return plain(at, left, memory, stores, result);
    }
    return store<then>(at + 1, left, memory, stores, operands.arg1, result_of(opcode, first, second));
}

template <opcode_e opcode, from_e from, handler_t then = go_on>
[[gnu::always_inline]] inline proof_t* copy_element(proof_t* at, int32_t left, int32_t* memory,
                                                    const uint8_t* stores, int32_t result) {
    const operands_t operands = operands_of<from>(at, memory);
    if (!within_reach<opcode, from>(operands)) [[unlikely]] {
        return plain(at, left, memory, stores, result);
    }
    const int32_t index = right_word<from>(operands.arg3, left, memory, result);
    const int32_t element = wrap_add(operands.arg2, index);
    if (!in_memory(element)) [[unlikely]] {
        return plain(at, left, memory, stores, result);
    }
    return opcode == K24_CPFA ? store<then>(at + 1, left, memory, stores, operands.arg1, memory[element])
                              : store<then>(at + 1, left, memory, stores, element, memory[operands.arg1]);
}

template <from_e from>
[[gnu::always_inline]] inline proof_t* target_of(proof_t* at, const operands_t& operands) {
    return from == FRESH ? proof_of(operands.arg1) : farther(at, operands.arg1);
}

// `may_wait`: the branch may close a loop that waits.
template <opcode_e opcode, from_e from, bool may_wait, handler_t then = go_on>
[[gnu::always_inline]] inline proof_t* branch(proof_t* at, int32_t left, int32_t* memory,
                                              const uint8_t* stores, int32_t result) {
    const operands_t operands = operands_of<from>(at, memory);
    if (!within_reach<opcode, from>(operands)) [[unlikely]] {
        return plain(at, left, memory, stores, result);
    }
    const int32_t first = left_word<from>(operands.arg2, left, memory, result);
    const int32_t second = right_word<from>(operands.arg3, left, memory, result);
    if (!is_taken(opcode, first, second)) {
        return next<then>(at + 1, left, memory, stores, result);
    }
    if constexpr (may_wait) {
        return close_loop(at, left, memory, stores, result);
    }
    return next(target_of<from>(at, operands), left, memory, stores, result);
}

// Where the last calls return to, as processors keep it. A return that compares its address with the guess
// need not wait for that address to go through memory and become a proof: the processor takes the comparison
// for true and goes on. Zeros are a guess too, address 0.
struct guess_t {
    int32_t pc;
    int32_t proof; // how many bytes behind the first proof
};

constexpr uint32_t GUESSES = 16;
guess_t guesses[GUESSES];
uint32_t last_guess = 0;

template <from_e from>
[[gnu::always_inline]] inline proof_t* call(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                                            int32_t result) {
    const operands_t operands = operands_of<from>(at, memory);
    if (!within_reach<K24_CALL, from>(operands)) [[unlikely]] {
        return plain(at, left, memory, stores, result);
    }
    const int32_t after = pc_of(at) + WORDS_PER_INSTRUCTION;
    last_guess = (last_guess + 1) % GUESSES;
    guesses[last_guess] = {after, bytes_between(proofs, at + 1)};
    return store(target_of<from>(at, operands), left, memory, stores, operands.arg2, after);
}

template <from_e from>
[[gnu::always_inline]] inline proof_t* ret(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                                           int32_t result) {
    const operands_t operands = operands_of<from>(at, memory);
    if (!within_reach<K24_RET, from>(operands)) [[unlikely]] {
        return plain(at, left, memory, stores, result);
    }
    const int32_t pc = memory[operands.arg1];
    const guess_t& guess = guesses[last_guess];
    last_guess = (last_guess - 1) % GUESSES;
    if (pc == guess.pc) [[likely]] {
        return next(farther(proofs, guess.proof), left, memory, stores, result);
    }
    if (!in_memory(pc)) [[unlikely]] {
        machine.pc = pc;
        run.left = left - 1;
        return nullptr;
    }
    return next(proof_of(pc), left, memory, stores, result);
}

// ---- The tables of handlers

template <opcode_e opcode> constexpr bool can_be(from_e from) {
    switch (from) {
    case LEFT_PORT:
        return always_has_result(opcode);
    case RIGHT_PORT:
        return always_has_result(opcode) && reads_right(opcode);
    case LEFT_RESULT:
        return reads_left(opcode);
    case RIGHT_RESULT:
        return reads_right(opcode);
    default:
        return opcode != K24_HALT;
    }
}

// nullptr where there is none.
template <opcode_e opcode, from_e from, bool may_wait = false> constexpr handler_t handler_of() {
    if constexpr (!can_be<opcode>(from)) {
        return nullptr;
    } else if constexpr (computes(opcode)) {
        return compute<opcode, from>;
    } else if constexpr (is_branch(opcode)) {
        // Only a proof has the distance to the target by which a loop is closed.
        return branch<opcode, from, (may_wait && from != FRESH)>;
    } else if constexpr (opcode == K24_CALL) {
        return call<from>;
    } else if constexpr (opcode == K24_RET) {
        return ret<from>;
    } else {
        return copy_element<opcode, from>;
    }
}

// Whether the instruction can be the first of a pair whose second has its operands there. After a call or
// return the next is not its neighbour; a branch and a copy to an array leave no result that the second is
// known to read.
template <opcode_e opcode> constexpr bool can_come_first(from_e from) {
    return computes(opcode) || opcode == K24_CPFA ||
           (from == MEMORY && (opcode == K24_CPTA || is_branch(opcode)));
}

// One handler for two instructions halves the jumps. `from` is where the second has its operands. nullptr
// where there is none.
template <opcode_e first, opcode_e second, from_e from, from_e first_from = MEMORY>
constexpr handler_t pair_of() {
    constexpr handler_t then = handler_of<second, from>();
    if constexpr (!can_be<second>(from) || !can_come_first<first>(from)) {
        return nullptr;
    } else if constexpr (computes(first)) {
        return compute<first, first_from, then>;
    } else if constexpr (is_branch(first)) {
        return branch<first, first_from, false, then>;
    } else {
        return copy_element<first, first_from, then>;
    }
}

constexpr size_t OPCODES = K24_RET + 1;
using by_opcode_t = std::array<handler_t, OPCODES>;

// Make the tables: `f` gets its numbers as types, so that they can be arguments of templates.
template <size_t count, typename function_t> constexpr auto table_of(function_t f) {
    return [f]<size_t... i>(std::index_sequence<i...>) {
        return std::array{f(std::integral_constant<size_t, i>())...};
    }
    (std::make_index_sequence<count>());
}

template <bool may_wait> constexpr std::array<by_opcode_t, PLACES> handlers() {
    return table_of<PLACES>([](auto from) {
        return table_of<OPCODES>([from](auto opcode) {
            return handler_of<static_cast<opcode_e>(opcode()), static_cast<from_e>(from()), may_wait>();
        });
    });
}

// By where the operands are.
constexpr std::array<by_opcode_t, PLACES> HANDLERS = handlers<false>();

// The same, but a branch may close a loop that waits.
constexpr std::array<by_opcode_t, PLACES> LOOP_HANDLERS = handlers<true>();

// By where the second has its operands, and the first's opcode.
constexpr std::array<std::array<by_opcode_t, OPCODES>, LEFT_PORT> PAIRS = table_of<LEFT_PORT>([](auto from) {
    return table_of<OPCODES>([from](auto first) {
        return table_of<OPCODES>([from, first](auto second) {
            return pair_of<static_cast<opcode_e>(first()), static_cast<opcode_e>(second()),
                           static_cast<from_e>(from())>();
        });
    });
});

// After a copy of a polled register, which is mostly looked at next.
constexpr std::array<by_opcode_t, LEFT_PORT> PAIRS_AFTER_PORT = table_of<LEFT_PORT>([](auto from) {
    return table_of<OPCODES>([from](auto second) {
        return pair_of<K24_CP, static_cast<opcode_e>(second()), static_cast<from_e>(from()), LEFT_PORT>();
    });
});

// ---- Proving

// Executes an instruction that is not proven. Once in 256 times it is tried again: a program may have made
// itself, and be ready now.
proof_t* look_up(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t result) {
    if (++history_of(at).strikes == 0) [[unlikely]] {
        history_of(at).hits = MOST_HITS - 1;
        return prove(at, left, memory, stores, result);
    }
    const int32_t opcode = memory[pc_of(at)];
    if (opcode == K24_HALT || !is_opcode(opcode)) [[unlikely]] {
        return plain(at, left, memory, stores, result);
    }
    return HANDLERS[FRESH][static_cast<size_t>(opcode)](at, left, memory, stores, result);
}

// Whether the instruction, if it is a branch, closes a loop that may wait.
bool may_wait(int32_t pc, const proof_t& proof, const words_t& words) {
    const bool closes_loop = words.arg1 <= pc && words.arg1 > pc - LONGEST_TURN * WORDS_PER_INSTRUCTION;
    return closes_loop && passes_over_waiting && history_of(&proof).strikes < MOST_STRIKES;
}

handler_t handler_for(int32_t pc, const proof_t& proof, const words_t& words, from_e from) {
    const auto opcode = static_cast<size_t>(words.opcode);
    return may_wait(pc, proof, words) ? LOOP_HANDLERS[from][opcode] : HANDLERS[from][opcode];
}

reader_t reader_at(int32_t address) {
    const polled_t* const port = io_polled(address);
    return port == nullptr ? nullptr : port->read;
}

// From now on the port is reached without asking who owns it. False when nothing is found for it.
template <typename function_t>
bool learn(function_t (&ports)[IO_SLOTS], int32_t address, function_t (*find)(int32_t address)) {
    const function_t function = address < 0 ? find(address) : nullptr;
    if (function == nullptr) {
        return false;
    }
    ports[io_offset(address)] = function;
    return true;
}

// The quickest way to execute an instruction whose operands are where they are.
handler_t choose_handler(int32_t pc, const proof_t& proof, const words_t& words) {
    const auto opcode = static_cast<size_t>(words.opcode);
    const uses_t uses = uses_of(words.opcode);
    const bool arg1 = !uses.arg1 || in_memory(words.arg1);
    const bool arg2 = !uses.arg2 || in_memory(words.arg2);
    const bool arg3 = !uses.arg3 || in_memory(words.arg3);
    if (arg1 && arg2 && arg3) {
        return handler_for(pc, proof, words, MEMORY);
    }
    if (arg1 && arg3 && HANDLERS[LEFT_PORT][opcode] != nullptr &&
        learn(port_readers, words.arg2, reader_at)) {
        return handler_for(pc, proof, words, LEFT_PORT);
    }
    if (arg1 && arg2 && HANDLERS[RIGHT_PORT][opcode] != nullptr &&
        learn(port_readers, words.arg3, reader_at)) {
        return handler_for(pc, proof, words, RIGHT_PORT);
    }
    if (words.opcode == K24_CP && arg1 && learn(port_handlers, words.arg2, io_handler)) {
        return copy_through_port<false>;
    }
    if (words.opcode == K24_CP && arg2 && learn(port_writers, words.arg1, io_writer)) {
        return copy_to_register;
    }
    if (words.opcode == K24_CP && arg2 && learn(port_handlers, words.arg1, io_handler)) {
        return copy_through_port<true>;
    }
    return is_branch(words.opcode) && arg1 && may_wait(pc, proof, words) ? branch_plainly : plain;
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
    proof.arg1 = has_target ? bytes_between(&proof, proof_of(words.arg1)) : static_cast<uint16_t>(words.arg1);
    proof.arg2 = static_cast<uint16_t>(words.arg2);
    proof.arg3 = static_cast<uint16_t>(words.arg3);
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

proof_t* prove(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t result) {
    const int32_t pc = pc_of(at);
    if (whole_in_memory(pc)) {
        at->execute = examine(pc, *at);
        pair_up(pc);
        pair_up(pc - WORDS_PER_INSTRUCTION);
    } else {
        at->execute = in_memory(pc) ? plain : leave;
    }
    return at->execute(at, left, memory, stores, result);
}

// ---- Slices

void start_afresh() {
    constexpr proof_t UNPROVEN = {prove, 0, 0, 0};
    for (uint32_t row = 0; row < WORDS_PER_INSTRUCTION; ++row) {
        proof_t* const first = proofs + (row << ROW_BITS);
        std::fill(first, first + ROW_PROOFS + 1, UNPROVEN);
    }
    std::ranges::fill(histories, history_t{});
    std::ranges::fill(store_kinds, HEED);
    forget_doubted();
    breakpoint = NONE;
    watchpoint = NONE;
    proofs_forgotten = false;
}

void take_over_controls() {
    if (simulator.breakpoint != breakpoint) {
        if (in_memory(breakpoint)) {
            proof_of(breakpoint)->execute = prove;
        }
        breakpoint = simulator.breakpoint;
        if (in_memory(breakpoint)) {
            proof_of(breakpoint)->execute = stop_at_breakpoint;
            break_pair_before(breakpoint);
        }
    }
    if (simulator.watchpoint != watchpoint) {
        watchpoint = simulator.watchpoint;
        if (in_memory(watchpoint)) {
            store_kinds[watchpoint] |= HEED;
        }
    }
    run.controls = simulator;
}

void execute_until_over() {
    do {
        // A slice that begins at the breakpoint executes the instruction there.
        if (in_memory(machine.pc) && machine.pc != breakpoint && !simulator.verbose) {
            proof_t* at = proof_of(machine.pc);
            while (at != nullptr) {
                at = at->execute(at, run.left, machine.memory, store_kinds, 0);
            }
        } else {
            execute_plainly(machine.pc, run.left);
            --run.left;
        }
    } while (run.left > 0 && !run.over && machine.pc != breakpoint);
}

} // namespace

slice_t run_slice(int32_t count) {
    if (proofs_forgotten) {
        start_afresh();
    }
    look_at_doubted();
    take_over_controls();
    run.left = count;
    run.left_settled = count;
    run.count_at_end = machine.instr_count + static_cast<uint64_t>(count);
    run.over = false;
    last_written = NOTHING_WRITTEN;
    slice_t slice{};
    try {
        execute_until_over();
    } catch (const tovik_error& error) {
        take_stock(run.left);
        machine.pc = run.start;
        --run.left;
        slice.faulted = true;
        slice.fault = error.message;
    }
    machine.instr_count = count_at(run.left) - (slice.faulted ? 1 : 0);
    settle_steps(run.left + 1); // the step of the last one is the run loop's business
    slice.executed = count - run.left;
    return slice;
}

void forget_proofs() { proofs_forgotten = true; }

void pass_over_waiting(bool on) {
    if (on != passes_over_waiting) {
        passes_over_waiting = on;
        forget_proofs();
    }
}
