#pragma once

// The two files that the assembler writes: the memory image ".mif" and the label list ".labels".

#include <cstdint>
#include <string>
#include <string_view>

// A file to be written. What it will hold is collected and goes to the file in one piece, when the file is
// closed or the record dies, so that also an assembly that fails leaves what it had made so far.
class output_file_t {
  public:
    // Creates or truncates the file. Throws tovik_error "can't open file NAME: REASON".
    explicit output_file_t(std::string name);
    ~output_file_t();
    output_file_t(const output_file_t&) = delete;
    output_file_t& operator=(const output_file_t&) = delete;

    // Writes and closes the file. Throws tovik_error "Can't write file NAME: REASON" unless all of it is
    // written.
    void close();

    std::string text;

  private:
    [[nodiscard]] int write_out();

    std::string name_;
    int descriptor_;
};

void print_header(output_file_t& image);

// One word. Throws tovik_error "address N out of range" for addresses of 16384 and above; the address is
// never negative.
void print_machine_line(output_file_t& image, int32_t address, int32_t data);

void print_trailer(output_file_t& image);

void print_label_line(output_file_t& list, std::string_view label, int32_t address);
