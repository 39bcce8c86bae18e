#pragma once

// Pictures as image files.

#include <cstdint>
#include <span>
#include <string>

// The bytes of a PNG file of pixels, 0xRRGGBB, row by row. Throws tovik_error, which says for which file they
// were to be.
std::string png_of(std::span<const uint32_t> pixels, int width, const std::string& name);

// Of the picture on the screen.
std::string png_of_screen(const std::string& name);
