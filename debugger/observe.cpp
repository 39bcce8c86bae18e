#include "debugger/observe.h"

#include <algorithm>
#include <charconv>
#include <memory>
#include <optional>
#include <utility>

#include "base/arithmetic.h"
#include "core/engine.h"
#include "core/instructions.h"
#include "debugger/reasons.h"
#include "devices/registers.h"
#include "language/program.h"
#include "language/warnings.h"

namespace {

// A loop that polls takes a handful of instructions, also where it looks at several devices.
constexpr uint64_t LONGEST_POLL = 32;

// What words 1 to 3 of an instruction name, as bits.
constexpr uint8_t ARG1 = 1;
constexpr uint8_t ARG2 = 2;
constexpr uint8_t ARG3 = 4;

struct access_t {
    uint8_t reads;
    uint8_t writes;
};

// The elements of arrays are not among them.
constexpr auto ACCESSES = [] {
    std::array<access_t, K24_RET + 1> accesses{};
    for (int32_t opcode = K24_HALT; opcode <= K24_RET; ++opcode) {
        access_t& access = accesses[static_cast<size_t>(opcode)];
        access.reads = (reads_left(opcode) ? ARG2 : 0) | (reads_right(opcode) ? ARG3 : 0);
        access.writes = computes(opcode) ? ARG1 : 0;
    }
    accesses[K24_CPFA] = {ARG3, ARG1};
    accesses[K24_CPTA] = {ARG1 | ARG3, 0};
    accesses[K24_CALL] = {0, ARG2};
    accesses[K24_RET] = {ARG1, 0};
    return accesses;
}();

// How far the handshake of a device has come.
struct handshake_t {
    bool command = false;   // is 1
    bool asked = false;     // the command came, and went back to 0 if it did, before the device had answered
    bool result = false;    // the response was 1 when it was last read, and the command was not given up
    bool uncertain = false; // a command came of which only the device knows what it was
};

struct parameter_value_t {
    int32_t value = 0;
    bool known = true; // all are 0 at the start
};

// When a register was last read that programs read again and again.
struct poll_t {
    int32_t pc = -1;
    uint64_t count = 0;
    uint64_t epoch = 0;
};

// Where a device keeps what its response was when it was last read. The others can be asked at any time.
const int32_t* kept_response(int32_t offset) {
    switch (offset) {
    case 0x21:
        return &machine.ps2_response;
    case 0x31:
        return &machine.sdram_response;
    case 0x51:
        return &machine.microphone_response;
    case 0x61:
        return &machine.vga_response;
    case 0x71:
        return &machine.mouse_response;
    case 0x81:
        return &machine.sd_response;
    case 0x91:
        return &machine.serial_receive_response;
    case 0xa1:
        return &machine.serial_send_response;
    case 0xd1:
        return &machine.fft_receive_response;
    case 0xe1:
        return &machine.touch_response;
    default:
        return nullptr;
    }
}

// All bits of a register that count: "9-0", "0".
int32_t mask_of(std::string_view bits) {
    int highest = 0;
    std::from_chars(bits.data(), bits.data() + bits.size(), highest);
    return static_cast<int32_t>(UINT32_MAX >> (DATA_BITS - 1 - highest));
}

// A register, found only once.
struct known_port_t {
    const device_t* device = nullptr;
    const board_register_t* as_listed = nullptr; // nullptr: there is none
    const int32_t* kept_response = nullptr;
    int32_t mask = 0;
};

std::array<known_port_t, IO_SLOTS> list_ports() {
    std::array<known_port_t, IO_SLOTS> ports{};
    for (const device_t& device : board_devices()) {
        for (const board_register_t& one : device.registers) {
            ports[static_cast<size_t>(one.offset)] = {&device, &one, kept_response(one.offset),
                                                      mask_of(one.bits)};
        }
    }
    return ports;
}

enum class executed_e : uint8_t { NEVER, FINE, NOT_FINE };

// What else may stand where an index of a finding does.
constexpr int32_t NOT_FOUND = -1;
constexpr int32_t ALLOWED = -2;

// What is known of a word, as bits.
constexpr uint8_t CODE = 1;        // it belongs to an instruction
constexpr uint8_t CODE_BEGINS = 2; // it is the first of one
constexpr uint8_t BY_STORE = 4;    // the program has stored into it
constexpr uint8_t BY_CPTA = 8;     // by cpta: it may be making an instruction
constexpr uint8_t RESERVED = 16;   // an array of zeros begins there

struct observation_t {
    observing_t wanted;
    const places_t* places = nullptr;
    std::optional<program_t> program; // when the source is what was loaded
    uint64_t last_count = UINT64_MAX; // of the instruction that was looked at last

