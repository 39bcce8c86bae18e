#include "tests/support/random_programs.h"

#include <algorithm>
#include <array>

#include "base/machine.h"
#include "base/noise.h"
#include "devices/io.h"
#include "devices/mouse.h"
#include "devices/ps2.h"

namespace {

// Data of all kinds but the wild ones. The first words have fixed values, which programs seldom overwrite.
constexpr int32_t DATA = 1000;
constexpr int32_t DATA_WORDS = 64;
constexpr int32_t ZERO = DATA;
constexpr int32_t ONE = DATA + 1;
constexpr int32_t COUNT = DATA + 2;
constexpr int32_t START_TIME = DATA + 3;
constexpr int32_t AMOUNTS = DATA + 4; // four to shift by, so that few programs end at a negative one
constexpr int32_t FIRST_FREE = DATA + 8;

constexpr int32_t port(int32_t offset) { return INT32_MIN + offset; }

constexpr int32_t TIMER = port(0x05);

// Registers that take any value at any time, or nearly so.
constexpr int32_t READABLE[] = {0x00, 0x05, 0x11, 0x21, 0x31, 0x41, 0x51, 0x61, 0x71,  0x81,
                                0x91, 0xa1, 0xb1, 0xc1, 0xd1, 0xe1, 0xf0, 0xf3, 0x100, 0x103};
constexpr int32_t WRITABLE[] = {0x01, 0x02, 0x03, 0x04, 0x10, 0x14, 0x20, 0x30, 0x32,
                                0x33, 0x34, 0x40, 0x42, 0x50, 0x60, 0x62, 0x65, 0x66,
                                0x70, 0x90, 0xa0, 0xc0, 0xc5, 0xd0, 0xe0, 0xf0, 0x103};

int32_t pick_readable(random_t& random) { return port(pick_from(random, READABLE)); }

int32_t pick_writable(random_t& random) { return port(pick_from(random, WRITABLE)); }

int32_t pick_data(random_t& random) { return DATA + pick(random, 0, DATA_WORDS - 1); }

int32_t pick_variable(random_t& random) { return pick(random, FIRST_FREE, DATA + DATA_WORDS - 1); }

// Values at which an instruction changes its mind.
int32_t pick_value(random_t& random) {
    constexpr int32_t values[] = {0, 1, -1, 2, 4, 31, 32, 33, -5, INT32_MIN, INT32_MAX, DATA};
    return one_in(random, 2) ? pick(random, -40, 40) : pick_from(random, values);
}

// Near the start of memory, seldom so near its end that the program is cut off there; at any offset.
int32_t pick_base(random_t& random) {
    const int32_t start = one_in(random, 10) ? MEMORY_SIZE - 4 * pick(random, 1, 14) : 4 * pick(random, 0, 3);
    return one_in(random, 4) ? start + pick(random, 0, 3) : start;
}

using instruction_t = std::array<int32_t, WORDS_PER_INSTRUCTION>;

void emit(int32_t& place, const instruction_t& instruction) {
    for (const int32_t word : instruction) {
        if (place < MEMORY_SIZE) {
            machine.memory[place] = word;
        }
        ++place;
    }
}

void fill_data(random_t& random) {
    std::generate_n(machine.memory + DATA, DATA_WORDS, [&] { return pick_value(random); });
    std::generate_n(machine.memory + AMOUNTS, 4, [&] { return pick(random, 0, 35); });
    machine.memory[ZERO] = 0;
    machine.memory[ONE] = 1;
    machine.memory[COUNT] = 0;
}

program_t finish(random_t& random, int32_t code, int32_t end) {
    const int32_t instructions = (end - code) / WORDS_PER_INSTRUCTION;
    machine.pc = code + (one_in(random, 4) ? 4 * pick(random, 0, instructions - 1) : 0);
    return {.code = code, .instructions = instructions, .data = DATA, .words = DATA_WORDS};
}

// The right operand of an instruction: one that does not fail, mostly.
int32_t pick_right(random_t& random, int32_t opcode) {
    const bool shifts = opcode == K24_SL || opcode == K24_SR;
    if ((opcode != K24_DIV && !shifts) || one_in(random, 20)) {
        return pick_data(random);
    }
    return shifts ? AMOUNTS + pick(random, 0, 3) : ONE;
}

// Neither branches nor halts.
instruction_t pick_ordinary(random_t& random, int32_t target) {
    const int32_t opcode = pick(random, K24_ADD, K24_CPTA);
    if (opcode == K24_CPFA || opcode == K24_CPTA) {
        const int32_t array = one_in(random, 30) ? pick_wild(random) : DATA + 32;
        return {opcode, opcode == K24_CPFA ? target : pick_data(random), array, pick_data(random)};
    }
    return {opcode, target, pick_data(random), pick_right(random, opcode)};
}

// No two arguments pick: compilers have orders of their own for them.
instruction_t pick_branch(random_t& random, int32_t target, int32_t left, int32_t right) {
    if (one_in(random, 2)) {
        std::swap(left, right);
    }
    return {pick(random, K24_BE, K24_BLT), target, left, right};
}

// Anything anywhere: soon faults.
program_t make_wild(random_t& random) {
    // Some different words, over and over, fill the memory as well as all different ones would.
    std::array<int32_t, 512> words;
    for (size_t i = 0; i < words.size(); ++i) {
        const bool is_opcode = i % WORDS_PER_INSTRUCTION == 0;
        words[i] = one_in(random, 6) ? pick_wild(random) : pick(random, 0, is_opcode ? 18 : MEMORY_SIZE - 1);
    }
    for (size_t i = 0; i < MEMORY_SIZE; i += words.size()) {
        std::copy(words.begin(), words.end(), machine.memory + i);
    }
    machine.pc = one_in(random, 8) ? pick_wild(random) : 4 * pick(random, 0, MEMORY_SIZE / 4 - 1);
    return {.code = 0, .instructions = MEMORY_SIZE / 4, .data = 0, .words = MEMORY_SIZE};
}

// Mostly stays within its own code and data, writes to both, and runs long. Many branches are on the result
// before them.
program_t make_tame(random_t& random) {
    const int32_t base = pick_base(random);
    const int32_t instructions = pick(random, 2, 60);
    const auto pick_instruction = [&] { return base + 4 * pick(random, 0, instructions - 1); };
    const auto pick_operand = [&](int32_t otherwise, bool writes) {
        if (one_in(random, 40)) {
            return writes ? pick_writable(random) : pick_readable(random);
        }
        return one_in(random, 20) ? base + pick(random, 0, 4 * instructions) : otherwise;
    };
    int32_t place = base;
    while (place < base + 4 * instructions) {
        const int32_t opcode = pick(random, K24_ADD, K24_RET);
        const bool jumps = opcode >= K24_BE && opcode <= K24_CALL;
        const int32_t target =
            jumps ? pick_instruction() : pick_operand(pick_variable(random), opcode != K24_RET);
        const int32_t left = pick_operand(pick_data(random), opcode == K24_CALL);
        emit(place, {opcode, target, left, pick_operand(pick_right(random, opcode), false)});
        if (!jumps && one_in(random, 2)) {
            const int32_t right = one_in(random, 2) ? ZERO : pick_data(random);
            emit(place, pick_branch(random, pick_instruction(), target, right));
        }
    }
    fill_data(random);
    for (int32_t i = FIRST_FREE; i < DATA + DATA_WORDS; i += pick(random, 1, 4)) {
        machine.memory[i] = pick_instruction();
    }
    return finish(random, base, place);
}

struct polled_t {
    int32_t response; // offsets
    int32_t command;  // of the register that is set before; LEDs, which change nothing, when there is none
};

constexpr polled_t POLLED[] = {{0x05, 0x01}, {0x05, 0x02}, {0x00, 0x01},   {0x11, 0x10}, {0x21, 0x20},
                               {0x31, 0x30}, {0x41, 0x40}, {0x51, 0x50},   {0x61, 0x60}, {0x61, 0x60},
                               {0x71, 0x70}, {0x91, 0x90}, {0xa1, 0xa0},   {0xc1, 0xc0}, {0xd1, 0xd0},
                               {0xe1, 0xe0}, {0xf2, 0xf0}, {0x102, 0x100}, {0x81, 0x01}, {0xb1, 0xb0}};

// What a loop may do besides waiting; only some of it changes nothing.
void emit_filler(random_t& random, int32_t& place, int32_t loop, int32_t polled) {
    const int32_t word = loop + pick(random, 0, 15);
    const int32_t variable = pick_variable(random);
    const int32_t target = loop + 4 * pick(random, -1, 6);
    const auto [left, right] = std::array{pick_data(random), pick_data(random)};
    const instruction_t fillers[] = {
        {K24_ADD, COUNT, COUNT, ONE},
        {K24_CP, word, loop + pick(random, 0, 15)},
        {K24_CP, word, word},
        {K24_CP, pick_writable(random), variable},
        {K24_BE, place + WORDS_PER_INSTRUCTION, ZERO, ZERO},
        {K24_CP, variable, port(pick_from(random, POLLED).response)},
        {K24_CPFA, variable, polled, one_in(random, 2) ? ZERO : ONE},
        pick_branch(random, target, left, right),
        pick_ordinary(random, variable),
        pick_ordinary(random, variable),
    };
    emit(place, pick_from(random, fillers));
}

// Goes back to `loop` while the polled register is as it was at first, mostly.
instruction_t pick_waiting_branch(random_t& random, int32_t loop, int32_t left, int32_t polled) {
    if (one_in(random, 4)) {
        return pick_branch(random, loop, left, one_in(random, 2) ? ZERO : pick_data(random));
    }
    const int32_t opcode = polled == TIMER ? K24_BE : pick(random, K24_BE, K24_BLT);
    const int32_t value = polled == TIMER ? START_TIME : opcode == K24_BE ? ZERO : ONE;
    const bool swapped = opcode != K24_BLT && one_in(random, 2);
    return {opcode, loop, swapped ? value : left, swapped ? left : value};
}

void emit_loop(random_t& random, int32_t& place, int32_t polled) {
    const int32_t loop = place;
    const int32_t copy = pick_variable(random);
    const auto maybe_filler = [&] {
        if (one_in(random, 5)) {
            emit_filler(random, place, loop, polled);
        }
    };
    maybe_filler();
    const int32_t shape = pick(random, 0, 6);
    int32_t left = copy;
    if (shape == 0) { // the register itself
        left = polled;
    } else if (shape == 1) { // through a function that stands behind
        const int32_t back = pick_variable(random);
        emit(place, {K24_CALL, place + 12, back});
        emit(place, pick_waiting_branch(random, loop, copy, polled));
        emit(place, {K24_BE, place + 12, ZERO, ZERO});
        emit(place, {K24_CP, copy, polled});
        emit(place, {K24_RET, back});
        return;
    } else if (shape != 2 || one_in(random, 2)) {
        emit(place, {K24_CP, copy, polled});
        maybe_filler();
    }
    if (shape == 2) { // for ever
        emit(place, pick_branch(random, one_in(random, 4) ? place : loop, ZERO, ZERO));
        return;
    }
    if (shape == 3) { // some of its bits, or how far it is
        left = pick_variable(random);
        const bool masks = one_in(random, 2);
        emit(place, {masks ? K24_AND : K24_SUB, left, copy, masks ? pick_data(random) : START_TIME});
        maybe_filler();
    } else if (shape == 4) { // for either of two
        polled = port(pick_from(random, POLLED).response);
        emit(place, {K24_BNE, loop + 4 * pick(random, 4, 8), copy, one_in(random, 2) ? ZERO : START_TIME});
        emit(place, {K24_CP, copy, polled});
    }
    emit(place, pick_waiting_branch(random, loop, left, polled));
}

// What the devices need that answer only after some set-up, or only to a user with a file.
void set_up_devices(random_t& random, int32_t& place) {
    const int32_t corner = pick_variable(random);
    for (const auto& [offset, value] : {std::pair{0x65, corner}, {0x66, corner}, {0x62, ONE}, {0xc5, ONE}}) {
        emit(place, {K24_CP, port(offset), value});
    }
    emit(place, {K24_CP, port(0xa0), ZERO});                                // connects the serial port
    machine.memory[corner] = pick(random, 0, one_in(random, 2) ? 250 : 12); // a long or a short time
    if (one_in(random, 3)) {
        machine.sd_command = 1;
        machine.sd_response_instr = machine.instr_count + static_cast<uint64_t>(pick(random, 0, 8000));
    }
}

// Loops that wait for a device, for time, for the user, or for ever, one after the other.
program_t make_waiting(random_t& random) {
    fill_data(random);
    const int32_t code = pick_base(random);
    int32_t place = code;
    if (one_in(random, 2)) {
        set_up_devices(random, place);
    }
    const int32_t again = place;
    for (int loops = pick(random, 1, 3); loops > 0; --loops) {
        const auto [response, command] = pick_from(random, POLLED);
        emit(place, {K24_CP, START_TIME, TIMER});
        if (!one_in(random, 6)) {
            emit(place, {K24_CP, port(command), ONE});
        }
        emit_loop(random, place, port(response));
        emit(place, {K24_CP, port(command), ZERO});
    }
    emit(place, {K24_ADD, COUNT, COUNT, ONE});
    if (!one_in(random, 8)) {
        emit(place, {K24_BE, again, ZERO, ZERO});
    }
    return finish(random, code, place);
}

// Something that fits a word of an instruction, so that the program lives on.
int32_t pick_patch(random_t& random, int32_t code, int32_t instructions, int32_t word) {
    const int32_t offset = (word - code) % WORDS_PER_INSTRUCTION;
    const bool branches = word >= offset && machine.memory[word - offset] >= K24_BE;
    if (one_in(random, 60)) {
        return pick(random, -1, K24_RET + 1);
    }
    if (offset == 0) {
        return branches ? pick(random, K24_BE, K24_BLT) : pick(random, K24_ADD, K24_NOT);
    }
    return offset == 1 && branches ? code + 4 * pick(random, 0, instructions - 1) : pick_data(random);
}

// A small loop that rewrites its own words again and again.
program_t make_patching(random_t& random) {
    fill_data(random);
    const int32_t code = pick_base(random);
    const int32_t instructions = std::min(pick(random, 2, 12), (MEMORY_SIZE - code) / 4);
    int32_t place = code;
    std::array<int32_t, 12> alternated; // the word that each instruction changes to and fro, or -1
    alternated.fill(-1);
    for (int32_t i = 0; i < instructions; ++i) {
        const int32_t offset = one_in(random, 3) ? 0 : pick(random, 1, 3);
        const int32_t word = one_in(random, 60) ? code + pick(random, -1, 4 * instructions)
                                                : code + 4 * pick(random, 0, instructions - 1) + offset;
        const int32_t value = pick_variable(random);
        const int32_t shape = word < 0 || word >= MEMORY_SIZE ? 11 : pick(random, 0, 11);
        instruction_t instruction = pick_ordinary(random, one_in(random, 40) ? word : value);
        if (shape <= 2) { // word = sum - word
            alternated[static_cast<size_t>(i)] = word;
            instruction = {K24_SUB, word, DATA + DATA_WORDS + i, word};
        } else if (shape == 3 && offset != 0) { // walks over the data, as programs without arrays do
            instruction = {K24_ADD, word, word, ONE};
        } else if (shape <= 5) {
            instruction = shape == 4 ? instruction_t{K24_CP, word, value}
                                     : instruction_t{K24_CPTA, value, word - 1, ONE};
            machine.memory[value] = pick_patch(random, code, instructions, word);
        } else if (shape == 6 && one_in(random, 2)) { // also over its own operands
            instruction = {K24_CALL, place + 4, one_in(random, 2) ? place + pick(random, 1, 3) : word};
        } else if (shape == 8 || (shape == 7 && one_in(random, 4))) { // some to overlapping instructions
            const int32_t target = shape == 7 ? word : code + 4 * pick(random, 0, instructions);
            const auto [left, right] = std::array{pick_data(random), pick_data(random)};
            instruction = pick_branch(random, target, left, right);
        }
        emit(place, instruction);
    }
    for (int32_t i = 0; i < instructions; ++i) {
        if (const int32_t word = alternated[static_cast<size_t>(i)]; word >= 0) {
            machine.memory[DATA + DATA_WORDS + i] =
                machine.memory[word] + pick_patch(random, code, instructions, word);
        }
    }
    emit(place, {K24_BE, code, ONE, ONE});
    program_t program = finish(random, code, place);
    program.words += instructions;
    return program;
}

// The last instruction of the memory is stored into many times, and then entered in its middle.
program_t make_top(random_t& random, int32_t code) {
    constexpr int32_t last = MEMORY_SIZE - WORDS_PER_INSTRUCTION;
    int32_t top = last;
    emit(top, {K24_BE, code, ZERO, ZERO});
    machine.memory[FIRST_FREE] = ZERO;
    machine.memory[FIRST_FREE + 1] = pick(random, 2, 20);
    int32_t place = code;
    emit(place, {K24_CP, last + pick(random, 2, 3), FIRST_FREE});
    emit(place, {K24_ADD, COUNT, COUNT, ONE});
    emit(place, {K24_BLT, last, COUNT, FIRST_FREE + 1});
    emit(place, {K24_BE, last + pick(random, 1, 3), ZERO, ZERO});
    return finish(random, code, place);
}

// Operands and values on which an instruction fails, or just does not.
program_t make_edges(random_t& random) {
    fill_data(random);
    const int32_t code = pick_base(random);
    if (one_in(random, 20)) {
        return make_top(random, code);
    }
    int32_t place = code;
    const auto operand = [&] { return one_in(random, 3) ? pick_wild(random) : pick_data(random); };
    for (int32_t i = pick(random, 2, 12); i > 0; --i) {
        const int32_t address = one_in(random, 2) ? pick_wild(random) : pick_readable(random);
        const int32_t target = one_in(random, 4) ? operand() : place + 4;
        const auto [left, right] = std::array{operand(), pick_data(random)};
        const instruction_t edges[] = {
            // a value that must not be read when nothing is left of it
            {pick(random, K24_SL, K24_SR), pick_data(random), operand(), pick_data(random)},
            {K24_DIV, operand(), pick_data(random), pick_data(random)},
            {pick(random, K24_CPFA, K24_CPTA), pick_data(random), address, pick_data(random)},
            pick_branch(random, target, left, right),
            {pick(random, K24_ADD, K24_RET), operand(), operand(), operand()}};
        emit(place, pick_from(random, edges));
    }
    emit(place, {K24_BE, code, ONE, ONE});
    return finish(random, code, place);
}

struct device_t {
    int32_t command; // offsets; the response is the next, the others follow
    int32_t last;
};

constexpr device_t DEVICES[] = {{0x10, 0x14}, {0x20, 0x23}, {0x30, 0x35}, {0x40, 0x42}, {0x50, 0x52},
                                {0x60, 0x68}, {0x70, 0x76}, {0x80, 0x85}, {0x90, 0x92}, {0xa0, 0xa2},
                                {0xb0, 0xb5}, {0xc0, 0xc5}, {0xd0, 0xd3}, {0xe0, 0xe4}};

bool is_written(int32_t address) {
    const port_t& known = io_port(address);
    return known.parameter.field != nullptr || known.write != nullptr || known.take != nullptr;
}

// In the right direction, mostly, and by all kinds of instructions.
void emit_access(random_t& random, int32_t& place, int32_t address) {
    const bool computes = one_in(random, 3);
    const int32_t variable = pick_variable(random);
    if (is_written(address) != one_in(random, 50)) {
        emit(place, computes ? pick_ordinary(random, address) : instruction_t{K24_CP, address, variable});
    } else if (!computes) {
        emit(place, {K24_CP, variable, address});
    } else if (one_in(random, 2)) {
        emit(place, pick_branch(random, place + WORDS_PER_INSTRUCTION, pick_data(random), address));
    } else {
        const bool left = one_in(random, 2);
        emit(place, {pick(random, K24_ADD, K24_MULT), variable, left ? address : ONE, left ? ONE : address});
    }
}

void emit_handshake(random_t& random, int32_t& place, const device_t& device) {
    const int32_t response = port(device.command + 1);
    const auto emit_all = [&](bool written) {
        for (int32_t address = response + 1; address <= port(device.last); ++address) {
            if (is_written(address) == written && !one_in(random, 4)) {
                emit_access(random, place, address);
            }
        }
    };
    const auto maybe_anything = [&] {
        if (one_in(random, 12)) {
            emit_access(random, place, port(pick(random, device.command, device.last)));
        }
    };
    maybe_anything();
    emit_all(true);
    if (!one_in(random, 12)) {
        emit(place, {K24_CP, port(device.command), ONE});
    }
    maybe_anything();
    if (one_in(random, 3)) {
        emit(place, {K24_BNE, place, response, ONE});
    }
    int32_t guard = place;
    place += one_in(random, 12) ? 0 : WORDS_PER_INSTRUCTION; // or too early, perhaps
    const bool guarded = place != guard;
    emit_all(false);
    if (guarded) {
        emit(guard, {K24_BNE, place, response, ONE});
    }
    maybe_anything();
    if (!one_in(random, 12)) {
        emit(place, {K24_CP, port(device.command), ZERO});
    }
}

// Devices in use: whole handshakes, and some in a wrong order or with a step left out.
program_t make_ports(random_t& random) {
    fill_data(random);
    std::generate_n(machine.memory + FIRST_FREE, 40, [&] { return pick(random, 0, 300); });
    for (const int32_t value :
         {pick(random, INT32_MIN, INT32_MAX), pick(random, 32766, 32769), pick(random, -32770, -32767)}) {
        machine.memory[pick_variable(random)] = value;
    }
    io_ps2_press('a');
    io_mouse_press(0);
    io_mouse_motion(pick(random, 0, 600), 3);
    for (int samples = pick(random, 0, 3); samples > 0; --samples) {
        machine.microphone_samples.push_back(pick_wild(random));
    }
    machine.microphone_sample_avail = one_in(random, 2);
    const int32_t code = 4 * pick(random, 0, 3);
    int32_t place = code;
    for (int handshakes = pick(random, 1, 4); handshakes > 0; --handshakes) {
        const device_t device = pick_from(random, DEVICES);
        for (int times = pick(random, 1, 3); times > 0; --times) {
            emit_handshake(random, place, device);
        }
    }
    emit(place, {K24_BE, code, ZERO, ZERO});
    return finish(random, code, place);
}

} // namespace

