// Terminals, and sockets for the relay. The handshake with it, each number of 4 bytes, low byte first:
//
//   1. relay   a challenge
//   2. client  challenge_response of it
//   3. client  length of the name, with the zero byte at its end
//   4. client  the name
//   5. relay   0 for the first of a pair, and for the second the address of the first
//
// From then on the connection carries the bytes of the serial line in both directions.

#include "host/platform.h"

#include <array>
#include <bit>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include "base/challenge.h"
#include "base/machine.h"

namespace {

using std::chrono::steady_clock;

constexpr const char* RELAY_PORT = "10000";
constexpr std::chrono::milliseconds PATIENCE(30000);

// The relay waits some seconds for the name, and who writes it after that ends the process.
constexpr std::chrono::milliseconds LONGEST_BREAK(5000);

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__); // numbers are sent as they stand

int serial_fd = -1;   // a device
int serial_sock = -1; // a connection to the relay

// What the handshake waits for.
enum class awaited_e { NOTHING, CONNECTION, CHALLENGE, STATUS };

struct handshake_t {
    std::string name;
    awaited_e awaited = awaited_e::NOTHING;
    steady_clock::time_point end;   // of the patience with this step
    steady_clock::time_point asked; // when the program last went on with it
    std::array<char, sizeof(int32_t)> number{};
    size_t count = 0; // of the number's bytes that are there
};

handshake_t handshake;

// There is none where the board has gone back to before it was lost.
bool is_open() { return serial_fd >= 0 || serial_sock >= 0; }

int serial_linux_fd() {
    assert(is_open());
    return serial_fd >= 0 ? serial_fd : serial_sock;
}

// Returns 0 when nothing has happened in time, and below 0 when it cannot wait.
int wait_for_line(short event, int most_ms) {
    pollfd waiting = {serial_linux_fd(), event, 0};
    int result = 0;
    do {
        result = poll(&waiting, 1, most_ms);
    } while (result < 0 && errno == EINTR);
    return result;
}

short awaited_event() { return handshake.awaited == awaited_e::CONNECTION ? POLLOUT : POLLIN; }

bool patience_is_over() { return steady_clock::now() >= handshake.end; }

void set_up_line(int line) {
    termios attributes{};
    tcgetattr(line, &attributes);
    cfmakeraw(&attributes);
    if (cfsetspeed(&attributes, B115200) != 0) {
        throw tovik_error("Can't setspeed serial device");
    }
    attributes.c_cflag &= ~static_cast<tcflag_t>(CSTOPB);
    attributes.c_cc[VMIN] = 0;
    attributes.c_cc[VTIME] = 0;
    if (tcflush(line, TCIOFLUSH) != 0) {
        throw tovik_error("Can't tcflush serial device");
    }
    if (tcsetattr(line, TCSANOW, &attributes) != 0) {
        throw tovik_error("Can't tcsetattr serial device");
    }
}

// What is wrong, as users know it.
[[noreturn]] void fail_to_connect(const std::string& reason) {
    throw tovik_error("Cannot connect to virtual serial port" + reason + ".  Please contact instructor.");
}

[[noreturn]] void fail_to_go_on() {
    switch (handshake.awaited) {
    case awaited_e::CHALLENGE:
        // This text has no closing parenthesis.
        fail_to_connect(" (error receiving challenge");
    case awaited_e::STATUS:
        fail_to_connect(" (error receiving status)");
    default:
        fail_to_connect("");
    }
}

std::string relay_host() {
    const char* const host = std::getenv("TOVIK_RELAY_HOST");
    return host == nullptr || *host == '\0' ? TOVIK_RELAY_HOST : host;
}

void await(awaited_e awaited) {
    handshake.awaited = awaited;
    handshake.asked = steady_clock::now();
    handshake.end = handshake.asked + PATIENCE;
    handshake.count = 0;
}

// Returns whether the number is complete.
bool receive_number() {
    const std::span<char> rest = std::span(handshake.number).subspan(handshake.count);
    const ssize_t count = read(serial_sock, rest.data(), rest.size());
    if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) {
        fail_to_go_on();
    }
    handshake.count += count < 0 ? 0 : static_cast<size_t>(count);
    return handshake.count == handshake.number.size();
}

void send_bytes(std::span<const char> bytes, const std::string& failure) {
    if (platform::line_write(bytes) != bytes.size()) {
        fail_to_connect(failure);
    }
}

void send_number(int32_t number, const std::string& failure) {
    send_bytes(std::bit_cast<std::array<char, sizeof number>>(number), failure);
}

// A new connection takes so few bytes at once.
void introduce() {
    const std::string& name = handshake.name;
    const auto challenge = std::bit_cast<int32_t>(handshake.number);
    send_number(challenge_response(challenge), " (error sending challenge response)");
    send_number(static_cast<int32_t>(name.size() + 1), " (error sending name length)");
    send_bytes({name.c_str(), name.size() + 1}, " (error sending name)");
}

