#pragma once

// The whole simulated board in one record, the controls of the simulation in a second, and what every
// module shares: the machine's constants and the exception types. Data only.

#include <bitset>
#include <cstdint>
#include <deque>
#include <queue>
#include <string>
#include <utility>
#include <vector>

// The transform library's complex number is a pair of its scalars; the board's FFT unit works in doubles.
#define kiss_fft_scalar double
#include <kissfft/kiss_fft.h>

constexpr int DATA_BITS = 32;
constexpr int ADDRESS_BITS = 14;
constexpr int32_t MEMORY_SIZE = 1 << ADDRESS_BITS;
constexpr int32_t WORDS_PER_INSTRUCTION = 4;
constexpr int32_t SAMPLES_PER_SECOND = 8000; // of speaker and microphone

// The board's clock: every instruction takes the same time, and timer and sound go by whole numbers of them.
constexpr int32_t NS_PER_INSTRUCTION = 150;
constexpr int32_t INSTRUCTIONS_PER_TICK = 1'000'000'000 / SAMPLES_PER_SECOND / NS_PER_INSTRUCTION;
static_assert(INSTRUCTIONS_PER_TICK == 833);

enum opcode_e : int32_t {
    K24_HALT,
    K24_ADD,
    K24_SUB,
    K24_MULT,
    K24_DIV,
    K24_CP,
    K24_AND,
    K24_OR,
    K24_NOT,
    K24_SL,
    K24_SR,
    K24_CPFA,
    K24_CPTA,
    K24_BE,
    K24_BNE,
    K24_BLT,
    K24_CALL,
    K24_RET,
};

// A fault of the simulated program, of a device's protocol or of an assembly source.
class tovik_error {
  public:
    explicit tovik_error(std::string text) : message(std::move(text)) {}

    std::string message;
};

// The host or the front end has failed so that nothing can go on, and the user has been told how. The process
// is to end with status 1.
struct host_failure_t {};

// Thrown by a device whose host has nothing for it yet: the instruction has done nothing, and is to be
// executed anew when `ready` says so. `ready` waits for that so many milliseconds at most; a host that cannot
// wait answers at once.
struct host_wait_t {
    bool (*ready)(int most_ms);
};

struct ps2_event_t {
    uint8_t ascii;
    bool pressed;
};

// A stretch of equal samples: silence, for hours, is only one.
struct sample_run_t {
    int32_t sample;
    uint32_t times; // at least 1
    bool operator==(const sample_run_t&) const = default;
};

// Both corners inclusive.
struct box_t {
    int32_t x1;
    int32_t y1;
    int32_t x2;
    int32_t y2;
    bool operator==(const box_t&) const = default;
};

struct colored_box_t {
    box_t box;
    uint16_t color; // 15 bits
    bool operator==(const colored_box_t&) const = default;
};

// Where the serial port leads: nowhere yet, to a serial device of the host, through the relay, to the
// console.
enum serial_state_e { DISCONNECTED = 0, HW = 1, NET = 2, WINDOW = 3 };

struct machine_t {
    int32_t memory[MEMORY_SIZE];
    int32_t pc;
    uint64_t instr_count;
    uint64_t run_start_time;
    uint64_t run_start_count;
    bool halted;
    bool modified[MEMORY_SIZE];

    int32_t sw;
    int32_t led_red;
    int32_t led_green;
    int32_t hex30;
    int32_t hex74;

    int32_t lcd_command;
    int32_t lcd_x;
    int32_t lcd_y;
    int32_t lcd_ascii;
    uint8_t lcd_ram[2][16];

    int32_t ps2_command;
    int32_t ps2_response;
    ps2_event_t ps2_event;
    std::deque<ps2_event_t> ps2_events;
    std::vector<bool> ps2_pressed;

    int32_t sdram_command;
    int32_t sdram_response;
    int32_t sdram_address;
    int32_t sdram_write;
    int32_t sdram_data_write;
    int32_t sdram_data_read;
    int32_t sdram_ram[32 * 1024 * 1024];

    int32_t speaker_command;
    int32_t speaker_sample;
    int32_t speaker_current_sample;
    bool speaker_current_sample_played;
    std::deque<sample_run_t> speaker_samples;

    int32_t microphone_command;
    int32_t microphone_response;
    std::deque<int32_t> microphone_samples;
    bool microphone_sample_avail;

    int32_t vga_command;
    int32_t vga_response;
    int32_t vga_write;
    int32_t vga_x1;
    int32_t vga_y1;
    int32_t vga_x2;
    int32_t vga_y2;
    int32_t vga_color_write;
    int32_t vga_color_read;
    uint16_t vga_ram[1024][1024];
    uint64_t vga_response_instr;

