// Camera of 640x480 points. A command copies the newest frame into the video memory.
//
//   offset  register  access  bits  meaning
//   0xb0    command   write   0     0 to 1 copies a frame
//   0xb1    response  read    0     1 when the time of a frame has passed since the copy and command is 1
//   0xb2    x         write   9..0  left column in the video memory
//   0xb3    y         write   9..0  top row
//   0xb4    scale     write   1..0  3 full size, 2 half, 1 a quarter, 0 an eighth
//   0xb5    flip      write   0     1 mirrors left to right, and shifts by one point to the right
//
// Busy for the time of a frame, 1/30 s: 222222 instructions. A command that comes earlier copies nothing, but
// is answered in the end.
//
// The host's end is a capture device while "Camera" is on. Otherwise a file plays, frame after frame as they
// stand in the memory: 614400 bytes each, from the top left corner, a word a point, low byte first.
//
// Not modelled: exposure, and that a real frame is not taken in one moment.

#include "devices/camera.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cmath>
#include <memory>
#include <span>
#include <string>

#include "base/files.h"
#include "base/gui.h"
#include "base/machine.h"
#include "devices/io.h"
#include "devices/vga.h"
#include "host/capture.h"
#include "host/storage.h"

namespace {

constexpr int32_t COMMAND = 0xb0;
constexpr int32_t RESPONSE = 0xb1;

constexpr int32_t CAMERA_WIDTH = CAPTURE_WIDTH;
constexpr int32_t CAMERA_HEIGHT = CAPTURE_HEIGHT;
constexpr int32_t COORDINATE_MASK = VGA_RAM_SIZE - 1;
constexpr int32_t FULL_SIZE = 3;

static_assert(sizeof machine.camera_ram == 614400);
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__); // frames as they stand in the file

// What u and v add to y for each channel. A sum that is rounded toward zero is the rounded part plus y as
// long as it is not negative, and if it is, the channel is 0 anyway.
struct chroma_t {
    int16_t red[256];
    int16_t green[256][256]; // by u, then v
    int16_t blue[256];
};

double red_of(int v) { return 1.370705 * (v - 128); }
double green_of(int y, int u, int v) { return y - 0.698001 * (v - 128) - 0.337633 * (u - 128); }
double blue_of(int u) { return 1.732446 * (u - 128); }

std::unique_ptr<const chroma_t> make_chroma() {
    auto chroma = std::make_unique<chroma_t>();
    for (int u = 0; u < 256; ++u) {
        chroma->red[u] = static_cast<int16_t>(std::floor(red_of(u)));
        chroma->blue[u] = static_cast<int16_t>(std::floor(blue_of(u)));
        for (int v = 0; v < 256; ++v) {
            chroma->green[u][v] = static_cast<int16_t>(std::floor(green_of(255, u, v)) - 255);
        }
    }
    return chroma;
}

uint16_t channel(int value) { return static_cast<uint16_t>(std::clamp(value, 0, 255) >> 3); }

uint16_t pack(int red, int green, int blue) {
    return static_cast<uint16_t>(channel(red) << 10 | channel(green) << 5 | channel(blue));
}

bool live_frame_is_there() {
    if (machine.camera_ram_valid) {
        return capture_ready(0);
    }
    if (!capture_settled(0)) {
        throw host_wait_t{capture_settled};
    }
    return true;
}

void take_live_frame() {
    touched.frame = true;
    convert_yuyv(capture_take(), machine.camera_ram[0], size_t{CAPTURE_WIDTH} * CAPTURE_HEIGHT / 2);
    capture_give_back();
    machine.camera_ram_valid = true;
}

void close_movie() {
    machine.camera_file_open = false;
    storage_close(storage_e::MOVIE);
}

void open_movie() {
    const int64_t size = storage_open(storage_e::MOVIE, machine.camera_filename);
    if (size < 0) {
        const int error = static_cast<int>(-size);
        gui_message("Can't open file " + machine.camera_filename + ": " + system_error_text(error), true);
        return;
    }
    machine.camera_file_open = true;
    machine.camera_file_position = 0;
    advance_camera_file();
}

// Asks until there is a frame.
void ask_for_movie() {
    while (!machine.camera_ram_valid) {
        close_movie();
        if (!gui_choosefile(false, CAMERA_QUESTION, "KMOVIE file", "kmovie", machine.camera_filename)) {
            throw tovik_error("user cancelled camera file read");
        }
        open_movie();
    }
}

