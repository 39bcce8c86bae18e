// The server of the virtual serial cable. Two clients that give the same name are a pair, and what the one
// sends the other receives. At the beginning of each connection, integers low byte first:
//
//   bytes  from    content
//   4      server  a random challenge
//   4      client  challenge * challenge + 10714194, wrapping
//   4      client  the length of the name with a zero byte at its end
//          client  the name and the zero byte
//   4      server  0 for the first of a pair; for the second the first one's IPv4 address, in network order
//
// Then only what the partner sends. The first is not told that the second has come; what it has sent before
// waits in its buffer.
//
// One thread, one buffer a client: a client is read only when its buffer is free again, so a partner that
// reads slowly slows it, and memory has a bound. Whoever closes its sending side has left.

#include "tools/relay.h"

#include <array>
#include <bit>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <new>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unordered_map>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <asio.hpp>

#include "base/challenge.h"

namespace {

using asio::ip::tcp;
using std::error_code;

constexpr size_t BUFFER_BYTES = 8192;

// How long new connections wait when the system has no descriptor or no memory for one.
constexpr std::chrono::seconds ACCEPT_PAUSE(1);

// Set on the listening socket, from which every connection has them. The kernel's buffers, which it would let
// grow to megabytes for each; no delay for single bytes; and a client whose host has vanished is noticed
// after four minutes.
struct {
    int level;
    int name;
    int value;
} constexpr SOCKET_OPTIONS[] = {
    {SOL_SOCKET, SO_REUSEADDR, 1}, {SOL_SOCKET, SO_RCVBUF, 32768},   {SOL_SOCKET, SO_SNDBUF, 32768},
    {SOL_SOCKET, SO_KEEPALIVE, 1}, {IPPROTO_TCP, TCP_KEEPIDLE, 120}, {IPPROTO_TCP, TCP_KEEPINTVL, 30},
    {IPPROTO_TCP, TCP_KEEPCNT, 4}, {IPPROTO_TCP, TCP_NODELAY, 1},
};

enum class phase_e {
    HANDSHAKE,
    WAITING, // named, without a partner
    PAIRED,
    LEFT, // the partner has gone: what comes is discarded
    CLOSED
};

struct client_t {
    tcp::socket socket;
    tcp::endpoint peer;
    asio::steady_timer deadline; // in the phases HANDSHAKE and LEFT
    phase_e phase = phase_e::HANDSHAKE;
    uint32_t expected_response = 0;
    std::string name;            // with its zero byte
    client_t* partner = nullptr; // while PAIRED
    bool deaf = false;           // a write to it has failed
    bool awaiting_bytes = false;
    bool sending = false;                  // the buffer's bytes are on their way to the partner
    size_t held = 0;                       // so many bytes of the buffer
    std::array<char, BUFFER_BYTES> buffer; // what it sent and its partner has not received

