// The entry of tovik-lsp: the language server on standard input and output.

#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "base/files.h"
#include "language/lsp_stream.h"
#include "language/server.h"

namespace {

constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;

constexpr size_t BUFFER_SIZE = 64 * 1024;

// A workspace may be a home folder: after so many names the rest is not looked at.
constexpr int MOST_NAMES = 20'000;

void parse_options(int argc, char** argv) {
    CLI::App app("The language server for K24 sources, for editors: they start it and talk to it on its "
                 "standard input and output.",
                 "tovik-lsp");
    // Editors may say what is the only way here, and which process they are.
    bool standard = true;
    int process = 0;
    app.add_flag("--stdio", standard, "talk on standard input and output, as it always does");
    app.add_option("--clientProcessId", process, "")->group("");
    app.set_version_flag("--version", std::string("tovik-lsp ") + TOVIK_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            std::exit(app.exit(error));
        }
        std::cerr << "tovik-lsp: " << error.what() << "\nRun with --help for the options.\n";
        std::exit(EXIT_USAGE);
    }
}

// Links to folders are not followed, and hidden folders hold no sources.
std::vector<std::string> list_sources(const std::string& folder) {
    namespace fs = std::filesystem;
    std::vector<std::string> names;
    std::error_code error;
    fs::recursive_directory_iterator at(folder, fs::directory_options::skip_permission_denied, error);
    int count = 0;
    for (; !error && at != fs::recursive_directory_iterator() && count < MOST_NAMES; at.increment(error)) {
        ++count;
        const std::string name = at->path().filename().string();
        std::error_code unknown;
        if (name.starts_with('.') && at->is_directory(unknown)) {
            at.disable_recursion_pending();
        } else if (name.ends_with(".k")) {
            names.push_back(at->path().string());
        }
    }
    return names;
}

// Until the client says that it is over, or is gone.
int serve() {
    server_t server{.read = read_file, .list = list_sources, .version = TOVIK_VERSION};
    lsp_stream_t stream;
    std::vector<char> buffer(BUFFER_SIZE);
    while (!server.exit_status) {
        const ssize_t count = read_some(STDIN_FILENO, buffer.data(), buffer.size());
        if (count <= 0) {
            return server.stage == stage_e::SHUT_DOWN ? 0 : EXIT_FAILED;
        }
        take_bytes(stream, {buffer.data(), static_cast<size_t>(count)});
        while (const std::optional<std::string> message = next_message(stream)) {
            for (const std::string& answer : answer_text(server, *message)) {
                if (write_all(STDOUT_FILENO, framed(answer)) != 0) {
                    return EXIT_FAILED;
                }
            }
            if (server.exit_status) {
                break;
            }
        }
    }
    return *server.exit_status;
}

} // namespace

int main(int argc, char** argv) {
    hold_standard_streams();
    std::signal(SIGPIPE, SIG_IGN);
    try {
        parse_options(argc, argv);
        return serve();
    } catch (const std::exception& error) {
        std::cerr << "tovik-lsp: " << error.what() << "\n";
        return EXIT_FAILED;
    }
}
