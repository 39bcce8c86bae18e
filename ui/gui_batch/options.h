#pragma once

// The command line of tovik-run.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct options_t {
    std::string program; // ends in ".k" or ".mif"
    bool assemble_only = false;
    bool trace = false;
    std::string checks; // "true", "error" where the first finding stops the run, or empty for none
    std::optional<int64_t> limit;
    int32_t switches = 0;
    std::vector<std::string> set; // "WHERE=VALUE,...": words of memory, before the run
    uint64_t seed = 1;
    std::optional<std::string> breakpoint; // an address or a label
    std::optional<std::string> watchpoint;
    std::vector<std::string> memory; // words for the report, as they were given
    std::optional<std::string> script_file;
    std::optional<std::string> png_file;
    std::optional<std::string> vga_file;     // ends in ".dat"
    std::optional<std::string> sdram_file;   // ends in ".dat"
    std::optional<std::string> speaker_file; // ends in ".wav"
    std::vector<std::string> sd_files;       // the cards put in, one after the other
    std::vector<std::string> mic_files;      // the recordings that the microphone plays, likewise
    std::vector<std::string> camera_files;   // the movies that the camera plays, likewise
    std::optional<std::string> serial_file;
    std::optional<std::string> profile_file;
    std::optional<std::string> events_file;
    std::optional<uint64_t> display_events; // the file has at most so many, and only of displays and lamps
    std::optional<std::string> vcd_file;
    bool live_sound = false;
    bool live_camera = false;
    std::vector<std::string> serial_names; // the answers to the serial port's questions
    bool console = false;
    std::string report_format = "text";
    std::optional<std::string> report_file; // standard output otherwise
    bool report_is_kept = false;            // for `run_report`, and not written
    bool runs_again = true;                 // to find out who wrote what has failed
};

// Reads the command line. Nothing after --help and --version, which it answers itself. Throws usage_error_t
// for a wrong one.
std::optional<options_t> parse_options(int argc, char** argv);