int32_t pick(random_t& random, int32_t lowest, int32_t highest) {
    const uint64_t numbers = static_cast<uint64_t>(int64_t{highest} - lowest + 1);
    return static_cast<int32_t>(lowest +
                                static_cast<int64_t>((noise_at(random.place++) >> 32) * numbers >> 32));
}

bool one_in(random_t& random, int32_t chances) { return pick(random, 1, chances) == 1; }

int32_t pick_wild(random_t& random) {
    constexpr int32_t edges[] = {0, 1, 31, 32, INT32_MAX};
    constexpr int32_t ports[] = {0, 5, 6, 0xf0, 0xf1, 0x100, 0x103, 0x104};
    switch (pick(random, 0, 9)) {
    case 0:
        return pick(random, INT32_MIN, INT32_MAX);
    case 1:
        return INT32_MIN + (one_in(random, 3) ? pick_from(random, ports) : pick(random, 0, 0x110));
    case 2:
        return one_in(random, 2) ? pick_from(random, edges) : pick(random, MEMORY_SIZE - 5, MEMORY_SIZE + 1);
    default:
        return pick(random, one_in(random, 40) ? -1 : 0, MEMORY_SIZE - 1);
    }
}

const program_kind_t PROGRAM_KINDS[6] = {{"wild", 5, make_wild},        {"tame", 25, make_tame},
                                         {"waiting", 30, make_waiting}, {"patching", 20, make_patching},
                                         {"edges", 10, make_edges},     {"ports", 10, make_ports}};
