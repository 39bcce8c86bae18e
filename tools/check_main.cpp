// The entry of tovik-check: looks at programs without running them, and says what is wrong or doubtful.

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "base/files.h"
#include "language/codes.h"
#include "language/output.h"
#include "language/warnings.h"

namespace {

constexpr int EXIT_FAULTS = 1;
constexpr int EXIT_USAGE = 2; // called wrongly, or a program cannot be read
constexpr int EXIT_NOT_WRITTEN = 2;

struct options_t {
    std::vector<std::string> programs;
    std::string format = "text";
    std::string warnings = "all";
    std::string explained;
    bool as_errors = false;
};

// "none", "all" or the codes of warnings.
std::string check_codes(const std::string& list) {
    if (list == "none" || list == "all") {
        return "";
    }
    for (const std::string& name : CLI::detail::split(list, ',')) {
        const code_info_t* const info = find_code(name);
        if (info == nullptr || info->severity != severity_e::WARNING) {
            return "'" + name + "' is no code of a warning";
        }
    }
    return "";
}

std::string check_explained(const std::string& name) {
    return name == "all" || find_code(name) != nullptr ? "" : "'" + name + "' is no code";
}

std::string check_name(const std::string& name) {
    return name.ends_with(".k") ? "" : "'" + name + "' does not end in .k";
}

options_t parse_options(int argc, char** argv) {
    options_t options;
    CLI::App app("Looks at K24 programs without running them: all faults, and what is hardly ever meant.",
                 "tovik-check");
    app.add_option("PROGRAM", options.programs,
                   "program.k; a file that others include is looked at with them")
        ->check(CLI::Validator(check_name, ""));
    app.add_option("--format", options.format, "text (the default), json or sarif")
        ->check(CLI::IsMember({"text", "json", "sarif"}).description(""));
    app.add_option("--warnings", options.warnings,
                   "all (the default), none, or codes with commas between them")
        ->check(CLI::Validator(check_codes, ""));
    app.add_flag("--as-errors", options.as_errors, "exit with 1 for warnings, too");
    app.add_option("--explain", options.explained, "what a code means, with an example, or all codes")
        ->check(CLI::Validator(check_explained, ""));
    app.set_version_flag("--version", std::string("tovik-check ") + TOVIK_VERSION);
    try {
        app.parse(argc, argv);
        if (options.programs.empty() && options.explained.empty()) {
            throw CLI::RequiredError("PROGRAM");
        }
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            std::exit(app.exit(error));
        }
        std::cerr << "tovik-check: " << error.what() << "\nRun with --help for the options.\n";
        std::exit(EXIT_USAGE);
    }
    return options;
}

bool terminal_has_colors() {
    const char* const no_color = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return (no_color == nullptr || *no_color == '\0') && isatty(STDOUT_FILENO) != 0 && terminal != nullptr &&
           std::string_view(terminal) != "dumb";
}

analysis_t look_at(const options_t& options, const std::string& name) {
    analysis_t analysis = analyse(name);
    const std::vector<std::string> codes = CLI::detail::split(options.warnings, ',');
    add_warnings(analysis, [&](std::string_view code) {
        return options.warnings == "all" || std::find(codes.begin(), codes.end(), code) != codes.end();
    });
    return analysis;
}

// Says so when the program itself cannot be read, and that it has been said.
bool is_unreadable(const analysis_t& program) {
    const source_file_t& file = program.map.files.front();
    if (file.error != 0) {
        std::cerr << "tovik-check: " << cant_open_text(file.name, file.error) << "\n";
    }
    return file.error != 0;
}

void explain(const std::string& code) {
    for (const code_info_t& info : all_codes()) {
        if (code == "all" || code == info.code) {
            std::cout << (info.code == all_codes().front().code || code != "all" ? "" : "\n")
                      << explanation(info);
        }
    }
}

void print(const options_t& options, const std::vector<analysis_t>& programs) {
    if (options.format == "json") {
        std::cout << to_json(programs);
    } else if (options.format == "sarif") {
        std::cout << to_sarif(programs, TOVIK_VERSION);
    } else {
        const bool color = terminal_has_colors();
        for (const analysis_t& program : programs) {
            std::cout << to_text(program, color);
        }
    }
    std::cout.flush();
}

int check(const options_t& options) {
    explain(options.explained);
    std::vector<analysis_t> programs;
    int status = EXIT_SUCCESS;
    for (const std::string& name : options.programs) {
        analysis_t program = look_at(options, name);
        if (is_unreadable(program)) {
            status = EXIT_USAGE;
            continue;
        }
        const auto [faults, warnings] = count_diagnostics(program.diagnostics);
        if (faults > 0 || (options.as_errors && warnings > 0)) {
            status = std::max(status, EXIT_FAULTS);
        }
        // What is said of it needs its texts alone; there may be thousands of programs.
        program.map.words = {};
        program.map.statements = {};
        programs.push_back(std::move(program));
    }
    print(options, programs);
    if (!std::cout) {
        std::cerr << "tovik-check: can't write to standard output\n";
        return EXIT_NOT_WRITTEN;
    }
    return status;
}

} // namespace

int main(int argc, char** argv) {
    hold_standard_streams();
    try {
        return check(parse_options(argc, argv));
    } catch (const std::bad_alloc&) {
        std::cerr << "tovik-check: out of memory\n";
        return EXIT_USAGE;
    }
}
