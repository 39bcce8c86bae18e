// The entry of tovik-dap: the debug adapter on standard input and output.

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "base/files.h"
#include "base/messages.h"
#include "debugger/adapter.h"
#include "devices/audio.h"
#include "host/clock.h"
#include "language/lsp_stream.h"

namespace {

constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;

constexpr size_t BUFFER_SIZE = 64 * 1024;
constexpr int FOREVER = -1;
constexpr int HOST_WAIT_MS = 10;

struct input_t {
    lsp_stream_t stream;
    std::deque<std::string> messages;
    bool ended = false;
};

void parse_options(int argc, char** argv) {
    CLI::App app("The debug adapter for K24 programs, for editors: they start it and talk to it on its "
                 "standard input and output.",
                 "tovik-dap");
    app.set_version_flag("--version", std::string("tovik-dap ") + TOVIK_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            std::exit(app.exit(error));
        }
        std::cerr << "tovik-dap: " << error.what() << "\nRun with --help for the options.\n";
        std::exit(EXIT_USAGE);
    }
}

// Takes what comes within so many milliseconds.
void receive(input_t& input, int most_ms) {
    pollfd standard_input = {.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
    if (input.ended || poll(&standard_input, 1, most_ms) <= 0) {
        return;
    }
    std::vector<char> buffer(BUFFER_SIZE);
    const ssize_t count = read_some(STDIN_FILENO, buffer.data(), buffer.size());
    if (count <= 0) {
        input.ended = true;
        return;
    }
    take_bytes(input.stream, {buffer.data(), static_cast<size_t>(count)});
    while (std::optional<std::string> message = next_message(input.stream)) {
        input.messages.push_back(std::move(*message));
    }
}

// Returns whether they could be sent.
bool send(const std::vector<std::string>& messages) {
    for (const std::string& message : messages) {
        if (write_all(STDOUT_FILENO, framed(message)) != 0) {
            return false;
        }
    }
    return true;
}

// Until the client disconnects, or is gone.
int serve() {
    input_t input;
    adapter_t adapter;
    adapter.version = TOVIK_VERSION;
    for (;;) {
        while (!input.messages.empty() && !adapter.over) {
            const std::string message = std::move(input.messages.front());
            input.messages.pop_front();
            if (!send(adapter_take(adapter, message))) {
                return EXIT_FAILED;
            }
        }
        if (adapter.over) {
            return EXIT_SUCCESS;
        }
        // What had come by the end is still carried out.
        if (input.ended && !adapter_is_on_its_way(adapter)) {
            return EXIT_FAILED;
        }
        adapter.gone = input.ended;
        const adapter_pass_t pass = adapter_run(adapter, stopwatch_us());
        if (!send(pass.messages)) {
            return EXIT_FAILED;
        }
        if (!adapter.over) {
            receive(input, pass.wait != nullptr ? 0 : pass.next_ms.value_or(FOREVER));
        }
        if (pass.wait != nullptr && input.messages.empty()) {
            pass.wait(HOST_WAIT_MS);
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    hold_standard_streams();
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    // Standard output is the client's.
    sound_log = &std::cerr;
    graphical_display = true;
    try {
        parse_options(argc, argv);
        return serve();
    } catch (const std::exception& error) {
        std::cerr << "tovik-dap: " << error.what() << "\n";
        return EXIT_FAILED;
    }
}
