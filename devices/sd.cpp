// SD card: a file of the user's, asked for at the first command. The device holds one block of 128 words; an
// access to another block writes the old one back, if the program wrote to it, and loads the new one.
//
//   offset  register    access  bits   meaning
//   0x80    command     write   0      0 to 1 starts the access
//   0x81    response    read    0      1 when the access has completed
//   0x82    write       write   31..0  0 reads the word, anything else writes it
//   0x83    address     write   29..0  of the word
//   0x84    data_write  write   31..0  the word to write
//   0x85    data_read   read    31..0  the word that was read
//
// The card is busy for the time that a real card takes for a block: 3333 instructions to load one, 4666 to
// write one back. An access to the block in the buffer is not busy.
//
// The file holds the words one after the other, low byte first, and nothing else. It grows by whole blocks
// when one beyond its end is written back. A read is checked against the file, not against the buffer: a word
// written beyond the end can be read once its block has been written back.
//
// Not modelled: the command protocol of a card, and that its size is fixed.

#include "devices/sd.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <span>
#include <string>

#include "base/files.h"
#include "base/gui.h"
#include "base/machine.h"
#include "base/noise.h"
#include "devices/io.h"
#include "host/storage.h"

namespace {

constexpr int32_t COMMAND = 0x80;
constexpr int32_t RESPONSE = 0x81;

constexpr int32_t BLOCK_WORDS = std::size(decltype(machine.sd_buffer){});
constexpr int32_t NO_BLOCK = -1;

constexpr uint64_t LOAD_INSTRUCTIONS = 3333;
constexpr uint64_t WRITE_BACK_INSTRUCTIONS = 4666;

// The buffer's places of noise, apart from those of the memories.
constexpr uint64_t NOISE_PLACE = uint64_t{2} << 32;

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__); // the buffer has the bytes of the file

void open_file() {
    if (!gui_choosefile(false, SD_QUESTION, "SD card file", "", machine.sd_filename)) {
        throw tovik_error("user cancelled SD card operation");
    }
    const int64_t size = storage_open(storage_e::CARD, machine.sd_filename);
    if (size >= 0) {
        machine.sd_file_open = true;
        machine.sd_filesize = size;
        // A block from before has nothing of this file, and must not be written over it.
        machine.sd_buffer_valid = false;
        machine.sd_buffer_dirty = false;
        return;
    }
    const std::string reason = system_error_text(static_cast<int>(-size));
    gui_message("Can't open file " + machine.sd_filename + ": " + reason, true);
}

int64_t byte_offset(int64_t word_address) { return word_address * int64_t{sizeof(int32_t)}; }

void write_back() {
    const int64_t offset = byte_offset(machine.sd_buffer_address);
    const std::span<const char> bytes(reinterpret_cast<const char*>(machine.sd_buffer),
                                      sizeof machine.sd_buffer);
    if (const int error = storage_write(storage_e::CARD, bytes, offset); error != 0) {
        throw tovik_error("Can't write SD card file " + machine.sd_filename + ": " +
                          system_error_text(error));
    }
    machine.sd_filesize = std::max(machine.sd_filesize, offset + int64_t{sizeof machine.sd_buffer});
}

// What lies beyond the end of the file is 0.
void load(int32_t first_word) {
    const int64_t offset = byte_offset(first_word);
    std::array<int32_t, BLOCK_WORDS> block{};
    const int64_t count = std::clamp<int64_t>(machine.sd_filesize - offset, 0, sizeof block);
    if (machine.sd_file_open) {
        const std::span<char> bytes(reinterpret_cast<char*>(block.data()), static_cast<size_t>(count));
        const int64_t there = storage_read(storage_e::CARD, bytes, offset);
        if (there < count) {
            const int error = there < 0 ? static_cast<int>(-there) : EIO; // somebody has cut the file off
            throw tovik_error("Can't read SD card file " + machine.sd_filename + ": " +
                              system_error_text(error));
        }
    }
    std::copy(block.begin(), block.end(), machine.sd_buffer);
    machine.sd_buffer_address = first_word;
}

bool is_in_buffer(int32_t address) {
    return machine.sd_buffer_valid && machine.sd_buffer_address == address - address % BLOCK_WORDS;
}

bool is_in_file(int32_t address) {
    return machine.sd_file_open && byte_offset(int64_t{address} + 1) <= machine.sd_filesize;
}

// Brings the block of the address into the buffer. A block that could not be written back or replaced stays
// there as it is, and no time has passed.
void change_block(int32_t address) {
    if (is_in_buffer(address)) {
        return;
    }
    if (machine.sd_buffer_dirty) {
        write_back();
    }
    load(address - address % BLOCK_WORDS);
    machine.sd_response_instr += LOAD_INSTRUCTIONS + (machine.sd_buffer_dirty ? WRITE_BACK_INSTRUCTIONS : 0);
    machine.sd_buffer_valid = true;
    machine.sd_buffer_dirty = false;
}

void carry_out() {
    const int32_t address = machine.sd_address;
    int32_t& word = machine.sd_buffer[address % BLOCK_WORDS];
    if (machine.sd_write != 0) {
        word = machine.sd_data_write;
        machine.sd_buffer_dirty = true;
    } else if (is_in_file(address)) {
        machine.sd_data_read = word;
    } else {
        throw tovik_error("Tried to read beyond the end of SD card file (address " + std::to_string(address) +
                          ")");
    }
}

bool starts_access(int32_t command) { return machine.sd_command == 0 && command == 1; }

void write_command(int32_t command) {
    if (starts_access(command)) {
        // A command that comes too early is not taken at all.
        if (machine.instr_count < machine.sd_response_instr) {
            return;
        }
        if (!machine.sd_file_open) {
            open_file();
        }
        machine.sd_response_instr = machine.instr_count;
        change_block(machine.sd_address);
        carry_out();
    }
    machine.sd_command = command;
    if (command == 0) {
        machine.sd_response = 0;
    }
}

} // namespace

bool take_sd_command(int32_t data) {
    const int32_t command = data & 1;
    const bool needs_file = starts_access(command) && machine.instr_count >= machine.sd_response_instr &&
                            !(is_in_buffer(machine.sd_address) && is_in_file(machine.sd_address));
    if (!needs_file) {
        write_command(command);
    }
    return !needs_file;
}

int32_t read_sd_response() {
    const bool completed = machine.sd_command == 1 && machine.instr_count >= machine.sd_response_instr;
    machine.sd_response = completed ? 1 : 0;
    return machine.sd_response;
}

uint64_t sd_steady_until() { return until_completion(machine.sd_response_instr); }

int32_t io_sd(bool write, int32_t address, int32_t data) {
    const int32_t offset = io_offset(address);
    if (write && offset == COMMAND) {
        write_command(data & 1);
        return 0;
    }
    if (!write && offset == RESPONSE) {
        return read_sd_response();
    }
    io_unsupported(address);
}

void reset_sd() {
    machine.sd_command = 0;
    machine.sd_response = 0;
    machine.sd_address = 0;
    machine.sd_data_read = 0;
    machine.sd_response_instr = 0;
    uint64_t place = NOISE_PLACE;
    for (int32_t& word : machine.sd_buffer) {
        word = static_cast<int32_t>(noise_at(place++));
    }
    machine.sd_buffer_valid = false;
    machine.sd_buffer_dirty = false;
    machine.sd_buffer_address = NO_BLOCK;
    machine.sd_file_open = false;
    storage_close(storage_e::CARD);
}
