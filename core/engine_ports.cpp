// The plain way, and copies from and to ports.
//
// Ports. A device must see the exact count of instructions, and may do anything: fail, or open a dialog in
// which the user presses Reset. be_exact comes before, take_stock afterwards. A register that programs poll
// is known to give a value and no more, and some that they write to take it and no more.

#include "base/machine.h"
#include "core/engine_internal.h"
#include "core/interpreter.h"
#include "core/memory.h"
#include "devices/io.h"

namespace engine {

bool controls_changed() {
    return simulator.step != run.controls.step || simulator.running != run.controls.running ||
           simulator.speaker_on != run.controls.speaker_on ||
           simulator.breakpoint != run.controls.breakpoint ||
           simulator.watchpoint != run.controls.watchpoint || simulator.verbose != run.controls.verbose;
}

// An instruction writes one word at most.
void note_plain_store() {
    if (last_written != NOTHING_WRITTEN) {
        note_store(last_written, machine.instr_count + 1);
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
    JUMP_TO next_at_pc(at, left, memory, stores, result);
}

template <bool writes>
proof_t* copy_through_port(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                           int32_t result) {
    const int32_t pc = pc_of(at);
    const int32_t after = pc + WORDS_PER_INSTRUCTION;
    const words_t words = words_at(pc);
    be_exact(pc, left);
    machine.pc = after;
    const int32_t value = io(writes, writes ? words.arg1 : words.arg2, writes ? memory[words.arg2] : 0);
    if constexpr (!writes) {
        memwrite(words.arg1, value);
        note_plain_store();
    }
    take_stock(left);
    if (run.over || machine.pc != after) [[unlikely]] {
        JUMP_TO next_at_pc(at, left, memory, stores, result);
    }
    JUMP_TO next(at + 1, left, memory, stores, result);
}

template proof_t* copy_through_port<false>(proof_t*, int32_t, int32_t*, const uint8_t*, int32_t);
template proof_t* copy_through_port<true>(proof_t*, int32_t, int32_t*, const uint8_t*, int32_t);

} // namespace engine