    int32_t mouse_command;
    int32_t mouse_response;
    int mouse_active;
    int mouse_lastx;
    int mouse_lasty;
    int32_t mouse_deltax_private;
    int32_t mouse_deltay_private;
    bool mouse_button[3];
    bool mouse_available;
    int32_t mouse_deltax;
    int32_t mouse_deltay;
    bool mouse_button1;
    bool mouse_button2;
    bool mouse_button3;

    int32_t touch_command;
    int32_t touch_response;
    int32_t touch_x_private;
    int32_t touch_y_private;
    int32_t touch_x;
    int32_t touch_y;
    int32_t touch_pressed;

    int32_t sd_command;
    int32_t sd_response;
    int32_t sd_write;
    int32_t sd_address;
    int32_t sd_data_write;
    int32_t sd_data_read;
    uint64_t sd_response_instr;
    int32_t sd_buffer[128];
    bool sd_buffer_valid;
    bool sd_buffer_dirty;
    int32_t sd_buffer_address;

    int32_t serial_receive_command;
    int32_t serial_receive_response;
    int32_t serial_receive_data;
    int32_t serial_send_command;
    int32_t serial_send_data;
    int32_t serial_send_response;
    uint64_t serial_send_response_instr;

    int32_t fft_send_command;
    int32_t fft_send_real;
    int32_t fft_send_imaginary;
    int32_t fft_send_end;
    int32_t fft_send_inverse;
    int32_t fft_send_inverse_first;
    int32_t fft_receive_command;
    int32_t fft_receive_response;
    int32_t fft_receive_real;
    int32_t fft_receive_imaginary;
    uint64_t fft_response_instr;
    kiss_fft_cpx fft_send[1024];
    int fft_send_count;
    kiss_fft_cpx fft_receive[1024];
    int fft_receive_count;

    int32_t camera_command;
    int32_t camera_x;
    int32_t camera_y;
    int32_t camera_scale;
    int32_t camera_flip;
    uint16_t camera_ram[480][640];
    bool camera_ram_valid;
    uint64_t camera_response_instr;

    // The run loop's counts of instructions since each of these things last happened.
    int32_t loop_look;
    int32_t loop_audio;
    int32_t loop_camera;
    int32_t loop_time;
    int32_t loop_throttle; // only those with the speaker off
    uint64_t loop_throttle_ms;
    uint64_t loop_throttle_count;

    serial_state_e serial_state;

    // What the speaker has played and the host has not got yet. 4 ms of sound are a compromise between system
    // calls and delay.
    int16_t speaker_batch[32];
    int32_t speaker_batch_samples;
    int32_t speaker_batch_sent; // of a full one

    // What no register shows and no window, either, before it is asked for.
    std::bitset<32 * 1024> sdram_filled; // the pages of 1024 words that have their noise
    uint16_t vga_last[480][640];         // the colour last painted by a refresh or recorded by a box
    uint32_t vga_picture[480][640];      // the screen without vga_pending, 0xRRGGBB
    std::vector<colored_box_t> vga_pending;
    bool sd_file_open;
    int64_t sd_filesize;          // bytes
    bool camera_file_open;        // a movie plays
    int64_t camera_file_position; // of its next frame, in bytes

    // The files last chosen: what the next question offers, and what messages name.
    std::string sdram_filename;
    std::string speaker_filename;
    std::string microphone_filename;
    std::string vga_filename;
    std::string sd_filename;
    std::string camera_filename;

    std::string serial_cable; // the name of the one that is being connected, else empty

    std::queue<uint8_t> serial_queue; // at most 1024 bytes
};

struct simulator_t {
    bool running;
    bool verbose; // trace every instruction and memory write to standard output
    bool speaker_on;
    bool speaker_warned;
    bool microphone_on;
    bool microphone_warned;
    bool camera_on;
    int step;           // instructions left before the run stops; 0 stops now, negative never
    int32_t breakpoint; // stop when `pc` equals this after an instruction; -1 for none
    int32_t watchpoint; // stop after an instruction that writes this address; -1 for none
};

// What has changed since whoever keeps copies of the board last looked; it is for him to clear it.
struct touched_t {
    bool picture;                       // the video memory and what the screen shows
    bool frame;                         // the camera's
    bool recording;                     // the speaker's begins anew
    std::bitset<32 * 1024> sdram_pages; // of 1024 words
};

// The simulated board. A single object of static storage: 128 MiB of it is the SDRAM.
extern machine_t machine;
extern simulator_t simulator;
extern touched_t touched;
