#pragma once

// Camera: its registers, the host's capture device behind it, and movies instead of a live picture.

#include <cstddef>
#include <cstdint>

// Instructions between two frames, of which 30 are a second of the board's time.
constexpr int32_t INSTRUCTIONS_PER_FRAME = 222222;

// The title of the question for its file.
constexpr const char* CAMERA_QUESTION = "Choose kmovie file";

// The register handler of the I/O bus. Asks the user for a kmovie file when the program takes a frame and
// there is none; throws tovik_error "user cancelled camera file read".
int32_t io_camera(bool write, int32_t address, int32_t data);

// For the table of registers.
bool take_camera_command(int32_t data);
int32_t read_camera_response();
uint64_t camera_steady_until();

// Open and close the device, and show which it is on "Camera". With the device, a movie that plays ends;
// without one the camera plays movies.
void camera_connect();
void camera_disconnect();

// Takes a new frame, if there is one; waits up to 5 s for the first. A failure closes the device and is shown
// in a dialog. The device must be open.
void camera_check();

// The movie goes on to its next frame; at its end it is closed. Does nothing while the capture device is on.
// A failure closes the movie and is shown in a dialog.
void advance_camera_file();

// No command, all registers 0, no frame and no movie. The capture device stays.
void reset_camera();

// A point of YUV, each 0 to 255, as a colour of 15 bits.
uint16_t yuv_to_rgb15(int y, int u, int v);

// Pairs of points, of four bytes each (y of the first, u, y of the second, v), as colours of 15 bits: the
// same as yuv_to_rgb15 gives, but fast.
void convert_yuyv(const uint8_t* yuyv, uint16_t* colors, size_t pairs);
