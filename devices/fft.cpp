// Fourier transform of a block of 1024 complex points, whose real and imaginary parts are 16-bit numbers. The
// points go in one a command; when the last one is in, the results can be taken out one a command.
//
//   offset  register           access  bits   meaning
//   0xc0    send command       write   0      0 to 1 takes the point
//   0xc1    send response      read    0      1 when the command is 1 and the unit is not busy
//   0xc2    send real          write   31..0  must be -32768 to 32767
//   0xc3    send imaginary     write   31..0  the same
//   0xc4    send inverse       write   0      direction of the block, taken over with its first point
//   0xc5    send end           write   31..0  not 0: this point is the last, the rest of the block is 0
//   0xd0    receive command    write   0      1 to 0 goes on to the next result
//   0xd1    receive response   read    0      1 when the command is 1 and there is a result
//   0xd2    receive real       read    31..0  a 16-bit number with its sign
//   0xd3    receive imaginary  read    31..0  the same
//
// The forward transform has the negative exponent and divides by 1024, the inverse one has the positive
// exponent and divides by nothing. The first point of a block throws away what is left of the results before.
//
// After the last point the unit is busy for 80 instructions, 12 microseconds of the board's time: so long the
// board's unit takes to its first result. Not modelled: rounding within the transform; only results are
// rounded.

#include "devices/fft.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <complex>
#include <iterator>

#include <kissfft/kissfft.hh>

#include "base/machine.h"
#include "devices/io.h"

namespace {

constexpr int32_t SEND_COMMAND = 0xc0;
constexpr int32_t SEND_RESPONSE = 0xc1;
constexpr int32_t SEND_REAL = 0xc2;
constexpr int32_t SEND_IMAGINARY = 0xc3;
// 0xc6 to 0xcf are nobody's.
constexpr int32_t RECEIVE_COMMAND = 0xd0;
constexpr int32_t RECEIVE_RESPONSE = 0xd1;

constexpr int BLOCK_POINTS = static_cast<int>(std::size(machine.fft_send));
static_assert(std::size(machine.fft_receive) == BLOCK_POINTS);

// The index of the current result when there is none.
constexpr int NO_RESULTS = BLOCK_POINTS;

constexpr uint64_t BUSY_INSTRUCTIONS = 80;

// An exact number, so that dividing loses nothing.
constexpr double FORWARD_SCALE = 1.0 / BLOCK_POINTS;
static_assert(FORWARD_SCALE == 0.0009765625);

using block_t = std::array<std::complex<double>, BLOCK_POINTS>;

// The plan of a direction, made once: making it takes longer than a transform.
const kissfft<double>* plan_of(bool inverse) {
    static const kissfft<double> forward_plan(BLOCK_POINTS, false);
    static const kissfft<double> inverse_plan(BLOCK_POINTS, true);
    return inverse ? &inverse_plan : &forward_plan;
}

bool is_busy() { return machine.instr_count < machine.fft_response_instr; }

void transform() {
    assert(machine.fft_send_count == BLOCK_POINTS);
    const bool inverse = machine.fft_send_inverse_first != 0;
    const kissfft<double>* const kiss_cfg = plan_of(inverse);
    assert(kiss_cfg != __null);

    block_t points;
    block_t results;
    std::transform(std::begin(machine.fft_send), std::end(machine.fft_send), points.begin(),
                   [](const kiss_fft_cpx& point) { return std::complex(point.r, point.i); });
    kiss_cfg->transform(points.data(), results.data());
    const double scale = inverse ? 1 : FORWARD_SCALE;
    std::transform(results.begin(), results.end(), machine.fft_receive,
                   [scale](const std::complex<double>& result) {
                       return kiss_fft_cpx{.r = result.real() * scale, .i = result.imag() * scale};
                   });

    machine.fft_receive_count = 0;
    machine.fft_send_count = 0;
    machine.fft_response_instr = machine.instr_count + BUSY_INSTRUCTIONS;
}

void take_point() {
    machine.fft_receive_count = NO_RESULTS;
    if (machine.fft_send_count == 0) {
        machine.fft_send_inverse_first = machine.fft_send_inverse;
    }
    machine.fft_send[machine.fft_send_count++] = {
        .r = static_cast<double>(machine.fft_send_real),
        .i = static_cast<double>(machine.fft_send_imaginary),
    };
    if (machine.fft_send_end != 0) {
        std::fill(machine.fft_send + machine.fft_send_count, std::end(machine.fft_send), kiss_fft_cpx{});
        machine.fft_send_count = BLOCK_POINTS;
    }
    if (machine.fft_send_count == BLOCK_POINTS) {
        transform();
    }
}

bool is_in_range(int32_t part) { return part >= INT16_MIN && part <= INT16_MAX; }

void write_part(int32_t& part, int32_t value) {
    if (!is_in_range(value)) {
        throw tovik_error("FFT data out of range");
    }
    update_port(part, value, machine.fft_send_command);
}

bool take_part(int32_t& part, int32_t value) {
    const bool taken = is_in_range(value) && takes(part, value, machine.fft_send_command);
    part = taken ? value : part;
    return taken;
}

// Lopsided on purpose: positive numbers round to the nearest, halves up, all others down, so that -0.25
// becomes -1. What does not fit wraps around.
int16_t double_to_int16(double value) {
    const double rounded = value > 0 ? std::floor(value + 0.5) : std::floor(value);
    return static_cast<int16_t>(static_cast<int32_t>(rounded));
}

} // namespace

