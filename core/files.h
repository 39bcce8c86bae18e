#pragma once

// What every module that writes a file of the user's needs.

#include <string>
#include <string_view>

// The system's text for an errno, at most 100 characters.
std::string system_error_text(int error);

// "can't open file NAME: REASON" and "Can't write file NAME: REASON", for an errno.
std::string cant_open_text(const std::string& name, int error);
std::string cant_write_text(const std::string& name, int error);

// Opens a file for writing, created or truncated. Returns its descriptor, or -1 with errno set; a pipe that
// nobody reads is such an error, where waiting for a reader would stop the window.
[[nodiscard]] int create_file(const std::string& name);

// A file that is saved: created or truncated, written in as many parts as one likes, and closed. Each of them
// throws tovik_error, "Can't open file NAME: REASON" or "Can't write file NAME: REASON". A regular file that
// is not closed in the end, since it was not written whole, is removed.
class saved_file_t {
  public:
    explicit saved_file_t(std::string name);
    saved_file_t(const saved_file_t&) = delete;
    saved_file_t& operator=(const saved_file_t&) = delete;
    ~saved_file_t();
    void write(std::string_view data);
    void close();

  private:
    std::string name_;
    int descriptor_;
    bool remove_; // unless it is closed
};

// Makes sure that the three standard streams are open. A caller may have closed some, and a file opened later
// must not become one of them by its number. Writing to what stands in for a closed one fails, as it should.
void hold_standard_streams();

// The permissions of a new file, before the user's mask.
constexpr int NEW_FILE_MODE = 0666;

// Writes all of the data to a descriptor. Returns 0, or the errno of the failure.
[[nodiscard]] int write_all(int descriptor, std::string_view data);