    std::vector<finding_t> findings;
    std::array<std::vector<int32_t>, CHECKS> finding_at; // index by address
    bool found = false;                                  // at the current instruction
    bool stopped = false;
    bool in_data = false; // that is executed: what comes of it is no finding of its own

    std::array<executed_e, MEMORY_SIZE> executed{};
    std::array<uint8_t, MEMORY_SIZE> marks{};
    std::array<known_port_t, IO_SLOTS> ports = list_ports();
    std::array<handshake_t, IO_SLOTS> handshakes{}; // by the device's first offset
    std::array<parameter_value_t, IO_SLOTS> parameters{};
    const known_port_t* response_read = nullptr; // whose value is not yet known
    std::array<poll_t, IO_SLOTS> polls{};
    uint64_t epoch = 0; // counts the accesses to ports that do more than poll
    profile_t profile{};
};

std::unique_ptr<observation_t> observation;

bool is_marked(int32_t address, uint8_t mark) {
    return in_memory(address) && (observation->marks[static_cast<size_t>(address)] & mark) != 0;
}

void mark_word(int32_t address, uint8_t mark) { observation->marks[static_cast<size_t>(address)] |= mark; }

std::string name_of_word(int32_t address) {
    const std::string label = nearest_label(address, observation->places->labels);
    const std::string number = "address " + std::to_string(address);
    return label.empty() ? number : label + " (" + number + ")";
}

// The comment that silences a warning of tovik-check holds here too.
bool is_allowed_at(int32_t pc, check_e check) {
    const statement_t* const line = observation->program ? statement_at(*observation->places, pc) : nullptr;
    return line != nullptr &&
           is_allowed(line_text(*observation->program->map, line->file, line->line_begin), name_of(check));
}

void find(check_e check, int32_t pc, std::string (*what)(int32_t about), int32_t about) {
    if (observation->in_data && check != check_e::DATA_EXECUTED) {
        return;
    }
    std::vector<int32_t>& finding_at = observation->finding_at[static_cast<size_t>(check)];
    int32_t& index = finding_at[static_cast<size_t>(pc)];
    if (index == ALLOWED || (index == NOT_FOUND && is_allowed_at(pc, check))) {
        index = ALLOWED;
        return;
    }
    observation->found = true;
    if (index != NOT_FOUND) {
        ++observation->findings[static_cast<size_t>(index)].times;
        return;
    }
    index = static_cast<int32_t>(observation->findings.size());
    observation->findings.push_back({check, pc, what(about), 1});
    if (observation->wanted.found != nullptr) {
        observation->wanted.found(observation->findings.back());
    }
}

// ---- Words

std::string unset_text(int32_t address) {
    return "reads " + name_of_word(address) + ", which nothing has written";
}

// The image's words and those that the program writes are marked as modified.
void check_read(int32_t pc, int32_t address, int32_t base) {
    const bool unset = in_memory(address) && !machine.modified[address];
    if (unset && !is_marked(base, RESERVED)) [[unlikely]] {
        find(check_e::UNSET_READ, pc, unset_text, address);
    }
}

std::string overwritten_text(int32_t address) {
    return std::string("writes over ") +
           (is_marked(address, CODE_BEGINS) ? "the instruction at " : "a word of an instruction, ") +
           name_of_word(address);
}

// To change an operand, the array begins at an instruction.
void check_write(int32_t pc, int32_t address, std::optional<int32_t> base) {
    if (!in_memory(address)) {
        return;
    }
    if (is_marked(address, CODE)) [[unlikely]] {
        const bool operand = base && is_marked(*base, CODE_BEGINS) && !is_marked(address, CODE_BEGINS);
        if (!operand) {
            find(check_e::CODE_OVERWRITTEN, pc, overwritten_text, address);
        }
    }
    mark_word(address, base ? BY_STORE | BY_CPTA : BY_STORE);
}

std::string executed_text(int32_t address) {
    if (!observation->program) {
        return "is executed, but nothing has written it";
    }
    switch (observation->program->map->words[static_cast<size_t>(address)].kind) {
    case word_e::NONE:
        return "is executed, but the program has no line there";
    case word_e::DATA:
        return "is executed, but is data";
    default:
        return "is executed, but is inside of an instruction";
    }
}

bool is_instruction(int32_t pc) {
    if (!observation->program) {
        return machine.modified[pc];
    }
    return instruction_at(*observation->program, pc) != NOTHING || is_marked(pc, BY_CPTA) ||
           (is_marked(pc, BY_STORE) && may_be_made(*observation->program, pc));
}

void check_executed(int32_t pc) {
    executed_e& executed = observation->executed[static_cast<size_t>(pc)];
    if (executed == executed_e::NEVER) {
        executed = is_instruction(pc) ? executed_e::FINE : executed_e::NOT_FINE;
    }
    const bool was_in_data = std::exchange(observation->in_data, executed == executed_e::NOT_FINE);
    if (observation->in_data && !was_in_data) {
        find(check_e::DATA_EXECUTED, pc, executed_text, pc);
    }
}

// ---- Ports

handshake_t& handshake_of(const known_port_t& port) {
    return observation->handshakes[static_cast<size_t>(port.device->first)];
}

// The register at an address; nullptr when there is none.
const known_port_t* port_at(int32_t address) {
    const int32_t offset = io_offset(address);
    const known_port_t* const port =
        offset < IO_SLOTS ? &observation->ports[static_cast<size_t>(offset)] : nullptr;
    return port != nullptr && port->as_listed != nullptr ? port : nullptr;
}

std::string early_result_text(int32_t offset) {
    return "reads " + name_of_register(offset) + " before the response is 1";
}

std::string early_parameter_text(int32_t offset) {
    const known_port_t& port = *port_at(offset);
    return "changes " + name_of_register(offset) +
           (handshake_of(port).command ? " while the command is 1"
                                       : " before the response to the last command was 1");
}

void take_response(const known_port_t& port, int32_t response) {
    handshake_t& handshake = handshake_of(port);
    handshake.result = response != 0;
    handshake.asked = handshake.asked && response == 0;
}

// The response that the last instruction has read.
void take_kept_response() {
    if (observation->response_read != nullptr) {
        const known_port_t& port = *std::exchange(observation->response_read, nullptr);
        take_response(port, *port.kept_response);
    }
}

// Between two reads by the same instruction without any other access than of this kind there was a turn that
// has led to nothing.
void count_poll(int32_t pc, int32_t offset) {
    poll_t& poll = observation->polls[static_cast<size_t>(offset)];
    const uint64_t passed = machine.instr_count - poll.count;
    if (poll.pc == pc && poll.epoch == observation->epoch && passed <= LONGEST_POLL) {
        observation->profile.waited[static_cast<size_t>(offset)] += passed;
    }
    poll = {pc, machine.instr_count, observation->epoch};
}

void look_at_result(int32_t pc, const known_port_t& port) {
    ++observation->epoch;
    const handshake_t& handshake = handshake_of(port);
    if (observation->wanted.checks && !handshake.result && !handshake.uncertain) {
        find(check_e::EARLY_RESULT, pc, early_result_text, port.as_listed->offset);
    }
}

void look_at_port_read(int32_t pc, int32_t address) {
    const known_port_t* const port = port_at(address);
    if (port == nullptr || port->as_listed->access != direction_e::READ) {
        return;
    }
    if (port->as_listed->kind == register_e::RESULT) {
        look_at_result(pc, *port);
        return;
    }
    count_poll(pc, port->as_listed->offset);
    if (port->kept_response != nullptr) {
        observation->response_read = port;
    } else if (port->as_listed->kind == register_e::RESPONSE) {
        take_response(*port, io_port(address).polled.read());
    }
}

// Whether a program that read the response now would find 1. A device that is never busy need not be asked.
bool has_answered(const device_t& device) {
    const auto response =
        std::find_if(device.registers.begin(), device.registers.end(),
                     [](const board_register_t& one) { return one.kind == register_e::RESPONSE; });
    const polled_t& polled = io_port(IO_BASE + response->offset).polled;
    return kept_response(response->offset) != nullptr ? polled.steady_until() == UNTIL_EVENT
                                                      : polled.read() != 0;
}

void look_at_command(const known_port_t& port, std::optional<int32_t> value) {
    handshake_t& handshake = handshake_of(port);
    if (!value) {
        handshake = {.uncertain = true};
        return;
    }
    const bool command = (*value & 1) != 0;
    const bool begins = command && !handshake.command;
    const bool gives_up = !command && !port.device->keeps_results;
    handshake.uncertain = false;
    if (begins) {
        handshake.asked = true;
    } else if (!command && handshake.asked) {
        handshake.asked = !has_answered(*port.device);
    }
    handshake.result = handshake.result && !begins && !gives_up;
    handshake.command = command;
}

void look_at_parameter(int32_t pc, const known_port_t& port, std::optional<int32_t> value) {
    const int32_t offset = port.as_listed->offset;
    parameter_value_t& parameter = observation->parameters[static_cast<size_t>(offset)];
    if (!value) {
        parameter.known = false;
        return;
    }
    const int32_t masked = *value & port.mask;
    const handshake_t& handshake = handshake_of(port);
    const bool too_early = handshake.command || handshake.asked;
    if (observation->wanted.checks && too_early && parameter.known && masked != parameter.value) {
        find(check_e::EARLY_PARAMETER, pc, early_parameter_text, offset);
    }
    parameter = {masked, true};
}

// The value may come from another port; then it is not known.
void look_at_port_write(int32_t pc, int32_t address, std::optional<int32_t> value) {
    ++observation->epoch;
    const known_port_t* const port = port_at(address);
    if (port == nullptr) {
        return;
    }
    if (port->as_listed->kind == register_e::COMMAND) {
        look_at_command(*port, value);
    } else if (port->as_listed->kind == register_e::PARAMETER) {
        look_at_parameter(pc, *port, value);
    }
}

// After an access to no one knows which port.
void forget_handshakes() {
    observation->handshakes.fill({.uncertain = true});
    observation->parameters.fill({.known = false});
}

// ---- Instructions

std::optional<int32_t> word_at(int32_t address) {
    return in_memory(address) ? std::optional(machine.memory[address]) : std::nullopt;
}

// What the instruction will store; nullopt when that comes from a port, or when it fails.
std::optional<int32_t> value_stored(int32_t pc, const words_t& words) {
    const auto [opcode, arg1, arg2, arg3] = words;
    if (opcode == K24_CALL) {
        return pc + WORDS_PER_INSTRUCTION;
    }
    if (opcode == K24_CPTA) {
        return word_at(arg1);
    }
    const std::optional<int32_t> right = reads_right(opcode) ? word_at(arg3) : std::optional(0);
    if (!right) {
        return std::nullopt;
    }
    if (opcode == K24_CPFA) {
        return word_at(wrap_add(arg2, *right));
    }
    const bool shifts_out = (opcode == K24_SL || opcode == K24_SR) && *right >= DATA_BITS;
    if (shifts_out) {
        return 0;
    }
    const std::optional<int32_t> left = word_at(arg2);
    return left && has_result(opcode, *right) ? std::optional(result_of(opcode, *left, *right))
                                              : std::nullopt;
}

// With the base of the array to which the word belongs.
void look_at_read(int32_t pc, int32_t address, int32_t base = -1) {
    if (address < 0) {
        look_at_port_read(pc, address);
    } else if (observation->wanted.checks) {
        check_read(pc, address, base);
    }
}

void look_at_write(int32_t pc, const words_t& words, int32_t address, std::optional<int32_t> base) {
    if (address < 0) {
        look_at_port_write(pc, address, value_stored(pc, words));
    } else if (observation->wanted.checks) {
        check_write(pc, address, base);
    }
}

void look_at_element(int32_t pc, const words_t& words) {
    const std::optional<int32_t> index = word_at(words.arg3);
    if (!index) {
        forget_handshakes();
        return;
    }
    const int32_t element = wrap_add(words.arg2, *index);
    if (words.opcode == K24_CPFA) {
        look_at_read(pc, element, words.arg2);
    } else {
        look_at_write(pc, words, element, words.arg2);
    }
}

// An instruction without arrays and ports, which most are, is looked at in one go. Returns whether this is
// one, of which there is nothing to say.
bool is_plain(const words_t& words) {
    if (!is_opcode(words.opcode) || !in_memory(words.arg1 | words.arg2 | words.arg3) ||
        !(computes(words.opcode) || is_branch(words.opcode))) {
        return false;
    }
    const bool writes = computes(words.opcode);
    const bool fine = machine.modified[words.arg2] && machine.modified[words.arg3] &&
                      !(writes && is_marked(words.arg1, CODE));
    if (fine && writes) {
        mark_word(words.arg1, BY_STORE);
    }
    return fine;
}

void look_at(int32_t pc) {
    const words_t words = words_at(pc);
    if (observation->wanted.checks) {
        check_executed(pc);
    }
    if (!is_opcode(words.opcode) || is_plain(words)) {
        return;
    }
    const auto [reads, writes] = ACCESSES[static_cast<size_t>(words.opcode)];
    if ((reads & ARG1) != 0) {
        look_at_read(pc, words.arg1);
    }
    const bool shifts = words.opcode == K24_SL || words.opcode == K24_SR;
    if ((reads & ARG2) != 0 && !(shifts && word_at(words.arg3).value_or(0) >= DATA_BITS)) {
        look_at_read(pc, words.arg2);
    }
    if ((reads & ARG3) != 0 && ((reads & ARG2) == 0 || words.arg3 != words.arg2)) {
        look_at_read(pc, words.arg3);
    }
    if (words.opcode == K24_CPFA || words.opcode == K24_CPTA) {
        look_at_element(pc, words);
    }
    if ((writes & ARG1) != 0) {
        look_at_write(pc, words, words.arg1, std::nullopt);
    }
    if ((writes & ARG2) != 0) {
        look_at_write(pc, words, words.arg2, std::nullopt);
    }
}

bool before_instruction() {
    const int32_t pc = machine.pc;
    if (!whole_in_memory(pc) || machine.instr_count == observation->last_count) {
        return true;
    }
    observation->last_count = machine.instr_count;
    observation->found = false;
    take_kept_response();
    look_at(pc);
    if (observation->found && observation->wanted.stop) {
        observation->stopped = true;
        simulator.step = 0;
        return false;
    }
    ++observation->profile.executions[static_cast<size_t>(pc)];
    return true;
}

// A label behind which the program has no line is an array that begins as zeros, on purpose, if the program
// stores into it.
void mark_reserved() {
    std::vector<bool> filled(MEMORY_SIZE, !observation->program);
    for (size_t i = 0; observation->program && i < observation->program->code.size(); ++i) {
        const instruction_t& instruction = observation->program->code[i];
        if (has_opcode(instruction, K24_CPTA) && in_memory(instruction.operands[1])) {
            filled[static_cast<size_t>(instruction.operands[1])] = true;
        }
    }
    for (const auto& [name, address] : observation->places->labels) {
        if (!machine.modified[address] && filled[static_cast<size_t>(address)]) {
            mark_word(address, RESERVED);
        }
    }
}

void mark_code(const source_map_t& map) {
    for (int32_t address = 0; address < MEMORY_SIZE; ++address) {
        const word_e kind = map.words[static_cast<size_t>(address)].kind;
        if (kind != word_e::NONE && kind != word_e::DATA) {
            mark_word(address, kind == word_e::OPCODE ? CODE | CODE_BEGINS : CODE);
        }
    }
}

} // namespace