// The name of a computer, or its address in digits.
std::string host_name(int32_t address) {
    sockaddr_in partner{};
    partner.sin_family = AF_INET;
    partner.sin_addr.s_addr = static_cast<in_addr_t>(address);
    char name[NI_MAXHOST] = "";
    if (getnameinfo(reinterpret_cast<const sockaddr*>(&partner), sizeof partner, name, sizeof name, nullptr,
                    0, NI_NAMEREQD) != 0) {
        inet_ntop(AF_INET, &partner.sin_addr, name, sizeof name);
    }
    return name;
}

// What has been waited for is there, or part of it. Returns what line_connect does.
std::optional<std::string> go_on() {
    if (handshake.awaited == awaited_e::CONNECTION) {
        int error = 0;
        socklen_t size = sizeof error;
        if (getsockopt(serial_sock, SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0) {
            fail_to_go_on();
        }
        await(awaited_e::CHALLENGE);
    } else if (receive_number()) {
        if (handshake.awaited == awaited_e::STATUS) {
            handshake.awaited = awaited_e::NOTHING;
            const auto status = std::bit_cast<int32_t>(handshake.number);
            return status == 0 ? "" : host_name(status);
        }
        introduce();
        await(awaited_e::STATUS);
    }
    return {};
}

} // namespace

void platform::line_open_device(const std::string& name) {
    platform::line_close(); // where the board has gone back to before it was opened
    serial_fd = open(name.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (serial_fd < 0) {
        throw tovik_error("Can't open serial device");
    }
    set_up_line(serial_fd);
}

void platform::line_open_cable(const std::string& name) {
    platform::line_close();
    serial_sock = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (serial_sock < 0) {
        fail_to_connect(" (error opening socket)");
    }
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* addresses = nullptr;
    if (getaddrinfo(relay_host().c_str(), RELAY_PORT, &hints, &addresses) != 0) {
        fail_to_connect(" (error getting hostent)");
    }
    handshake.name = name;
    await(awaited_e::CONNECTION);
    const int result = connect(serial_sock, addresses->ai_addr, addresses->ai_addrlen);
    const int error = errno;
    freeaddrinfo(addresses);
    if (result != 0 && error != EINPROGRESS) {
        fail_to_go_on();
    }
}

std::optional<std::string> platform::line_connect() {
    const auto now = steady_clock::now();
    const bool had_break = now - std::exchange(handshake.asked, now) > LONGEST_BREAK;
    // With its name a connection may have a partner already.
    const bool has_begun = serial_sock >= 0 && handshake.awaited != awaited_e::NOTHING;
    if (!has_begun || (had_break && handshake.awaited != awaited_e::STATUS)) {
        platform::line_open_cable(handshake.name);
    }
    const int result = wait_for_line(awaited_event(), 0);
    if (result > 0) {
        return go_on();
    }
    if (result < 0 || patience_is_over()) {
        fail_to_go_on();
    }
    return {};
}

bool platform::line_ready(int most_ms) {
    if (!is_open()) {
        return true;
    }
    const int result = wait_for_line(awaited_event(), most_ms);
    return handshake.awaited == awaited_e::NOTHING ? result > 0 : result != 0 || patience_is_over();
}

size_t platform::line_read(std::span<char> room) {
    if (!is_open()) {
        throw tovik_error("error receiving data from serial port");
    }
    // In a program that polls, asking is cheaper than reading in vain.
    if (serial_sock >= 0) {
        const int result = wait_for_line(POLLIN, 0);
        if (result < 0) {
            throw tovik_error("error polling serial server\n");
        }
        if (result == 0) {
            return 0;
        }
    }
    ssize_t count = 0;
    do {
        count = read(serial_linux_fd(), room.data(), room.size());
    } while (count < 0 && errno == EINTR);
    if (serial_sock >= 0 && count <= 0) {
        throw tovik_error("error receiving data from serial port");
    }
    return count < 0 ? 0 : static_cast<size_t>(count);
}

size_t platform::line_write(std::span<const char> bytes) {
    if (!is_open()) {
        throw platform::line_broken_t{std::string("write: ") + std::strerror(EPIPE)};
    }
    size_t count = 0;
    while (count < bytes.size()) {
        const std::span<const char> rest = bytes.subspan(count);
        const ssize_t result = write(serial_linux_fd(), rest.data(), rest.size());
        if (result > 0) {
            count += static_cast<size_t>(result);
        } else if (result == 0) {
            break;
        } else if (errno == EAGAIN) {
            if (wait_for_line(POLLOUT, int{PATIENCE.count()}) <= 0) {
                break;
            }
        } else if (errno != EINTR) {
            throw platform::line_broken_t{std::string("write: ") + std::strerror(errno)};
        }
    }
    return count;
}

void platform::line_close() {
    handshake.awaited = awaited_e::NOTHING;
    for (int* const line : {&serial_fd, &serial_sock}) {
        if (*line >= 0) {
            close(std::exchange(*line, -1));
        }
    }
}
