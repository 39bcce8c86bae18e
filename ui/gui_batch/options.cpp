#include "ui/gui_batch/options.h"

#include <charconv>
#include <cstdlib>
#include <iostream>
#include <limits>

#include <CLI/CLI.hpp>

#include "devices/ledswitchtimer.h"

namespace {

constexpr int64_t HIGHEST_LIMIT = std::numeric_limits<int64_t>::max();
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

CLI::Validator program_check() {
    return {[](const std::string& name) {
                return name.ends_with(".k") || name.ends_with(".mif")
                           ? ""
                           : "'" + name + "' ends neither in .k nor in .mif";
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
                return text.ends_with(':') ? "'" + text + "' names no file" : std::string();
            },
            ""};
}

// Options of devices that this board does not have yet: known, but refused.
void refuse_options_to_come(CLI::App& app) {
    const auto refuse = [&app](const std::string& name, bool takes_value) {
        const auto refusal = [name](const CLI::results_t& /*values*/) -> bool {
            throw CLI::ValidationError(name, "not available yet");
        };
        app.add_option(name, refusal)->expected(takes_value ? 1 : 0)->group("");
    };
    for (const char* const name : {"--sd", "--mic", "--camera", "--serial", "--png", "--save-vga",
                                   "--save-sdram", "--save-speaker", "--seed"}) {
        refuse(name, true);
    }
    for (const char* const name : {"--console", "--live-sound", "--live-camera"}) {
        refuse(name, false);
    }
}

} // namespace

options_t parse_options(int argc, char** argv) {
    options_t options;
    std::string limit;
    std::string switches = "0";
    std::string report = "text";

    CLI::App app("Runs a K24 program on the simulated board, without a window.", "tovik-run");
    app.add_option("PROGRAM", options.program, "program.k (assembled first) or program.mif")
        ->required()
        ->check(program_check());
    app.add_flag("--assemble", options.assemble_only, "assemble only");
    app.add_option("--limit", limit, "stop after so many instructions")
        ->check(number_check(1, HIGHEST_LIMIT));
    app.add_option("--break", options.breakpoint, "stop before the instruction at an address or label");
    app.add_option("--watch", options.watchpoint, "stop after a write to an address or label");
    app.add_option("--switches", switches, "the slide switches at the start")
        ->check(number_check(0, HIGHEST_SWITCHES));
    app.add_option("--script", options.script_file, "timed input events");
    app.add_option("--memory", options.memory, "FIRST-LAST: words for the report; may be repeated")
        ->allow_extra_args(false);
    app.add_option("--report", report, "text, json or none; with :FILE into a file")->check(report_check());
    app.add_flag("--trace", options.trace, "print every instruction and memory write");
    app.set_version_flag("--version", std::string("tovik-run ") + TOVIK_VERSION);
    refuse_options_to_come(app);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            std::exit(app.exit(error));
        }
        usage_error(std::string(error.what()) + "\nRun with --help for the options.");
    }

    if (!limit.empty()) {
        options.limit = parse_number(limit, 1, HIGHEST_LIMIT);
    }
    options.switches = static_cast<int32_t>(*parse_number(switches, 0, HIGHEST_SWITCHES));
    const size_t colon = report.find(':');
    options.report_format = report.substr(0, colon);
    options.report_file = colon == std::string::npos ? "" : report.substr(colon + 1);
    return options;
}

void usage_error(const std::string& message) {
    std::cerr << "tovik-run: " << message << std::endl;
    std::exit(EXIT_USAGE);
}

std::optional<int64_t> parse_number(std::string_view text, int64_t lowest, int64_t highest) {
    const bool hexadecimal = text.starts_with("0x");
    const std::string_view digits = hexadecimal ? text.substr(2) : text;
    int64_t value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value, hexadecimal ? 16 : 10);
    if (error != std::errc{} || stop != end || value < lowest || value > highest) {
        return std::nullopt;
    }
    return value;
}
