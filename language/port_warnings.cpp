// The handshake with the devices, from the board's own table of registers. Two ways to be certain: counting
// all accesses of the program, and following all its ways with what is possible of each command and response.

#include <algorithm>
#include <array>
#include <cassert>
#include <optional>
#include <vector>

#include "base/machine.h"
#include "devices/io.h"
#include "devices/registers.h"
#include "language/warnings_internal.h"

namespace {

// What is possible of one device at one place of the program. Bits; four for each device.
constexpr uint64_t COMMAND_0 = 1;
constexpr uint64_t COMMAND_1 = 2;
constexpr uint64_t UNREAD = 4; // its response has not been read since the command began
constexpr uint64_t HAS_BEEN_READ = 8;
constexpr uint64_t EITHER_COMMAND = COMMAND_0 | COMMAND_1;
constexpr uint64_t EITHER_RESPONSE = UNREAD | HAS_BEEN_READ;
constexpr unsigned BITS = 4;

using state_t = uint64_t;
constexpr state_t ANYTHING = ~state_t{0};

// An access to a register.
struct access_t {
    uint32_t instruction; // index
    uint8_t operand;
    const board_register_t* port;
    uint32_t device; // index into `board_devices`
    bool write;
};

constexpr size_t ACCESSES = 3; // that an instruction makes at most

struct accesses_t {
    std::array<access_t, ACCESSES> list{};
    size_t count = 0;
};

uint32_t index_of(const device_t* device) { return static_cast<uint32_t>(device - board_devices().data()); }

std::optional<access_t> access_of(const program_t& program, uint32_t index, size_t operand) {
    const instruction_t& instruction = program.code[index];
    const role_e role = role_of(instruction, operand);
    if (!instruction.known[operand] || instruction.operands[operand] >= 0 ||
        (role != role_e::READ && role != role_e::WRITTEN)) {
        return std::nullopt;
    }
    const int32_t offset = io_offset(instruction.operands[operand]);
    const board_register_t* const port = find_register(offset);
    if (port == nullptr) {
        return std::nullopt;
    }
    const bool write = role == role_e::WRITTEN;
    if (write != (port->access == direction_e::WRITE)) {
        return std::nullopt;
    }
    return access_t{index, static_cast<uint8_t>(operand), port, index_of(find_device(offset)), write};
}

// In the order in which the instruction makes them: what it writes comes last.
accesses_t accesses_of(const program_t& program, uint32_t index) {
    accesses_t accesses;
    for (const bool write : {false, true}) {
        for (size_t operand = 0; operand < ACCESSES; ++operand) {
            const std::optional<access_t> access = access_of(program, index, operand);
            if (access && access->write == write) {
                accesses.list[accesses.count++] = *access;
            }
        }
    }
    return accesses;
}

// What an instruction writes, when that is certain; only bit 0 of a command counts.
std::optional<bool> command_written(const program_t& program, const instruction_t& instruction) {
    if (!has_opcode(instruction, K24_CP)) {
        return std::nullopt;
    }
    const std::optional<int32_t> value = value_read(program, instruction, 1);
    return value ? std::optional((*value & 1) != 0) : std::nullopt;
}

// Whether registers may be reached by addresses that the program computes or stores.
bool has_pointers_to_ports(const program_t& program) {
    bool stores_operands = program.has_arrays;
    for (const instruction_t& instruction : program.code) {
        for (size_t i = 0; i < 3; ++i) {
            stores_operands = stores_operands || !instruction.known[i];
            if (role_of(instruction, i) == role_e::BASE && instruction.operands[i] < 0) {
                return true;
            }
        }
    }
    const auto is_port = [](int32_t value) { return value < 0 && io_offset(value) < IO_SLOTS; };
    const auto gives_port = [&](const statement_t& statement) {
        const bool data = statement.operation != nullptr && is_data(*statement.operation);
        const bool cpdata = statement.operation != nullptr && is_cpdata(*statement.operation);
        return (data && is_port(statement.operands[0].value)) ||
               (cpdata && is_port(statement.operands[1].value));
    };
    const auto& statements = program.map->statements;
    return stores_operands && std::any_of(statements.begin(), statements.end(), gives_port);
}

std::string name_of(const warnings_t& warnings, const access_t& access) {
    const instruction_t& instruction = warnings.program->code[access.instruction];
    const device_t& device = board_devices()[access.device];
    return quoted_operand(warnings, place_of_operand(*warnings.program, instruction, access.operand)) + " (" +
           std::string(device.name) + ", " + std::string(access.port->name) + ")";
}

void warn_at(warnings_t& warnings, std::string_view code, const access_t& access, std::string message,
             std::string help) {
    const instruction_t& instruction = warnings.program->code[access.instruction];
    const operand_place_t place = place_of_operand(*warnings.program, instruction, access.operand);
    if (place.token.size == 0) {
        return;
    }
    warn(warnings, code, place.statement, place.token, std::move(message), std::move(help));
}

// "0x80000010" of the register of a device that has a kind.
std::string address_of(const device_t& device, register_e kind) {
    const auto found = std::find_if(device.registers.begin(), device.registers.end(),
                                    [&](const board_register_t& one) { return one.kind == kind; });
    constexpr std::string_view DIGITS = "0123456789abcdef";
    std::string text = "0x800000";
    text += DIGITS[static_cast<size_t>(found->offset) / 16];
    text += DIGITS[static_cast<size_t>(found->offset) % 16];
    return quoted(text);
}

void warn_of_command_not_set(warnings_t& warnings, const access_t& response) {
    const device_t& device = board_devices()[response.device];
    warn_at(warnings, code::COMMAND_NOT_SET, response,
            name_of(warnings, response) + " stays 0: nothing has set the command to 1",
            "write 1 to " + address_of(device, register_e::COMMAND) + " before");
}

void warn_of_nothing_done(warnings_t& warnings, const access_t& parameter) {
    const device_t& device = board_devices()[parameter.device];
    warn_at(warnings, code::COMMAND_NOT_SET, parameter,
            name_of(warnings, parameter) + " has no effect: nothing sets the command to 1",
            "write 1 to " + address_of(device, register_e::COMMAND) + " when all parameters are written");
}

void warn_of_early_result(warnings_t& warnings, const access_t& result, bool cleared) {
    const device_t& device = board_devices()[result.device];
    warn_at(warnings, code::RESULT_TOO_EARLY, result,
            name_of(warnings, result) +
                (cleared ? " is read while the command is 0"
                         : " is read, but the response has not been read since the command began"),
            "read " + address_of(device, register_e::RESPONSE) +
                " until it is 1, then the result, and write 0 to the command after that");
}

// What the whole program does with one device.
struct count_t {
    std::optional<access_t> set; // the first command 1 that is reached
    std::optional<access_t> response;
    std::optional<access_t> result;
    std::optional<access_t> parameter;
    bool ever_set = false;
    bool ever_cleared = false;
    bool ever_answered = false; // the response is read
};

void count(const warnings_t& warnings, count_t& counted, const access_t& access) {
    const bool reached = is_reached(warnings, access.instruction);
    const auto note = [&](std::optional<access_t>& first) {
        if (reached && !first) {
            first = access;
        }
    };
    switch (access.port->kind) {
    case register_e::COMMAND: {
        const std::optional<bool> value =
            command_written(*warnings.program, warnings.program->code[access.instruction]);
        counted.ever_set = counted.ever_set || value.value_or(true);
        counted.ever_cleared = counted.ever_cleared || !value.value_or(false);
        if (value.value_or(false)) {
            note(counted.set);
        }
        break;
    }
    case register_e::RESPONSE:
        counted.ever_answered = true;
        note(counted.response);
        break;
    case register_e::RESULT:
        note(counted.result);
        break;
    case register_e::PARAMETER:
        note(counted.parameter);
        break;
    default:
        break;
    }
}

void warn_by_counting(warnings_t& warnings) {
    std::vector<count_t> counts(board_devices().size());
    for (uint32_t i = 0; i < warnings.program->code.size(); ++i) {
        const accesses_t accesses = accesses_of(*warnings.program, i);
        for (size_t k = 0; k < accesses.count; ++k) {
            count(warnings, counts[accesses.list[k].device], accesses.list[k]);
        }
    }
    for (const count_t& counted : counts) {
        if (counted.set && !counted.ever_cleared) {
            warn_at(warnings, code::COMMAND_NOT_CLEARED, *counted.set,
                    name_of(warnings, *counted.set) + " is set to 1 and never to 0 again: it works once only",
                    "write 0 to it when the response has been read as 1");
        }
        if (counted.response && !counted.ever_set) {
            warn_of_command_not_set(warnings, *counted.response);
        } else if (counted.parameter && !counted.ever_set) {
            warn_of_nothing_done(warnings, *counted.parameter);
        }
        if (counted.result && !counted.ever_answered) {
            warn_of_early_result(warnings, *counted.result, false);
        }
    }
}

// Following the ways.

state_t start_state() {
    state_t state = 0;
    unsigned shift = 0;
    for (const device_t& device : board_devices()) {
        if (!device.registers.empty()) {
            assert(shift < 64);
            state |= (COMMAND_0 | UNREAD) << shift;
            shift += BITS;
        }
    }
    return state;
}

void replace(state_t& state, uint32_t device, uint64_t mask, uint64_t bits) {
    state = (state & ~(mask << (BITS * device))) | (bits << (BITS * device));
}

bool is_certain(state_t state, uint32_t device, uint64_t mask, uint64_t bits) {
    return ((state >> (BITS * device)) & mask) == bits;
}

void apply(const program_t& program, const access_t& access, state_t& state) {
    if (access.port->kind == register_e::RESPONSE) {
        replace(state, access.device, EITHER_RESPONSE, HAS_BEEN_READ);
    }
    if (access.port->kind != register_e::COMMAND) {
        return;
    }
    const std::optional<bool> value = command_written(program, program.code[access.instruction]);
    const bool kept = board_devices()[access.device].keeps_results;
    if (!value) {
        replace(state, access.device, EITHER_COMMAND, EITHER_COMMAND);
        replace(state, access.device, EITHER_RESPONSE, EITHER_RESPONSE);
    } else {
        replace(state, access.device, EITHER_COMMAND, *value ? COMMAND_1 : COMMAND_0);
        if (!*value && !kept) {
            replace(state, access.device, EITHER_RESPONSE, UNREAD);
        }
    }
}

// Nodes are the instructions, and behind them one for each return word: from there it goes to all calls with
// it.
struct walk_t {
    program_t* program;
    std::vector<state_t> before{}; // by node: what is possible there; 0 for what has not been reached
    std::vector<uint32_t> open{};
    std::vector<const return_t*> returns{};
    std::unordered_map<int32_t, uint32_t> node_of_word{};
};

void join(walk_t& walk, uint32_t node, state_t state) {
    if (node != NOTHING && (walk.before[node] | state) != walk.before[node]) {
        walk.before[node] |= state;
        walk.open.push_back(node);
    }
}

void step(walk_t& walk, uint32_t index) {
    program_t& program = *walk.program;
    const instruction_t& instruction = program.code[index];
    state_t state = walk.before[index];
    const accesses_t accesses = accesses_of(program, index);
    for (size_t i = 0; i < accesses.count; ++i) {
        apply(program, accesses.list[i], state);
    }
    if (is_branch(instruction) || has_opcode(instruction, K24_CALL)) {
        join(walk, target_of(program, instruction), state);
    }
    if (has_opcode(instruction, K24_RET)) {
        const auto found = walk.node_of_word.find(instruction.operands[0]);
        if (found != walk.node_of_word.end() && instruction.known[0]) {
            join(walk, found->second, state);
        }
    } else if (instruction.operation == nullptr || falls_through(program, instruction, constants_e::COUNT)) {
        join(walk, next_of(program, instruction), instruction.operation == nullptr ? ANYTHING : state);
    }
}

// After a jump to what is not known nothing is certain where code may be entered: at labels and behind calls.
void enter_everywhere(walk_t& walk) {
    program_t& program = *walk.program;
    for (uint32_t i = 0; i < program.code.size(); ++i) {
        if ((program.words[static_cast<size_t>(program.code[i].address)] & LABELLED) != 0) {
            join(walk, i, ANYTHING);
        }
        if (has_opcode(program.code[i], K24_CALL)) {
            join(walk, next_of(program, program.code[i]), ANYTHING);
        }
    }
}

walk_t walk_all(const warnings_t& warnings) {
    const flow_t& flow = *warnings.flow;
    walk_t walk{.program = warnings.program};
    auto nodes = static_cast<uint32_t>(warnings.program->code.size());
    for (const auto& [word, way_back] : flow.returns) {
        walk.node_of_word[word] = nodes++;
        walk.returns.push_back(&way_back);
    }
    walk.before.assign(nodes, 0);
    for (size_t i = 0; i < flow.entries.size(); ++i) {
        join(walk, flow.entries[i], i == 0 && !flow.library ? start_state() : ANYTHING);
    }
    if (flow.unknown_jumps) {
        enter_everywhere(walk);
    }
    const auto instructions = static_cast<uint32_t>(warnings.program->code.size());
    while (!walk.open.empty()) {
        const uint32_t node = walk.open.back();
        walk.open.pop_back();
        if (node < instructions) {
            step(walk, node);
            continue;
        }
        for (const uint32_t call : walk.returns[node - instructions]->calls) {
            join(walk, next_of(*walk.program, walk.program->code[call]), walk.before[node]);
        }
    }
    return walk;
}

// Whether an instruction branches to itself as long as a response is 0.
bool waits_for_1(const program_t& program, const access_t& response) {
    const instruction_t& branch = program.code[response.instruction];
    if (!is_branch(branch) || !branch.known[0] || branch.operands[0] != branch.address) {
        return false;
    }
    const size_t other = response.operand == 1 ? 2 : 1;
    const std::optional<int32_t> value = value_read(program, branch, other);
    if (!value) {
        return false;
    }
    switch (branch.operation->opcode) {
    case K24_BE:
        return *value == 0;
    case K24_BNE:
        return *value != 0;
    default:
        return response.operand == 1 ? *value > 0 : *value < 0;
    }
}

void check(warnings_t& warnings, const access_t& access, state_t state) {
    const register_e kind = access.port->kind;
    const uint32_t device = access.device;
    if (kind == register_e::PARAMETER && is_certain(state, device, EITHER_COMMAND, COMMAND_1)) {
        warn_at(warnings, code::PARAMETER_TOO_LATE, access,
                name_of(warnings, access) + " is written while the command is 1",
                "write it before the command becomes 1, or after 0 has been written to " +
                    address_of(board_devices()[device], register_e::COMMAND));
    } else if (kind == register_e::RESULT && is_certain(state, device, EITHER_RESPONSE, UNREAD)) {
        warn_of_early_result(warnings, access, is_certain(state, device, EITHER_COMMAND, COMMAND_0));
    } else if (kind == register_e::RESPONSE && is_certain(state, device, EITHER_COMMAND, COMMAND_0) &&
               waits_for_1(*warnings.program, access)) {
        warn_of_command_not_set(warnings, access);
    }
}

void warn_by_following(warnings_t& warnings) {
    const walk_t walk = walk_all(warnings);
    const program_t& program = *warnings.program;
    for (uint32_t i = 0; i < program.code.size(); ++i) {
        state_t state = walk.before[i];
        const accesses_t accesses = accesses_of(program, i);
        for (size_t k = 0; state != 0 && k < accesses.count; ++k) {
            check(warnings, accesses.list[k], state);
            apply(program, accesses.list[k], state);
        }
    }
}

} // namespace

void warn_of_ports(warnings_t& warnings) {
    if (!has_pointers_to_ports(*warnings.program)) {
        if (!warnings.flow->library) { // its users may do the rest
            warn_by_counting(warnings);
        }
        warn_by_following(warnings);
    }
}
