#pragma once

// A file of the user's that is saved: the old one stays until the new one is there whole.

#include <string>
#include <string_view>

#include <sys/stat.h>

// What is written goes to a new file ".NAME.XXXXXX" in the same folder, with owner, group and mode of the old
// one, and that takes the name at the end. A name that is a link stands for what the link leads to. Where a
// new file is not possible (the folder or the owner does not allow it, the file has more than one link), and
// for what is no regular file, the file itself is truncated and written.
//
// A file that is not closed in the end leaves the old one as it was and nothing of the new one; a new file is
// also removed when the process exits or SIGTERM, SIGINT or SIGHUP ends it. Only a file that is written
// itself is lost then, and removed if it is a regular one.
class saved_file_t {
  public:
    // Opens the file. Throws tovik_error: REFUSAL, the name, ": " and the system's reason.
    explicit saved_file_t(std::string name, std::string_view refusal = "Can't open file ");
    saved_file_t(const saved_file_t&) = delete;
    saved_file_t& operator=(const saved_file_t&) = delete;
    ~saved_file_t();

    // Each throws tovik_error "Can't write file NAME: REASON", also when the disk has no room for a new file.
    void write(std::string_view data); // may be called several times
    void finish();                     // all is written
    void take_name();                  // after `finish`
    void close() {
        finish();
        take_name();
    }

    // Whether the file itself is written. To be asked before `take_name`.
    [[nodiscard]] bool in_place() const { return new_name_.empty(); }

  private:
    void open_new();
    void copy_into_place();
    void prepare();
    [[nodiscard]] int truncate();
    void remove_new();
    void forget_new();
    void remove_itself();
    void give_up();
    [[noreturn]] void fail(int error);

    std::string name_;
    std::string target_;   // what the name leads to, links followed; empty where that is no name of a file
    std::string new_name_; // empty when the file itself is written
    int old_ = -1;         // descriptor of the file itself, -1 while only the new one is written
    int new_ = -1;         // descriptor of the new one
    int no_room_ = 0;      // the errno that kept the system from making one
    struct stat found_ {}; // the file itself, as it was when it was opened or truncated
    bool truncated_ = false;
    bool disposable_ = false; // nothing is lost with the file itself: it was empty, or has been truncated
};

// Both take their names, and no signal ends the process in between. Throws what `take_name` throws.
void take_names(saved_file_t& first, saved_file_t& second);

// Removes the new files that have not taken their names. For a handler of a signal that ends the process.
void remove_new_files();
