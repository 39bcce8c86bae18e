// The entry of tovik-page: writes the page for browsers with a program and an assignment in it.

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <new>
#include <string>
#include <system_error>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "base/files.h"
#include "base/machine.h"
#include "base/saved_file.h"
#include "base/text.h"
#include "language/characters.h"
#include "tools/page.h"

namespace {

namespace fs = std::filesystem;

constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;

struct options_t {
    wish_t wish;
    std::string output;
};

std::string check_program(const std::string& name) {
    return name.ends_with(".k") ? "" : "'" + name + "' does not end in .k";
}

std::string check_output(const std::string& name) {
    return name.ends_with(".k") ? "'" + name + "' is the name of a source" : "";
}

std::string check_name(const std::string& name) {
    if (name.find_first_not_of(WHITE_SPACE) == std::string::npos) {
        return "'" + name + "' is no name";
    }
    return count_characters(name) > LONGEST_NAME ? "the name has more than 80 characters" : "";
}

options_t parse_options(int argc, char** argv) {
    options_t options;
    CLI::App app("Writes the page with which a browser opens tovik with a program and an assignment in it.",
                 "tovik-page");
    app.add_option("--program", options.wish.program, "program.k; what it includes comes along")
        ->check(CLI::Validator(check_program, ""));
    app.add_option("--text", options.wish.text, "the assignment, a file in Markdown");
    app.add_option("--name", options.wish.name,
                   "of the program in the page; its file name without .k by default")
        ->check(CLI::Validator(check_name, ""));
    app.add_option("--page", options.wish.page, "the page as it was built; the installed one by default");
    app.add_option("-o,--output", options.output, "the file to write; - for standard output")
        ->check(CLI::Validator(check_output, ""));
    app.set_version_flag("--version", std::string("tovik-page ") + TOVIK_VERSION);
    try {
        app.parse(argc, argv);
        for (const char* const name : {"--program", "--output"}) {
            if (app.count(name) == 0) {
                throw CLI::RequiredError(name);
            }
        }
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            std::exit(app.exit(error));
        }
        std::cerr << "tovik-page: " << error.what() << "\nRun with --help for the options.\n";
        std::exit(EXIT_USAGE);
    }
    return options;
}

// The page beside the installed program, or beside the folder in which both are built.
std::string built_page() {
    const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
    for (const char* const place : {"../share/tovik/tovik.html", "../web/tovik.html"}) {
        const fs::path page = (folder / place).lexically_normal();
        if (fs::exists(page)) {
            return page.string();
        }
    }
    throw tovik_error("tovik.html is not installed; --page names the file");
}

// Throws where the output would take the place of what it is made of.
void check_replaced(const std::string& output, const made_page_t& made) {
    const auto same = std::find_if(made.read.begin(), made.read.end(), [&](const std::string& name) {
        std::error_code none;
        return fs::equivalent(name, output, none);
    });
    if (same != made.read.end()) {
        throw tovik_error(output + " is " + *same + ", which is read");
    }
}

void write_page(options_t options) {
    if (options.wish.page.empty()) {
        options.wish.page = built_page();
    }
    const made_page_t made = make_page(options.wish);
    if (options.output == "-") {
        if (const int error = write_all(STDOUT_FILENO, made.text); error != 0) {
            throw tovik_error(cant_write_text("standard output", error));
        }
        return;
    }
    check_replaced(options.output, made);
    saved_file_t file(options.output);
    file.write(made.text);
    file.close();
}

int fail(const std::string& message) {
    std::cerr << "tovik-page: " << message << "\n";
    return EXIT_FAILED;
}

} // namespace

int main(int argc, char** argv) {
    hold_standard_streams();
    std::signal(SIGXFSZ, SIG_IGN); // a file that may not be that large is an error, and nothing of it stays
    try {
        write_page(parse_options(argc, argv));
        return EXIT_SUCCESS;
    } catch (const tovik_error& error) {
        return fail(error.message);
    } catch (const std::bad_alloc&) {
        return fail("out of memory");
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}
