#include "ui/gui_batch/search.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>

#include "base/machine.h"
#include "core/engine.h"
#include "core/simulate.h"
#include "core/stops.h"

namespace {

uint64_t last_write = 0; // which instruction, from 1

bool note_write(int32_t /*address*/, uint64_t count) {
    last_write = count;
    return false;
}

void watch(const stops_t* wanted) {
    stops = wanted;
    forget_proofs();
}

// From the beginning, until so many instructions have been executed, or the run stops or waits.
void run_until(uint64_t count) {
    simulator.step = -1;
    simulator.running = true;
    simulate_begin();
    constexpr uint64_t MOST = std::numeric_limits<int32_t>::max();
    pass_t pass{};
    while (!pass.idle && pass.wait == nullptr && machine.instr_count < count) {
        pass = simulate_pass(static_cast<int32_t>(std::min(count - machine.instr_count, MOST)));
    }
}

} // namespace

std::optional<writer_t> search_writer(int32_t address, bool (*begin)()) {
    const std::pair end{machine.pc, machine.instr_count};
    if (!begin()) {
        return std::nullopt;
    }
    stops_t question;
    question.watched.set(static_cast<size_t>(address));
    question.at_write = note_write;
    watch(&question);
    run_until(end.second);
    watch(nullptr);
    if (std::pair{machine.pc, machine.instr_count} != end || (last_write > 0 && !begin())) {
        return std::nullopt;
    }
    if (last_write == 0) {
        return writer_t{NOBODY, 0};
    }
    run_until(last_write - 1);
    return writer_t{machine.pc, last_write};
}