void copy_frame() {
    touched.picture = true;
    const int32_t shift = FULL_SIZE - machine.camera_scale;
    const int32_t step = 1 << shift;
    for (int32_t row = 0; row < CAMERA_HEIGHT; row += step) {
        uint16_t* const line = machine.vga_ram[((row >> shift) + machine.camera_y) & COORDINATE_MASK];
        for (int32_t column = 0; column < CAMERA_WIDTH; column += step) {
            const int32_t place = machine.camera_flip == 0 ? column : CAMERA_WIDTH - column;
            line[((place >> shift) + machine.camera_x) & COORDINATE_MASK] = machine.camera_ram[row][column];
        }
    }
    // The greatest area that a frame can have, whatever the scale.
    vga_refresh(static_cast<unsigned>(machine.camera_x), static_cast<unsigned>(machine.camera_y),
                CAMERA_WIDTH, CAMERA_HEIGHT);
}

void take_frame() {
    machine.camera_response_instr = machine.instr_count;
    if (simulator.camera_on) {
        camera_check();
    }
    if (simulator.camera_on) {
        assert(machine.camera_ram_valid);
    } else {
        ask_for_movie();
    }
    copy_frame();
    machine.camera_response_instr += INSTRUCTIONS_PER_FRAME;
}

bool takes_frame(int32_t command) {
    return machine.camera_command == 0 && command == 1 &&
           machine.instr_count >= machine.camera_response_instr;
}

void write_command(int32_t command) {
    if (takes_frame(command)) {
        take_frame();
    }
    machine.camera_command = command;
}

} // namespace

uint16_t yuv_to_rgb15(int y, int u, int v) {
    return pack(static_cast<int>(y + red_of(v)), static_cast<int>(green_of(y, u, v)),
                static_cast<int>(y + blue_of(u)));
}

void convert_yuyv(const uint8_t* yuyv, uint16_t* colors, size_t pairs) {
    static const std::unique_ptr<const chroma_t> chroma = make_chroma();
    for (size_t i = 0; i < pairs; ++i) {
        const uint8_t* const pair = yuyv + 4 * i;
        const int red = chroma->red[pair[3]];
        const int green = chroma->green[pair[1]][pair[3]];
        const int blue = chroma->blue[pair[1]];
        colors[2 * i] = pack(pair[0] + red, pair[0] + green, pair[0] + blue);
        colors[2 * i + 1] = pack(pair[2] + red, pair[2] + green, pair[2] + blue);
    }
}

// A frame may need the user or the capture device.
bool take_camera_command(int32_t data) {
    const int32_t command = data & 1;
    if (takes_frame(command)) {
        return false;
    }
    machine.camera_command = command;
    return true;
}

int32_t read_camera_response() {
    return machine.camera_command != 0 && machine.instr_count >= machine.camera_response_instr ? 1 : 0;
}

uint64_t camera_steady_until() { return until_completion(machine.camera_response_instr); }

int32_t io_camera(bool write, int32_t address, int32_t data) {
    const int32_t offset = io_offset(address);
    if (write && offset == COMMAND) {
        write_command(data & 1);
        return 0;
    }
    if (!write && offset == RESPONSE) {
        return read_camera_response();
    }
    io_unsupported(address);
}

void camera_connect() {
    if (!simulator.camera_on && capture_open()) {
        simulator.camera_on = true;
        machine.camera_ram_valid = false;
        close_movie();
    }
    gui_camera_set(simulator.camera_on);
}

void camera_disconnect() {
    if (simulator.camera_on && capture_stop()) {
        capture_close();
        simulator.camera_on = false;
    }
    gui_camera_set(simulator.camera_on);
}

void camera_check() {
    assert(simulator.camera_on);
    try {
        if (live_frame_is_there()) {
            take_live_frame();
        }
    } catch (const tovik_error& error) {
        gui_message(error.message, true);
        // Whatever it says to being stopped: the program goes on without it.
        capture_close();
        simulator.camera_on = false;
        gui_camera_set(false);
    }
}

void advance_camera_file() {
    if (simulator.camera_on) {
        return;
    }
    machine.camera_ram_valid = false;
    if (!machine.camera_file_open) {
        return;
    }
    touched.frame = true;
    const std::span<char> frame(reinterpret_cast<char*>(machine.camera_ram), sizeof machine.camera_ram);
    const int64_t count = storage_read(storage_e::MOVIE, frame, machine.camera_file_position);
    machine.camera_ram_valid = count == int64_t{sizeof machine.camera_ram};
    if (machine.camera_ram_valid) {
        machine.camera_file_position += count;
    } else {
        close_movie();
    }
    if (count < 0) {
        gui_message("Can't read camera frame from file " + machine.camera_filename + ": " +
                        system_error_text(static_cast<int>(-count)),
                    true);
    }
}

void reset_camera() {
    machine.camera_command = 0;
    machine.camera_x = 0;
    machine.camera_y = 0;
    machine.camera_scale = 0;
    machine.camera_flip = 0;
    machine.camera_ram_valid = false;
    machine.camera_response_instr = 0;
    close_movie();
}
