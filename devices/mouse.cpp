// Mouse with three buttons. The program gets a report when something is new: command 1, poll response, read,
// command 0.
//
//   offset  register  access  bits   meaning
//   0x70    command   write   0
//   0x71    response  read    0      1 when there is a report
//   0x72    deltax    read    31..0  motion to the right since the last report, pixels
//   0x73    deltay    read    31..0  motion downward
//   0x74    button1   read    0      left button is down
//   0x75    button2   read    0      middle button
//   0x76    button3   read    0      right button
//
// No busy time. Not modelled: a wheel.

#include "devices/mouse.h"

#include <iterator>

#include "base/arithmetic.h"
#include "base/gui.h"
#include "base/machine.h"
#include "devices/io.h"
#include "devices/touch.h"

namespace {

constexpr int32_t RESPONSE = 0x71;

constexpr int NO_POSITION = -1;

bool something_is_new() {
    return machine.mouse_deltax_private != 0 || machine.mouse_deltay_private != 0 ||
           machine.mouse_button[0] != machine.mouse_button1 ||
           machine.mouse_button[1] != machine.mouse_button2 ||
           machine.mouse_button[2] != machine.mouse_button3;
}

void make_report() {
    machine.mouse_response = 1;
    machine.mouse_deltax = machine.mouse_deltax_private;
    machine.mouse_deltay = machine.mouse_deltay_private;
    machine.mouse_deltax_private = 0;
    machine.mouse_deltay_private = 0;
    machine.mouse_button1 = machine.mouse_button[0];
    machine.mouse_button2 = machine.mouse_button[1];
    machine.mouse_button3 = machine.mouse_button[2];
}

// A wheel, for one, comes as buttons beyond the third.
bool is_button(int button) {
    return button >= 0 && button < static_cast<int>(std::size(machine.mouse_button));
}

} // namespace

int32_t read_mouse_response() {
    if (machine.mouse_command == 0) {
        machine.mouse_response = 0;
    } else if (machine.mouse_response == 0 && something_is_new()) {
        make_report();
    }
    return machine.mouse_response;
}

int32_t io_mouse(bool write, int32_t address, int32_t /*data*/) {
    if (write || io_offset(address) != RESPONSE) {
        io_unsupported(address);
    }
    return read_mouse_response();
}

void io_mouse_activate() {
    machine.mouse_active = 1;
    gui_vga_cursor(true);
}

void io_mouse_deactivate() {
    if (machine.mouse_active == 1) {
        machine.mouse_active = 0;
    }
    machine.mouse_lastx = NO_POSITION;
    machine.mouse_lasty = NO_POSITION;
    machine.mouse_deltax_private = 0;
    machine.mouse_deltay_private = 0;
    for (bool& button : machine.mouse_button) {
        button = false;
    }
    gui_vga_cursor(false);
}

void io_mouse_press(int button) {
    if (is_button(button)) {
        io_mouse_activate();
        machine.mouse_button[button] = true;
    }
}

void io_mouse_release(int button) {
    if (is_button(button)) {
        machine.mouse_button[button] = false;
    }
}

void io_mouse_motion(int x, int y) {
    if (machine.mouse_active == 1) {
        if (machine.mouse_lastx >= 0) {
            machine.mouse_deltax_private =
                wrap_add(machine.mouse_deltax_private, wrap_sub(x, machine.mouse_lastx));
            machine.mouse_deltay_private =
                wrap_add(machine.mouse_deltay_private, wrap_sub(y, machine.mouse_lasty));
        }
        machine.mouse_lastx = x;
        machine.mouse_lasty = y;
    }
    io_touch_motion(x, y);
}

void reset_mouse() {
    machine.mouse_command = 0;
    machine.mouse_response = 0;
    io_mouse_deactivate();
}
