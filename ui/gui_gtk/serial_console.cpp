// The serial console: what the program sends to the serial port, and a keyboard for it.

#include <string>

#include <gtk/gtk.h>

#include "base/gui.h"
#include "ui/gui_gtk/text.h"
#include "ui/gui_gtk/windows.h"

GtkTextBuffer* serial_buffer = nullptr;

namespace {

constexpr int WINDOW_WIDTH = 645;
constexpr int WINDOW_HEIGHT = 300;

GtkWidget* serial_view = nullptr;

// The toolkit makes the layout of a whole line anew for each change in it, so a line without an end would
// soon take all the time there is. It goes on in the next line, as on a terminal.
constexpr int LONGEST_LINE = 250; // characters

// Each addition scrolls the view and paints it anew: thirty times a second is enough for the eye, and leaves
// the time to the program.
constexpr gint64 APPEND_INTERVAL_US = 30000;
gint64 last_append = 0;

// What came since then.
std::string pending;
int column = 0; // of the next character

} // namespace

void gui_serial_setup() {
    if (serial_buffer != nullptr) {
        return;
    }
    pending.clear();
    column = 0;
    GtkWidget* const window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_title(GTK_WINDOW(window), "Serial console");
    connect_serial_keys(window);
    g_signal_connect(window, "destroy", G_CALLBACK(sig_destroy), &serial_buffer);
    serial_view = new_text_view("Serial output");
    serial_buffer = gtk_text_view_get_buffer(GTK_TEXT_VIEW(serial_view));
    gtk_container_add(GTK_CONTAINER(window), new_scrolled(serial_view, WINDOW_WIDTH, WINDOW_HEIGHT));
    gtk_widget_show_all(window);
}

void gui_serial_append(char c) {
    if (serial_buffer == nullptr || c == '\r') {
        return;
    }
    if (c == '\n') {
        column = 0;
    } else if (++column > LONGEST_LINE) {
        pending += '\n';
        column = 1;
    }
    pending += c;
}

bool serial_console_is_due() { return g_get_monotonic_time() - last_append >= APPEND_INTERVAL_US; }

void flush_serial_console() {
    if (serial_buffer == nullptr || pending.empty()) {
        return;
    }
    last_append = g_get_monotonic_time();
    const std::string shown = show_bytes(pending);
    pending.clear();
    gtk_text_buffer_insert_at_cursor(serial_buffer, shown.data(), static_cast<gint>(shown.size()));
    gtk_text_view_scroll_mark_onscreen(GTK_TEXT_VIEW(serial_view), gtk_text_buffer_get_insert(serial_buffer));
}

// Keys come when they are pressed.
void gui_serial_input() {}
