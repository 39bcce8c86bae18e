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
    int32_t value;
};

struct waves_t {
    stream_t file;
    std::vector<wave_t> waves;                        // in the order of their offsets
    std::vector<std::pair<int32_t, int32_t>> touched; // by the instruction that comes: devices' offsets
    bool all_touched = false;
    uint64_t next_response = UINT64_MAX; // when a busy device answers
    uint64_t written_time = 0;           // instruction count of the last time mark
};

waves_t waves;

bool is_shown(const board_register_t& one) {
    return one.kind == register_e::COMMAND || one.kind == register_e::RESPONSE ||
           one.offset == SPEAKER_SAMPLE || (one.kind == register_e::PLAIN && one.name != "timer");
}

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

void write_value(const wave_t& wave) {
    std::string line;
    if (wave.bits == 1) {
        line = (wave.value & 1) != 0 ? "1" : "0";
    } else {
        line = "b";
        for (int32_t bit = wave.bits - 1; bit >= 0; --bit) {
            line += (static_cast<uint32_t>(wave.value) >> bit & 1) != 0 ? '1' : '0';
        }
        line += " ";
    }
    append_to_stream(waves.file, line + wave.identifier + "\n");
}

void write_time(uint64_t count) {
    append_to_stream(waves.file, "#" + std::to_string(count * NS_PER_INSTRUCTION) + "\n");
    waves.written_time = count;
}

void note_between(int32_t first, int32_t last) {
    auto wave = std::ranges::lower_bound(waves.waves, first, {}, &wave_t::offset);
    for (; wave != waves.waves.end() && wave->offset <= last; ++wave) {
        const int32_t value = value_of(*wave);
        if (value == wave->value) {
            continue;
        }
        if (waves.written_time != machine.instr_count) {
            write_time(machine.instr_count);
        }
        wave->value = value;
        write_value(*wave);
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
    if (device != nullptr) {
        waves.touched.emplace_back(device->first, device->last);
    }
}

void write_head() {
    std::string head = "$timescale 1 ns $end\n$scope module k24 $end\n";
    for (const device_t& device : board_devices()) {
        std::string variables;
        for (const board_register_t& one : device.registers) {
            if (is_shown(one)) {
                const wave_t& wave = waves.waves.emplace_back(wave_t{
                    one.offset, bits_of(one), identifier(static_cast<int32_t>(waves.waves.size())), 0});
                variables += "$var wire " + std::to_string(wave.bits) + " " + wave.identifier + " " +
                             plain_name(one.name) + " $end\n";
            }
        }
        if (!variables.empty()) {
            head += "$scope module " + plain_name(device.name) + " $end\n" + variables + "$upscope $end\n";
        }
    }
    append_to_stream(waves.file, head + "$upscope $end\n$enddefinitions $end\n");
}

} // namespace

void begin_waves(stream_t file) {
    waves = {};
    waves.file = std::move(file);
    if (!waves_on()) {
        return;
    }
    begin_stream(waves.file);
    write_head();
    write_time(machine.instr_count);
    append_to_stream(waves.file, "$dumpvars\n");
    for (wave_t& wave : waves.waves) {
        wave.value = value_of(wave);
        write_value(wave);
    }
    append_to_stream(waves.file, "$end\n");
}

bool waves_on() { return waves.file.descriptor >= 0; }

// An operand that is not used costs a look, and no more.
void prepare_waves() {
    waves.touched.clear();
    if (!whole_in_memory(machine.pc)) {
        waves.all_touched = true;
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
            waves.all_touched = true;
        }
    }
}

void note_waves() {
    // Speaker and microphone go on with each tick.
    if (waves.all_touched || machine.instr_count % INSTRUCTIONS_PER_TICK == 0 ||
        machine.instr_count >= waves.next_response) {
        waves.all_touched = false;
        note_between(0, IO_SLOTS);
        find_next_response();
        return;
    }
    for (const auto& [first, last] : waves.touched) {
        note_between(first, last);
    }
    if (!waves.touched.empty()) {
        find_next_response();
    }
}

void note_user() { waves.all_touched = true; }

bool write_waves() {
    flush_stream(waves.file);
    return waves.file.error == 0;
}

bool end_waves() {
    if (!waves_on()) {
        return true;
    }
    if (waves.written_time != machine.instr_count) {
        write_time(machine.instr_count);
    }
    return close_stream(waves.file);
}
