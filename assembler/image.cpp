#include "assembler/image.h"

#include <charconv>
#include <utility>

#include "base/machine.h"

namespace {

void append_number(std::string& text, int64_t value, int base = 10) {
    char digits[20];
    text.append(digits, std::to_chars(digits, digits + sizeof digits, value, base).ptr);
}

} // namespace

output_file_t::output_file_t(std::string name) : file(std::move(name), "can't open file ") {}

void save_together(output_file_t& image, output_file_t* list) {
    const auto write = [](output_file_t& output) {
        output.file.write(output.text);
        output.file.finish();
    };
    // What has no new file loses the old one when it is written, so the other one is safe by then.
    const bool list_first = list != nullptr && image.file.in_place() && !list->file.in_place();
    if (list_first) {
        write(*list);
    }
    write(image);
    if (list != nullptr && !list_first) {
        write(*list);
    }
    if (list != nullptr) {
        take_names(image.file, list->file);
    } else {
        image.file.take_name();
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
