// The desktop front end: start-up and the event pump.
//
// Nothing is drawn when a device asks for it. The drawing functions note what changed, and the pump hands it
// to the toolkit when the run loop looks at the window, once in a hundred thousand instructions or when it
// stops. Dialogs, which have loops of their own, hand it over first.

#include <cassert>
#include <cstdlib>

#include "ui/gui.h"
#include "ui/gui_gtk/windows.h"
#include "ui/screen.h"

void flush_display() {
    flush_labels();
    flush_board();
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
    flush_display();
    return gtk_events_pending() != FALSE;
}

void gui_handle_event() {
    flush_display();
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