void write_fft_send_command(int32_t data) {
    const int32_t command = data & 1;
    // A command that comes while the unit is busy takes no point, though it is answered in the end.
    if (machine.fft_send_command == 0 && command == 1 && !is_busy()) {
        take_point();
    }
    machine.fft_send_command = command;
}

bool take_fft_real(int32_t data) { return take_part(machine.fft_send_real, data); }

bool take_fft_imaginary(int32_t data) { return take_part(machine.fft_send_imaginary, data); }

void write_fft_receive_command(int32_t data) {
    const int32_t command = data & 1;
    // The next result comes also when the program has not looked at the current one.
    if (machine.fft_receive_command == 1 && command == 0 && machine.fft_receive_count < NO_RESULTS) {
        ++machine.fft_receive_count;
    }
    machine.fft_receive_command = command;
    if (command == 0) {
        machine.fft_receive_response = 0;
    }
}

int32_t read_fft_send_response() { return machine.fft_send_command == 1 && !is_busy() ? 1 : 0; }

int32_t read_fft_receive_response() {
    const bool available =
        machine.fft_receive_command == 1 && machine.fft_receive_count < NO_RESULTS && !is_busy();
    if (available) {
        const kiss_fft_cpx& result = machine.fft_receive[machine.fft_receive_count];
        machine.fft_receive_real = double_to_int16(result.r);
        machine.fft_receive_imaginary = double_to_int16(result.i);
    }
    machine.fft_receive_response = available ? 1 : 0;
    return machine.fft_receive_response;
}

uint64_t fft_steady_until() { return until_completion(machine.fft_response_instr); }

int32_t io_fft_send(bool write, int32_t address, int32_t data) {
    const int32_t offset = io_offset(address);
    if (write && offset == SEND_COMMAND) {
        write_fft_send_command(data);
    } else if (write && offset == SEND_REAL) {
        write_part(machine.fft_send_real, data);
    } else if (write && offset == SEND_IMAGINARY) {
        write_part(machine.fft_send_imaginary, data);
    } else if (!write && offset == SEND_RESPONSE) {
        return read_fft_send_response();
    } else {
        io_unsupported(address);
    }
    return 0;
}

int32_t io_fft_receive(bool write, int32_t address, int32_t data) {
    const int32_t offset = io_offset(address);
    if (write && offset == RECEIVE_COMMAND) {
        write_fft_receive_command(data);
        return 0;
    }
    if (!write && offset == RECEIVE_RESPONSE) {
        return read_fft_receive_response();
    }
    io_unsupported(address);
}

void reset_fft() {
    machine.fft_send_command = 0;
    machine.fft_send_real = 0;
    machine.fft_send_imaginary = 0;
    machine.fft_send_end = 0;
    machine.fft_send_inverse = 0;
    machine.fft_receive_command = 0;
    machine.fft_receive_response = 0;
    machine.fft_receive_real = 0;
    machine.fft_receive_imaginary = 0;
    machine.fft_send_count = 0;
    machine.fft_receive_count = NO_RESULTS;
    machine.fft_response_instr = 0;
}
