// The handlers: what executes an instruction whose operands are where it expects them, one function for each
// opcode and each place, and for each pair of them. All is made of templates.

#include <array>
#include <cstddef>
#include <utility>

#include "base/machine.h"
#include "core/engine_internal.h"
#include "core/instructions.h"
#include "devices/io.h"

namespace engine {
namespace {

// The port of an operand, see proof_t.
[[gnu::always_inline]] inline const port_t& port_at(int32_t bytes) {
    const auto* const first = reinterpret_cast<const std::byte*>(io_ports.data());
    return *reinterpret_cast<const port_t*>(first + bytes);
}

[[gnu::always_inline]] inline int32_t read_port(int32_t bytes, int32_t left) {
    machine.instr_count = count_at(left);
    return port_at(bytes).polled.read();
}

// False when the program reads a result too early.
template <from_e from> [[gnu::always_inline]] inline bool has_answer(int32_t arg2, int32_t arg3) {
    return (from != LEFT_ANSWER && from != RIGHT_ANSWER) ||
           *port_at(from == LEFT_ANSWER ? arg2 : arg3).result.response != 0;
}

// False when the register has not been written and the plain way must see why.
template <from_e to>
[[gnu::always_inline]] inline bool write_port(int32_t bytes, int32_t data, int32_t left) {
    const port_t& port = port_at(bytes);
    if constexpr (to == TO_PARAMETER) {
        const auto& [field, command, mask] = port.parameter;
        if (!takes(*field, data & mask, *command)) [[unlikely]] {
            return false;
        }
        *field = data & mask;
        return true;
    } else if constexpr (to == TO_TAKER) {
        machine.instr_count = count_at(left);
        return port.take(data);
    } else {
        machine.instr_count = count_at(left);
        port.write(data);
        return true;
    }
}

constexpr bool is_to_port(from_e place) {
    return place == TO_PARAMETER || place == TO_REGISTER || place == TO_TAKER;
}

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
    return from == LEFT_PORT     ? read_port(arg2, left)
           : from == LEFT_ANSWER ? port_at(arg2).result.value()
           : from == LEFT_RESULT ? result
                                 : memory[arg2];
}

template <from_e from>
[[gnu::always_inline]] inline int32_t right_word(int32_t arg3, int32_t left, const int32_t* memory,
                                                 int32_t result) {
    return from == RIGHT_PORT     ? read_port(arg3, left)
           : from == RIGHT_ANSWER ? port_at(arg3).result.value()
           : from == RIGHT_RESULT ? result
                                  : memory[arg3];
}

// Stores what an instruction has made of its operands, or writes it to a port. Returns whether that was all;
// otherwise after_put must come next, with the address as the result.
template <from_e from>
[[gnu::always_inline]] inline bool put(int32_t left, int32_t* memory, const uint8_t* stores, int32_t address,
                                       int32_t value) {
    if constexpr (is_to_port(from)) {
        return write_port<from>(address, value, left);
    } else {
        return store(memory, stores, address, value);
    }
}

template <opcode_e opcode, from_e from>
[[gnu::always_inline]] inline proof_t* after_put(proof_t* at, int32_t left, int32_t* memory,
                                                 const uint8_t* stores, int32_t address) {
    if constexpr (!is_to_port(from)) {
        JUMP_TO heed_store(at + 1, left, memory, stores, address);
    } else if constexpr (opcode == K24_CP) {
        JUMP_TO copy_through_port<true>(at, left, memory, stores, address);
    } else {
        JUMP_TO plain(at, left, memory, stores, address);
    }
}

// `then`: the handler of the next instruction, where it is known.
template <opcode_e opcode, from_e from, handler_t then = go_on>
[[gnu::always_inline]] inline proof_t* compute(proof_t* at, int32_t left, int32_t* memory,
                                               const uint8_t* stores, int32_t result) {
    const operands_t operands = operands_of<from>(at, memory);
    if (!within_reach<opcode, from>(operands) || !has_answer<from>(operands.arg2, operands.arg3))
        [[unlikely]] {
        JUMP_TO plain(at, left, memory, stores, result);
    }
    const int32_t first = left_word<from>(operands.arg2, left, memory, result);
    const int32_t second = reads_right(opcode) ? right_word<from>(operands.arg3, left, memory, result) : 0;
    if (!has_result(opcode, second)) [[unlikely]] {
        JUMP_TO plain(at, left, memory, stores, result);
    }
    const int32_t value = result_of(opcode, first, second);
    if (!put<from>(left, memory, stores, operands.arg1, value)) [[unlikely]] {
        JUMP_TO after_put<opcode, from>(at, left, memory, stores, operands.arg1);
    }
    JUMP_TO next<then>(at + 1, left, memory, stores, value);
}

// A copy of a value that only the register's device can find.
proof_t* copy_given(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t result) {
    machine.instr_count = count_at(left);
    const int32_t* const value = port_at(at->arg2).give();
    if (value == nullptr) [[unlikely]] {
        JUMP_TO plain(at, left, memory, stores, result);
    }
    if (!store(memory, stores, at->arg1, *value)) [[unlikely]] {
        JUMP_TO heed_store(at + 1, left, memory, stores, at->arg1);
    }
    JUMP_TO next(at + 1, left, memory, stores, *value);
}

template <opcode_e opcode, from_e from, handler_t then = go_on>
[[gnu::always_inline]] inline proof_t* copy_element(proof_t* at, int32_t left, int32_t* memory,
                                                    const uint8_t* stores, int32_t result) {
    const operands_t operands = operands_of<from>(at, memory);
    if (!within_reach<opcode, from>(operands)) [[unlikely]] {
        JUMP_TO plain(at, left, memory, stores, result);
    }
    const int32_t index = right_word<from>(operands.arg3, left, memory, result);
    const int32_t element = wrap_add(operands.arg2, index);
    if (!in_memory(element)) [[unlikely]] {
        JUMP_TO plain(at, left, memory, stores, result);
    }
    if constexpr (opcode == K24_CPFA) {
        const int32_t value = memory[element];
        if (!put<from>(left, memory, stores, operands.arg1, value)) [[unlikely]] {
            JUMP_TO after_put<opcode, from>(at, left, memory, stores, operands.arg1);
        }
        JUMP_TO next<then>(at + 1, left, memory, stores, value);
    } else {
        const int32_t value = memory[operands.arg1];
        if (!store(memory, stores, element, value)) [[unlikely]] {
            JUMP_TO heed_store(at + 1, left, memory, stores, element);
        }
        JUMP_TO next<then>(at + 1, left, memory, stores, value);
    }
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
    if (!within_reach<opcode, from>(operands) || !has_answer<from>(operands.arg2, operands.arg3))
        [[unlikely]] {
        JUMP_TO plain(at, left, memory, stores, result);
    }
    const int32_t first = left_word<from>(operands.arg2, left, memory, result);
    const int32_t second = right_word<from>(operands.arg3, left, memory, result);
    if (!is_taken(opcode, first, second)) {
        JUMP_TO next<then>(at + 1, left, memory, stores, result);
    }
    if constexpr (may_wait) {
        JUMP_TO close_loop(at, left, memory, stores, result);
    }
    JUMP_TO next(target_of<from>(at, operands), left, memory, stores, result);
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
        JUMP_TO plain(at, left, memory, stores, result);
    }
    const int32_t after = pc_of(at) + WORDS_PER_INSTRUCTION;
    last_guess = (last_guess + 1) % GUESSES;
    guesses[last_guess] = {after, bytes_between(proofs, at + 1)};
    proof_t* const target = target_of<from>(at, operands);
    if (!store(memory, stores, operands.arg2, after)) [[unlikely]] {
        JUMP_TO heed_store(target, left, memory, stores, operands.arg2);
    }
    JUMP_TO next(target, left, memory, stores, after);
}

