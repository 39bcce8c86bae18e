#include "ui/gui_batch/picture.h"

#include <cstdint>
#include <initializer_list>

#include <png.h>

#include "base/machine.h"
#include "devices/vga.h"
#include "ui/screen.h"

namespace {

constexpr int BYTES_PER_PIXEL = 3;

// Red, green and blue of each pixel, row by row, a byte each.
std::string screen_bytes() {
    take_screen_changes();
    std::string bytes;
    bytes.reserve(static_cast<size_t>(VGA_WIDTH) * VGA_HEIGHT * BYTES_PER_PIXEL);
    for (const auto& row : machine.vga_picture) {
        for (const uint32_t pixel : row) {
            for (const int shift : {16, 8, 0}) {
                bytes += static_cast<char>(pixel >> shift & 0xff);
            }
        }
    }
    return bytes;
}

} // namespace

std::string png_of_screen(const std::string& name) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = VGA_WIDTH;
    image.height = VGA_HEIGHT;
    image.format = PNG_FORMAT_RGB;
    // Without filters: rectangles and noise gain nothing by them.
    image.flags = PNG_IMAGE_FLAG_FAST;
    const std::string bytes = screen_bytes();
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    std::string png(size, '\0');
    if (png_image_write_to_memory(&image, png.data(), &size, 0, bytes.data(), 0, nullptr) == 0) {
        throw tovik_error("can't encode the picture " + name + ": " + image.message);
    }
    png.resize(size);
    return png;
}
