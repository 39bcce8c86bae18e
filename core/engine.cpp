// Slices: how a run of handlers begins and how it ends.

#include "core/engine.h"

#include "base/machine.h"
#include "core/engine_internal.h"
#include "core/instructions.h"
#include "core/memory.h"

namespace engine {

run_t run;

// The slice ends at the breakpoint. One that begins there does not come through here.
proof_t* stop_at_breakpoint(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                            int32_t result) {
    run.over = true;
    return leave(at, left, memory, stores, result);
}

[[gnu::noinline]] proof_t* next_at_pc(int32_t left, int32_t* memory, const uint8_t* stores, int32_t result) {
    --left;
    if (left == 0 || run.over || !in_memory(machine.pc)) {
        run.left = left;
        return nullptr;
    }
    return go_on(proof_of(machine.pc), left, memory, stores, result);
}

namespace {

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
} // namespace engine

slice_t run_slice(int32_t count) {
    using namespace engine;
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
    } catch (const host_wait_t& wait) {
        take_stock(run.left);
        // A Reset in a dialog of the instruction holds: the program is to begin anew.
        const int64_t fetched = int64_t{machine.pc} - run.start;
        if (fetched > 0 && fetched <= WORDS_PER_INSTRUCTION) {
            machine.pc = run.start;
        }
        slice.wait = wait.ready;
    }
    machine.instr_count = count_at(run.left) - (slice.faulted ? 1 : 0);
    slice.executed = count - run.left;
    // The step of the last one is the run loop's business.
    settle_steps(slice.executed > 0 ? run.left + 1 : run.left);
    return slice;
}