std::string_view name_of(check_e check) {
    constexpr std::array<std::string_view, CHECKS> NAMES = {"unset-read", "data-executed", "code-overwritten",
                                                            "early-result", "early-parameter"};
    return NAMES[static_cast<size_t>(check)];
}

std::string shown(const places_t& places, const finding_t& finding) {
    const where_t place = where(places, finding.address);
    std::string text = place.line > 0 && places.difference.empty()
                           ? place.file + ":" + std::to_string(place.line)
                           : places.program;
    text += ": check: ";
    text += place.label.empty() ? "address " + std::to_string(place.address) : place.label;
    return text + " " + finding.what + " [" + std::string(name_of(finding.check)) + "]";
}

void observe(const places_t& places, const observing_t& wanted) {
    observation = std::make_unique<observation_t>();
    observation->wanted = wanted;
    observation->places = &places;
    observation->finding_at.fill(std::vector<int32_t>(MEMORY_SIZE, NOT_FOUND));
    const source_map_t& map = places.analysis.map;
    if (!map.words.empty() && places.difference.empty()) {
        observation->program = read_program(map);
        mark_code(map);
    }
    mark_reserved();
    observer = before_instruction;
}

const std::vector<finding_t>& findings() { return observation->findings; }

bool stopped_by_finding() { return observation != nullptr && observation->stopped; }

const profile_t& profile() { return observation->profile; }
