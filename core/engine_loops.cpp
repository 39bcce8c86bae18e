// Waiting. Where a branch closes a loop that waits, whole turns are passed over. A branch that has closed a
// loop again and again that does not wait, or not for long, is believed not to for a while.

#include <algorithm>
#include <array>
#include <cstddef>

#include "base/machine.h"
#include "core/engine_internal.h"
#include "core/waiting.h"

namespace engine {
namespace {

// Passing over fewer instructions costs more than executing them.
constexpr uint64_t WORTHWHILE = 64;

// A loop that waits gets strikes too when the end of a slice interrupts it: one for few turns that are left,
// and one for each of the turns just before the port changes.
static_assert(MOST_STRIKES > 1 + LONGEST_TURN);

// How often branches that were believed not to wait are looked at again, in instructions, and how many of
// them.
constexpr uint64_t SECOND_LOOK = 1000000;
constexpr size_t MOST_DOUBTED = 1024;

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

} // namespace

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

// Not inline, for the same reason as `plain`.
[[gnu::noinline]] proof_t* close_loop(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores,
                                      int32_t result) {
    proof_t* const target = farther(at, at->arg1);
    // The turns that are passed over are counted here, the branch itself by `next`.
    left = pass_over_turns(at, target, left - 1) + 1;
    JUMP_TO next(target, left, memory, stores, result);
}

proof_t* branch_plainly(proof_t* at, int32_t left, int32_t* memory, const uint8_t* stores, int32_t result) {
    execute_plainly(pc_of(at), left);
    const proof_t* const target = farther(at, at->arg1);
    if (machine.pc == pc_of(target) && !run.over) {
        // As in close_loop.
        left = pass_over_turns(at, target, left - 1) + 1;
    }
    JUMP_TO next_at_pc(at, left, memory, stores, result);
}

} // namespace engine
