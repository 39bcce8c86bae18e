#include "ui/gui_batch/waves.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <utility>
#include <vector>

#include "base/arithmetic.h"
#include "base/machine.h"
#include "core/instructions.h"
#include "debugger/ports.h"
#include "devices/io.h"
#include "devices/registers.h"

namespace {

constexpr int32_t SPEAKER_SAMPLE = 0x42; // that which is played, not that which is written
constexpr int32_t HIGHEST_IDENTIFIER = '~' - '!';

struct wave_t {
    int32_t offset;
    int32_t bits;
    std::string identifier;
    int32_t first_value; // at the start
    int32_t value;
};

// A device is shown from the start of the file when the program uses it at last. So the head of the file is
// written anew each time, into room that is kept for all devices; where that is not possible, all are shown.
struct group_t {
    const device_t* device;
    bool is_shown;
    std::vector<wave_t> waves; // in the order of their offsets
};

struct waves_t {
    stream_t file;
    std::vector<group_t> groups;
    size_t room = 0;               // of the head
    std::vector<group_t*> touched; // by the instruction that comes
    bool unknown_touched = false;
    bool all_due = false;                // the user has done something
    uint64_t next_response = UINT64_MAX; // when a busy device answers
    uint64_t written_time = 0;           // instruction count of the last time mark
};

waves_t waves;

// The timer would change with every tick.
bool is_wave(const board_register_t& one) { return one.kind != register_e::PLAIN || one.name != "timer"; }

// "17-0" or "0"
int32_t bits_of(const board_register_t& one) {
    const size_t dash = one.bits.find('-');
    return dash == std::string_view::npos ? 1 : std::stoi(std::string(one.bits.substr(0, dash))) + 1;
}

std::string identifier(int32_t number) {
    std::string text;
    do {
        text += static_cast<char>('!' + number % HIGHEST_IDENTIFIER);
        number /= HIGHEST_IDENTIFIER;
    } while (number > 0);
    return text;
}

// A name without blanks and signs.
std::string plain_name(std::string_view name) {
    std::string text;
    for (const char c : name) {
        const bool is_plain = std::isalnum(static_cast<unsigned char>(c)) != 0;
        if (is_plain || !text.ends_with('_')) {
            text += is_plain ? c : '_';
        }
    }
    return text;
}

int32_t value_of(const wave_t& wave) {
    return wave.offset == SPEAKER_SAMPLE ? machine.speaker_current_sample
                                         : peek_register(wave.offset).value_or(0);
}

std::string value_text(const wave_t& wave, int32_t value) {
    std::string text;
    if (wave.bits == 1) {
        text = (value & 1) != 0 ? "1" : "0";
    } else {
        text = "b";
        for (int32_t bit = wave.bits - 1; bit >= 0; --bit) {
            text += (static_cast<uint32_t>(value) >> bit & 1) != 0 ? '1' : '0';
        }
        text += " ";
    }
    return text + wave.identifier + "\n";
}

std::string time_text(uint64_t count) { return "#" + std::to_string(count * NS_PER_INSTRUCTION) + "\n"; }

// Up to the values at the start.
std::string head() {
    std::string names = "$timescale 1 ns $end\n$scope module k24 $end\n";
    std::string values = time_text(0) + "$dumpvars\n";
    for (const group_t& group : waves.groups) {
        if (!group.is_shown) {
            continue;
        }
        names += "$scope module " + plain_name(group.device->name) + " $end\n";
        for (const wave_t& wave : group.waves) {
            names += "$var wire " + std::to_string(wave.bits) + " " + wave.identifier + " " +
                     plain_name(find_register(wave.offset)->name) + " $end\n";
            values += value_text(wave, wave.first_value);
        }
        names += "$upscope $end\n";
    }
    return names + "$upscope $end\n$enddefinitions $end\n" + values + "$end\n";
}

void write_head() {
    std::string text = head();
    text.insert(text.size() - 1, waves.room - text.size(), ' ');
    rewrite_beginning(waves.file, text);
}

void write_time() {
    if (std::exchange(waves.written_time, machine.instr_count) != machine.instr_count) {
        append_to_stream(waves.file, time_text(machine.instr_count));
    }
}

void show(group_t& group) {
    if (!std::exchange(group.is_shown, true)) {
        write_head();
    }
}

void note(group_t& group) {
    for (wave_t& wave : group.waves) {
        const int32_t value = value_of(wave);
        if (std::exchange(wave.value, value) != value) {
            show(group);
            write_time();
            append_to_stream(waves.file, value_text(wave, value));
        }
    }
}

void find_next_response() {
    waves.next_response = UINT64_MAX;
    for (const uint64_t count :
         {machine.vga_response_instr, machine.sd_response_instr, machine.serial_send_response_instr,
          machine.fft_response_instr, machine.camera_response_instr}) {
        if (count > machine.instr_count) {
            waves.next_response = std::min(waves.next_response, count);
        }
    }
}

void touch(int32_t address) {
    const device_t* const device = address < 0 ? find_device(io_offset(address)) : nullptr;
    const auto group = std::find_if(waves.groups.begin(), waves.groups.end(),
                                    [&](const group_t& one) { return one.device == device; });
    if (group != waves.groups.end()) {
        show(*group);
        waves.touched.push_back(&*group);
    }
}

void make_groups() {
    int32_t number = 0;
    for (const device_t& device : board_devices()) {
        group_t group = {.device = &device, .is_shown = true, .waves = {}};
        for (const board_register_t& one : device.registers) {
            if (is_wave(one)) {
                wave_t wave = {one.offset, bits_of(one), identifier(number++), 0, 0};
                wave.first_value = wave.value = value_of(wave);
                group.waves.push_back(std::move(wave));
            }
        }
        if (!group.waves.empty()) {
            waves.groups.push_back(std::move(group));
        }
    }
}

} // namespace