template <from_e from>
[[gnu::always_inline]] inline proof_t* ret(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                                           int32_t result) {
    const operands_t operands = operands_of<from>(at, memory);
    if (!within_reach<K24_RET, from>(operands)) [[unlikely]] {
        JUMP_TO plain(at, left, memory, stores, result);
    }
    const int32_t pc = memory[operands.arg1];
    const guess_t& guess = guesses[last_guess];
    last_guess = (last_guess - 1) % GUESSES;
    if (pc == guess.pc) [[likely]] {
        JUMP_TO next(farther(proofs, guess.proof), left, memory, stores, result);
    }
    if (!in_memory(pc)) [[unlikely]] {
        machine.pc = pc;
        run.left = left - 1;
        return nullptr;
    }
    JUMP_TO next(proof_of(pc), left, memory, stores, result);
}

// ---- The tables of handlers

template <opcode_e opcode> constexpr bool can_be(from_e from) {
    switch (from) {
    case LEFT_PORT:
    case LEFT_ANSWER:
        return always_has_result(opcode);
    case RIGHT_PORT:
    case RIGHT_ANSWER:
        return always_has_result(opcode) && reads_right(opcode);
    case LEFT_GIVEN:
        return opcode == K24_CP;
    case TO_PARAMETER:
    case TO_REGISTER:
    case TO_TAKER:
        return computes(opcode) || opcode == K24_CPFA;
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
    } else if constexpr (from == LEFT_GIVEN) {
        return copy_given;
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

} // namespace

constexpr std::array<std::array<by_opcode_t, OPCODES>, LEFT_PORT> PAIRS = table_of<LEFT_PORT>([](auto from) {
    return table_of<OPCODES>([from](auto first) {
        return table_of<OPCODES>([from, first](auto second) {
            return pair_of<static_cast<opcode_e>(first()), static_cast<opcode_e>(second()),
                           static_cast<from_e>(from())>();
        });
    });
});

constexpr std::array<by_opcode_t, LEFT_PORT> PAIRS_AFTER_PORT = table_of<LEFT_PORT>([](auto from) {
    return table_of<OPCODES>([from](auto second) {
        return pair_of<K24_CP, static_cast<opcode_e>(second()), static_cast<from_e>(from()), LEFT_PORT>();
    });
});

constexpr std::array<by_opcode_t, PLACES> HANDLERS = handlers<false>();

constexpr std::array<by_opcode_t, PLACES> LOOP_HANDLERS = handlers<true>();

// Executes an instruction that is not proven. Once in 256 times it is tried again: a program may have made
// itself, and be ready now.
proof_t* look_up(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t result) {
    if (++history_of(at).strikes == 0) [[unlikely]] {
        history_of(at).hits = MOST_HITS - 1;
        JUMP_TO prove(at, left, memory, stores, result);
    }
    const int32_t opcode = memory[pc_of(at)];
    if (opcode == K24_HALT || !is_opcode(opcode)) [[unlikely]] {
        JUMP_TO plain(at, left, memory, stores, result);
    }
    JUMP_TO HANDLERS[FRESH][static_cast<size_t>(opcode)](at, left, memory, stores, result);
}

} // namespace engine
