// The way through the program: where it begins and ends, where it jumps, what it never reaches.

#include <algorithm>
#include <unordered_map>

#include "base/machine.h"
#include "language/warnings_internal.h"

namespace {

bool is_at(const std::vector<int32_t>& addresses, int32_t address) {
    return std::find(addresses.begin(), addresses.end(), address) != addresses.end();
}

void warn_of_beginning(warnings_t& warnings) {
    program_t& program = *warnings.program;
    if (warnings.flow->library || program.at[0] != NOTHING) {
        return;
    }
    const word_t& first = warnings.map->words[0];
    const char* const help = "put data behind the last `halt`, or begin with a jump over it: `be start 0 0`";
    if (first.kind == word_e::DATA) {
        const statement_t& line = warnings.map->statements[first.statement];
        warn(warnings, code::BEGINS_WITH_DATA, first.statement, line.opcode,
             "execution begins at the address 0, and here that is data: " + std::to_string(first.value) +
                 " is taken for an operation",
             help);
    } else {
        warn(warnings, code::BEGINS_WITH_DATA, program.code[0],
             "execution begins at the address 0, but the first instruction has the address " +
                 std::to_string(program.code[0].address),
             "leave out the number in the first column above it");
    }
}

std::string behind(const warnings_t& warnings, const run_off_t& run_off) {
    if (run_off.into >= MEMORY_SIZE) {
        return "the memory ends";
    }
    const uint32_t from = warnings.program->code[run_off.instruction].statement;
    const word_t& word = warnings.map->words[static_cast<size_t>(run_off.into)];
    return word.kind == word_e::NONE ? "there is nothing"
                                     : "there is data: " + word_name(*warnings.map, run_off.into, from);
}

// The subroutines that return, by their first instruction: a call of each.
std::unordered_map<uint32_t, uint32_t> subroutines(const warnings_t& warnings) {
    std::unordered_map<uint32_t, uint32_t> calls;
    for (const auto& [word, way_back] : warnings.flow->returns) {
        for (size_t i = 0; way_back.used && i < way_back.calls.size(); ++i) {
            calls.emplace(target_of(*warnings.program, warnings.program->code[way_back.calls[i]]),
                          way_back.calls[i]);
        }
    }
    calls.erase(NOTHING);
    return calls;
}

// A program without a halt may run on into its subroutines, which then send it back behind their last call.
// The program itself is followed, not what it calls.
void warn_of_running_into_subroutine(warnings_t& warnings) {
    program_t& program = *warnings.program;
    const std::unordered_map<uint32_t, uint32_t> calls = subroutines(warnings);
    std::vector<uint32_t> open = {warnings.flow->entries.front()};
    std::vector<bool> seen(program.code.size());
    while (!open.empty()) {
        const uint32_t index = open.back();
        open.pop_back();
        if (index == NOTHING || index >= seen.size() || seen[index] || !is_reached(warnings, index)) {
            continue;
        }
        seen[index] = true;
        const instruction_t instruction = program.code[index];
        if (is_branch(instruction)) {
            open.push_back(target_of(program, instruction));
        }
        const uint32_t next = next_of(program, instruction);
        const bool falls =
            instruction.operation == nullptr || falls_through(program, instruction, constants_e::COUNT);
        const auto found = falls || has_opcode(instruction, K24_CALL) ? calls.find(next) : calls.end();
        if (found != calls.end()) {
            const operand_place_t name = place_of_operand(program, program.code[found->second], 0);
            if (name.token.size != 0 && !is_included(program, instruction.statement)) {
                warn(warnings, code::NO_HALT, instruction,
                     "the program does not end here: it has no `halt`, and runs on into the subroutine " +
                         quoted_operand(warnings, name),
                     "write a line with `halt`, indented, where the program ends");
            }
        } else if (falls || has_opcode(instruction, K24_CALL)) {
            open.push_back(next);
        }
    }
}

// Without a halt, the first of these ways is that of the program to its end. A program that goes round for
// ever needs none.
void warn_of_ends(warnings_t& warnings) {
    program_t& program = *warnings.program;
    const std::vector<int32_t> not_halts = halts_as_labels(*warnings.map);
    bool said = program.has_halt || warnings.flow->library || !not_halts.empty();
    std::vector<run_off_t> run_offs = warnings.flow->run_offs;
    std::sort(run_offs.begin(), run_offs.end(),
              [](const run_off_t& a, const run_off_t& b) { return a.into < b.into; });
    for (const run_off_t& run_off : run_offs) {
        const instruction_t& last = program.code[run_off.instruction];
        if (is_at(not_halts, run_off.into)) {
            continue;
        }
        if (!said && !is_included(program, last.statement)) {
            said = true;
            warn(warnings, code::NO_HALT, last,
                 "the program does not end here: it has no `halt`, and behind this instruction " +
                     behind(warnings, run_off),
                 "write a line with `halt`, indented, where the program ends");
            continue;
        }
        warn(warnings, code::RUNS_INTO_DATA, last,
             "the program goes on behind this instruction, where " + behind(warnings, run_off),
             "end this way with `halt`, `ret` or a jump such as `be again 0 0`");
    }
    if (!said && !warnings.flow->unknown_jumps) {
        warn_of_running_into_subroutine(warnings);
    }
}

void warn_of_target(warnings_t& warnings, const instruction_t& instruction) {
    const int32_t target = instruction.operands[0];
    const operand_place_t place = place_of_operand(*warnings.program, instruction, 0);
    if (place.token.size == 0) {
        return;
    }
    const std::string name = quoted_operand(warnings, place);
    const bool in_memory = target >= 0 && target < MEMORY_SIZE;
    const bool nothing = in_memory && warnings.map->words[static_cast<size_t>(target)].kind == word_e::NONE;
    const std::string what =
        !in_memory ? "no address of the memory"
        : nothing  ? "an address at which the program has no line"
                   : "no instruction: it is " + word_name(*warnings.map, target, place.statement);
    const bool call = has_opcode(instruction, K24_CALL);
    diagnostic_t& diagnostic =
        warn(warnings, code::BAD_TARGET, place.statement, place.token,
             std::string(call ? "the call" : "the branch") + " goes to " + name + ", which is " + what,
             nothing ? "write an operation behind the label, such as `halt`"
                     : "the first operand is the label of the instruction to go on with");
    if (place.label != NOTHING) {
        diagnostic.related = {{place_of(*warnings.map, warnings.map->labels[place.label]), "defined here"}};
    }
}

void warn_of_targets(warnings_t& warnings) {
    program_t& program = *warnings.program;
    for (size_t i = 0; i < program.code.size(); ++i) {
        const instruction_t instruction = program.code[i];
        const bool jumps = is_branch(instruction) || has_opcode(instruction, K24_CALL);
        if (jumps && instruction.known[0] && target_of(program, instruction) == NOTHING &&
            !may_be_made(program, instruction.operands[0])) {
            warn_of_target(warnings, instruction);
        }
    }
}

// What stands behind a call that never comes back is not said to be wrong: the subroutine may be meant to end
// the program, and if it is not, that is said.
bool is_behind_call(const warnings_t& warnings, const instruction_t& instruction) {
    const int32_t before = instruction.address - WORDS_PER_INSTRUCTION;
    const uint32_t index = before < 0 ? NOTHING : warnings.program->at[static_cast<size_t>(before)];
    return index != NOTHING && is_reached(warnings, index) &&
           has_opcode(warnings.program->code[index], K24_CALL);
}

// The first instruction of each stretch that is not reached. A subroutine of an included file may stay
// unused.
void warn_of_unreached(warnings_t& warnings) {
    const program_t& program = *warnings.program;
    bool said = false;
    for (uint32_t i = 0; i < program.code.size(); ++i) {
        const instruction_t& instruction = program.code[i];
        if (instruction.made_of_data) {
            break;
        }
        const bool unreached = !is_reached(warnings, i) && !is_included(program, instruction.statement);
        said = said || is_template(warnings, i);
        if (unreached && !said && !is_behind_call(warnings, instruction)) {
            warn(warnings, code::UNREACHED, instruction,
                 "nothing leads to this instruction: it is never executed",
                 "look at the `halt` or jump above it, or use its label as the target of a branch or call");
        }
        said = unreached;
    }
}

} // namespace

std::vector<int32_t> halts_as_labels(const source_map_t& map) {
    std::vector<int32_t> addresses;
    for (const label_t& label : map.labels) {
        const std::string_view name = name_of(map, label);
        if (name == "halt" || name == "HALT" || name == "Halt") {
            addresses.push_back(label.address);
        }
    }
    return addresses;
}

void warn_of_ways(warnings_t& warnings) {
    warn_of_beginning(warnings);
    warn_of_targets(warnings);
    warn_of_ends(warnings);
    if (!warnings.flow->unknown_jumps && !warnings.flow->library) {
        warn_of_unreached(warnings);
    }
}
