// Slices: how a run of handlers begins and how it ends.

#include "core/engine.h"

#include "base/machine.h"
#include "core/engine_internal.h"
#include "core/instructions.h"
#include "core/memory.h"
#include "core/stops.h"

namespace engine {

run_t run;

// The slice ends at a breakpoint, unless it answers that it need not. One that begins there does not come
// through here.
proof_t* stop_at_breakpoint(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                            int32_t result) {
    if (const int32_t pc = pc_of(at); pc != breakpoint) {
        be_exact(pc, left);
        run.stopped = stops->at_breakpoint();
        if (!run.stopped) {
            JUMP_TO plain(at, left, memory, stores, result);
        }
    }
    run.over = true;
    JUMP_TO leave(at, left, memory, stores, result);
}

[[gnu::noinline]] proof_t* next_at_pc(proof_t* /*at*/, int32_t left, int32_t* memory, const uint8_t* stores,
                                      int32_t result) {
    --left;
    if (left == 0 || run.over || !in_memory(machine.pc)) {
        run.left = left;
        return nullptr;
    }
    JUMP_TO go_on(proof_of(machine.pc), left, memory, stores, result);
}

namespace {

void set_breakpoints(const stops_t* of, handler_t handler) {
    for (int32_t pc = 0; of != nullptr && pc < MEMORY_SIZE; ++pc) {
        if (of->breakpoints[static_cast<size_t>(pc)] && pc != breakpoint) {
            proof_of(pc)->execute = handler;
            break_pair_before(pc);
        }
    }
}

void take_over_controls() {
    if (simulator.breakpoint != breakpoint) {
        if (in_memory(breakpoint)) {
            const bool stays =
                known_stops != nullptr && known_stops->breakpoints[static_cast<size_t>(breakpoint)];
            proof_of(breakpoint)->execute = stays ? stop_at_breakpoint : prove;
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
    if (stops != known_stops) {
        set_breakpoints(known_stops, prove);
        known_stops = stops;
        set_breakpoints(stops, stop_at_breakpoint);
        for (size_t address = 0; stops != nullptr && address < MEMORY_SIZE; ++address) {
            store_kinds[address] |= stops->watched[address] ? HEED : ONLY_A_STORE;
        }
    }
    run.controls = simulator;
}

// A slice that begins at a breakpoint executes the instruction there.
bool is_at_breakpoint() { return is_breakpoint(machine.pc); }

// The slice may have ended before the engine came to the breakpoint. That of the simulator, which may have
// been set in a dialog of the last instruction, is not asked.
bool ask_at_breakpoint() {
    return machine.pc != simulator.breakpoint && is_at_breakpoint() && !machine.halted &&
           stops->at_breakpoint();
}

void execute_until_over() {
    do {
        if (in_memory(machine.pc) && !is_at_breakpoint() && !simulator.verbose) {
            proof_t* at = proof_of(machine.pc);
            while (at != nullptr) {
                at = at->execute(at, run.left, machine.memory, store_kinds, 0);
            }
        } else {
            execute_plainly(machine.pc, run.left);
            --run.left;
        }
    } while (run.left > 0 && !run.over && !is_at_breakpoint());
}

void execute_observed() {
    do {
        const int32_t pc = machine.pc;
        be_exact(pc, run.left);
        if (!observer()) {
            return;
        }
        execute_plainly(pc, run.left);
        --run.left;
    } while (run.left > 0 && !run.over && !is_at_breakpoint());
}

} // namespace
} // namespace engine

const stops_t* stops = nullptr;
observer_t observer = nullptr;

slice_t run_slice(int32_t count) {
    using namespace engine;
    if (proofs_forgotten) {
        start_afresh();
    }
    is_afresh = false;
    look_at_doubted();
    take_over_controls();
    run.left = count;
    run.left_settled = count;
    run.count_at_end = machine.instr_count + static_cast<uint64_t>(count);
    run.over = false;
    run.stopped = false;
    last_written = NOTHING_WRITTEN;
    slice_t slice{};
    try {
        observer == nullptr ? execute_until_over() : execute_observed();
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
    const bool asked = run.stopped || slice.faulted || slice.wait != nullptr || slice.executed == 0;
    slice.stopped = run.stopped || (!asked && ask_at_breakpoint());
    // The step of the last one is the run loop's business.
    settle_steps(slice.executed > 0 ? run.left + 1 : run.left);
    return slice;
}
