#include "ui/gui_batch/picture.h"

#include <emscripten.h>

#include "base/machine.h"
#include "devices/vga.h"
#include "ui/screen.h"

namespace {

// What loads this program has put a function for it there: web/node/png.cjs.
EM_JS(size_t, encode_png, (const uint32_t* pixels, int width, int height), {
    Module.png =
        globalThis.tovikPng(HEAPU32.subarray(pixels >> 2, (pixels >> 2) + width * height), width, height);
    return Module.png.length;
});

EM_JS(void, take_png, (char* to), {
    HEAPU8.set(Module.png, to);
    Module.png = null;
});

} // namespace

std::string png_of(std::span<const uint32_t> pixels, int width, const std::string& /*name*/) {
    std::string png;
    png.resize(encode_png(pixels.data(), width, static_cast<int>(pixels.size()) / width));
    take_png(png.data());
    return png;
}

std::string png_of_screen(const std::string& name) {
    take_screen_changes();
    return png_of({machine.vga_picture[0], static_cast<size_t>(VGA_WIDTH) * VGA_HEIGHT}, VGA_WIDTH, name);
}