    client_t(tcp::socket connection, tcp::endpoint from)
        : socket(std::move(connection)), peer(from), deadline(socket.get_executor()) {}
};

// An operation under way holds its clients, too: buffer and socket must live as long.
using client_ptr = std::shared_ptr<client_t>;

struct relay_t {
    relay_options_t options;
    asio::io_context io{1};
    tcp::acceptor acceptor{io};
    tcp::endpoint peer; // of the connection that is being accepted
    asio::steady_timer accept_pause{io};
    asio::posix::stream_descriptor hang_ups{io}; // an epoll set of all who are WAITING or PAIRED
    asio::signal_set signals{io, SIGTERM, SIGINT};
    std::random_device random; // one for all, for it may need a descriptor
    std::unordered_map<client_t*, client_ptr> clients;
    std::unordered_map<uint32_t, size_t> clients_of_address;
    std::unordered_map<std::string, client_t*> names; // whoever is WAITING, or one of the pair
};

// Made by run_relay, whose caller is told what the system refuses.
std::unique_ptr<relay_t> relay;

void start_deadline(const client_ptr& client, int seconds, const char* text);
void move_bytes(const client_ptr& client);

std::array<unsigned char, 4> low_byte_first(uint32_t value) {
    return {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
            static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
}

uint32_t word_at(std::span<const char, 4> bytes) {
    uint32_t value = 0;
    for (size_t i = 0; i < bytes.size(); i++) {
        value |= uint32_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
    }
    return value;
}

std::string place_text(const tcp::endpoint& place) {
    return place.address().to_string() + ":" + std::to_string(place.port());
}

void log_client(log_level_e level, const client_t& client, const std::string& text) {
    if (level <= log_limit) {
        log_line(level, place_text(client.peer) + " " + text);
    }
}

// Names are their users' business: only at level DEBUG. They may hold any byte.
std::string quoted_name(const client_t& client) {
    std::string text = "'";
    for (const char c : client.name.substr(0, client.name.size() - 1)) {
        std::array<char, 8> hexadecimal{};
        std::snprintf(hexadecimal.data(), hexadecimal.size(), "\\x%02x", static_cast<unsigned char>(c));
        text += c >= ' ' && c <= '~' && c != '\'' && c != '\\' ? std::string(1, c) : hexadecimal.data();
    }
    return text + "'";
}

// The end of a connection.

std::string reason_text(error_code error) {
    return error == asio::error::eof ? "it has left" : error.message();
}

// The name may since be another pair's.
void release_name(const client_t& client) {
    const auto entry = relay->names.find(client.name);
    if (entry != relay->names.end() && (entry->second == &client || entry->second == client.partner)) {
        relay->names.erase(entry);
    }
}

void forget_address(const client_t& client) {
    const auto count = relay->clients_of_address.find(client.peer.address().to_v4().to_uint());
    if (--count->second == 0) {
        relay->clients_of_address.erase(count);
    }
}

// Closes the connection; if it has a partner, that one reads the end of the transmission and may go on
// sending for a while: an end it finds when it reads is a reason to connect again, a failure when it sends is
// fatal.
void leave(const client_ptr& client, log_level_e level, const std::string& reason) {
    if (client->phase == phase_e::CLOSED) {
        return;
    }
    log_client(level, *client, "closed: " + reason);
    release_name(*client);
    forget_address(*client);
    client->phase = phase_e::CLOSED;
    client->deadline.cancel();
    error_code ignored;
    client->socket.close(ignored);
    if (client->partner != nullptr) {
        const client_ptr partner = relay->clients.at(client->partner);
        client->partner = nullptr;
        partner->partner = nullptr;
        partner->phase = phase_e::LEFT;
        partner->socket.shutdown(tcp::socket::shutdown_send, ignored);
        start_deadline(partner, relay->options.farewell_seconds, "its partner has left");
        move_bytes(partner);
    }
    relay->clients.erase(client.get());
}

void start_deadline(const client_ptr& client, int seconds, const char* text) {
    client->deadline.expires_after(std::chrono::seconds(seconds));
    // It may have run out just when the phase changed.
    client->deadline.async_wait([client, text, phase = client->phase](error_code error) {
        if (!error && client->phase == phase) {
            leave(client, log_level_e::INFO, text);
        }
    });
}

// The passing of bytes.

// Bytes of its own may still be on the way: it has left when these are read.
void stop_sending_to(client_t& client, error_code error) {
    log_client(log_level_e::INFO, client, "receives nothing more: " + error.message());
    client.deaf = true;
    error_code ignored;
    client.socket.shutdown(tcp::socket::shutdown_both, ignored);
}

void send_held(const client_ptr& client) {
    client->sending = true;
    // A write of which a part is done goes on with the partner's socket, even if the partner has left since.
    const client_ptr partner = relay->clients.at(client->partner);
    asio::async_write(partner->socket, asio::buffer(client->buffer.data(), client->held),
                      [client, partner](error_code error, size_t) {
                          client->sending = false;
                          client->held = 0;
                          if (error && partner->phase != phase_e::CLOSED) {
                              stop_sending_to(*partner, error);
                          }
                          move_bytes(client);
                      });
}

void read_bytes(const client_ptr& client) {
    error_code error;
    const std::span<char> room = std::span(client->buffer).subspan(client->held);
    const size_t count = client->socket.read_some(asio::buffer(room.data(), room.size()), error);
    if (error && error != asio::error::would_block) {
        leave(client, log_level_e::INFO, reason_text(error));
        return;
    }
    const bool has_no_reader =
        client->phase == phase_e::LEFT || (client->partner != nullptr && client->partner->deaf);
    client->held = has_no_reader ? 0 : client->held + count;
    move_bytes(client);
}

// Starts what can be done next with a client's bytes: send what is held, or read on.
void move_bytes(const client_ptr& client) {
    if (client->phase == phase_e::CLOSED || client->sending) {
        return;
    }
    if (client->held > 0 && client->partner != nullptr) {
        send_held(client);
        return;
    }
    if (client->awaiting_bytes || client->held == client->buffer.size()) {
        return;
    }
    client->awaiting_bytes = true;
    client->socket.async_wait(tcp::socket::wait_read, [client](error_code) {
        client->awaiting_bytes = false;
        if (client->phase != phase_e::CLOSED && !client->sending) {
            read_bytes(client);
        }
    });
}

// A client whose buffer is full is not read, and yet its name must be free as soon as it has gone. The event
// loop's own set does not report the end of a transmission behind unread bytes; this second one does.

error_code watch_hang_up(const client_ptr& client) {
    epoll_event event{};
    event.events = EPOLLRDHUP | EPOLLONESHOT;
    event.data.ptr = client.get();
    const int result =
        epoll_ctl(relay->hang_ups.native_handle(), EPOLL_CTL_ADD, client->socket.native_handle(), &event);
    return {result == 0 ? 0 : errno, std::generic_category()};
}

// What a client of a pair has sent before its end still goes to its partner. A closed socket is not in the
// set.
void handle_hang_ups() {
    epoll_event event{};
    while (epoll_wait(relay->hang_ups.native_handle(), &event, 1, 0) == 1) {
        const client_ptr client = relay->clients.at(static_cast<client_t*>(event.data.ptr));
        if (client->phase == phase_e::WAITING) {
            leave(client, log_level_e::INFO, "it has left");
        } else {
            release_name(*client);
        }
    }
    relay->hang_ups.async_wait(asio::posix::stream_descriptor::wait_read,
                               [](error_code) { handle_hang_ups(); });
}

// The handshake.

// Only for the few bytes of the handshake: they always fit into a connection's empty buffer.
error_code write_word(const client_ptr& client, const std::array<unsigned char, 4>& bytes) {
    error_code error;
    asio::write(client->socket, asio::buffer(bytes), error);
    return error;
}

void leave_handshake(const client_ptr& client, error_code error) {
    leave(client, log_level_e::INFO, reason_text(error) + " in the handshake");
}

void receive(const client_ptr& client, asio::mutable_buffer bytes, void (*next)(const client_ptr&)) {
    asio::async_read(client->socket, bytes, [client, next](error_code error, size_t) {
        if (error) {
            leave_handshake(client, error);
        } else if (client->phase == phase_e::HANDSHAKE) { // its time may have run out just now
            next(client);
        }
    });
}

void join_pair(const client_ptr& client, client_t& first) {
    client->deadline.cancel();
    client->phase = phase_e::PAIRED;
    first.phase = phase_e::PAIRED;
    client->partner = &first;
    first.partner = client.get();
    log_client(log_level_e::INFO, *client, "is paired with " + place_text(first.peer));
    move_bytes(relay->clients.at(&first));
    move_bytes(client);
}

void wait_for_partner(const client_ptr& client) {
    client->deadline.cancel();
    client->phase = phase_e::WAITING;
    relay->names.emplace(client->name, client.get());
    log_client(log_level_e::INFO, *client, "waits for its partner");
    move_bytes(client);
}

void check_name(const client_ptr& client) {
    if (client->name.find('\0') != client->name.size() - 1) {
        leave(client, log_level_e::INFO, "its name does not end where it should");
        return;
    }
    log_client(log_level_e::DEBUG, *client, "is named " + quoted_name(*client));
    const auto entry = relay->names.find(client->name);
    client_t* const first = entry != relay->names.end() ? entry->second : nullptr;
    if (first != nullptr && first->phase != phase_e::WAITING) {
        leave(client, log_level_e::INFO, "its name is taken by a pair");
        return;
    }
    error_code error = watch_hang_up(client);
    if (!error) {
        error = write_word(client,
                           first != nullptr ? first->peer.address().to_v4().to_bytes() : low_byte_first(0));
    }
    if (error) {
        leave_handshake(client, error);
    } else if (first != nullptr) {
        join_pair(client, *first);
    } else {
        wait_for_partner(client);
    }
}

void check_length(const client_ptr& client) {
    const uint32_t length = word_at(std::span(client->buffer).first<4>());
    if (length < 2 || length > relay->options.name_bytes + 1) {
        leave(client, log_level_e::INFO, "its name is empty or too long");
        return;
    }
    client->name.resize(length);
    receive(client, asio::buffer(client->name), check_name);
}

void check_response(const client_ptr& client) {
    if (word_at(std::span(client->buffer).first<4>()) != client->expected_response) {
        leave(client, log_level_e::INFO, "its response to the challenge is wrong");
        return;
    }
    receive(client, asio::buffer(client->buffer, 4), check_length);
}

// New connections.

void refuse(const std::string& reason) {
    log_line(log_level_e::WARNING, place_text(relay->peer) + " refused: " + reason);
}

// Null when it is refused. Without memory it throws, and nothing has changed.
client_ptr admit(tcp::socket connection) {
    if (relay->clients.size() >= relay->options.clients) {
        refuse("too many clients");
        return nullptr;
    }
    size_t& count = relay->clients_of_address[relay->peer.address().to_v4().to_uint()];
    if (count >= relay->options.clients_per_address) {
        refuse("too many clients from this address");
        return nullptr;
    }
    client_ptr client = std::make_shared<client_t>(std::move(connection), relay->peer);
    relay->clients.emplace(client.get(), client);
    count++;
    return client;
}

void greet(const client_ptr& client) {
    log_client(log_level_e::DEBUG, *client, "is connected");
    const uint32_t challenge = relay->random();
    client->expected_response =
        std::bit_cast<uint32_t>(challenge_response(std::bit_cast<int32_t>(challenge)));
    error_code error;
    client->socket.non_blocking(true, error);
    if (!error) {
        error = write_word(client, low_byte_first(challenge));
    }
    if (error) {
        leave_handshake(client, error);
        return;
    }
    start_deadline(client, relay->options.handshake_seconds, "it has not named itself in time");
    receive(client, asio::buffer(client->buffer, 4), check_response);
}

// Most of a client's memory is needed here, and nobody but the new one suffers when there is none.
void welcome(tcp::socket connection) {
    client_ptr client;
    try {
        client = admit(std::move(connection));
        if (client != nullptr) {
            greet(client);
        }
    } catch (const std::bad_alloc&) {
        if (client == nullptr) {
            refuse("out of memory");
        } else {
            leave(client, log_level_e::WARNING, "out of memory");
        }
    }
}

void accept_next() {
    relay->acceptor.async_accept(relay->peer, [](error_code error, tcp::socket connection) {
        if (!error) {
            welcome(std::move(connection));
            accept_next();
            return;
        }
        log_line(log_level_e::ERROR, "no new connections for a moment: " + error.message());
        relay->accept_pause.expires_after(ACCEPT_PAUSE);
        relay->accept_pause.async_wait([](error_code) { accept_next(); });
    });
}

int required(int result, const char* call) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), call);
    }
    return result;
}

void listen_on(const tcp::endpoint& place) {
    relay->acceptor.open(place.protocol());
    for (const auto& [level, name, value] : SOCKET_OPTIONS) {
        required(setsockopt(relay->acceptor.native_handle(), level, name, &value, sizeof value),
                 "setsockopt");
    }
    error_code error;
    relay->acceptor.bind(place, error);
    if (!error) {
        relay->acceptor.listen(tcp::acceptor::max_listen_connections, error);
    }
    if (error) {
        throw std::runtime_error("cannot listen on " + place_text(place) + ": " + error.message());
    }
}

} // namespace

void run_relay(const relay_options_t& options) {
    relay = std::make_unique<relay_t>();
    relay->options = options;
    relay->signals.async_wait([](error_code, int) { relay->io.stop(); });
    relay->hang_ups.assign(required(epoll_create1(EPOLL_CLOEXEC), "epoll_create1"));
    listen_on(tcp::endpoint(asio::ip::make_address_v4(options.address), options.port));
    log_line(log_level_e::INFO, "listening on " + place_text(relay->acceptor.local_endpoint()));
    handle_hang_ups();
    accept_next();
    relay->io.run();
    log_line(log_level_e::INFO, "ends with " + std::to_string(relay->clients.size()) + " clients");
}
