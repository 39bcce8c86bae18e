#pragma once

// The host's capture device behind the camera.

#include <cstddef>
#include <cstdint>

// Open and close the device, and show which it is on "Camera". The first of /dev/video, /dev/video0 and
// /dev/video1 that gives 640x480 points in YUYV is taken; a movie that plays then ends. Without one the
// camera plays movies.
void camera_connect();
void camera_disconnect();

// Takes a new frame, if there is one; waits up to 5 s for the first. A failure closes the device and is shown
// in a dialog. The device must be open.
void camera_check();

// A point of YUV, each 0 to 255, as a colour of 15 bits.
uint16_t yuv_to_rgb15(int y, int u, int v);

// Pairs of points, of four bytes each (y of the first, u, y of the second, v), as colours of 15 bits: the
// same as yuv_to_rgb15 gives, but fast.
void convert_yuyv(const uint8_t* yuyv, uint16_t* colors, size_t pairs);