void begin_waves(stream_t file) {
    waves = {};
    waves.file = std::move(file);
    if (!waves_on()) {
        return;
    }
    begin_stream(waves.file);
    make_groups();
    const std::string text = head();
    append_to_stream(waves.file, text);
    flush_stream(waves.file);
    if (has_beginning(waves.file)) {
        waves.room = text.size();
        for (group_t& group : waves.groups) {
            group.is_shown = group.device == find_device(0); // lamps and displays
        }
        write_head();
    }
}

bool waves_on() { return waves.file.descriptor >= 0; }

// An operand that is not used costs a look, and no more.
void prepare_waves() {
    waves.touched.clear();
    if (!whole_in_memory(machine.pc)) {
        waves.unknown_touched = true;
        return;
    }
    const words_t words = words_at(machine.pc);
    touch(words.arg1);
    touch(words.arg2);
    touch(words.arg3);
    if (words.opcode == K24_CPFA || words.opcode == K24_CPTA) {
        if (in_memory(words.arg3)) {
            touch(wrap_add(words.arg2, machine.memory[words.arg3]));
        } else {
            waves.unknown_touched = true;
        }
    }
}

void note_waves() {
    // Speaker and microphone go on with each tick.
    const bool all_due = std::exchange(waves.all_due, false) ||
                         machine.instr_count % INSTRUCTIONS_PER_TICK == 0 ||
                         machine.instr_count >= waves.next_response;
    const bool unknown_touched = std::exchange(waves.unknown_touched, false);
    if (!unknown_touched && !all_due && waves.touched.empty()) {
        return;
    }
    for (group_t& group : waves.groups) {
        const bool is_due = unknown_touched || std::find(waves.touched.begin(), waves.touched.end(),
                                                         &group) != waves.touched.end();
        if (is_due || (all_due && group.is_shown)) {
            note(group);
        }
    }
    find_next_response();
}

void note_user() { waves.all_due = true; }

bool write_waves() {
    flush_stream(waves.file);
    return waves.file.error == 0;
}

bool end_waves() {
    if (!waves_on()) {
        return true;
    }
    write_time();
    return close_stream(waves.file);
}
