#pragma once

// The tables of a TOML file, read key by key: what is wrong is collected, and keys that nobody reads are too.

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#define TOML_HEADER_ONLY 0 // the definitions are in the library
#include <toml++/toml.h>

struct fault_t {
    toml::source_position at;
    std::string text; // with its place, "task.toml:3:9: limit is to be a number from 1 to 100"
};

struct settings_file_t {
    std::string name;
    std::string text; // all of it
    toml::table root;
    std::vector<fault_t> faults;
};

// Throws tovik_error when the file cannot be read or is no TOML.
settings_file_t read_settings(const std::string& file_name);

// In the order of the file, one line each; where there are several, their number before them.
std::string faults_text(const settings_file_t& file);

// One table. The file must outlive it.
struct settings_t {
    settings_file_t* file;
    const toml::table* table;
    std::string path;                // "case.input", empty for the root
    std::set<std::string_view> read; // keys that somebody knows
};

settings_t root_of(settings_file_t& file);

void add_fault(settings_file_t& file, const toml::node& at, const std::string& text);
void add_fault(const settings_t& settings, const std::string& text);

// The file's line in which a text has its first one, if it stands in several: it may begin below its quotes.
std::optional<int> first_line_of(const settings_file_t& file, const toml::node& text);

// "task.toml:3:9: "
std::string place_of(const settings_file_t& file, const toml::node& at);

// The node of a key; nullptr when it is not there.
const toml::node* find(settings_t& settings, std::string_view key);

// The value of a key; nothing when it is not there, or is a fault.
std::optional<std::string> read_text(settings_t& settings, std::string_view key);
std::optional<bool> read_flag(settings_t& settings, std::string_view key);
std::optional<int64_t> read_integer(settings_t& settings, std::string_view key, int64_t lowest,
                                    int64_t highest);
std::optional<double> read_real(settings_t& settings, std::string_view key, double lowest, double highest);

// One or an array of them.
std::vector<std::string> read_texts(settings_t& settings, std::string_view key);
std::vector<int64_t> read_integers(settings_t& settings, std::string_view key, int64_t lowest,
                                   int64_t highest);
std::optional<settings_t> read_table(settings_t& settings, std::string_view key);
std::vector<settings_t> read_tables(settings_t& settings, std::string_view key);

// Each key that nobody has read is a fault.
void end_settings(const settings_t& settings);
