#include "language/flow.h"

#include <algorithm>
#include <utility>

#include "base/machine.h"

namespace {

constexpr int32_t NO_WORD = -1; // of a call that the program changes

struct search_t {
    program_t* program;
    flow_t flow;
    std::vector<uint32_t> open; // reached, and not yet looked at
};

void reach(search_t& search, uint32_t index) {
    if (index == NOTHING) {
        return;
    }
    if (search.flow.reached.size() <= index) {
        search.flow.reached.resize(search.program->code.size()); // code made of data came in
    }
    if (!search.flow.reached[index]) {
        search.flow.reached[index] = true;
        search.open.push_back(index);
    }
}

void enter(search_t& search, uint32_t index) {
    if (index != NOTHING) {
        search.flow.entries.push_back(index);
        reach(search, index);
    }
}

void go_on(search_t& search, uint32_t from) {
    program_t& program = *search.program;
    const uint32_t next = next_of(program, program.code[from]);
    if (next != NOTHING) {
        reach(search, next);
    } else {
        search.flow.run_offs.push_back({from, program.code[from].address + WORDS_PER_INSTRUCTION});
    }
}

void jump(search_t& search, uint32_t from) {
    program_t& program = *search.program;
    const instruction_t& instruction = program.code[from];
    const uint32_t target = target_of(program, instruction);
    if (target != NOTHING) {
        reach(search, target);
    } else if (!program.code[from].known[0] || may_be_made(program, program.code[from].operands[0])) {
        search.flow.unknown_jumps = true;
    }
}

void call(search_t& search, uint32_t from) {
    jump(search, from);
    const instruction_t& instruction = search.program->code[from];
    return_t& way_back = search.flow.returns[instruction.known[1] ? instruction.operands[1] : NO_WORD];
    way_back.calls.push_back(from);
    if (way_back.used) {
        go_on(search, from);
    } else if (search.flow.unknown_jumps) {
        reach(search, next_of(*search.program, instruction));
    }
}

void ret(search_t& search, uint32_t from) {
    const instruction_t& instruction = search.program->code[from];
    switch (ret_of(*search.program, instruction)) {
    case ret_e::OF_CALLS: {
        return_t& way_back = search.flow.returns[instruction.operands[0]];
        if (!way_back.used) {
            way_back.used = true;
            const std::vector<uint32_t> calls = way_back.calls;
            for (const uint32_t index : calls) {
                go_on(search, index);
            }
        }
        break;
    }
    case ret_e::UNKNOWN:
        search.flow.unknown_jumps = true;
        break;
    case ret_e::FIXED:   // an entry anyway
    case ret_e::NOWHERE: // said elsewhere
        break;
    }
}

void follow(search_t& search) {
    while (!search.open.empty()) {
        const uint32_t from = search.open.back();
        search.open.pop_back();
        const instruction_t instruction = search.program->code[from];
        if (instruction.operation == nullptr) {
            search.flow.unknown_jumps = true;
            go_on(search, from);
        } else if (has_opcode(instruction, K24_CALL)) {
            call(search, from);
        } else if (has_opcode(instruction, K24_RET)) {
            ret(search, from);
        } else {
            if (is_branch(instruction)) {
                jump(search, from);
            }
            if (falls_through(*search.program, instruction, constants_e::COUNT)) {
                go_on(search, from);
            } else if (falls_through(*search.program, instruction, constants_e::MAY_CHANGE)) {
                reach(search, next_of(*search.program, instruction));
            }
        }
    }
}

// After an unknown jump every call may have come back.
void follow_unknown(search_t& search) {
    const auto size = static_cast<uint32_t>(search.flow.reached.size());
    for (uint32_t i = 0; i < size; ++i) {
        if (search.flow.reached[i] && has_opcode(search.program->code[i], K24_CALL)) {
            reach(search, next_of(*search.program, search.program->code[i]));
        }
    }
    follow(search);
}

flow_t find_ways_of(program_t& program, bool library) {
    search_t search{.program = &program, .flow = {}, .open = {}};
    search.flow.reached.resize(program.code.size());
    search.flow.library = library || program.code.empty();
    if (!program.code.empty()) {
        // When the program begins with data by mistake, it is looked at as if it began behind them.
        const uint32_t first = instruction_at(program, 0);
        enter(search, first == NOTHING ? 0 : first);
    }
    const auto size = static_cast<uint32_t>(program.code.size());
    for (uint32_t i = 0; i < size; ++i) {
        const uint8_t bits = program.words[static_cast<size_t>(program.code[i].address)];
        if ((bits & ADDRESS_TAKEN) != 0 || (library && (bits & LABELLED) != 0)) {
            enter(search, i);
        }
    }
    follow(search);
    if (search.flow.unknown_jumps) {
        follow_unknown(search);
    }
    search.flow.reached.resize(program.code.size());
    return std::move(search.flow);
}

// Whether a ret is reached without a call.
bool returns_to_others(const program_t& program, const flow_t& flow) {
    for (uint32_t i = 0; i < program.code.size(); ++i) {
        if (!flow.reached[i] || !has_opcode(program.code[i], K24_RET) || !program.code[i].known[0]) {
            continue;
        }
        const ret_e kind = ret_of(program, program.code[i]);
        const auto found = flow.returns.find(program.code[i].operands[0]);
        if (kind == ret_e::NOWHERE ||
            (kind == ret_e::OF_CALLS && (found == flow.returns.end() || found->second.calls.empty()))) {
            return true;
        }
    }
    return false;
}

// A file of subroutines on its own begins with one: its first label is no place in a loop.
bool begins_like_library(const program_t& program) {
    if (program.code.empty()) {
        return false;
    }
    const int32_t first = program.code[0].address;
    const bool branches =
        std::any_of(program.code.begin(), program.code.end(), [&](const instruction_t& instruction) {
            return is_branch(instruction) && instruction.known[0] && instruction.operands[0] == first;
        });
    return !program.has_halt && (program.words[static_cast<size_t>(first)] & LABELLED) != 0 && !branches;
}

} // namespace

