#include "ui/gui_batch/options.h"

#include <algorithm>
#include <cstddef>
#include <limits>

#include <CLI/CLI.hpp>

#include "base/text.h"
#include "devices/ledswitchtimer.h"
#include "ui/gui_batch/usage.h"

namespace {

constexpr const char* HINT = "\nRun with --help for the options.";

constexpr std::ptrdiff_t LONGEST_SERIAL_NAME = 20; // as the window's dialog has it

constexpr int64_t HIGHEST_COUNT = std::numeric_limits<int64_t>::max();
constexpr int64_t HIGHEST_SWITCHES = (1 << SWITCHES) - 1;

// A check for CLI11: an empty text is its "fine".
CLI::Validator number_check(int64_t lowest, int64_t highest) {
    const std::string range = std::to_string(lowest) + " to " + std::to_string(highest);
    return {[=](const std::string& text) {
                return parse_number(text, lowest, highest) ? ""
                                                           : "'" + text + "' is not a number from " + range;
            },
            ""};
}

CLI::Validator ending_check(const std::string& ending) {
    return {[=](const std::string& text) {
                return text.ends_with(ending) ? "" : "'" + text + "' does not end in " + ending;
            },
            ""};
}

// Counts the characters of UTF-8 by their first bytes.
CLI::Validator length_check(std::ptrdiff_t most) {
    return {[=](const std::string& text) {
                const auto begins = [](char byte) { return (byte & 0xc0) != 0x80; };
                return std::count_if(text.begin(), text.end(), begins) <= most
                           ? ""
                           : "'" + text + "' has more than " + std::to_string(most) + " characters";
            },
            ""};
}

// FORMAT[:FILE]
CLI::Validator report_check() {
    return {[](const std::string& text) {
                const std::string format = text.substr(0, text.find(':'));
                if (format != "text" && format != "json" && format != "none") {
                    return "'" + format + "' is none of text, json and none";
                }
                if (format == "none" && text != format) {
                    return "'" + text + "': no report goes to no file";
                }
                return text.ends_with(':') ? "'" + text + "' names no file" : std::string();
            },
            ""};
}

// The library's value for a flag that is given none is "true".
CLI::Validator checks_check() {
    return {[](const std::string& text) {
                return text == "true" || text == "error" ? "" : "'" + text + "' is not error";
            },
            ""};
}

// The library calls the value of an unknown option a program; the option is what is wrong.
void check_arguments(const std::string& program, const std::vector<std::string>& unexpected) {
    const auto is_option = [](const std::string& argument) { return argument.starts_with('-'); };
    const auto option = std::find_if(unexpected.begin(), unexpected.end(), is_option);
    if (option != unexpected.end()) {
        throw usage_error_t{"unknown option " + *option + HINT};
    }
    if (program.empty()) {
        throw usage_error_t{std::string("PROGRAM is missing") + HINT};
    }
    if (!program.ends_with(".k") && !program.ends_with(".mif")) {
        throw usage_error_t{"'" + program + "' ends neither in .k nor in .mif"};
    }
    if (!unexpected.empty()) {
        throw usage_error_t{"unexpected argument '" + unexpected.front() + "'"};
    }
}

} // namespace

std::optional<options_t> parse_options(int argc, char** argv) {
    options_t options;
    std::string limit;
    std::string switches = "0";
    std::string seed = "1";
    std::string report;

    CLI::App app("Runs a K24 program on the simulated board, without a window.", "tovik-run");
    app.add_option("PROGRAM", options.program, "program.k (assembled first) or program.mif");
    app.add_flag("--assemble", options.assemble_only, "assemble only");
    app.add_option("--limit", limit, "stop after so many instructions")
        ->check(number_check(1, HIGHEST_COUNT));
    app.add_option("--break", options.breakpoint, "stop before the instruction at an address or label");
    app.add_option("--watch", options.watchpoint, "stop after a write to an address or label");
    app.add_option("--switches", switches, "the slide switches at the start")
        ->check(number_check(0, HIGHEST_SWITCHES));
    app.add_option("--set", options.set,
                   "WHERE=VALUE[,VALUE...]: words of memory at the start; may be repeated")
        ->allow_extra_args(false);
    app.add_option("--script", options.script_file, "timed input events");
    app.add_option("--png", options.png_file, "a picture of the screen at the end");
    app.add_option("--save-vga", options.vga_file, "FILE.dat: the video memory at the end")
        ->check(ending_check(".dat"));
    app.add_option("--save-sdram", options.sdram_file, "FILE.dat: the SDRAM at the end")
        ->check(ending_check(".dat"));
    app.add_option("--save-speaker", options.speaker_file, "FILE.wav: what the speaker played")
        ->check(ending_check(".wav"));
    app.add_option("--save-serial", options.serial_file, "what the program sends to the serial console");
    app.add_option("--events", options.events_file,
                   "what the board shows, sends and plays, as lines of JSON");
    app.add_option("--vcd", options.vcd_file, "what the used devices do, as a value change dump");
    app.add_flag("--live-sound", options.live_sound, "play and record through the host's sound server");
    app.add_option("--camera", options.camera_files,
                   "a kmovie file for the camera; given again, the next one")
        ->allow_extra_args(false);
    app.add_flag("--live-camera", options.live_camera, "take pictures with the host's camera");
    app.add_option("--mic", options.mic_files, "a WAV file for the microphone; given again, the next one")
        ->allow_extra_args(false);
    app.add_option("--serial", options.serial_names,
                   "where the serial port leads: a device, a name for the relay, or nothing for the console")
        ->allow_extra_args(false)
        ->check(length_check(LONGEST_SERIAL_NAME));
    app.add_flag("--console", options.console, "the serial console is standard input and output");
    app.add_option("--sd", options.sd_files, "the SD card; given again, the next one")
        ->allow_extra_args(false);
    app.add_option("--seed", seed, "seed of the noise in the memories at the start")
        ->check(number_check(0, HIGHEST_COUNT));
    app.add_option("--memory", options.memory, "FIRST-LAST: words for the report; may be repeated")
        ->allow_extra_args(false);
    app.add_option("--report", report, "text, json or none; with :FILE into a file")->check(report_check());
    app.add_flag("--checks", options.checks,
                 "say what the program does that it should not; with =error stop there")
        ->check(checks_check());
    app.add_option("--profile", options.profile_file,
                   "how often each line is executed; for lcov if the name ends in .info");
    app.add_flag("--trace", options.trace, "print every instruction and memory write");
    app.allow_extras();
    app.set_version_flag("--version", std::string("tovik-run ") + TOVIK_VERSION);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            app.exit(error);
            return std::nullopt;
        }
        throw usage_error_t{error.what() + std::string(HINT)};
    }

    // The library keeps the mark behind which nothing is an option.
    std::vector<std::string> unexpected = app.remaining();
    std::erase(unexpected, "--");
    check_arguments(options.program, unexpected);
    if (!limit.empty()) {
        options.limit = parse_number(limit, 1, HIGHEST_COUNT);
    }
    options.switches = static_cast<int32_t>(*parse_number(switches, 0, HIGHEST_SWITCHES));
    options.seed = static_cast<uint64_t>(*parse_number(seed, 0, HIGHEST_COUNT));
    if (report.empty()) {
        report = options.console ? "none" : "text";
    }
    const size_t colon = report.find(':');
    options.report_format = report.substr(0, colon);
    if (colon != std::string::npos) {
        options.report_file = report.substr(colon + 1);
    }
    return options;
}
