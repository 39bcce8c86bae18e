// Runs random programs and prints a line for each: what it was, how it ended, and a digest of the machine.
// What is built for another processor must print the same. Usage: digests PROGRAMS

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <queue>
#include <type_traits>
#include <vector>

#include "base/machine.h"
#include "core/simulate.h"
#include "devices/sdram.h"
#include "tests/support/gui_recording.h"
#include "tests/support/random_programs.h"
#include "tests/support/record.h"

namespace {

constexpr int STEPS = 200000; // before the host's clock counts
constexpr size_t PAGE_WORDS = 1024;

uint64_t digest; // FNV-1a, of whole words where there are

void add_bytes(const void* bytes, size_t count) {
    const auto* from = static_cast<const uint8_t*>(bytes);
    const size_t step = count % sizeof(uint32_t) == 0 ? sizeof(uint32_t) : 1;
    for (const auto* const end = from + count; from != end; from += step) {
        uint32_t word = 0;
        std::memcpy(&word, from, step);
        digest = (digest ^ word) * 0x100000001b3;
    }
}

void add(const colored_box_t& box) {
    add_bytes(&box.box, sizeof box.box);
    add_bytes(&box.color, sizeof box.color);
}

void add(std::queue<uint8_t> bytes) {
    for (; !bytes.empty(); bytes.pop()) {
        add_bytes(&bytes.front(), 1);
    }
}

void add(const std::vector<bool>& bits) {
    for (const bool bit : bits) {
        add_bytes(&bit, 1);
    }
}

template <typename value_t> void add(const value_t& value) {
    if constexpr (requires { value.begin(); }) {
        for (const auto& element : value) {
            add(element);
        }
    } else {
        static_assert(std::is_trivially_copyable_v<value_t>);
        add_bytes(&value, sizeof value);
    }
}

template <typename... values_t> void add_all(const values_t&... values) { (add(values), ...); }

// All but what the host's clock has said; of the SDRAM, what is filled.
void add_machine() {
    add_all(machine.memory, machine.pc, machine.instr_count, machine.run_start_count, machine.halted,
            machine.modified, machine.sw, machine.led_red, machine.led_green, machine.hex30, machine.hex74,
            machine.lcd_command, machine.lcd_x, machine.lcd_y, machine.lcd_ascii, machine.lcd_ram,
            machine.ps2_command, machine.ps2_response, machine.ps2_event, machine.ps2_events,
            machine.ps2_pressed, machine.sdram_command, machine.sdram_response, machine.sdram_address,
            machine.sdram_write, machine.sdram_data_write, machine.sdram_data_read, machine.speaker_command,
            machine.speaker_sample, machine.speaker_current_sample, machine.speaker_current_sample_played,
            machine.speaker_samples, machine.microphone_command, machine.microphone_response,
            machine.microphone_samples, machine.microphone_sample_avail, machine.vga_command,
            machine.vga_response, machine.vga_write, machine.vga_x1, machine.vga_y1, machine.vga_x2,
            machine.vga_y2, machine.vga_color_write, machine.vga_color_read, machine.vga_ram,
            machine.vga_response_instr, machine.mouse_command, machine.mouse_response, machine.mouse_active,
            machine.mouse_lastx, machine.mouse_lasty, machine.mouse_deltax_private,
            machine.mouse_deltay_private, machine.mouse_button, machine.mouse_available, machine.mouse_deltax,
            machine.mouse_deltay, machine.mouse_button1, machine.mouse_button2, machine.mouse_button3,
            machine.touch_command, machine.touch_response, machine.touch_x_private, machine.touch_y_private,
            machine.touch_x, machine.touch_y, machine.touch_pressed, machine.sd_command, machine.sd_response,
            machine.sd_write, machine.sd_address, machine.sd_data_write, machine.sd_data_read,
            machine.sd_response_instr, machine.sd_buffer, machine.sd_buffer_valid, machine.sd_buffer_dirty,
            machine.sd_buffer_address, machine.serial_receive_command, machine.serial_receive_response,
            machine.serial_receive_data, machine.serial_send_command, machine.serial_send_data,
            machine.serial_send_response, machine.serial_send_response_instr, machine.fft_send_command,
            machine.fft_send_real, machine.fft_send_imaginary, machine.fft_send_end, machine.fft_send_inverse,
            machine.fft_send_inverse_first, machine.fft_receive_command, machine.fft_receive_response,
            machine.fft_receive_real, machine.fft_receive_imaginary, machine.fft_response_instr,
            machine.fft_send, machine.fft_send_count, machine.fft_receive, machine.fft_receive_count,
            machine.camera_command, machine.camera_x, machine.camera_y, machine.camera_scale,
            machine.camera_flip, machine.camera_ram, machine.camera_ram_valid, machine.camera_response_instr,
            machine.loop_look, machine.loop_audio, machine.loop_camera, machine.loop_time,
            machine.loop_throttle, machine.serial_state, machine.speaker_batch, machine.speaker_batch_samples,
            machine.speaker_batch_sent, machine.sdram_filled, machine.vga_last, machine.vga_picture,
            machine.vga_pending, machine.sd_file_open, machine.sd_filesize, machine.camera_file_open,
            machine.camera_file_position, machine.sdram_filename, machine.speaker_filename,
            machine.microphone_filename, machine.vga_filename, machine.sd_filename, machine.camera_filename,
            machine.serial_cable, machine.serial_queue);
    for (size_t page = 0; page < machine.sdram_filled.size(); ++page) {
        if (machine.sdram_filled[page]) {
            add_bytes(machine.sdram_ram + page * PAGE_WORDS, PAGE_WORDS * sizeof(int32_t));
        }
    }
}

void run(const program_kind_t& kind, uint64_t seed) {
    fill_record(0);
    std::memset(machine.vga_ram, 0, sizeof machine.vga_ram);
    clear_sdram();
    simulate_init();
    reset_machine();
    machine.serial_state = WINDOW;
    random_t random{seed << 24}; // no program takes so many numbers
    kind.make(random);
    simulator.step = STEPS;
    run_until_stop(simulate_run);
    digest = 0xcbf29ce484222325;
    add_machine();
    std::printf("%s %" PRIu64 ": %" PRIu64 " instructions, pc %" PRId32 ", %016" PRIx64 "\n", kind.name, seed,
                machine.instr_count, machine.pc, digest);
}

} // namespace

int main(int /*count*/, char** arguments) {
    const uint64_t all = std::strtoull(arguments[1], nullptr, 10);
    for (const program_kind_t& kind : PROGRAM_KINDS) {
        for (uint64_t seed = 0; seed < all * static_cast<uint64_t>(kind.percent) / 100; ++seed) {
            run(kind, seed);
        }
    }
}
