#pragma once

// The server of the virtual serial cable: what its files share.

#include <cstddef>
#include <cstdint>
#include <string>

enum class log_level_e { ERROR, WARNING, INFO, DEBUG };

struct relay_options_t {
    std::string address = "0.0.0.0";
    uint16_t port = 10000; // 0: any that is free
    size_t clients = 10000;
    size_t clients_per_address = 500; // a class behind one router is one address
    uint32_t name_bytes = 80;         // the simulator's 20 characters, of 4 bytes at most
    int handshake_seconds = 10;
    int farewell_seconds = 60;
    log_level_e log_level = log_level_e::INFO;
};

// Serves until SIGTERM or SIGINT. Throws what the standard library throws when it cannot listen or go on.
void run_relay(const relay_options_t& options);

// One line on standard error: time, level, text. Nothing for what is less grave than `log_limit`.
extern log_level_e log_limit;
void log_line(log_level_e level, const std::string& text);
