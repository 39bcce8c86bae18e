#include "ui/gui_batch/picture.h"

#include <cstddef>
#include <initializer_list>

#include <png.h>

#include "base/machine.h"
#include "devices/vga.h"
#include "ui/screen.h"

namespace {

constexpr int BYTES_PER_PIXEL = 3;

// Red, green and blue of each pixel, a byte each.
std::string bytes_of(std::span<const uint32_t> pixels) {
    std::string bytes;
    bytes.reserve(pixels.size() * BYTES_PER_PIXEL);
    for (const uint32_t pixel : pixels) {
        for (const int shift : {16, 8, 0}) {
            bytes += static_cast<char>(pixel >> shift & 0xff);
        }
    }
    return bytes;
}

} // namespace

std::string png_of(std::span<const uint32_t> pixels, int width, const std::string& name) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(pixels.size() / static_cast<size_t>(width));
    image.format = PNG_FORMAT_RGB;
    // Without filters: rectangles and noise gain nothing by them.
    image.flags = PNG_IMAGE_FLAG_FAST;
    const std::string bytes = bytes_of(pixels);
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    std::string png(size, '\0');
    if (png_image_write_to_memory(&image, png.data(), &size, 0, bytes.data(), 0, nullptr) == 0) {
        throw tovik_error("can't encode the picture " + name + ": " + image.message);
    }
    png.resize(size);
    return png;
}

std::string png_of_screen(const std::string& name) {
    take_screen_changes();
    return png_of({machine.vga_picture[0], static_cast<size_t>(VGA_WIDTH) * VGA_HEIGHT}, VGA_WIDTH, name);
}
