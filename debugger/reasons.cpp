#include "debugger/reasons.h"

#include <algorithm>
#include <cassert>
#include <map>
#include <string_view>

#include "assembler/labels.h"
#include "assembler/operations.h"
#include "base/arithmetic.h"
#include "base/machine.h"
#include "base/text.h"
#include "core/instructions.h"
#include "core/simulate.h"
#include "debugger/ports.h"
#include "devices/io.h"
#include "devices/registers.h"

namespace {

constexpr const char* LAST_ADDRESS = "16383";
static_assert(MEMORY_SIZE == 16384);

// Longer loops, or ways into one, are not recognised.
constexpr int LONGEST_WAY = 4096;

// What is told, and what it is told from.
struct telling_t {
    const places_t& places;
    const last_writer_t& last_writer;
    std::string text;
};

void say(telling_t& telling, const std::string& sentence) {
    telling.text += (telling.text.empty() ? "" : " ") + sentence;
}

// "zero (address 24)"
std::string named(const places_t& places, int32_t address) {
    if (address < 0) {
        return find_register(io_offset(address)) == nullptr ? hexadecimal(address)
                                                            : register_in_words(io_offset(address));
    }
    const std::string number = "address " + std::to_string(address);
    const std::string label = address < MEMORY_SIZE ? nearest_label(address, places.labels) : "";
    return label.empty() ? number : label + " (" + number + ")";
}

std::string in_quotes(std::string_view text) { return "'" + std::string(text) + "'"; }

// A word as an opcode.
std::string shown_opcode(int32_t word) {
    const std::string_view mnemonic = mnemonic_of(word);
    return std::to_string(word) + (mnemonic.empty() ? "" : " (" + std::string(mnemonic) + ")");
}

// ---- Words of memory

bool is_as_loaded(const places_t& places, int32_t address) {
    return machine.memory[address] == places.loaded[static_cast<size_t>(address)];
}

void say_writer(telling_t& telling, int32_t address, const std::string& word = "it") {
    if (!telling.last_writer) {
        return;
    }
    const std::optional<writer_t> writer = telling.last_writer(address);
    if (!writer) {
        return;
    }
    say(telling, writer->pc == NOBODY
                     ? "Nothing has written " + word + " during the run."
                     : "Instruction " + std::to_string(writer->count) + " of the run wrote " + word +
                           " last, at " + shown(where(telling.places, writer->pc)) + ".");
}

// Says of a word that it is no longer what was loaded, if so.
void say_change(telling_t& telling, int32_t address, const std::string& begins,
                std::string (*shown_value)(int32_t)) {
    if (is_as_loaded(telling.places, address)) {
        return;
    }
    const int32_t before = telling.places.loaded[static_cast<size_t>(address)];
    say(telling, begins + " was loaded with " + shown_value(before) + " and holds " +
                     shown_value(machine.memory[address]) + ".");
    say_writer(telling, address);
}

// Of a word of an instruction.
void say_overwritten(telling_t& telling, int32_t address, std::string (*shown_value)(int32_t)) {
    say_change(telling, address, "The program has overwritten " + named(telling.places, address) + ": it",
               shown_value);
}

std::string shown_number(int32_t value) { return std::to_string(value); }

// Where there is no source a word that is no opcode is still certain to be no instruction.
word_e kind_of(const places_t& places, int32_t address) {
    const std::vector<word_t>& words = places.analysis.map.words;
    if (words.empty()) {
        const bool is_known = is_opcode(places.loaded[static_cast<size_t>(address)]);
        return is_known ? word_e::OPCODE : word_e::DATA;
    }
    return static_cast<size_t>(address) < words.size() ? words[static_cast<size_t>(address)].kind
                                                       : word_e::NONE;
}

// A halt or a jump may be missing there. A call comes back, but not by itself.
void say_before(telling_t& telling, int32_t pc) {
    const int32_t before = pc - WORDS_PER_INSTRUCTION;
    if (before < 0 || kind_of(telling.places, before) != word_e::OPCODE ||
        !is_as_loaded(telling.places, before)) {
        return;
    }
    const int32_t opcode = machine.memory[before];
    const bool goes_on = computes(opcode) || opcode == K24_CPFA || opcode == K24_CPTA;
    if (goes_on || is_branch(opcode)) {
        say(telling, "The instruction before, " + shown(where(telling.places, before)) + ", goes on to it" +
                         (goes_on ? "." : " unless it branches."));
    }
}

// Says of an instruction that it is none in the source, or another one, if so.
void say_origin(telling_t& telling, int32_t pc) {
    const std::string place = shown(where(telling.places, pc));
    switch (kind_of(telling.places, pc)) {
    case word_e::OPCODE:
        say_overwritten(telling, pc, shown_opcode);
        return;
    case word_e::DATA:
        say(telling, "The program has come to data at " + place + ".");
        break;
    case word_e::NONE:
        say(telling, "The program has come to " + named(telling.places, pc) +
                         ", where the source has nothing, and memory holds " +
                         shown_opcode(machine.memory[pc]) + ".");
        break;
    case word_e::OPERAND:
    case word_e::IMPLIED:
        say(telling, "The program has come into the middle of an instruction, at " + place + ".");
        say_overwritten(telling, pc, shown_opcode);
        return;
    }
    say_before(telling, pc);
    say_change(telling, pc, "The word", shown_opcode);
}

// ---- Faults

struct access_t {
    int32_t operand; // 1 to 3
    int32_t address;
    bool write;
    bool computed; // an element of an array: operand 2 is where that begins
};

// What an instruction does, in this order, as far as it is known without doing it.
std::vector<access_t> accesses_of(const words_t& words) {
    const access_t result = {1, words.arg1, true, false};
    const access_t left = {2, words.arg2, false, false};
    const access_t right = {3, words.arg3, false, false};
    switch (words.opcode) {
    case K24_CPFA:
    case K24_CPTA: {
        std::vector<access_t> accesses = {right};
        const bool writes = words.opcode == K24_CPTA;
        if (writes) {
            accesses.push_back({1, words.arg1, false, false});
        }
        if (in_memory(words.arg3)) {
            accesses.push_back({2, wrap_add(words.arg2, machine.memory[words.arg3]), writes, true});
        }
        if (!writes) {
            accesses.push_back(result);
        }
        return accesses;
    }
    case K24_CALL:
        return {{2, words.arg2, true, false}};
    case K24_RET:
        return {{1, words.arg1, false, false}};
    case K24_SL:
    case K24_SR:
        return {right, left, result};
    case K24_CP:
    case K24_NOT:
        return {left, result};
    default:
        if (is_branch(words.opcode)) {
            return {left, right};
        }
        return computes(words.opcode) ? std::vector<access_t>{left, right, result} : std::vector<access_t>{};
    }
}

// Begins a sentence.
std::string shown_access(const places_t& places, const words_t& words, const access_t& access) {
    const std::string address =
        access.address < 0 ? hexadecimal(access.address) : std::to_string(access.address);
    if (!access.computed) {
        return "Operand " + std::to_string(access.operand) + " is " + address;
    }
    return "The array begins at " + named(places, words.arg2) + ", its index " + named(places, words.arg3) +
           " holds " + std::to_string(machine.memory[words.arg3]) + ", and together they are " + address;
}

int32_t command_of(const device_t& device) {
    const auto found =
        std::find_if(device.registers.begin(), device.registers.end(),
                     [](const board_register_t& one) { return one.kind == register_e::COMMAND; });
    return found == device.registers.end() ? 0 : peek_register(found->offset).value_or(0);
}

bool is_illegal(const access_t& access) {
    return access.address >= MEMORY_SIZE ||
           (access.address < 0 && io_port(access.address).handler == nullptr);
}

bool is_unsupported(const access_t& access) {
    if (access.address >= 0 || is_illegal(access)) {
        return false;
    }
    const board_register_t* const found = find_register(io_offset(access.address));
    return found == nullptr || (found->access == direction_e::WRITE) != access.write;
}

bool is_too_early(const access_t& access) {
    const board_register_t* const found =
        access.address < 0 ? find_register(io_offset(access.address)) : nullptr;
    if (found == nullptr || (found->kind == register_e::PARAMETER) != access.write) {
        return false;
    }
    const device_t& device = *find_device(found->offset);
    if (access.write) {
        return command_of(device) != 0;
    }
    const int32_t* const response = io_port(access.address).result.response;
    return found->kind == register_e::RESULT && (response == nullptr || *response == 0);
}

void say_illegal(telling_t& telling, const words_t& words, const access_t& access) {
    say(telling,
        shown_access(telling.places, words, access) +
            (access.address < 0 ? ", where no device is."
                                : std::string(", beyond the last word of memory, ") + LAST_ADDRESS + "."));
    if (access.computed) {
        say_writer(telling, words.arg3, "the index");
    }
}

void say_unsupported(telling_t& telling, const words_t& /*words*/, const access_t& access) {
    const int32_t offset = io_offset(access.address);
    const device_t* const device = find_device(offset);
    if (find_register(offset) != nullptr) {
        say(telling, "A program can only " + std::string(access.write ? "read " : "write ") +
                         register_in_words(offset) + ".");
    } else if (device != nullptr) {
        say(telling, "Among the addresses of the " + std::string(device->name) + ", " +
                         hexadecimal(access.address) + " is no register.");
    }
}

void say_too_early(telling_t& telling, const words_t& /*words*/, const access_t& access) {
    const int32_t offset = io_offset(access.address);
    const device_t& device = *find_device(offset);
    say(telling, register_in_words(offset) + ", " +
                     (access.write ? "can only change while the command is 0, and that is "
                                   : "can only be read while the response is 1; the command is ") +
                     std::to_string(command_of(device)) +
                     ". The whole way: " + std::string(device.handshake) + ".");
}

struct explained_t {
    bool (*fails)(const access_t& access);
    void (*say)(telling_t& telling, const words_t& words, const access_t& access);
};

// The first access of the failed instruction that cannot be done.
void say_access(telling_t& telling, const words_t& words, const explained_t& explained) {
    const std::vector<access_t> accesses = accesses_of(words);
    const auto failed = std::find_if(accesses.begin(), accesses.end(), explained.fails);
    if (failed == accesses.end()) {
        return;
    }
    explained.say(telling, words, *failed);
    say_overwritten(telling, machine.pc + failed->operand, shown_number);
}

void say_operand(telling_t& telling, const std::string& what, int32_t operand, int32_t address) {
    if (in_memory(address)) {
        say(telling, what + ", " + named(telling.places, address) + ", holds " +
                         std::to_string(machine.memory[address]) + ".");
        say_writer(telling, address);
    } else {
        say(telling, what + " is from " + named(telling.places, address) + ".");
    }
    say_overwritten(telling, machine.pc + operand, shown_number);
}

void say_fault(telling_t& telling, std::string_view fault) {
    const auto is = [&](std::string_view text) { return fault.find(text) != std::string_view::npos; };
    if (!whole_in_memory(machine.pc)) {
        say(telling, machine.pc >= 0 ? std::string("No instruction fits there: the last word of memory is ") +
                                           LAST_ADDRESS + ". The program has run past its end, or jumped."
                                     : "The program has jumped to an address of the devices.");
        return;
    }
    say_origin(telling, machine.pc);
    const words_t words = words_at(machine.pc);
    if (is("division by zero")) {
        say_operand(telling, "The divisor", 3, words.arg3);
    } else if (is("negative shift amount")) {
        say_operand(telling, "The amount", 3, words.arg3);
    } else if (is("illegal address")) {
        say_access(telling, words, {is_illegal, say_illegal});
    } else if (is("unsupported operation")) {
        say_access(telling, words, {is_unsupported, say_unsupported});
    } else if (is("shouldn't") || is("verify that response")) {
        say_access(telling, words, {is_too_early, say_too_early});
    }
}

// ---- Waiting

// What the next instructions do, followed without executing them: the registers stay as they are.
struct way_t {
    int32_t pc;
    std::map<int32_t, int32_t> written; // words that are then not what they are now
    std::vector<int32_t> ports;         // offsets of registers read
    int32_t first_read = -1;            // the lowest address of an instruction that reads one
    bool known = true;
};

int32_t read_on_way(way_t& way, int32_t at, int32_t address) {
    if (in_memory(address)) {
        const auto found = way.written.find(address);
        return found == way.written.end() ? machine.memory[address] : found->second;
    }
    const std::optional<int32_t> value = address < 0 ? peek_register(io_offset(address)) : std::nullopt;
    if (!value || find_register(io_offset(address))->access == direction_e::WRITE) {
        way.known = false;
        return 0;
    }
    way.first_read = way.first_read < 0 ? at : std::min(way.first_read, at);
    if (std::find(way.ports.begin(), way.ports.end(), io_offset(address)) == way.ports.end()) {
        way.ports.push_back(io_offset(address));
    }
    return *value;
}

// A register may be written with the value that it has.
void write_on_way(way_t& way, int32_t address, int32_t value) {
    if (!in_memory(address)) {
        way.known = way.known && address < 0 && peek_register(io_offset(address)) == value &&
                    find_register(io_offset(address))->access == direction_e::WRITE;
    } else if (machine.memory[address] == value) {
        way.written.erase(address);
    } else {
        way.written[address] = value;
    }
}

void follow(way_t& way) {
    const int32_t at = way.pc;
    if (!whole_in_memory(at)) {
        way.known = false;
        return;
    }
    const auto read = [&](int32_t address) { return read_on_way(way, at, address); };
    const words_t words = {read(at), read(at + 1), read(at + 2), read(at + 3)};
    way.pc += WORDS_PER_INSTRUCTION;
    if (words.opcode == K24_CALL) {
        write_on_way(way, words.arg2, way.pc);
        way.pc = words.arg1;
    } else if (words.opcode == K24_RET) {
        way.pc = read(words.arg1);
    } else if (words.opcode == K24_CPFA) {
        write_on_way(way, words.arg1, read(wrap_add(words.arg2, read(words.arg3))));
    } else if (words.opcode == K24_CPTA) {
        const int32_t index = read(words.arg3);
        write_on_way(way, wrap_add(words.arg2, index), read(words.arg1));
    } else if (reads_left(words.opcode)) {
        const int32_t left = read(words.arg2);
        const int32_t right = reads_right(words.opcode) ? read(words.arg3) : 0;
        if (!has_result(words.opcode, right)) {
            way.known = false;
        } else if (!is_branch(words.opcode)) {
            write_on_way(way, words.arg1, result_of(words.opcode, left, right));
        } else if (is_taken(words.opcode, left, right)) {
            way.pc = words.arg1;
        }
    } else {
        way.known = false;
    }
}

// Follows the program into a loop and once around it; not known when it comes into none that waits.
way_t follow_into_loop() {
    way_t way;
    way.pc = machine.pc;
    for (int i = 0; way.known && i < LONGEST_WAY; ++i) {
        follow(way);
    }
    const way_t start = way;
    way.ports.clear();
    way.first_read = -1;
    int turn = 0;
    do {
        follow(way);
        ++turn;
    } while (way.known && turn < LONGEST_WAY && (way.pc != start.pc || way.written != start.written));
    way.known = way.known && turn < LONGEST_WAY;
    std::sort(way.ports.begin(), way.ports.end());
    return way;
}

std::string label_or_address(const places_t& places, int32_t address) {
    const std::string label = nearest_label(address, places.labels);
    return label.empty() ? "address " + std::to_string(address) : label;
}

// Register by register, in order; the command once for each device.
std::string awaited_in_words(const std::vector<int32_t>& ports) {
    std::string text;
    for (size_t i = 0; i < ports.size(); ++i) {
        const device_t* const device = find_device(ports[i]);
        const register_e kind = find_register(ports[i])->kind;
        const int32_t value = peek_register(ports[i]).value_or(0);
        text += (i == 0 ? "" : ", and for ") + name_of_register(ports[i]) + ", " +
                hexadecimal(wrap_add(IO_BASE, ports[i]));
        // That a response is 0 goes without saying.
        text += kind == register_e::RESPONSE && value == 0 ? "" : ", now " + std::to_string(value);
        const bool is_last = i + 1 == ports.size() || find_device(ports[i + 1]) != device;
        if (is_last && kind != register_e::PLAIN) {
            text += "; its command is " + std::to_string(command_of(*device));
        }
    }
    return text;
}

// Returns the registers for which the program waits.
std::vector<int32_t> say_waiting(telling_t& telling) {
    const way_t way = follow_into_loop();
    if (!way.known) {
        return {};
    }
    if (way.ports.empty()) {
        say(telling, "The program goes round at " + in_quotes(label_or_address(telling.places, way.pc)) +
                         " for ever: nothing there can change.");
        return {};
    }
    say(telling, "The program waits at " + in_quotes(label_or_address(telling.places, way.first_read)) +
                     " for " + awaited_in_words(way.ports) + ".");
    return way.ports;
}

} // namespace

