#pragma once

// Camera: its registers, and movies instead of a live picture. The capture device is in camera_capture.h.

#include <cstdint>

// Instructions between two frames, of which 30 are a second of the board's time.
constexpr int32_t INSTRUCTIONS_PER_FRAME = 222222;

// The register handler of the I/O bus. Asks the user for a kmovie file when the program takes a frame and
// there is none; throws tovik_error "user cancelled camera file read".
int32_t io_camera(bool write, int32_t address, int32_t data);

// What programs poll, for the address map.
int32_t read_camera_response();
uint64_t camera_steady_until();

// The movie goes on to its next frame; at its end it is closed. Does nothing while the capture device is on.
// A failure closes the movie and is shown in a dialog.
void advance_camera_file();

// Ends the movie, if one plays.
void close_movie();

// No command, all registers 0, no frame and no movie. The capture device stays.
void reset_camera();
