// Touch screen over the 640x480 picture. The program gets a report when the touch begins, moves or ends:
// command 1, poll response, read, command 0. A pointer that moves without touching is not reported.
//
//   offset  register  access  bits  meaning
//   0xe0    command   write   0
//   0xe1    response  read    0     1 when there is a report
//   0xe2    x         read    9..0  0 to 639
//   0xe3    y         read    8..0  0 to 479
//   0xe4    pressed   read    0     1 while the screen is touched
//
// The touch is the left button of the mouse. No busy time. Not modelled: more than one finger.

#include "devices/touch.h"

#include <algorithm>

#include "base/machine.h"
#include "devices/io.h"
#include "devices/vga.h"

namespace {

constexpr int32_t RESPONSE = 0xe1;

bool something_is_new(int32_t pressed) {
    return pressed != machine.touch_pressed || (pressed == 1 && (machine.touch_x_private != machine.touch_x ||
                                                                 machine.touch_y_private != machine.touch_y));
}

} // namespace

int32_t read_touch_response() {
    const int32_t pressed = machine.mouse_button[0] ? 1 : 0;
    if (machine.touch_command == 0) {
        machine.touch_response = 0;
    } else if (machine.touch_response == 0 && something_is_new(pressed)) {
        machine.touch_response = 1;
        machine.touch_x = machine.touch_x_private;
        machine.touch_y = machine.touch_y_private;
        machine.touch_pressed = pressed;
    }
    return machine.touch_response;
}

int32_t io_touch(bool write, int32_t address, int32_t /*data*/) {
    if (write || io_offset(address) != RESPONSE) {
        io_unsupported(address);
    }
    return read_touch_response();
}

void io_touch_motion(int x, int y) {
    machine.touch_x_private = std::clamp(x, 0, VGA_WIDTH - 1);
    machine.touch_y_private = std::clamp(y, 0, VGA_HEIGHT - 1);
}

void reset_touch() {
    machine.touch_command = 0;
    machine.touch_response = 0;
    machine.touch_x = -1;
    machine.touch_y = -1;
    machine.touch_pressed = 0;
}