std::string name_of_register(int32_t offset) {
    const device_t* const device = find_device(offset);
    const board_register_t* const found = find_register(offset);
    assert(device != nullptr && found != nullptr);
    const std::string name(found->name);
    if (found->kind == register_e::PLAIN) {
        return "the " + name;
    }
    // Of a device in two parts the name says which after a comma.
    const std::string device_name(device->name);
    const size_t comma = device_name.find(", ");
    std::string text = "the " + device_name.substr(0, comma) + "'s " + name;
    if (comma != std::string::npos) {
        text += " (" + device_name.substr(comma + 2) + ")";
    }
    return text;
}

std::string register_in_words(int32_t offset) {
    return hexadecimal(wrap_add(IO_BASE, offset)) + ", " + name_of_register(offset);
}

std::string waiting_in_words(const places_t& places) {
    telling_t telling = {places, nullptr, ""};
    say_waiting(telling);
    return telling.text;
}

std::string halt_in_words(const places_t& places, const last_writer_t& last_writer) {
    telling_t telling = {places, last_writer, ""};
    const int32_t pc = wrap_sub(machine.pc, WORDS_PER_INSTRUCTION);
    if (whole_in_memory(pc)) {
        say_origin(telling, pc);
    }
    return telling.text;
}

reason_t reason_of(const places_t& places, stop_t stop, const last_writer_t& last_writer) {
    telling_t telling = {places, last_writer, ""};
    reason_t reason;
    int32_t pc = machine.pc;
    switch (stop.reason) {
    case stop_reason_e::ERROR:
        say_fault(telling, stop.error); // last_stop() may change when a writer is looked for
        break;
    case stop_reason_e::HALT:
        pc = wrap_sub(machine.pc, WORDS_PER_INSTRUCTION);
        telling.text = halt_in_words(places, last_writer);
        break;
    case stop_reason_e::BREAKPOINT:
    case stop_reason_e::WATCHPOINT:
        break;
    case stop_reason_e::NONE:
    case stop_reason_e::STEPS:
    case stop_reason_e::STOPPED:
        reason.waits_for = say_waiting(telling);
        break;
    }
    reason.place = where(places, pc);
    reason.text = std::move(telling.text);
    return reason;
}