ret_e ret_of(const program_t& program, const instruction_t& ret) {
    const int32_t word = ret.operands[0];
    if (!ret.known[0] || word < 0 || word >= MEMORY_SIZE) {
        return ret_e::UNKNOWN;
    }
    const uint8_t bits = program.words[static_cast<size_t>(word)];
    if ((bits & (CHANGES | ADDRESS_TAKEN | BASE)) != 0) {
        return ret_e::UNKNOWN;
    }
    if ((bits & CALLED) != 0) {
        return ret_e::OF_CALLS;
    }
    const word_t& initial = program.map->words[static_cast<size_t>(word)];
    if (initial.kind == word_e::DATA) {
        const statement_t& line = program.map->statements[initial.statement];
        return line.operands[0].label != NOTHING ? ret_e::FIXED
               : initial.value == 0              ? ret_e::NOWHERE
                                                 : ret_e::UNKNOWN;
    }
    return initial.kind == word_e::NONE ? ret_e::NOWHERE : ret_e::UNKNOWN;
}

uint32_t next_of(program_t& program, const instruction_t& instruction) {
    return instruction_at(program, instruction.address + WORDS_PER_INSTRUCTION);
}

uint32_t target_of(program_t& program, const instruction_t& instruction) {
    return instruction.known[0] ? instruction_at(program, instruction.operands[0]) : NOTHING;
}

bool is_included(const program_t& program, uint32_t statement) {
    return program.map->statements[statement].inclusion != 0;
}

flow_t find_ways(program_t& program) {
    flow_t flow = find_ways_of(program, false);
    if (begins_like_library(program) && returns_to_others(program, flow)) {
        flow_t of_library = find_ways_of(program, true);
        // All code of a library has a label by which it is called.
        if (std::find(of_library.reached.begin(), of_library.reached.end(), false) ==
            of_library.reached.end()) {
            return of_library;
        }
    }
    return flow;
}
