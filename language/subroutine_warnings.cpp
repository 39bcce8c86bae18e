// Calls and returns.

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "base/machine.h"
#include "language/warnings_internal.h"

namespace {

// Subroutines may share code, so that looking through each of them could take long. What is left when this is
// used up is not looked at.
constexpr int64_t MOST_STEPS = 200'000;

// What a subroutine does before it returns, without what it calls.
struct body_t {
    std::vector<uint32_t> rets;
    std::vector<uint32_t> calls;
    std::unordered_set<int32_t> used; // words that it reads or writes otherwise than by call and ret
    bool known = true;                // all of its ways are
    bool ends = false;                // the program may end in it
};

struct search_t {
    program_t* program;
    std::vector<uint32_t> seen{}; // by instruction: the round in which it was seen last
    std::vector<uint32_t> open{}; // seen, and not yet looked at
    uint32_t round = 0;
    int64_t steps = MOST_STEPS;
    std::vector<bool> called{}; // by instruction: it belongs to a subroutine
};

void see(search_t& search, uint32_t index) {
    if (index == NOTHING) {
        return;
    }
    if (index >= search.seen.size()) {
        search.seen.resize(search.program->code.size());
    }
    if (search.seen[index] != search.round) {
        search.seen[index] = search.round;
        search.open.push_back(index);
    }
}

void note_words(body_t& body, const instruction_t& instruction) {
    for (size_t i = 0; i < 3; ++i) {
        const role_e role = role_of(instruction, i);
        body.known = body.known && instruction.known[i];
        if (role != role_e::NONE && role != role_e::TARGET) {
            body.used.insert(instruction.operands[i]);
        }
    }
}

void pass(search_t& search, body_t& body, uint32_t index) {
    program_t& program = *search.program;
    const instruction_t instruction = program.code[index];
    if (instruction.operation == nullptr) {
        body.known = false;
    } else if (has_opcode(instruction, K24_HALT)) {
        body.ends = true;
    } else if (has_opcode(instruction, K24_RET)) {
        body.rets.push_back(index);
        const ret_e kind = ret_of(program, instruction);
        body.known = body.known && (kind == ret_e::OF_CALLS || kind == ret_e::NOWHERE);
    } else if (has_opcode(instruction, K24_CALL)) {
        body.calls.push_back(index);
        body.known = body.known && instruction.known[0] && instruction.known[1];
        see(search, next_of(program, instruction));
    } else {
        note_words(body, instruction);
        if (is_branch(instruction)) {
            see(search, target_of(program, instruction));
        }
        if (falls_through(program, instruction, constants_e::COUNT)) {
            see(search, next_of(program, instruction));
        }
    }
}

// Everything from the target of a call on.
body_t look_through(search_t& search, uint32_t target) {
    body_t body;
    ++search.round;
    search.open.clear();
    see(search, target);
    while (!search.open.empty() && body.known) {
        const uint32_t index = search.open.back();
        search.open.pop_back();
        body.known = --search.steps >= 0;
        search.called.resize(search.program->code.size());
        search.called[index] = true;
        pass(search, body, index);
    }
    return body;
}

bool returns_through(const warnings_t& warnings, const body_t& body, int32_t word) {
    for (const uint32_t ret : body.rets) {
        if (warnings.program->code[ret].operands[0] == word) {
            return true;
        }
    }
    return false;
}

void warn_of_mismatch(warnings_t& warnings, const instruction_t& call, const body_t& body) {
    const program_t& program = *warnings.program;
    const instruction_t& ret = program.code[body.rets.front()];
    const operand_place_t target = place_of_operand(program, call, 0);
    const operand_place_t word = place_of_operand(program, call, 1);
    const operand_place_t other = place_of_operand(program, ret, 0);
    if (word.token.size == 0 || other.token.size == 0) {
        return;
    }
    diagnostic_t& diagnostic =
        warn(warnings, code::RETURN_MISMATCH, word.statement, word.token,
             "this call puts its return address into " + quoted_operand(warnings, word) + ", but " +
                 quoted_operand(warnings, target) + " returns with `ret " +
                 quoted_operand(warnings, other).substr(1) + " in " +
                 line_name(*warnings.map, other.statement, call.statement),
             "use the same word in both");
    diagnostic.related = {{place_of(warnings.map->statements[other.statement], other.token), "the return"}};
}

// A call within the subroutine itself, with a word that it has not saved.
void warn_of_recursion(warnings_t& warnings, const body_t& body, uint32_t target,
                       std::unordered_set<uint32_t>& said) {
    program_t& program = *warnings.program;
    for (const uint32_t index : body.calls) {
        const instruction_t call = program.code[index];
        if (target_of(program, call) != target || body.used.contains(call.operands[1]) ||
            !returns_through(warnings, body, call.operands[1]) || !said.insert(index).second) {
            continue;
        }
        const operand_place_t word = place_of_operand(program, call, 1);
        const operand_place_t name = place_of_operand(program, call, 0);
        if (word.token.size != 0 && name.token.size != 0) {
            warn(warnings, code::RECURSION, word.statement, word.token,
                 quoted_operand(warnings, name) +
                     " calls itself, and this overwrites the return address in " +
                     quoted_operand(warnings, word) + " that it still needs",
                 "save the word before the call and put it back behind it, or use a loop");
        }
    }
}

using bodies_t = std::unordered_map<uint32_t, body_t>; // by the first instruction

// Returns the rets of which it has been said that the calls do not fit.
std::unordered_set<uint32_t> warn_of_calls(warnings_t& warnings, search_t& search, bodies_t& bodies) {
    program_t& program = *warnings.program;
    std::unordered_set<uint32_t> said;
    std::unordered_set<uint32_t> explained;
    const size_t size = program.code.size();
    for (uint32_t i = 0; i < size; ++i) {
        const instruction_t call = program.code[i];
        if (!has_opcode(call, K24_CALL) || !call.known[0] || !call.known[1] || !is_reached(warnings, i)) {
            continue;
        }
        const uint32_t target = target_of(program, call);
        if (target == NOTHING) {
            continue;
        }
        auto [found, is_new] = bodies.try_emplace(target);
        body_t& body = found->second;
        if (is_new) {
            body = look_through(search, target);
        }
        if (!body.known || body.rets.empty()) {
            continue;
        }
        if (!returns_through(warnings, body, call.operands[1]) && !body.used.contains(call.operands[1])) {
            warn_of_mismatch(warnings, call, body);
            explained.insert(body.rets.begin(), body.rets.end());
        }
        if (is_new) {
            warn_of_recursion(warnings, body, target, said);
        }
    }
    return explained;
}

// Whether a subroutine returns on all of its ways, and only to those who called it.
bool returns_always(const program_t& program, const body_t& body) {
    return body.known && !body.ends && !body.rets.empty() &&
           std::all_of(body.rets.begin(), body.rets.end(), [&](uint32_t index) {
               const word_t& word = program.map->words[static_cast<size_t>(program.code[index].operands[0])];
               return word.value == 0 && ret_of(program, program.code[index]) == ret_e::OF_CALLS;
           });
}

void warn_of_running_into(warnings_t& warnings, const instruction_t& from, uint32_t target,
                          const body_t& body) {
    const source_map_t& map = *warnings.map;
    const program_t& program = *warnings.program;
    const statement_t& line = map.statements[program.code[target].statement];
    const operand_place_t ret = place_of_operand(program, program.code[body.rets.front()], 0);
    if (ret.token.size == 0 || is_included(program, from.statement)) {
        return;
    }
    const std::string name =
        line.defines == NOTHING ? "" : " " + quoted(name_of(map, map.labels[line.defines]));
    warn(warnings, code::RUNS_INTO_SUBROUTINE, from,
         "the program goes on behind this instruction, into the subroutine" + name +
             " that nothing calls here",
         "end this way with `halt` or a jump such as `be again 0 0`")
        .related = {
        {place_of(map.statements[ret.statement], ret.token), "this goes back behind the last call, again"}};
}

// Follows the program itself, not what it calls nor what it shares with that. Only where it is certain that
// it comes into a subroutine that does nothing but return.
void follow_program(warnings_t& warnings, const search_t& search, const bodies_t& bodies) {
    program_t& program = *warnings.program;
    const std::vector<int32_t> not_halts = halts_as_labels(*warnings.map);
    std::vector<uint32_t> open = {warnings.flow->entries.front()};
    std::vector<bool> seen(program.code.size());
    while (!open.empty()) {
        const uint32_t index = open.back();
        open.pop_back();
        if (index >= seen.size() || seen[index] || (index < search.called.size() && search.called[index])) {
            continue;
        }
        seen[index] = true;
        const instruction_t instruction = program.code[index];
        bool goes_on = falls_through(program, instruction, constants_e::COUNT);
        if (has_opcode(instruction, K24_CALL)) {
            const auto called = bodies.find(target_of(program, instruction));
            goes_on = called != bodies.end() && returns_always(program, called->second) &&
                      returns_through(warnings, called->second, instruction.operands[1]);
        } else if (is_branch(instruction)) {
            open.push_back(target_of(program, instruction));
        }
        const uint32_t next = goes_on ? next_of(program, instruction) : NOTHING;
        const auto found = bodies.find(next);
        if (found == bodies.end()) {
            open.push_back(next);
        } else if (returns_always(program, found->second) &&
                   std::find(not_halts.begin(), not_halts.end(), program.code[next].address) ==
                       not_halts.end()) {
            warn_of_running_into(warnings, instruction, next, found->second);
        }
    }
}

void warn_of_returns(warnings_t& warnings, const std::unordered_set<uint32_t>& explained) {
    const program_t& program = *warnings.program;
    for (uint32_t i = 0; i < program.code.size(); ++i) {
        const instruction_t& ret = program.code[i];
        if (!has_opcode(ret, K24_RET) || !is_reached(warnings, i) || ret_of(program, ret) != ret_e::NOWHERE ||
            explained.contains(i)) {
            continue;
        }
        const operand_place_t word = place_of_operand(program, ret, 0);
        if (word.token.size != 0) {
            const std::string name = quoted_operand(warnings, word);
            warn(warnings, code::RETURN_WITHOUT_CALL, word.statement, word.token,
                 "no `call` puts a return address into " + name,
                 "name the second operand of the `call`; if the program is to end here, write `halt`");
        }
    }
}

} // namespace

void warn_of_subroutines(warnings_t& warnings) {
    search_t search{.program = warnings.program};
    bodies_t bodies;
    const std::unordered_set<uint32_t> explained = warn_of_calls(warnings, search, bodies);
    const flow_t& flow = *warnings.flow;
    if (flow.library) {
        return;
    }
    warn_of_returns(warnings, explained);
    if (warnings.program->has_halt && !flow.unknown_jumps && !flow.entries.empty() && search.steps >= 0) {
        follow_program(warnings, search, bodies);
    }
}
