// The entry of tovik-relay: options and limits of the process.

#include "tools/relay.h"

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <limits>
#include <map>
#include <new>
#include <string>

#include <sys/resource.h>

#include <CLI/CLI.hpp>

#include "base/files.h"

namespace {

constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;

// Beside the clients: the standard streams, the listening socket, and what the event loop needs.
constexpr size_t OWN_DESCRIPTORS = 16;

constexpr int MOST_CLIENTS = 1'000'000;
constexpr int MOST_NAME_BYTES = 1'000;
constexpr int MOST_SECONDS = 3'600;

relay_options_t parse_options(int argc, char** argv) {
    relay_options_t options;
    const std::map<std::string, log_level_e> levels{{"error", log_level_e::ERROR},
                                                    {"warning", log_level_e::WARNING},
                                                    {"info", log_level_e::INFO},
                                                    {"debug", log_level_e::DEBUG}};
    const CLI::Range seconds(1, MOST_SECONDS);
    CLI::App app("Pairs simulators by name and passes on what they send: the virtual serial cable.",
                 "tovik-relay");
    app.add_option("--address", options.address, "the address to listen on; all by default")
        ->check(CLI::ValidIPV4);
    app.add_option("--port", options.port, "the port to listen on, 10000 by default; 0: any that is free")
        ->check(CLI::Range(0, int{std::numeric_limits<uint16_t>::max()}));
    app.add_option("--max-clients", options.clients, "connections at a time, 10000 by default")
        ->check(CLI::Range(1, MOST_CLIENTS));
    app.add_option("--max-per-address", options.clients_per_address,
                   "connections at a time from one address, 500 by default")
        ->check(CLI::Range(1, MOST_CLIENTS));
    app.add_option("--max-name", options.name_bytes, "the longest name in bytes, 80 by default")
        ->check(CLI::Range(1, MOST_NAME_BYTES));
    app.add_option("--handshake-timeout", options.handshake_seconds,
                   "seconds until a client has named itself, 10 by default")
        ->check(seconds);
    app.add_option("--farewell-timeout", options.farewell_seconds,
                   "seconds until a client closes after its partner has left, 60 by default")
        ->check(seconds);
    app.add_option("--log-level", options.log_level, "error, warning, info (the default) or debug")
        ->transform(CLI::CheckedTransformer(levels).description(""));
    app.set_version_flag("--version", std::string("tovik-relay ") + TOVIK_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            std::exit(app.exit(error));
        }
        std::cerr << "tovik-relay: " << error.what() << "\nRun with --help for the options.\n";
        std::exit(EXIT_USAGE);
    }
    return options;
}

// As many descriptors as the system lets this process have, and no more clients than that.
void fit_descriptors(relay_options_t& options) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return;
    }
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    getrlimit(RLIMIT_NOFILE, &limit);
    const size_t room = limit.rlim_cur > OWN_DESCRIPTORS ? limit.rlim_cur - OWN_DESCRIPTORS : 1;
    if (options.clients > room) {
        log_line(log_level_e::WARNING, "the limit of open files leaves room for " + std::to_string(room) +
                                           " clients instead of " + std::to_string(options.clients));
        options.clients = room;
    }
}

} // namespace

int main(int argc, char** argv) {
    hold_standard_streams();
    // A log whose reader is gone must not end the relay.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        relay_options_t options = parse_options(argc, argv);
        log_limit = options.log_level;
        fit_descriptors(options);
        run_relay(options);
    } catch (const std::bad_alloc&) {
        std::cerr << "tovik-relay: out of memory\n";
        return EXIT_FAILED;
    } catch (const std::exception& error) {
        std::cerr << "tovik-relay: " << error.what() << "\n";
        return EXIT_FAILED;
    }
    return 0;
}
