// The handshake with the relay, each number of 4 bytes, low byte first:
//
//   1. relay   a challenge
//   2. client  challenge_response of it
//   3. client  length of the name, with the zero byte at its end
//   4. client  the name
//   5. relay   0 for the first of a pair, and for the second the address of the first
//
// From then on the connection carries the bytes of the serial line in both directions.

#include "devices/serial_connection.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <utility>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

#include "base/challenge.h"
#include "base/gui.h"
#include "base/machine.h"

namespace {

constexpr size_t QUEUE_BYTES = 1024;
constexpr int LONGEST_NAME = 20;

constexpr size_t PIECE_BYTES = 4096;

// A side that sends faster than bytes are taken from the line must not hold the program for ever.
constexpr size_t MOST_BYTES_AT_ONCE = 65536;
constexpr std::chrono::seconds LONGEST_DISCARD(1);

// A line that holds so many bytes may be full, and its sender, or the relay, wait with more of them.
constexpr size_t FULL_LINE_BYTES = 2048;
constexpr int SENDER_MS = 50; // in which they go on

constexpr const char* RELAY_PORT = "10000";
constexpr int PATIENCE_SECONDS = 30;

const std::string PROMPT =
    "Enter the name of your serial port (e.g., COM1 on Windows, /dev/ttyS0 or /dev/ttyUSB0 on Linux).\n"
    "To use a virtual serial cable, enter your campusid.\n"
    "To show the serial output in the serial port window, leave the field blank.";

static_assert(std::endian::native == std::endian::little); // numbers are sent as they stand

int serial_fd = -1;
int serial_sock = -1;

int serial_linux_fd() {
    assert(machine.serial_state == HW || machine.serial_state == NET);
    return machine.serial_state == HW ? serial_fd : serial_sock;
}

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

void connect_device(const std::string& name) {
    serial_fd = open(name.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (serial_fd < 0) {
        throw tovik_error("Can't open serial device");
    }
    machine.serial_state = HW;
    set_up_line(serial_fd);
}

// What is wrong, as users know it.
[[noreturn]] void fail_to_connect(const std::string& reason) {
    throw tovik_error("Cannot connect to virtual serial port" + reason + ".  Please contact instructor.");
}

std::string relay_host() {
    const char* const host = std::getenv("TOVIK_RELAY_HOST");
    return host == nullptr || *host == '\0' ? TOVIK_RELAY_HOST : host;
}

void connect_to_relay() {
    serial_sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (serial_sock < 0) {
        fail_to_connect(" (error opening socket)");
    }
    machine.serial_state = NET;
    const timeval patience = {PATIENCE_SECONDS, 0};
    setsockopt(serial_sock, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(serial_sock, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);

    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* addresses = nullptr;
    if (getaddrinfo(relay_host().c_str(), RELAY_PORT, &hints, &addresses) != 0) {
        fail_to_connect(" (error getting hostent)");
    }
    const int result = connect(serial_sock, addresses->ai_addr, addresses->ai_addrlen);
    freeaddrinfo(addresses);
    if (result != 0) {
        fail_to_connect("");
    }
}

int32_t receive_number(const std::string& failure) {
    std::array<char, sizeof(int32_t)> bytes{};
    if (read_size(bytes.data(), bytes.size()) != int{bytes.size()}) {
        fail_to_connect(failure);
    }
    return std::bit_cast<int32_t>(bytes);
}

void send_bytes(const std::string& bytes, const std::string& failure) {
    const int size = static_cast<int>(bytes.size());
    if (write_size(bytes.data(), size) != size) {
        fail_to_connect(failure);
    }
}

void send_number(int32_t number, const std::string& failure) {
    const auto bytes = std::bit_cast<std::array<char, sizeof number>>(number);
    send_bytes({bytes.data(), bytes.size()}, failure);
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

void connect_cable(const std::string& name) {
    connect_to_relay();
    // The text of the challenge has no closing parenthesis.
    const int32_t challenge = receive_number(" (error receiving challenge");
    send_number(challenge_response(challenge), " (error sending challenge response)");
    send_number(static_cast<int32_t>(name.size() + 1), " (error sending name length)");
    send_bytes(name + '\0', " (error sending name)");
    const int32_t status = receive_number(" (error receiving status)");
    if (status == 0) {
        gui_message(
            "Connected to virtual serial port.  Next, run a second instance of tovik and connect it to "
            "serial port \"" +
                name + "\".\n",
            false);
    } else {
        gui_message("Connected to another instance of tovik, running on " + host_name(status) + ".", false);
    }
}

bool names_device(const std::string& name) { return name.find_first_of("/0123456789") != std::string::npos; }

// One attempt. Only an error of the relay comes out of it.
void connect_to(const std::string& name) {
    if (name.empty()) {
        gui_serial_setup();
        machine.serial_state = WINDOW;
        return;
    }
    try {
        if (names_device(name)) {
            connect_device(name);
        } else {
            connect_cable(name);
        }
    } catch (const tovik_error& error) {
        serial_disconnect();
        if (!names_device(name)) {
            throw;
        }
        gui_message(error.message, true);
    }
}

// In a program that polls, asking is cheaper than reading in vain.
bool relay_has_sent() {
    pollfd waiting = {serial_sock, POLLIN, 0};
    const int result = poll(&waiting, 1, 0);
    if (result < 0 && errno != EINTR) {
        throw tovik_error("error polling serial server\n");
    }
    return result > 0;
}

// Reads what waits on the line, as much as there is room for. A device that fails has nothing.
size_t read_waiting(std::span<char> room) {
    if (machine.serial_state == NET && !relay_has_sent()) {
        return 0;
    }
    ssize_t count = 0;
    do {
        count = read(serial_linux_fd(), room.data(), room.size());
    } while (count < 0 && errno == EINTR);
    if (machine.serial_state == NET && count <= 0) {
        throw tovik_error("error receiving data from serial port");
    }
    return count < 0 ? 0 : static_cast<size_t>(count);
}

size_t receive_waiting() {
    char piece[PIECE_BYTES];
    size_t total = 0;
    size_t count = 0;
    do {
        count = read_waiting(std::span(piece).first(std::min(PIECE_BYTES, MOST_BYTES_AT_ONCE - total)));
        for (const char byte : std::span(piece).first(count)) {
            serial_enqueue(byte);
        }
        total += count;
    } while (count > 0 && total < MOST_BYTES_AT_ONCE);
    return total;
}

// Whether the line takes or has bytes again before the patience is over.
bool wait_for_line(short event, int patience_ms) {
    pollfd waiting = {serial_linux_fd(), event, 0};
    return poll(&waiting, 1, patience_ms) > 0;
}

} // namespace

void serial_enqueue(char byte) {
    if (machine.serial_queue.size() < QUEUE_BYTES) {
        machine.serial_queue.push(static_cast<uint8_t>(byte));
    }
}

void serial_connect(const std::string& message) {
    while (machine.serial_state == DISCONNECTED) {
        connect_to(gui_gettext(message + PROMPT, LONGEST_NAME));
    }
}

void serial_disconnect() {
    if (machine.serial_state == HW) {
        close(std::exchange(serial_fd, -1));
    } else if (machine.serial_state == NET) {
        close(std::exchange(serial_sock, -1));
    }
    machine.serial_state = DISCONNECTED;
    machine.serial_queue = {};
}

size_t serial_receive() {
    assert(machine.serial_state != DISCONNECTED);
    if (machine.serial_state == WINDOW) {
        return 0;
    }
    try {
        return receive_waiting();
    } catch (const tovik_error&) {
        serial_disconnect();
        serial_connect("Reconnecting to serial port.\n");
        return 0;
    }
}

void serial_discard() {
    const auto end = std::chrono::steady_clock::now() + LONGEST_DISCARD;
    size_t count = serial_receive();
    const bool was_full = count >= FULL_LINE_BYTES;
    while (was_full && count > 0 && std::chrono::steady_clock::now() < end &&
           wait_for_line(POLLIN, SENDER_MS)) {
        count = serial_receive();
    }
    machine.serial_queue = {};
}

int read_size(char* buffer, int size) {
    assert(machine.serial_state != DISCONNECTED);
    int count = 0;
    while (count < size && machine.serial_state != WINDOW) {
        const auto rest = static_cast<size_t>(size - count);
        // The socket's time-out is then one for all bytes together.
        const ssize_t result = machine.serial_state == NET
                                   ? recv(serial_sock, buffer + count, rest, MSG_WAITALL)
                                   : read(serial_fd, buffer + count, rest);
        if (result < 0 && errno != EINTR) {
            return -1;
        }
        count += result < 0 ? 0 : static_cast<int>(result);
        if (result == 0 || (result > 0 && machine.serial_state == NET)) {
            break;
        }
    }
    return count;
}

int write_size(const char* buffer, int size) {
    assert(machine.serial_state != DISCONNECTED);
    if (size < 1) {
        return 0;
    }
    if (machine.serial_state == WINDOW) {
        assert(size == 1);
        gui_serial_append(*buffer);
        return 1;
    }
    int count = 0;
    while (count < size) {
        const ssize_t result = write(serial_linux_fd(), buffer + count, static_cast<size_t>(size - count));
        if (result > 0) {
            count += static_cast<int>(result);
        } else if (result == 0) {
            break;
        } else if (errno == EAGAIN) {
            // The socket has waited itself.
            if (machine.serial_state == NET || !wait_for_line(POLLOUT, PATIENCE_SECONDS * 1000)) {
                break;
            }
        } else if (errno != EINTR) {
            std::perror("write");
            throw host_failure_t{};
        }
    }
    return count;
}
