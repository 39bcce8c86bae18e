#pragma once

// Source files: opening them and what they include, and splitting their lines.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "assembler/analyse.h"
#include "assembler/source_map.h"

// A file of the disk that stays open as long as it is read, so that a file that includes itself comes to the
// system's limit of open files.
class held_file_t {
  public:
    held_file_t() = default;
    explicit held_file_t(int descriptor) : descriptor_(descriptor) {}
    ~held_file_t();
    held_file_t(held_file_t&& other) noexcept;
    held_file_t& operator=(held_file_t&& other) noexcept;

  private:
    int descriptor_ = -1;
};

// An inclusion that is being read. Small: there can be as many as the system lets be open, a million on some.
struct level_t {
    uint32_t inclusion;
    uint32_t position = 0;   // of the next line in the text
    int32_t line_number = 0; // physical lines read so far
    held_file_t held{};
};

// What is known of a file besides its text.
struct known_file_t {
    uint32_t identity; // the first file with the same path, such as that of lib/../a.k and a.k
    bool opened = false;
    uint32_t inclusion = NOTHING; // its first one
};

// How the files of a program are read.
struct reading_t {
    const read_file_t* read = nullptr; // where the texts come from; null: from the disk, and held open
    std::vector<level_t> open;         // the last one is read now, and included by the one before
    std::vector<known_file_t> known;   // by the index of the file in the map
    std::map<std::string, uint32_t, std::less<>> names; // index of a file by its name
    std::map<std::string, uint32_t, std::less<>> paths; // identity by path
};

enum class opening_e { OPENED, FAILED, CYCLE };

// FAILED and CYCLE leave all as it was, but for the file's record.
struct opening_t {
    opening_e result;
    uint32_t file; // index into the map's files
    int error = 0; // errno of the failure
};

bool pathname_is_absolute(std::string_view name);

// A file's name behind #include in the file that is being read: relative to its folder.
std::string resolve_name(const reading_t& reading, const source_map_t& map, std::string_view name);

// Opens a file and goes on with its first line; the map's last inclusion is that of the file. A cycle is only
// refused where texts are given.
opening_t open_file(reading_t& reading, source_map_t& map, const std::string& name);

// A physical line: its offset in the text, and the line without its line feed.
struct line_t {
    uint32_t begin;
    std::string_view text;
};

// The next line of the file that is being read; none at its end, or where reading it failed.
std::optional<line_t> read_line(level_t& level, const source_file_t& file);

// Offset of a carriage return that is not the last character of the line, or npos.
size_t stray_carriage_return(std::string_view line);

// Splits a line into its tokens; one in the first column is the label. Returns false when it holds only
// blanks and a comment.
bool split_line(const line_t& line, statement_t& statement);

// Takes the next token from a text, beginning at `position`, which moves behind it. Its size is 0 at the end.
span_t take_token(std::string_view text, uint32_t& position);

std::string_view without_comment(std::string_view line);
