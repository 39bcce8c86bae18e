#pragma once

// FFT unit: transforms blocks of 1024 complex numbers.

#include <cstdint>

// The register handlers of the I/O bus, for the points that go in and for the results.
int32_t io_fft_send(bool write, int32_t address, int32_t data);
int32_t io_fft_receive(bool write, int32_t address, int32_t data);

// For the table of registers.
void write_fft_send_command(int32_t data);
bool take_fft_real(int32_t data);
bool take_fft_imaginary(int32_t data);
void write_fft_receive_command(int32_t data);
int32_t read_fft_send_response();
int32_t read_fft_receive_response();
uint64_t fft_steady_until();

// No command, no point collected, no results; all registers 0.
void reset_fft();
