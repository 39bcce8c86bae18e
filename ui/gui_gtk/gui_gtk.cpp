// The desktop front end: start-up and the event pump.
//
// Nothing is drawn when a device asks for it. The drawing functions note what changed, and the pump hands it
// to the toolkit when the run loop looks at the window, once in a hundred thousand instructions or when it
// stops. A program without sound runs so fast that it would look far more often than anyone can see. Dialogs,
// which have loops of their own, hand it over first.

#include <cassert>
#include <cstdlib>

#include "base/gui.h"
#include "base/machine.h"
#include "ui/gui_gtk/windows.h"
#include "ui/screen.h"

namespace {

// Less than the time of a hundred thousand instructions at the board's own speed.
constexpr gint64 US_BETWEEN_PICTURES = 14000;

gint64 last_picture_us = 0;

void flush_windows() {
    last_picture_us = g_get_monotonic_time();
    flush_labels();
    flush_board();
}

// What the pump hands over.
void flush_due() {
    flush_windows();
    if (!simulator.running || serial_console_is_due()) {
        flush_serial_console();
    }
}

} // namespace

void flush_display() {
    flush_windows();
    flush_serial_console();
}

void gui_setup(int argc, char** argv) {
    gtk_init(&argc, &argv);
    build_memory_window();
    build_vga_window();
    build_main_window();
    choose_initial_file(argc, argv);
}

bool gui_events_pending() {
    if (g_get_monotonic_time() - last_picture_us >= US_BETWEEN_PICTURES) {
        flush_due();
    }
    return gtk_events_pending() != FALSE;
}

void gui_handle_event() {
    flush_due();
    gtk_main_iteration();
}

void sig_destroy(GtkWidget* /*widget*/, gpointer handle) {
    if (handle == nullptr) {
        std::exit(0);
    } else if (handle == &memory_buffer) {
        memory_buffer = nullptr;
    } else if (handle == &serial_buffer) {
        serial_buffer = nullptr;
    } else if (handle == &vga_draw) {
        vga_draw = nullptr;
        screen_open = false;
    } else {
        assert(0);
    }
}
