#pragma once

// Source files: opening them and what they include, and splitting their lines.

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// An open file, read line by line. Only the file that is being read needs a buffer: a program that includes
// itself then reaches the system's limit of open files, a million on some systems, in modest memory.
class input_stream_t {
  public:
    // Opens a regular file for reading; error() tells whether that succeeded. Anything else is refused: a
    // source is read twice.
    explicit input_stream_t(const std::string& name);
    ~input_stream_t();
    input_stream_t(const input_stream_t&) = delete;
    input_stream_t& operator=(const input_stream_t&) = delete;

    // The errno of the first failure of opening or reading, 0 for none.
    [[nodiscard]] int error() const { return error_; }

    // Reads up to the next line feed, which is dropped. Returns false, and leaves `line` alone, when nothing
    // is left or reading fails.
    bool read_line(std::string& line);

    // Frees the buffer; the next read_line goes on at the same place of the file.
    void suspend();

  private:
    bool fill();

    std::unique_ptr<char[]> buffer_;
    uint32_t position_ = 0; // of the next character in the buffer
    uint32_t size_ = 0;     // of what the buffer holds
    int descriptor_;
    int error_;
};

struct input_file_t {
    std::string_view name; // the path by which it was opened, includes resolved
    input_stream_t handle;
    int32_t line_number; // physical lines read so far
};

// The files being read: the last one is read now, and included by the one before.
struct file_stack_t {
    std::vector<std::unique_ptr<input_file_t>> open;
    std::set<std::string, std::less<>> names; // of all files ever opened
};

// A line split into its tokens, which are views into it and live until the next line is read.
struct parsed_line_t {
    std::string line; // as read, with comment and carriage return
    std::string_view label;
    std::string_view opcode;
    std::array<std::string_view, 3> operands;
    std::string_view extra; // the token after three operands
};

bool pathname_is_absolute(std::string_view name);

// Opens a file and pushes it. A relative name is relative to the directory of the file on top of the stack.
// Throws tovik_error "can't open file NAME: REASON", with the stack as it was.
void open_file(file_stack_t& files, std::string_view name);

// Reads the next line that holds more than blanks and comments. A token in the first column is the label.
// Returns false at the end of the file, with `parsed` as it was. Throws tovik_error for a carriage return in
// the middle of a line, and for a file that cannot be read on.
bool get_parse_line(input_file_t& file, parsed_line_t& parsed);

// Throws tovik_error "extra characters at end of line" unless the text is empty.
void check_empty(std::string_view text);
