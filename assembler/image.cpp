#include "assembler/image.h"

#include <cassert>
#include <cerrno>
#include <charconv>
#include <utility>

#include <unistd.h>

#include "core/files.h"
#include "core/machine.h"

namespace {

void append_number(std::string& text, int64_t value, int base = 10) {
    char digits[20];
    text.append(digits, std::to_chars(digits, digits + sizeof digits, value, base).ptr);
}

} // namespace

output_file_t::output_file_t(std::string name) : name_(std::move(name)), descriptor_(create_file(name_)) {
    if (descriptor_ < 0) {
        throw tovik_error(cant_open_text(name_, errno));
    }
}

output_file_t::~output_file_t() {
    // Here only after a fault, which has its own report.
    if (descriptor_ >= 0) {
        static_cast<void>(write_out());
    }
}

int output_file_t::write_out() {
    const int error = write_all(descriptor_, text);
    const bool closed = ::close(std::exchange(descriptor_, -1)) == 0;
    return error == 0 && !closed ? errno : error;
}

void output_file_t::close() {
    if (const int error = write_out(); error != 0) {
        throw tovik_error(cant_write_text(name_, error));
    }
}

void print_header(output_file_t& image) {
    image.text += "DEPTH = " + std::to_string(MEMORY_SIZE) + ";\r\n";
    image.text += "WIDTH = " + std::to_string(DATA_BITS) + ";\r\n";
    image.text += "ADDRESS_RADIX = DEC;\r\n"
                  "DATA_RADIX = DEC;\r\n"
                  "CONTENT\r\n"
                  "BEGIN\r\n";
}

void print_machine_line(output_file_t& image, int32_t address, int32_t data) {
    assert(address >= 0);
    if (address >= MEMORY_SIZE) {
        throw tovik_error("address " + std::to_string(address) + " out of range");
    }
    image.text += '\t';
    append_number(image.text, address);
    image.text += "\t:\t";
    append_number(image.text, data);
    image.text += ";\r\n";
}

void print_trailer(output_file_t& image) {
    // The line that holds one blank is part of the format.
    image.text += "END;\r\n \r\n\r\n";
}

void print_label_line(output_file_t& list, std::string_view label, int32_t address) {
    list.text += label;
    list.text += '\t';
    append_number(list.text, address);
    list.text += "\t(0x";
    append_number(list.text, static_cast<uint32_t>(address), 16);
    list.text += ")\n";
}
