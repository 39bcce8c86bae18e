// External memory of 33554432 words, one word an access. Every access finishes at once.
//
//   offset  register    access  bits   meaning
//   0x30    command     write   0      0 to 1 carries out the access
//   0x31    response    read    0      mirrors the command
//   0x32    write       write   0      1 writes the word, 0 reads it
//   0x33    address     write   24..0  of the word
//   0x34    data_write  write   31..0  the word to write
//   0x35    data_read   read    31..0  the word that was read
//
// Not modelled: the real part's refresh, and that it is faster in bursts.

#include "devices/sdram.h"

#include <array>
#include <span>
#include <string>
#include <type_traits>

#include "base/machine.h"
#include "base/noise.h"
#include "devices/io.h"
#include "devices/save.h"

namespace {

constexpr int32_t COMMAND = 0x30;
constexpr int32_t RESPONSE = 0x31;

constexpr size_t WORDS = std::extent_v<decltype(machine.sdram_ram)>;
static_assert(WORDS == 1 << 25); // the bits of the address

// The memory's places of noise, apart from those of the others.
constexpr uint64_t NOISE_PLACE = uint64_t{1} << 32;

// To fill 128 MiB would delay every start, and few programs use much of it. So a page gets its noise when it
// is first touched; nothing but this file reads the array.
constexpr size_t PAGE_WORDS = 1024;
static_assert(decltype(machine.sdram_filled)().size() * PAGE_WORDS == WORDS);

void make_noise(size_t page, std::span<int32_t, PAGE_WORDS> words) {
    uint64_t place = NOISE_PLACE + page * PAGE_WORDS;
    for (int32_t& word : words) {
        word = static_cast<int32_t>(noise_at(place++));
    }
}

std::span<int32_t, PAGE_WORDS> words_of(size_t page) {
    return std::span<int32_t, PAGE_WORDS>(machine.sdram_ram + page * PAGE_WORDS, PAGE_WORDS);
}

void fill_page(size_t page) {
    if (!machine.sdram_filled[page]) {
        make_noise(page, words_of(page));
        machine.sdram_filled[page] = true;
        touched.sdram_pages[page] = true;
    }
}

void carry_out() {
    const auto address = static_cast<size_t>(machine.sdram_address);
    fill_page(address / PAGE_WORDS);
    if (machine.sdram_write == 0) {
        machine.sdram_data_read = machine.sdram_ram[address];
    } else {
        machine.sdram_ram[address] = machine.sdram_data_write;
        touched.sdram_pages[address / PAGE_WORDS] = true;
    }
}

void write_memory(saved_file_t& file) {
    std::array<int32_t, PAGE_WORDS> noise{};
    for (size_t page = 0; page < machine.sdram_filled.size(); ++page) {
        std::span<const int32_t> words = words_of(page);
        if (!machine.sdram_filled[page]) {
            make_noise(page, noise);
            words = noise;
        }
        file.write(bytes_of(words));
    }
}

} // namespace

void write_sdram_command(int32_t data) {
    const int32_t command = data & 1;
    if (machine.sdram_command == 0 && command == 1) {
        carry_out();
    }
    machine.sdram_command = command;
    if (command == 0) {
        machine.sdram_response = 0;
    }
}

int32_t read_sdram_response() {
    machine.sdram_response = machine.sdram_command;
    return machine.sdram_response;
}

int32_t io_sdram(bool write, int32_t address, int32_t data) {
    const int32_t offset = io_offset(address);
    if (write && offset == COMMAND) {
        write_sdram_command(data);
        return 0;
    }
    if (!write && offset == RESPONSE) {
        return read_sdram_response();
    }
    io_unsupported(address);
}

void reset_sdram() {
    machine.sdram_command = 0;
    machine.sdram_response = 0;
    machine.sdram_address = 0;
    machine.sdram_write = 0;
    machine.sdram_data_write = 0;
    machine.sdram_data_read = 0;
}

void clear_sdram() { machine.sdram_filled.reset(); }

void save_sdram() {
    const save_t save = {"Choose SDRAM .dat file", "data file", "dat", is_dat, write_memory};
    while (save_chosen(save, machine.sdram_filename) == saved_e::FAILED) {
    }
}
