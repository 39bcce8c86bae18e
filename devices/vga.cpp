// Video memory of 1024x1024 colours of 15 bits; the top left 640x480 are visible. A command fills a rectangle
// or reads one pixel.
//
//   offset  register     access  bits   meaning
//   0x60    command      write   0      0 to 1 starts the command
//   0x61    response     read    0      1 when the command has completed
//   0x62    write        write   0      1 fills a rectangle, 0 reads the pixel (x1, y1)
//   0x63    x1           write   9..0   left
//   0x64    y1           write   9..0   top
//   0x65    x2           write   9..0   right, inclusive
//   0x66    y2           write   9..0   bottom, inclusive
//   0x67    color_write  write   14..0  colour of the rectangle
//   0x68    color_read   read    15..0  the pixel that was read
//
// A rectangle is busy for area / 7 instructions: about seven pixels are written in the time of an
// instruction. A read is not busy. Not modelled: the scan of the picture, during which a real screen tears.

#include "devices/vga.h"

#include <algorithm>
#include <span>
#include <string>

#include "base/gui.h"
#include "base/machine.h"
#include "base/noise.h"
#include "devices/io.h"
#include "devices/save.h"

namespace {

constexpr int32_t COMMAND = 0x60;
constexpr int32_t RESPONSE = 0x61;

constexpr int32_t PIXELS_PER_INSTRUCTION = 7;

void fill_rectangle() {
    const int32_t x1 = machine.vga_x1;
    const int32_t y1 = machine.vga_y1;
    const int32_t x2 = machine.vga_x2;
    const int32_t y2 = machine.vga_y2;
    if (x1 > x2 || y1 > y2) {
        return;
    }
    const int32_t area = (x2 - x1 + 1) * (y2 - y1 + 1);
    machine.vga_response_instr += static_cast<uint64_t>(area / PIXELS_PER_INSTRUCTION);
    const auto color = static_cast<uint16_t>(machine.vga_color_write);
    touched.picture = true;
    for (int32_t y = y1; y <= y2; ++y) {
        std::fill(machine.vga_ram[y] + x1, machine.vga_ram[y] + x2 + 1, color);
    }
    if (x1 < VGA_WIDTH && y1 < VGA_HEIGHT) {
        vga_box(x1, y1, std::min(x2, VGA_WIDTH - 1), std::min(y2, VGA_HEIGHT - 1), color);
    }
}

// Not inline: the command 0 would save registers for it.
[[gnu::noinline]] void start_command() {
    // A command that comes too early is taken, does nothing, and is answered when the one before completes.
    if (machine.instr_count < machine.vga_response_instr) {
        return;
    }
    machine.vga_response_instr = machine.instr_count;
    if (machine.vga_write == 1) {
        fill_rectangle();
    } else {
        machine.vga_color_read = machine.vga_ram[machine.vga_y1][machine.vga_x1];
    }
}

void write_memory(saved_file_t& file) {
    file.write(bytes_of(std::span<const uint16_t[VGA_RAM_SIZE]>(machine.vga_ram)));
}

} // namespace

int32_t read_vga_response() {
    const bool completed = machine.vga_command == 1 && machine.instr_count >= machine.vga_response_instr;
    machine.vga_response = completed ? 1 : 0;
    return machine.vga_response;
}

void write_vga_command(int32_t data) {
    const int32_t command = data & 1;
    if (machine.vga_command == 0 && command == 1) {
        start_command();
    }
    machine.vga_command = command;
    if (command == 0) {
        machine.vga_response = 0;
    }
}

uint64_t vga_steady_until() { return until_completion(machine.vga_response_instr); }

int32_t io_vga(bool write, int32_t address, int32_t data) {
    const int32_t offset = io_offset(address);
    if (write && offset == COMMAND) {
        write_vga_command(data);
        return 0;
    }
    if (!write && offset == RESPONSE) {
        return read_vga_response();
    }
    io_unsupported(address);
}

void reset_vga() {
    machine.vga_command = 0;
    machine.vga_response = 0;
    machine.vga_write = 0;
    machine.vga_x1 = 0;
    machine.vga_y1 = 0;
    machine.vga_x2 = 0;
    machine.vga_y2 = 0;
    machine.vga_color_write = 0;
    machine.vga_color_read = 0;
    machine.vga_response_instr = 0;
}

void clear_vga() {
    touched.picture = true;
    uint64_t place = 0;
    for (auto& row : machine.vga_ram) {
        for (uint16_t& word : row) {
            word = static_cast<uint16_t>(noise_at(place++));
        }
    }
    vga_refresh(0, 0, VGA_WIDTH, VGA_HEIGHT);
}

void save_vga() {
    save_chosen({"Choose VGA .dat file", "data file", "dat", is_dat, write_memory}, machine.vga_filename);
}
