#pragma once

// The picture on the screen as an image file.

#include <string>

// The bytes of a PNG file of the screen. Throws tovik_error, which says for which file they were to be.
std::string png_of_screen(const std::string& name);
